#pragma once

#include "Platform/XPC/XPCProtocol.h"

#include <cstdint>
#include <string_view>

// The protocols of these tests: one that adopts another, with every type that can travel, and one for the
// other direction.
namespace pavo::test {

class Switching {
public:
    virtual void switchOn() = 0;
    virtual void switchOff() = 0;

protected:
    ~Switching() = default;
};

class Lamp : public Switching {
public:
    virtual void setBrightness(double brightness) = 0;
    virtual void setColourIsFast(std::int32_t colour, bool isFast) = 0;
    virtual void shine(IOSurfaceRef surface, CMSampleTimingInfo timing) = 0;

protected:
    ~Lamp() = default;
};

class LampOwner {
public:
    virtual void lampDidSwitch(bool isOn) = 0;

protected:
    ~LampOwner() = default;
};

}  // namespace pavo::test

template <>
struct xpc::Protocol<pavo::test::Switching> {
    using Service = pavo::test::Switching;
    static constexpr std::string_view name = "Tests.Switching";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<xpc::Message<"switchOn", &Service::switchOn>,
                                   xpc::Message<"switchOff", &Service::switchOff>>;
};

template <>
struct xpc::Protocol<pavo::test::Lamp> {
    using Service = pavo::test::Lamp;
    static constexpr std::string_view name = "Tests.Lamp";
    using Adopts = xpc::Adopts<pavo::test::Switching>;
    using Messages = xpc::Messages<xpc::Message<"setBrightness:", &Service::setBrightness>,
                                   xpc::Message<"setColour:isFast:", &Service::setColourIsFast>,
                                   xpc::Message<"shine:timingInfo:", &Service::shine>>;
};

template <>
struct xpc::Protocol<pavo::test::LampOwner> {
    using Service = pavo::test::LampOwner;
    static constexpr std::string_view name = "Tests.LampOwner";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<xpc::Message<"lampDidSwitch:", &Service::lampDidSwitch>>;
};
