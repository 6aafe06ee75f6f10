#include "Platform/XPC/linux/WireNames.h"

#include "Platform/Support/Fatal.h"
#include "Platform/XPC/linux/WireLimits.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <set>

namespace xpc {

namespace {

const char* signatureOf(ArgumentType type)
{
    switch (type) {
    case ArgumentType::int32:
        return "i";
    case ArgumentType::boolean:
        return "b";
    case ArgumentType::real:
        return "d";
    case ArgumentType::sampleTiming:
        return "((xiux)(xiux)(xiux))";
    case ArgumentType::surface:
        return "h";
    case ArgumentType::uint64:
        return "t";
    case ArgumentType::string:
        return "s";
    case ArgumentType::data:
        return "ay";
    case ArgumentType::optionalData:
        return "(bay)";
    case ArgumentType::optionalError:
        return "(bsx)";
    }
    pavo::fatalError("Unknown argument type");
}

std::size_t surfaceCount(std::span<const ArgumentType> arguments)
{
    return static_cast<std::size_t>(std::count(arguments.begin(), arguments.end(), ArgumentType::surface));
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
        signature += signatureOf(type);
    return signature;
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
        pavo::require(surfaceCount(method.arguments) <= kMaxMessageDescriptors,
                      "The method has too many surfaces: " + std::string(method.selector));
        pavo::require(!method.reply || surfaceCount(method.arguments) + surfaceCount(*method.reply) == 0,
                      "A method with a reply cannot have surfaces: " + std::string(method.selector));
    }
    for (const auto* adopted : protocol.adopted)
        requireWireNames(*adopted);
}

}  // namespace xpc
