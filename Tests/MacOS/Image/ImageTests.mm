// Loads the bundle that was built for macOS, for x86_64, and lets it be a camera: the shipped machine code
// with all its bindings, on the runtime and the doubles of the adapter tests.

#include "Bundle/mac/TWCMIOExtensionStubSupportEntryPointProtocol.h"
#include "Tests/MacOS/Image/MachOImage.h"
#include "Tests/MacOS/Producer.h"
#include "Tests/Support/Wait.h"

#include <gtest/gtest.h>
#include <objc/runtime.h>
#include <servers/bootstrap.h>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace pavo::test {
namespace {

// A mutex of the image has the size and the first value of macOS, so it is not to be touched here.
std::recursive_mutex everyMutex;

void lock(void*)
{
    everyMutex.lock();
}

void unlock(void*)
{
    everyMutex.unlock();
}

void destroy(void*) {}

std::uintptr_t stackGuard = 0x5AFE;

// What is named otherwise here, or may not be used.
void* substitute(const std::string& name)
{
    static const std::map<std::string, void*> substitutes = {
        {"_ZNSt3__15mutex4lockEv", reinterpret_cast<void*>(lock)},
        {"_ZNSt3__15mutex6unlockEv", reinterpret_cast<void*>(unlock)},
        {"_ZNSt3__15mutexD1Ev", reinterpret_cast<void*>(destroy)},
        {"__bzero", reinterpret_cast<void*>(bzero)},
        {"__stack_chk_guard", &stackGuard},
        {"__stderrp", &stderr},
        {"dyld_stub_binder", reinterpret_cast<void*>(std::abort)},  // everything is bound at once
    };
    const auto found = substitutes.find(name);
    return found == substitutes.end() ? nullptr : found->second;
}

void* find(const std::string& name)
{
    static void* const library = dlopen("libc++.so.1", RTLD_NOW | RTLD_LOCAL);
    if (void* const found = substitute(name)) return found;
    const auto plain = name.substr(0, name.find("$V2"));
    for (const auto& candidate : {"__wrap_" + plain, plain})
        if (void* const found = dlsym(RTLD_DEFAULT, candidate.c_str())) return found;
    return library ? dlsym(library, plain.c_str()) : nullptr;
}

std::string contents()
{
    const char* const bundle = std::getenv("PAVO_MACOS_BUNDLE");
    return std::string(bundle ? bundle : "(PAVO_MACOS_BUNDLE is not set)") + "/Contents";
}

// Both images, loaded once and for good.
struct Images {
    std::unique_ptr<MachOImage> logging;
    std::unique_ptr<MachOImage> product;

    Images()
    {
        logging = MachOImage::load(
            contents() + "/Frameworks/PavoLoggingSupport.framework/Versions/A/PavoLoggingSupport", find);
        if (!logging) return;
        product =
            MachOImage::load(contents() + "/MacOS/CMIOExtensionSupport", [this](const std::string& name) {
                void* const found = logging->symbol(name);
                return found ? found : find(name);
            });
    }
};

Images& images()
{
    static auto* const instance = new Images;
    return *instance;
}

class BuiltImage : public testing::Test {
protected:
    void SetUp() override
    {
        setBundles(
            {{"/Camera", {"com.tarnwell.test", {{"configure-pavo-full.png", "/Camera/picture.png"}}}}});
        setMainBundle("/Camera");
        setBundleOfClasses("/Camera");
        setPicture("/Camera/picture.png", {3840, 2400});
        ASSERT_NE(images().product, nullptr);
        forgetCalls();
        forgetSystemCalls();
        entryPoint_ = [[objc_getClass("TWCMIOExtensionSupportEntryPoint") alloc] init];
        ASSERT_NE(entryPoint_, nil);
    }
    void TearDown() override
    {
        entryPoint_ = nil;
        endAllXPC();
    }

    id<TWCMIOExtensionStubSupportEntryPointProtocol> entryPoint() const { return entryPoint_; }
    CMIOExtensionDevice* device() const { return objectsIn(provider().devices).at(0); }
    CMIOExtensionStream* stream() const { return objectsIn(device().streams).at(0); }

private:
    id<TWCMIOExtensionStubSupportEntryPointProtocol> entryPoint_;
};

TEST_F(BuiltImage, IsBuiltByTheEntryPointAndPublishedByStart)
{
    EXPECT_STREQ(class_getName([static_cast<id>(provider().source) class]),
                 "CMIOExtensionSupport.ProviderSource");
    EXPECT_STREQ(device().localizedName.UTF8String, "Pavo Camera");
    EXPECT_STREQ(device().deviceID.UUIDString.UTF8String, "6CED8472-EA28-42FE-8359-2F441C1C12B5");
    ASSERT_EQ(registrations().size(), 1U);
    EXPECT_EQ(registrations()[0].name, "com.tarnwell.macos.cam.avextension");
    EXPECT_FALSE(provider().isStarted);
    [entryPoint() start];
    EXPECT_TRUE(provider().isStarted);
}

TEST_F(BuiltImage, AnswersThroughItsSources)
{
    const id<CMIOExtensionDeviceSource> source = device().source;
    CMIOExtensionDeviceProperties* const properties =
        [source devicePropertiesForProperties:source.availableProperties error:nil];
    EXPECT_STREQ(properties.model.UTF8String, "Pavo Camera");
    EXPECT_EQ(properties.transportType.unsignedIntValue, 0x76697274U);

    const auto formats = objectsIn(stream().source.formats);
    ASSERT_EQ(formats.size(), 1U);
    CMIOExtensionStreamFormat* const format = formats[0];
    const auto dimensions = CMVideoFormatDescriptionGetDimensions(format.formatDescription);
    EXPECT_EQ(dimensions.width, 1920);
    EXPECT_EQ(dimensions.height, 1080);
    EXPECT_EQ(CMTimeCompare(format.maxFrameDuration, CMTimeMake(1, 30)), 0);
}

TEST_F(BuiltImage, SendsThePlaceholderToAClient)
{
    CMIOExtensionClient* const client = makeClient(7);
    ASSERT_TRUE([stream() startClient:client]);
    EXPECT_TRUE(waitFor([this] { return [stream() sentSamples].size() >= 3; }));
    [stream() stopClient:client];
    ASSERT_FALSE([stream() sentSamples].empty());
    auto* const picture = CMSampleBufferGetImageBuffer([stream() sentSamples].at(0).sample.get());
    CVPixelBufferLockBaseAddress(picture, kCVPixelBufferLock_ReadOnly);
    EXPECT_EQ(*static_cast<unsigned char*>(CVPixelBufferGetBaseAddress(picture)), kRenderedByte);
    CVPixelBufferUnlockBaseAddress(picture, kCVPixelBufferLock_ReadOnly);
    EXPECT_TRUE(wasLogged("Starting stream! Yay :)"));
    EXPECT_TRUE(wasLogged("Stopping stream! Bye :'("));
}

TEST_F(BuiltImage, TalksWithAProducer)
{
    PavoProducer* const producer = [[PavoProducer alloc] init];
    NSXPCConnection* const connection = [listeners().at(0) connectPeer:producer];
    CMIOExtensionClient* const client = makeClient(100);
    [stream() startClient:client];
    EXPECT_TRUE(waitFor(
        [producer] { return [producer received] == Strings{"unsubscribe", "subscribe", "100 yes"}; }));
    const id<VideoFrameConsumerService> consumer = connection.exportedObject;
    [consumer targetFPSChangedTo:59.94];
    EXPECT_TRUE(waitFor([] { return wasLogged("Target FPS changed to %{public}f"); }));
    [connection failWithInvalidation];
    EXPECT_TRUE(waitFor([] { return wasLogged("Connection died. Swapping back to dead relay frame…"); }));
    [stream() stopClient:client];
}

TEST_F(BuiltImage, OffersTheRegistrationFunctionsAsCFunctions)
{
    using Register = void (*)(const void*, CFStringRef);
    const auto service =
        cf::adopt(CFStringCreateWithCString(kCFAllocatorDefault, "com.tarnwell.test", kCFStringEncodingUTF8));
    NSXPCListener* const listener = listeners().at(0);
    const std::pair<const char*, mach_port_t> functions[] = {
        {"dynamically_register_mach_service_for_endpoint", bootstrap_port},
        {"dynamically_register_mach_service_for_endpoint_on_parent", kParentNamespace}};
    for (const auto& [name, bootstrapPort] : functions) {
        const auto function = reinterpret_cast<Register>(images().product->symbol(name));
        ASSERT_NE(function, nullptr) << name;
        forgetSystemCalls();
        function((__bridge const void*)listener.endpoint, service.get());
        EXPECT_EQ(registrations(),
                  (std::vector<Registration>{{bootstrapPort, "com.tarnwell.test", listener.port}}));
    }
}

TEST(MachOImage, IsNotLoadedWithoutWhatItTakes)
{
    const auto withoutMemory = [](const std::string& name) {
        return name == "_Znwm" ? nullptr : static_cast<void*>(&stackGuard);
    };
    testing::internal::CaptureStderr();
    EXPECT_EQ(MachOImage::load(contents() + "/MacOS/CMIOExtensionSupport", withoutMemory), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "The image takes _Znwm, which is not here\n");
}

TEST(MachOImage, IsNotLoadedFromAFileOfAnotherKind)
{
    EXPECT_EQ(MachOImage::load(contents() + "/Info.plist", find), nullptr);
    EXPECT_EQ(MachOImage::load(contents() + "/nothing", find), nullptr);
}

}  // namespace
}  // namespace pavo::test
