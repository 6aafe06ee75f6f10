#pragma once

#include "Platform/XPC/XPCListener.h"
#include "Tests/Platform/XPC/Lamp.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// What the tests of this face need on every system. Each system adds its TestSystem.
namespace pavo::test {

// Writes down what it is told. `onCall` runs inside of each call.
class RecordingLamp final : public Lamp {
public:
    void switchOn() override { record("switchOn"); }
    void switchOff() override { record("switchOff"); }
    void setBrightness(double brightness) override;
    void setColourIsFast(std::int32_t colour, bool isFast) override;
    void shine(IOSurfaceRef surface, CMSampleTimingInfo timing) override;

    std::vector<std::string> calls() const;
    std::size_t callCount() const { return calls().size(); }
    // Surfaces are kept only where keepsSurfaces says so.
    std::vector<cf::Ref<IOSurfaceRef>> surfaces() const;
    CMSampleTimingInfo lastTiming() const;

    std::atomic<bool> keepsSurfaces = true;
    std::function<void()> onCall;

private:
    void record(std::string call);

    mutable std::mutex mutex_;
    std::vector<std::string> calls_;
    std::vector<cf::Ref<IOSurfaceRef>> surfaces_;
    CMSampleTimingInfo lastTiming_{};
};

class RecordingOwner final : public LampOwner {
public:
    void lampDidSwitch(bool isOn) override { isOn ? ++onCount : ++offCount; }

    std::atomic<int> onCount = 0;
    std::atomic<int> offCount = 0;
};

// Counts how often each handler of a connection ran.
struct HandlerCounts {
    std::atomic<int> invalidations = 0;
    std::atomic<int> interruptions = 0;
};
std::shared_ptr<HandlerCounts> countHandlers(xpc::Connection& connection);

// Accepts every peer and gives it the lamp.
class LampHouse final : public xpc::ListenerDelegate {
public:
    bool listenerShouldAcceptNewConnection(xpc::Listener& listener,
                                           const std::shared_ptr<xpc::Connection>& newConnection) override;

    std::size_t acceptedCount() const;
    std::shared_ptr<xpc::Connection> accepted(std::size_t index) const;
    std::shared_ptr<HandlerCounts> counts(std::size_t index) const;
    // Lets go of all connections that were accepted; `invalidates` ends them first.
    void clear(bool invalidates = true);

    const std::shared_ptr<RecordingLamp> lamp = std::make_shared<RecordingLamp>();
    std::atomic<bool> answer = true;
    std::atomic<bool> exportsLamp = true;
    std::atomic<bool> resumes = true;
    std::atomic<bool> endsListener = false;

private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<xpc::Connection>> connections_;
    std::vector<std::shared_ptr<HandlerCounts>> counts_;
};

// What the system under test needs around each test: it is made before any other object and goes last.
class TestSystem {
public:
    virtual ~TestSystem() = default;
    // Fails the test unless everything that it opened is closed, now or soon.
    virtual void expectNothingLeft() = 0;
};
std::unique_ptr<TestSystem> makeTestSystem();

// A listener with a lamp house, in a bootstrap namespace of the test's own.
class XPCTest : public testing::Test {
protected:
    XPCTest();
    void TearDown() override;

    // A connection to the listener that sends to the lamp; not resumed.
    std::shared_ptr<xpc::Connection> connectByEndpoint();
    static std::shared_ptr<xpc::Connection> connectByName(const std::string& name);
    // The listener under a name, as other processes find it.
    void registerName(const std::string& name);
    static xpc::Remote<Lamp> lampOf(xpc::Connection& connection);
    // Keeps the connection until the end of the test, and invalidates it then.
    void endLater(const std::shared_ptr<xpc::Connection>& connection) { ended_.push_back(connection); }
    void stopListening();

private:
    const std::unique_ptr<TestSystem> system_ = makeTestSystem();

protected:
    std::shared_ptr<LampHouse> house = std::make_shared<LampHouse>();
    std::shared_ptr<xpc::Listener> listener;

private:
    std::vector<std::shared_ptr<xpc::Connection>> ended_;
};

// A surface of 64 × 48 pixels, '2vuy', whose first byte is `mark`.
cf::Ref<IOSurfaceRef> makeSurface(std::uint8_t mark);
std::uint8_t markOf(IOSurfaceRef surface);

// A time with a different number in each field.
CMSampleTimingInfo makeTiming(std::int64_t seed);

}  // namespace pavo::test
