#include "Platform/XPC/linux/WireMessage.h"

#include "Platform/Support/Fatal.h"
#include "Platform/XPC/linux/WireLimits.h"
#include "Platform/XPC/linux/WireNumber.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>

namespace xpc {

namespace {

int appendTime(sd_bus_message* message, const CMTime& time)
{
    const std::int64_t value = time.value;
    const std::int32_t timescale = time.timescale;
    const std::uint32_t flags = time.flags;
    const std::int64_t epoch = time.epoch;
    return sd_bus_message_append(message, "(xiux)", value, timescale, flags, epoch);
}

int appendTiming(sd_bus_message* message, const CMSampleTimingInfo& timing)
{
    int result = sd_bus_message_open_container(message, SD_BUS_TYPE_STRUCT, "(xiux)(xiux)(xiux)");
    for (const auto& time : {timing.duration, timing.presentationTimeStamp, timing.decodeTimeStamp})
        if (result >= 0) result = appendTime(message, time);
    return result < 0 ? result : sd_bus_message_close_container(message);
}

int appendSurface(sd_bus_message* message, IOSurfaceRef surface)
{
    if (!surface) return -EINVAL;
    const auto port = IOSurfaceCreateMachPort(surface);
    if (!MACH_PORT_VALID(port)) return -EMFILE;
    // The message takes a descriptor of its own.
    const pavo::UniqueFd descriptor(static_cast<int>(port));
    return sd_bus_message_append(message, "h", descriptor.get());
}

int append(sd_bus_message* message, const Argument& argument)
{
    switch (static_cast<ArgumentType>(argument.index())) {
    case ArgumentType::int32:
        return sd_bus_message_append(message, "i", std::get<std::int32_t>(argument));
    case ArgumentType::boolean:
        return sd_bus_message_append(message, "b", static_cast<int>(std::get<bool>(argument)));
    case ArgumentType::real:
        return sd_bus_message_append(message, "d", std::get<double>(argument));
    case ArgumentType::sampleTiming:
        return appendTiming(message, std::get<CMSampleTimingInfo>(argument));
    case ArgumentType::surface:
        return appendSurface(message, std::get<cf::Ref<IOSurfaceRef>>(argument).get());
    }
    pavo::fatalError("Unknown argument type");
}

// Reads the arguments of a message from its bytes. Their types have one size each, so there is nothing to
// parse; the library cannot read descriptors that it does not have.
class BodyReader {
public:
    BodyReader(const MessageReader& raw, SurfaceCache& surfaces) : raw_(raw), surfaces_(surfaces) {}

    // The bytes between two arguments, which have to be zero.
    bool isPadding(std::size_t begin, std::size_t end) const
    {
        const auto bytes = raw_.body().subspan(begin, end - begin);
        return std::all_of(bytes.begin(), bytes.end(), [](std::byte byte) { return byte == std::byte{0}; });
    }

    std::optional<Argument> read(ArgumentType type, std::size_t offset) const
    {
        switch (type) {
        case ArgumentType::int32:
            return number<std::int32_t>(offset);
        case ArgumentType::boolean:
            return readBoolean(offset);
        case ArgumentType::real:
            return number<double>(offset);
        case ArgumentType::sampleTiming:
            return CMSampleTimingInfo{readTime(offset), readTime(offset + kTimeBytes),
                                      readTime(offset + 2 * kTimeBytes)};
        case ArgumentType::surface:
            return readSurface(offset);
        }
        pavo::fatalError("Unknown argument type");
    }

private:
    static constexpr std::size_t kTimeBytes = 24;

    template <typename Number>
    Number number(std::size_t offset) const
    {
        return wireNumber<Number>(raw_.body().subspan(offset, sizeof(Number)), raw_.isBigEndian());
    }

    std::optional<Argument> readBoolean(std::size_t offset) const
    {
        const auto value = number<std::uint32_t>(offset);
        if (value > 1) return std::nullopt;
        return value == 1;
    }

    CMTime readTime(std::size_t offset) const
    {
        return CMTime{number<std::int64_t>(offset), number<std::int32_t>(offset + 8),
                      number<std::uint32_t>(offset + 12), number<std::int64_t>(offset + 16)};
    }

    std::optional<Argument> readSurface(std::size_t offset) const
    {
        const auto index = number<std::uint32_t>(offset);
        if (index >= raw_.descriptors().size()) return std::nullopt;
        const auto port = static_cast<mach_port_t>(raw_.descriptors()[index].get());
        auto surface = cf::adopt(IOSurfaceLookupFromMachPort(port));
        if (!surface) return std::nullopt;
        surfaces_.keep(surface);
        return surface;
    }

    const MessageReader& raw_;
    SurfaceCache& surfaces_;
};

const char* refusalOf(ArgumentType type)
{
    switch (type) {
    case ArgumentType::boolean:
        return "neither true nor false in a call of ";
    case ArgumentType::surface:
        return "no sound surface in a call of ";
    default:
        return "unreadable argument in a call of ";
    }
}

std::string textOrNone(const char* text)
{
    return text ? text : "(none)";
}

}  // namespace

BusMessage encode(sd_bus* bus, const OutgoingMessage& message, int& error)
{
    const auto& [protocol, method] = message.target;
    sd_bus_message* made = nullptr;
    error =
        sd_bus_message_new_method_call(bus, &made, nullptr, kObjectPath, std::string(protocol->name).c_str(),
                                       memberName(method->selector).c_str());
    BusMessage encoded(made);
    if (error >= 0) error = sd_bus_message_set_expect_reply(encoded.get(), 0);
    for (const auto& argument : message.arguments)
        if (error >= 0) error = append(encoded.get(), argument);
    if (error < 0) encoded.reset();
    return encoded;
}

std::variant<IncomingMessage, Refusal> decode(sd_bus_message* message, const MessageReader& raw,
                                              const ProtocolDescription* exported, SurfaceCache& surfaces)
{
    const auto path = textOrNone(sd_bus_message_get_path(message));
    const auto interface = textOrNone(sd_bus_message_get_interface(message));
    const auto member = textOrNone(sd_bus_message_get_member(message));
    const auto name = interface + "." + member;
    if (path != kObjectPath) return "no object at " + path;
    if (!exported) return "nothing is exported, but " + name + " was called";
    const auto target = findByMember(*exported, interface, member);
    if (!target) return "no method " + name;

    const auto& types = target->method->arguments;
    const auto layout = bodyLayoutOf(types);
    const auto signature = textOrNone(sd_bus_message_get_signature(message, 1));
    if (signature != signatureOf(types)) return "wrong arguments for " + name + ": " + signature;
    if (raw.body().size() != (layout.empty() ? 0 : layout.back().end))
        return "wrong size of the arguments for " + name;

    IncomingMessage call;
    call.method = target->method;
    const BodyReader body(raw, surfaces);
    std::size_t end = 0;
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (!body.isPadding(end, layout[i].begin)) return "padding that is not zero in a call of " + name;
        auto argument = body.read(types[i], layout[i].begin);
        if (!argument) return refusalOf(types[i]) + name;
        call.arguments.push_back(std::move(*argument));
        end = layout[i].end;
    }
    return call;
}

}  // namespace xpc
