#include "Tests/Platform/XPC/XPCFixture.h"

#include <servers/bootstrap.h>

#include <algorithm>
#include <utility>

namespace pavo::test {

void RecordingLamp::setBrightness(double brightness)
{
    record("setBrightness " + std::to_string(brightness));
}

void RecordingLamp::setColourIsFast(std::int32_t colour, bool isFast)
{
    record("setColour " + std::to_string(colour) + (isFast ? " fast" : " slow"));
}

void RecordingLamp::shine(IOSurfaceRef surface, CMSampleTimingInfo timing)
{
    {
        const std::lock_guard lock(mutex_);
        if (keepsSurfaces) surfaces_.push_back(cf::retain(surface));
        lastTiming_ = timing;
    }
    record("shine");
}

void RecordingLamp::record(std::string call)
{
    {
        const std::lock_guard lock(mutex_);
        calls_.push_back(std::move(call));
    }
    if (onCall) onCall();
}

std::vector<std::string> RecordingLamp::calls() const
{
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::vector<cf::Ref<IOSurfaceRef>> RecordingLamp::surfaces() const
{
    const std::lock_guard lock(mutex_);
    return surfaces_;
}

CMSampleTimingInfo RecordingLamp::lastTiming() const
{
    const std::lock_guard lock(mutex_);
    return lastTiming_;
}

std::shared_ptr<HandlerCounts> countHandlers(xpc::Connection& connection)
{
    auto counts = std::make_shared<HandlerCounts>();
    connection.setInvalidationHandler([counts] { ++counts->invalidations; });
    connection.setInterruptionHandler([counts] { ++counts->interruptions; });
    return counts;
}

bool LampHouse::listenerShouldAcceptNewConnection(xpc::Listener& listener,
                                                  const std::shared_ptr<xpc::Connection>& newConnection)
{
    if (endsListener) listener.invalidate();
    newConnection->setRemoteObjectInterface(xpc::describe<LampOwner>());
    newConnection->setExportedInterface(xpc::describe<Lamp>());
    if (exportsLamp) newConnection->setExportedObject(xpc::exportObject<Lamp>(lamp));
    {
        const std::lock_guard lock(mutex_);
        counts_.push_back(countHandlers(*newConnection));
        connections_.push_back(newConnection);
    }
    if (resumes) newConnection->resume();
    return answer;
}

std::size_t LampHouse::acceptedCount() const
{
    const std::lock_guard lock(mutex_);
    return connections_.size();
}

std::shared_ptr<xpc::Connection> LampHouse::accepted(std::size_t index) const
{
    const std::lock_guard lock(mutex_);
    return connections_.at(index);
}

std::shared_ptr<HandlerCounts> LampHouse::counts(std::size_t index) const
{
    const std::lock_guard lock(mutex_);
    return counts_.at(index);
}

void LampHouse::clear(bool invalidates)
{
    std::vector<std::shared_ptr<xpc::Connection>> old;
    {
        const std::lock_guard lock(mutex_);
        old.swap(connections_);
    }
    if (!invalidates) return;
    for (const auto& connection : old)
        connection->invalidate();
}

XPCTest::XPCTest()
{
    listener = xpc::Listener::anonymousListener();
    listener->setDelegate(house);
}

void XPCTest::TearDown()
{
    for (const auto& connection : ended_)
        connection->invalidate();
    ended_.clear();
    stopListening();
    house->clear();
    house.reset();
    system_->expectNothingLeft();
}

void XPCTest::stopListening()
{
    if (listener) listener->invalidate();
    listener.reset();
}

std::shared_ptr<xpc::Connection> XPCTest::connectByEndpoint()
{
    auto connection = xpc::Connection::withListenerEndpoint(listener->endpoint());
    connection->setRemoteObjectInterface(xpc::describe<Lamp>());
    return connection;
}

std::shared_ptr<xpc::Connection> XPCTest::connectByName(const std::string& name)
{
    auto connection = xpc::Connection::withMachServiceName(name);
    connection->setRemoteObjectInterface(xpc::describe<Lamp>());
    return connection;
}

void XPCTest::registerName(const std::string& name)
{
    mach_port_t parent = MACH_PORT_NULL;
    ASSERT_EQ(bootstrap_parent(bootstrap_port, &parent), BOOTSTRAP_SUCCESS);
    name_t buffer{};
    std::copy(name.begin(), name.end(), buffer);
    const auto endpoint = listener->endpoint();
    // The answer says nothing on a system that refuses and registers all the same.
    bootstrap_register(parent, buffer, xpc::ListenerEndpoint::machPort(endpoint.object()));
}

xpc::Remote<Lamp> XPCTest::lampOf(xpc::Connection& connection)
{
    return xpc::Remote<Lamp>::cast(connection.remoteObjectProxy()).value();
}

cf::Ref<IOSurfaceRef> makeSurface(std::uint8_t mark)
{
    const std::int32_t width = 64;
    const std::int32_t height = 48;
    const std::int32_t format = 0x32767579;  // '2vuy'
    const std::int32_t bytesPerElement = 2;
    const auto number = [](const std::int32_t& value) {
        return cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
    };
    const auto widthNumber = number(width);
    const auto heightNumber = number(height);
    const auto formatNumber = number(format);
    const auto elementNumber = number(bytesPerElement);
    const void* keys[] = {kIOSurfaceWidth, kIOSurfaceHeight, kIOSurfacePixelFormat,
                          kIOSurfaceBytesPerElement};
    const void* values[] = {widthNumber.get(), heightNumber.get(), formatNumber.get(), elementNumber.get()};
    const auto properties =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 4, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks));
    auto surface = cf::adopt(IOSurfaceCreate(properties.get()));
    EXPECT_TRUE(surface);
    IOSurfaceLock(surface.get(), 0, nullptr);
    *static_cast<std::uint8_t*>(IOSurfaceGetBaseAddress(surface.get())) = mark;
    IOSurfaceUnlock(surface.get(), 0, nullptr);
    return surface;
}

std::uint8_t markOf(IOSurfaceRef surface)
{
    IOSurfaceLock(surface, kIOSurfaceLockReadOnly, nullptr);
    const auto mark = *static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddress(surface));
    IOSurfaceUnlock(surface, kIOSurfaceLockReadOnly, nullptr);
    return mark;
}

CMSampleTimingInfo makeTiming(std::int64_t seed)
{
    const auto time = [seed](std::int64_t i) {
        return CMTime{seed + i, static_cast<std::int32_t>(600 + i), static_cast<std::uint32_t>(1 + 2 * i),
                      -i};
    };
    return {time(1), time(2), time(3)};
}

}  // namespace pavo::test
