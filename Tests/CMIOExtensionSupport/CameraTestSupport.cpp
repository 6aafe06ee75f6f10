#include "Tests/CMIOExtensionSupport/CameraTestSupport.h"

#include "Tests/Doubles/Foundation/FoundationDouble.h"

#include <servers/bootstrap.h>

#include <array>
#include <cstddef>
#include <utility>

namespace pavo::test {

namespace {

std::mutex recordMutex;
std::vector<Registration> registrations;
std::vector<qos_class_t> qualitiesOfService;

std::string text(const RecordedMessage& message)
{
    const std::string type = message.type == OS_LOG_TYPE_DEFAULT ? "default"
                             : message.type == OS_LOG_TYPE_INFO  ? "info"
                             : message.type == OS_LOG_TYPE_ERROR ? "error"
                                                                 : "other";
    return "log " + type + " " + message.category.value_or("none") + ": " + message.message;
}

void setNumber(CFMutableDictionaryRef dictionary, CFStringRef key, std::size_t value)
{
    const auto wide = static_cast<std::int64_t>(value);
    const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &wide));
    CFDictionarySetValue(dictionary, key, number.get());
}

cf::Ref<CFMutableDictionaryRef> makeDictionary()
{
    return cf::adopt(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                               &kCFTypeDictionaryValueCallBacks));
}

// The planes of the one planar format that the tests use: full luma, half chroma pairs.
cf::Ref<CFArrayRef> makeBiPlanarInfo(std::size_t width, std::size_t height, std::size_t rowPadding)
{
    const auto luma = makeDictionary();
    setNumber(luma.get(), kIOSurfacePlaneWidth, width);
    setNumber(luma.get(), kIOSurfacePlaneHeight, height);
    setNumber(luma.get(), kIOSurfacePlaneBytesPerElement, 1);
    setNumber(luma.get(), kIOSurfacePlaneBytesPerRow, width + rowPadding);
    const auto chroma = makeDictionary();
    setNumber(chroma.get(), kIOSurfacePlaneWidth, width / 2);
    setNumber(chroma.get(), kIOSurfacePlaneHeight, height / 2);
    setNumber(chroma.get(), kIOSurfacePlaneBytesPerElement, 2);
    setNumber(chroma.get(), kIOSurfacePlaneBytesPerRow, width + rowPadding);
    const void* planes[] = {luma.get(), chroma.get()};
    return cf::adopt(CFArrayCreate(kCFAllocatorDefault, planes, 2, &kCFTypeArrayCallBacks));
}

}  // namespace

Journal::Journal()
{
    xpc::test::setCallObserver([this](const std::string& call) { add(call); });
    cmio::test::setCallObserver([this](const std::string& call) { add(call); });
}

Journal::~Journal()
{
    xpc::test::setCallObserver({});
    cmio::test::setCallObserver({});
}

void Journal::add(const std::string& entry)
{
    const std::lock_guard lock(mutex_);
    addNewMessages();
    entries_.push_back(entry);
}

void Journal::addNewMessages() const
{
    const auto messages = interceptor_.messages();
    for (; messagesSeen_ < messages.size(); ++messagesSeen_)
        entries_.push_back(text(messages[messagesSeen_]));
}

std::vector<std::string> Journal::entries() const
{
    const std::lock_guard lock(mutex_);
    addNewMessages();
    return entries_;
}

std::vector<std::string> Journal::logs() const
{
    auto logs = entries();
    std::erase_if(logs, [](const std::string& entry) { return !entry.starts_with("log "); });
    return logs;
}

std::size_t Journal::count(std::string_view entry) const
{
    std::size_t count = 0;
    for (const auto& candidate : entries())
        if (candidate == entry) ++count;
    return count;
}

void Journal::clear()
{
    const std::lock_guard lock(mutex_);
    addNewMessages();
    entries_.clear();
}

Failures& failures()
{
    static Failures instance;
    return instance;
}

std::vector<Registration> takeRegistrations()
{
    const std::lock_guard lock(recordMutex);
    return std::exchange(registrations, {});
}

std::vector<qos_class_t> takeQualitiesOfService()
{
    const std::lock_guard lock(recordMutex);
    return std::exchange(qualitiesOfService, {});
}

cf::Ref<IOSurfaceRef> makeSurface(std::int32_t width, std::int32_t height, OSType format,
                                  std::size_t rowPadding, std::uint8_t seed)
{
    const auto properties = makeDictionary();
    const auto columns = static_cast<std::size_t>(width);
    const auto rows = static_cast<std::size_t>(height);
    setNumber(properties.get(), kIOSurfaceWidth, columns);
    setNumber(properties.get(), kIOSurfaceHeight, rows);
    setNumber(properties.get(), kIOSurfacePixelFormat, format);
    if (format == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange) {
        const auto planes = makeBiPlanarInfo(columns, rows, rowPadding);
        CFDictionarySetValue(properties.get(), kIOSurfacePlaneInfo, planes.get());
    } else {
        setNumber(properties.get(), kIOSurfaceBytesPerElement, 2);
        setNumber(properties.get(), kIOSurfaceBytesPerRow, columns * 2 + rowPadding);
    }
    auto surface = cf::adopt(IOSurfaceCreate(properties.get()));
    if (!surface) return surface;
    IOSurfaceLock(surface.get(), 0, nullptr);
    auto* bytes = static_cast<std::uint8_t*>(IOSurfaceGetBaseAddress(surface.get()));
    for (std::size_t i = 0; i < IOSurfaceGetAllocSize(surface.get()); ++i)
        bytes[i] = static_cast<std::uint8_t>((i + seed) % 251);
    IOSurfaceUnlock(surface.get(), 0, nullptr);
    return surface;
}

CMSampleTimingInfo makeTiming(std::int64_t frame)
{
    return {CMTimeMake(1, 30), CMTimeMake(frame, 30), kCMTimeInvalid};
}

void drain(dispatch_queue_t queue)
{
    dispatch::sync(queue, [] {});
}

void resetDoubles()
{
    failures() = {};
    takeRegistrations();
    takeQualitiesOfService();
    xpc::test::setCallObserver({});
    xpc::test::setService({});
    xpc::test::takeDialledPeers();
    cmio::test::setCallObserver({});
    cmio::test::failAddDevice(std::nullopt);
    cmio::test::failAddStream(std::nullopt);
    cmio::test::takeStartedProviders();
    resetFoundationDouble();
    setResourcePath(PAVO_PLACEHOLDER_PICTURE);
}

void breakServerCycles()
{
    for (const auto& listener : xpc::test::liveListeners())
        if (const auto server = std::dynamic_pointer_cast<FrameServer>(xpc::test::delegate(*listener)))
            breakCycle(*server);
}

}  // namespace pavo::test

// In place of the functions of these names: they fail where a test asks for it.

using pavo::test::failures;

extern "C" {

OSStatus __real_CMVideoFormatDescriptionCreateForImageBuffer(CFAllocatorRef, CVImageBufferRef,
                                                             CMVideoFormatDescriptionRef*);
OSStatus __wrap_CMVideoFormatDescriptionCreateForImageBuffer(CFAllocatorRef allocator,
                                                             CVImageBufferRef imageBuffer,
                                                             CMVideoFormatDescriptionRef* out)
{
    if (!failures().formatDescription)
        return __real_CMVideoFormatDescriptionCreateForImageBuffer(allocator, imageBuffer, out);
    *out = nullptr;
    return *failures().formatDescription;
}

OSStatus __real_CMSampleBufferCreateReadyWithImageBuffer(CFAllocatorRef, CVImageBufferRef,
                                                         CMVideoFormatDescriptionRef,
                                                         const CMSampleTimingInfo*, CMSampleBufferRef*);
OSStatus __wrap_CMSampleBufferCreateReadyWithImageBuffer(CFAllocatorRef allocator,
                                                         CVImageBufferRef imageBuffer,
                                                         CMVideoFormatDescriptionRef formatDescription,
                                                         const CMSampleTimingInfo* sampleTiming,
                                                         CMSampleBufferRef* out)
{
    if (!failures().sampleBuffer)
        return __real_CMSampleBufferCreateReadyWithImageBuffer(allocator, imageBuffer, formatDescription,
                                                               sampleTiming, out);
    *out = nullptr;
    return *failures().sampleBuffer;
}

CVReturn __real_CVPixelBufferCreateWithIOSurface(CFAllocatorRef, IOSurfaceRef, CFDictionaryRef,
                                                 CVPixelBufferRef*);
CVReturn __wrap_CVPixelBufferCreateWithIOSurface(CFAllocatorRef allocator, IOSurfaceRef surface,
                                                 CFDictionaryRef attributes, CVPixelBufferRef* out)
{
    if (!failures().wrapSurface)
        return __real_CVPixelBufferCreateWithIOSurface(allocator, surface, attributes, out);
    *out = nullptr;
    return *failures().wrapSurface;
}

CMTime __real_CMClockGetTime(CMClockRef);
CMTime __wrap_CMClockGetTime(CMClockRef clock)
{
    return failures().hostTime ? *failures().hostTime : __real_CMClockGetTime(clock);
}

kern_return_t __wrap_bootstrap_parent(mach_port_t, mach_port_t* parent)
{
    if (failures().bootstrapParent) return *failures().bootstrapParent;
    *parent = pavo::test::kParentPort;
    return BOOTSTRAP_SUCCESS;
}

kern_return_t __wrap_bootstrap_register(mach_port_t namespacePort, name_t name, mach_port_t port)
{
    const std::lock_guard lock(pavo::test::recordMutex);
    pavo::test::registrations.push_back(
        {namespacePort, name ? std::optional<std::string>(name) : std::nullopt, port});
    return failures().bootstrapRegister.value_or(BOOTSTRAP_SUCCESS);
}

dispatch_queue_attr_t __real_dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t, qos_class_t, int);
dispatch_queue_attr_t __wrap_dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t attribute,
                                                                     qos_class_t qualityOfService,
                                                                     int relativePriority)
{
    {
        const std::lock_guard lock(pavo::test::recordMutex);
        pavo::test::qualitiesOfService.push_back(qualityOfService);
    }
    return __real_dispatch_queue_attr_make_with_qos_class(attribute, qualityOfService, relativePriority);
}

}  // extern "C"
