#include "Platform/XPC/linux/WireMessage.h"

#include "Platform/Support/Fatal.h"
#include "Platform/XPC/linux/BodyReader.h"
#include "Platform/XPC/linux/WireLimits.h"

#include <cerrno>

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

int appendData(sd_bus_message* message, const ns::Data& data)
{
    return sd_bus_message_append_array(message, 'y', data.data(), data.size());
}

int appendOptionalData(sd_bus_message* message, const std::optional<ns::Data>& data)
{
    int result = sd_bus_message_open_container(message, SD_BUS_TYPE_STRUCT, "bay");
    if (result >= 0) result = sd_bus_message_append(message, "b", static_cast<int>(data.has_value()));
    if (result >= 0) result = appendData(message, data.value_or(ns::Data()));
    return result < 0 ? result : sd_bus_message_close_container(message);
}

int appendOptionalError(sd_bus_message* message, const std::optional<ns::Error>& error)
{
    const auto value = error.value_or(ns::Error());
    return sd_bus_message_append(message, "(bsx)", static_cast<int>(error.has_value()), value.domain.c_str(),
                                 value.code);
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
    case ArgumentType::uint64:
        return sd_bus_message_append(message, "t", std::get<std::uint64_t>(argument));
    case ArgumentType::string:
        return sd_bus_message_append(message, "s", std::get<std::string>(argument).c_str());
    case ArgumentType::data:
        return appendData(message, std::get<ns::Data>(argument));
    case ArgumentType::optionalData:
        return appendOptionalData(message, std::get<std::optional<ns::Data>>(argument));
    case ArgumentType::optionalError:
        return appendOptionalError(message, std::get<std::optional<ns::Error>>(argument));
    }
    pavo::fatalError("Unknown argument type");
}

std::string textOrNone(const char* text)
{
    return text ? text : "(none)";
}

// `where` is "<in a call of or the like> <name>".
std::variant<std::vector<Argument>, Refusal> readArguments(sd_bus_message* message, const MessageReader& raw,
                                                           std::span<const ArgumentType> types,
                                                           SurfaceCache& surfaces, const std::string& where)
{
    const auto signature = textOrNone(sd_bus_message_get_signature(message, 1));
    if (signature != signatureOf(types)) return "wrong arguments " + where + ": " + signature;
    BodyReader body(raw, surfaces);
    auto arguments = body.readAll(types);
    if (!arguments) return body.refusal() + (" " + where);
    return *std::move(arguments);
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
    if (error >= 0) error = sd_bus_message_set_expect_reply(encoded.get(), message.call != kNoCall);
    for (const auto& argument : message.arguments)
        if (error >= 0) error = append(encoded.get(), argument);
    if (error < 0) encoded.reset();
    return encoded;
}

BusMessage encodeAnswer(sd_bus_message* call, const std::vector<Argument>* values, int& error)
{
    sd_bus_message* made = nullptr;
    error = values ? sd_bus_message_new_method_return(call, &made)
                   : sd_bus_message_new_method_errorf(call, &made, SD_BUS_ERROR_NO_REPLY, "No reply");
    BusMessage encoded(made);
    if (values)
        for (const auto& value : *values)
            if (error >= 0) error = append(encoded.get(), value);
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

    auto arguments = readArguments(message, raw, target->method->arguments, surfaces, "in a call of " + name);
    if (auto* refusal = std::get_if<Refusal>(&arguments)) return std::move(*refusal);
    return IncomingMessage{target->method, std::get<std::vector<Argument>>(std::move(arguments)), {}};
}

std::variant<std::vector<Argument>, Refusal> decodeAnswer(sd_bus_message* message, const MessageReader& raw,
                                                          const MethodDescription& method,
                                                          SurfaceCache& surfaces)
{
    const auto where = "in the answer to " + std::string(method.selector);
    if (sd_bus_message_is_method_error(message, nullptr) > 0)
        return "an error " + where + ": " + textOrNone(sd_bus_message_get_error(message)->name);
    return readArguments(message, raw, *method.reply, surfaces, where);
}

}  // namespace xpc
