#include "Platform/XPC/linux/WireMessage.h"

#include "Platform/Support/Fatal.h"
#include "Platform/XPC/linux/WireLimits.h"

#include <cerrno>
#include <optional>
#include <string_view>

namespace xpc {

namespace {

constexpr const char* kTimeSignature = "xiux";

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

int readTime(sd_bus_message* message, CMTime& time)
{
    std::int64_t value = 0;
    std::int32_t timescale = 0;
    std::uint32_t flags = 0;
    std::int64_t epoch = 0;
    int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_STRUCT, kTimeSignature);
    if (result >= 0)
        result = sd_bus_message_read(message, kTimeSignature, &value, &timescale, &flags, &epoch);
    if (result >= 0) result = sd_bus_message_exit_container(message);
    time = CMTime{value, timescale, flags, epoch};
    return result;
}

std::optional<Argument> readTiming(sd_bus_message* message)
{
    CMSampleTimingInfo timing{};
    int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_STRUCT, "(xiux)(xiux)(xiux)");
    for (auto* time : {&timing.duration, &timing.presentationTimeStamp, &timing.decodeTimeStamp})
        if (result >= 0) result = readTime(message, *time);
    if (result >= 0) result = sd_bus_message_exit_container(message);
    if (result < 0) return std::nullopt;
    return timing;
}

std::optional<Argument> readSurface(sd_bus_message* message, SurfaceCache& surfaces)
{
    int descriptor = -1;  // the message's
    if (sd_bus_message_read_basic(message, 'h', &descriptor) <= 0) return std::nullopt;
    auto surface = cf::adopt(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(descriptor)));
    if (!surface) return std::nullopt;
    surfaces.keep(surface);
    return surface;
}

// The library takes every number but 0 for true; the format knows 0 and 1 only.
bool isBoolean(const MessageReader& raw, std::size_t offset)
{
    const auto bytes = raw.body().subspan(offset, 4);
    unsigned int ones = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool isLowest = i == (raw.isBigEndian() ? 3 : 0);
        if (!isLowest && bytes[i] != std::byte{0}) return false;
        if (isLowest) ones = std::to_integer<unsigned int>(bytes[i]);
    }
    return ones <= 1;
}

std::optional<Argument> read(sd_bus_message* message, ArgumentType type, SurfaceCache& surfaces)
{
    switch (type) {
    case ArgumentType::int32: {
        std::int32_t value = 0;
        if (sd_bus_message_read_basic(message, 'i', &value) <= 0) return std::nullopt;
        return value;
    }
    case ArgumentType::boolean: {
        int value = 0;
        if (sd_bus_message_read_basic(message, 'b', &value) <= 0) return std::nullopt;
        return value != 0;
    }
    case ArgumentType::real: {
        double value = 0;
        if (sd_bus_message_read_basic(message, 'd', &value) <= 0) return std::nullopt;
        return value;
    }
    case ArgumentType::sampleTiming:
        return readTiming(message);
    case ArgumentType::surface:
        return readSurface(message, surfaces);
    }
    pavo::fatalError("Unknown argument type");
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
    if (raw.body().size() != layout.back()) return "wrong size of the arguments for " + name;

    IncomingMessage call;
    call.method = target->method;
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i] == ArgumentType::boolean && !isBoolean(raw, layout[i]))
            return "neither true nor false in a call of " + name;
        auto argument = read(message, types[i], surfaces);
        if (!argument)
            return (types[i] == ArgumentType::surface ? "no sound surface in a call of "
                                                      : "unreadable argument in a call of ") +
                   name;
        call.arguments.push_back(std::move(*argument));
    }
    return call;
}

}  // namespace xpc
