#include "CMIOExtensionSupport/StreamBufferHelper.h"

#include "CMIOExtensionSupport/FrameRate.h"
#include "PavoLoggingSupport/Logger.h"
#include "Platform/Support/Fatal.h"

#include <limits>
#include <string>
#include <utility>

namespace pavo {

namespace {

constexpr std::int32_t kDefaultWidth = 1920;
constexpr std::int32_t kDefaultHeight = 1080;
constexpr double kNanosecondsPerSecond = 1e9;

const Logger& logger()
{
    static const Logger shared = Logger::plugin("StreamBufferHelper");
    return shared;
}

cf::Ref<CMFormatDescriptionRef> makeDefaultFormatDescription()
{
    cf::Ref<CMFormatDescriptionRef> description;
    const OSStatus status =
        CMVideoFormatDescriptionCreate(kCFAllocatorDefault, kCVPixelFormatType_422YpCbCr8, kDefaultWidth,
                                       kDefaultHeight, nullptr, description.receive());
    if (status != noErr) fatalError("CMVideoFormatDescriptionCreate error: " + std::to_string(status));
    return description;
}

// One object for the whole process: the format that every stream starts with.
const cf::Ref<CMFormatDescriptionRef>& defaultFormatDescription()
{
    static const auto description = makeDefaultFormatDescription();
    return description;
}

}  // namespace

StreamBufferController::StreamBufferController() : formatDescription_(defaultFormatDescription()) {}

void StreamBufferController::setDelegate(std::weak_ptr<StreamBufferControllerDelegate> delegate)
{
    delegate_ = std::move(delegate);
}

void StreamBufferController::setFrameRate(double frameRate)
{
    const double previous = std::exchange(frameRate_, frameRate);
    if (frameRate == previous) return;
    logger().info("Updating frame rate related properties");
    notifyDelegate();
}

void StreamBufferController::setFormatDescription(cf::Ref<CMFormatDescriptionRef> formatDescription)
{
    formatDescription_ = std::move(formatDescription);
    notifyDelegate();
}

void StreamBufferController::incrementSequenceNumber()
{
    require(sequenceNumber_ < std::numeric_limits<std::uint64_t>::max(), "The sequence number overflows");
    ++sequenceNumber_;
}

void StreamBufferController::reset()
{
    sequenceNumber_ = 0;
    firstFrameTime_.reset();
    originalTimingStart_.reset();
}

cf::Ref<CMFormatDescriptionRef> StreamBufferController::formatDescriptionFor(CVImageBufferRef imageBuffer)
{
    if (CMVideoFormatDescriptionMatchesImageBuffer(formatDescription_.get(), imageBuffer))
        return formatDescription_;
    logger().info("Updating format description");
    cf::Ref<CMFormatDescriptionRef> updated;
    const OSStatus status =
        CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, imageBuffer, updated.receive());
    if (status != noErr || !updated) {
        logger().error("CMVideoFormatDescriptionCreateForImageBuffer error:%d", status);
        return {};
    }
    setFormatDescription(updated);
    return updated;
}

CMSampleTimingInfo
StreamBufferController::sampleTimingFor(const std::optional<CMSampleTimingInfo>& producerTiming)
{
    if (!firstFrameTime_) {
        firstFrameTime_ = static_cast<double>(hostTimeNanoseconds()) / kNanosecondsPerSecond;
        originalTimingStart_ = producerTiming;
    }
    double duration = 1.0 / frameRate_;
    double offset = duration * static_cast<double>(sequenceNumber_);
    if (producerTiming && originalTimingStart_) {
        duration = CMTimeGetSeconds(producerTiming->duration);
        offset = CMTimeGetSeconds(producerTiming->presentationTimeStamp) -
                 CMTimeGetSeconds(originalTimingStart_->presentationTimeStamp);
    }
    const auto timescale = timescaleForFrameRate(frameRate_);
    return {CMTimeMakeWithSeconds(duration, timescale),
            CMTimeMakeWithSeconds(offset + *firstFrameTime_, timescale), kCMTimeInvalid};
}

std::uint64_t StreamBufferController::hostTimeNanoseconds()
{
    if (timebase_.denom == 0) mach_timebase_info(&timebase_);
    require(timebase_.denom != 0, "The host clock has no time base");
    const std::uint64_t ticks = mach_absolute_time();
    require(timebase_.numer == 0 || ticks <= std::numeric_limits<std::uint64_t>::max() / timebase_.numer,
            "The host time overflows");
    return ticks * timebase_.numer / timebase_.denom;
}

void StreamBufferController::notifyDelegate()
{
    if (const auto delegate = delegate_.lock()) delegate->streamBufferControllerDidUpdate(*this);
}

}  // namespace pavo
