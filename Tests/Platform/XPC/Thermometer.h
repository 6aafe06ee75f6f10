#pragma once

#include "Platform/XPC/XPCProtocol.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// A protocol of these tests whose methods have replies, with every type that can travel in one.
namespace pavo::test {

class Thermometer {
public:
    virtual void temperature(xpc::Reply<std::uint64_t> reply) = 0;
    virtual void isWarm(xpc::Reply<bool> reply) = 0;
    virtual void place(const std::string& room, const ns::Data& marks,
                       xpc::Reply<std::optional<ns::Data>, std::optional<ns::Error>> reply) = 0;
    virtual void settle(xpc::Reply<> reply) = 0;
    virtual void shake() = 0;

protected:
    ~Thermometer() = default;
};

}  // namespace pavo::test

template <>
struct xpc::Protocol<pavo::test::Thermometer> {
    using Service = pavo::test::Thermometer;
    static constexpr std::string_view name = "Tests.Thermometer";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<xpc::Message<"temperatureWithReply:", &Service::temperature>,
                                   xpc::Message<"isWarmWithReply:", &Service::isWarm>,
                                   xpc::Message<"placeInRoom:marks:reply:", &Service::place>,
                                   xpc::Message<"settleWithReply:", &Service::settle>,
                                   xpc::Message<"shake", &Service::shake>>;
};
