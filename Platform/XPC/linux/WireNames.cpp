#include "Platform/XPC/linux/WireNames.h"

#include "Platform/Support/Fatal.h"
#include "Platform/XPC/linux/WireLimits.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <set>

namespace xpc {

namespace {

struct WireType {
    const char* signature;
    std::size_t alignment;
    std::size_t size;
};

// The size of a structure counts its inner padding: a time is 8 + 4 + 4 + 8 bytes, three times are 72.
WireType wireTypeOf(ArgumentType type)
{
    switch (type) {
    case ArgumentType::int32:
        return {"i", 4, 4};
    case ArgumentType::boolean:
        return {"b", 4, 4};
    case ArgumentType::real:
        return {"d", 8, 8};
    case ArgumentType::sampleTiming:
        return {"((xiux)(xiux)(xiux))", 8, 72};
    case ArgumentType::surface:
        return {"h", 4, 4};
    }
    pavo::fatalError("Unknown argument type");
}

}  // namespace

std::string memberName(std::string_view selector)
{
    std::string name(selector);
    std::replace(name.begin(), name.end(), ':', '_');
    return name;
}

std::string signatureOf(std::span<const ArgumentType> arguments)
{
    std::string signature;
    for (const auto type : arguments)
        signature += wireTypeOf(type).signature;
    return signature;
}

std::vector<Extent> bodyLayoutOf(std::span<const ArgumentType> arguments)
{
    std::vector<Extent> layout;
    std::size_t end = 0;
    for (const auto argument : arguments) {
        const auto type = wireTypeOf(argument);
        const auto begin = (end + type.alignment - 1) / type.alignment * type.alignment;
        end = begin + type.size;
        layout.push_back({begin, end});
    }
    return layout;
}

std::optional<DeclaredMethod> findBySelector(const ProtocolDescription& protocol, std::string_view selector)
{
    for (const auto& method : protocol.methods)
        if (method.selector == selector) return DeclaredMethod{&protocol, &method};
    for (const auto* adopted : protocol.adopted)
        if (const auto found = findBySelector(*adopted, selector)) return found;
    return std::nullopt;
}

std::optional<DeclaredMethod> findByMember(const ProtocolDescription& protocol, std::string_view interface,
                                           std::string_view member)
{
    if (protocol.name == interface)
        for (const auto& method : protocol.methods)
            if (memberName(method.selector) == member) return DeclaredMethod{&protocol, &method};
    for (const auto* adopted : protocol.adopted)
        if (const auto found = findByMember(*adopted, interface, member)) return found;
    return std::nullopt;
}

void requireWireNames(const ProtocolDescription& protocol)
{
    pavo::require(sd_bus_interface_name_is_valid(std::string(protocol.name).c_str()) > 0,
                  "The protocol's name cannot be an interface name: " + std::string(protocol.name));
    std::set<std::string> members;
    for (const auto& method : protocol.methods) {
        const auto member = memberName(method.selector);
        pavo::require(sd_bus_member_name_is_valid(member.c_str()) > 0,
                      "The selector cannot be a member name: " + std::string(method.selector));
        pavo::require(members.insert(member).second,
                      "Two selectors have one member name: " + std::string(method.selector));
        const auto surfaces =
            std::count(method.arguments.begin(), method.arguments.end(), ArgumentType::surface);
        pavo::require(static_cast<std::size_t>(surfaces) <= kMaxMessageDescriptors,
                      "The method has too many surfaces: " + std::string(method.selector));
    }
    for (const auto* adopted : protocol.adopted)
        requireWireNames(*adopted);
}

}  // namespace xpc
