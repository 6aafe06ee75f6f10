// Plays another process for the tests of the XPC face:
//
//     XPCTestPeer lamp <name>                             a lamp under that name
//     XPCTestPeer producer <name> <surfaces> <messages>   shines with so many surfaces in turn, then waits
//
// The lamp tells its owner when it was switched. Colour 1 makes it invalidate the connection, colour 2 exit.
// The producer prints the inode of each surface first, and the surface's mark is its number.

#include "Platform/XPC/XPCListener.h"
#include "Tests/Platform/XPC/Lamp.h"

#include <servers/bootstrap.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using pavo::test::Lamp;
using pavo::test::LampOwner;

class RemoteControlledLamp final : public Lamp {
public:
    explicit RemoteControlledLamp(std::weak_ptr<xpc::Connection> connection)
        : connection_(std::move(connection))
    {}

    void switchOn() override { report(true); }
    void switchOff() override { report(false); }
    void setBrightness(double) override {}
    void setColourIsFast(std::int32_t colour, bool) override
    {
        const auto connection = connection_.lock();
        if (colour == 1 && connection) connection->invalidate();
        if (colour == 2) ::_exit(0);
    }
    void shine(IOSurfaceRef, CMSampleTimingInfo) override {}

private:
    void report(bool isOn)
    {
        const auto connection = connection_.lock();
        if (!connection) return;
        if (const auto owner = xpc::Remote<LampOwner>::cast(connection->remoteObjectProxy()))
            owner->send<&LampOwner::lampDidSwitch>(isOn);
    }

    std::weak_ptr<xpc::Connection> connection_;
};

class House final : public xpc::ListenerDelegate {
public:
    bool listenerShouldAcceptNewConnection(xpc::Listener&,
                                           const std::shared_ptr<xpc::Connection>& newConnection) override
    {
        newConnection->setRemoteObjectInterface(xpc::describe<LampOwner>());
        newConnection->setExportedInterface(xpc::describe<Lamp>());
        newConnection->setExportedObject(
            xpc::exportObject<Lamp>(std::make_shared<RemoteControlledLamp>(newConnection)));
        newConnection->resume();
        return true;
    }
};

int runLamp(const std::string& name)
{
    const auto house = std::make_shared<House>();
    const auto listener = xpc::Listener::anonymousListener();
    listener->setDelegate(house);
    listener->resume();
    mach_port_t parent = MACH_PORT_NULL;
    bootstrap_parent(bootstrap_port, &parent);
    name_t buffer{};
    std::copy(name.begin(), name.end(), buffer);
    const auto endpoint = listener->endpoint();
    if (bootstrap_register(parent, buffer, xpc::ListenerEndpoint::machPort(endpoint.object())) != 0) return 1;
    for (;;)
        ::pause();
}

cf::Ref<IOSurfaceRef> makeSurface(std::int32_t mark)
{
    const std::int32_t size[] = {64, 48};
    const auto width = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &size[0]));
    const auto height = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &size[1]));
    const void* keys[] = {kIOSurfaceWidth, kIOSurfaceHeight};
    const void* values[] = {width.get(), height.get()};
    const auto properties =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 2, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks));
    auto surface = cf::adopt(IOSurfaceCreate(properties.get()));
    if (!surface) std::abort();
    IOSurfaceLock(surface.get(), 0, nullptr);
    *static_cast<std::uint8_t*>(IOSurfaceGetBaseAddress(surface.get())) = static_cast<std::uint8_t>(mark);
    IOSurfaceUnlock(surface.get(), 0, nullptr);
    return surface;
}

int runProducer(const std::string& name, int surfaceCount, int messageCount)
{
    std::vector<cf::Ref<IOSurfaceRef>> surfaces;
    for (int i = 0; i < surfaceCount; ++i) {
        surfaces.push_back(makeSurface(i));
        const auto port = IOSurfaceCreateMachPort(surfaces.back().get());
        struct stat status{};
        ::fstat(static_cast<int>(port), &status);
        mach_port_deallocate(mach_task_self(), port);
        std::printf("%llu\n", static_cast<unsigned long long>(status.st_ino));
    }
    std::fflush(stdout);
    const auto connection = xpc::Connection::withMachServiceName(name);
    connection->setRemoteObjectInterface(xpc::describe<Lamp>());
    connection->setInvalidationHandler([] { ::_exit(3); });
    connection->resume();
    const auto lamp = xpc::Remote<Lamp>::cast(connection->remoteObjectProxy());
    for (int i = 0; i < messageCount; ++i)
        lamp->send<&Lamp::shine>(surfaces[static_cast<std::size_t>(i % surfaceCount)].get(),
                                 CMSampleTimingInfo{});
    for (;;)
        ::pause();
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    const std::vector<std::string> words(arguments, arguments + argumentCount);
    if (words.size() == 3 && words[1] == "lamp") return runLamp(words[2]);
    if (words.size() == 5 && words[1] == "producer")
        return runProducer(words[2], std::atoi(words[3].c_str()), std::atoi(words[4].c_str()));
    return 2;
}
