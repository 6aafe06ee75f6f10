#pragma once

#include "Platform/XPC/XPCListener.h"
#include "Tests/Platform/XPC/Thermometer.h"
#include "Tests/Platform/XPC/XPCFixture.h"

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// Answers as the test wants.
class ScriptedThermometer final : public Thermometer {
public:
    void temperature(xpc::Reply<std::uint64_t> reply) override;
    void isWarm(xpc::Reply<bool> reply) override { reply(true); }
    void place(const std::string& room, const ns::Data& marks,
               xpc::Reply<std::optional<ns::Data>, std::optional<ns::Error>> reply) override;
    void settle(xpc::Reply<> reply) override { reply(); }
    void shake() override { ++shakeCount; }

    using TemperatureAnswer = std::function<void(xpc::Reply<std::uint64_t>)>;
    using PlaceAnswer = std::function<void(xpc::Reply<std::optional<ns::Data>, std::optional<ns::Error>>)>;
    // Empty: 21 degrees, at once.
    void onTemperature(TemperatureAnswer answer);
    void onPlace(PlaceAnswer answer);

    std::atomic<int> shakeCount = 0;
    std::atomic<int> temperatureCount = 0;

    std::string room() const;
    ns::Data marks() const;

private:
    mutable std::mutex mutex_;
    TemperatureAnswer temperatureAnswer_;
    PlaceAnswer placeAnswer_;
    std::string room_;
    ns::Data marks_;
};

// Accepts every peer and gives it the thermometer.
class ThermometerHouse final : public xpc::ListenerDelegate {
public:
    bool listenerShouldAcceptNewConnection(xpc::Listener& listener,
                                           const std::shared_ptr<xpc::Connection>& newConnection) override;
    std::size_t acceptedCount() const;
    std::shared_ptr<xpc::Connection> accepted(std::size_t index) const;
    std::shared_ptr<HandlerCounts> counts(std::size_t index) const;
    void clear();

    const std::shared_ptr<ScriptedThermometer> thermometer = std::make_shared<ScriptedThermometer>();

private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<xpc::Connection>> connections_;
    std::vector<std::shared_ptr<HandlerCounts>> counts_;
};

// What a synchronous call came to: a value, or the error that the handler was told.
struct Reading {
    std::optional<std::uint64_t> degrees;
    std::optional<ns::Error> error;
};
ns::Error connectionError(std::int64_t code);

// A listener whose peers find a thermometer, under kThermometerName in the user's namespace.
class ThermometerTest : public XPCTest {
protected:
    ThermometerTest();
    void TearDown() override;

    // A connection to the name; not resumed, ended with the test.
    std::shared_ptr<xpc::Connection> dial(xpc::ConnectionOptions options = xpc::ConnectionOptions::none,
                                          const std::string& name = kThermometerName);
    static xpc::Remote<Thermometer> thermometerOf(xpc::Connection& connection);
    static xpc::Remote<Thermometer> synchronousThermometerOf(xpc::Connection& connection,
                                                             xpc::Proxy::ErrorHandler handler);
    // On this thread.
    static Reading read(xpc::Connection& connection);
    // On another one.
    static std::future<Reading> readLater(const std::shared_ptr<xpc::Connection>& connection);

    static constexpr const char* kThermometerName = "com.tarnwell.macos.cam.tests.thermometer";
    const std::shared_ptr<ThermometerHouse> thermometers = std::make_shared<ThermometerHouse>();
};

}  // namespace pavo::test
