#pragma once

#include "Platform/Support/Ref.h"

#include <CoreMedia/CoreMedia.h>
#include <CoreVideo/CoreVideo.h>
#include <mach/mach_time.h>

#include <cstdint>
#include <memory>
#include <optional>

namespace pavo {

class StreamBufferController;

// Told when the format description or the frame rate changes.
class StreamBufferControllerDelegate {
public:
    virtual void streamBufferControllerDidUpdate(StreamBufferController& controller) = 0;

protected:
    ~StreamBufferControllerDelegate() = default;
};

// What a stream must remember to turn pixel buffers into sample buffers: the format of the frames, their
// nominal rate and number, and how the producer's times relate to the host's. (The file has the name of the
// log category, "StreamBufferHelper".)
//
// Ownership: owned by the stream source, which is its delegate. The delegate is weak.
// Threads:   not thread-safe. The stream source calls it on its frame queue, or before frames flow.
// Errors:    a buffer that cannot be described is logged and gives an empty Ref. A counter, time or rate out
//            of range ends the process.
class StreamBufferController final {
public:
    StreamBufferController();
    StreamBufferController(const StreamBufferController&) = delete;
    StreamBufferController& operator=(const StreamBufferController&) = delete;

    void setDelegate(std::weak_ptr<StreamBufferControllerDelegate> delegate);

    double frameRate() const { return frameRate_; }
    // Logs and tells the delegate if the rate differs from what it was.
    void setFrameRate(double frameRate);

    const cf::Ref<CMFormatDescriptionRef>& formatDescription() const { return formatDescription_; }
    // Tells the delegate, also if nothing changes.
    void setFormatDescription(cf::Ref<CMFormatDescriptionRef> formatDescription);

    std::uint64_t sequenceNumber() const { return sequenceNumber_; }
    void incrementSequenceNumber();
    // Forgets the sequence number and the anchors of the timing. Format and rate stay.
    void reset();

    // The description of the buffers sent so far if it fits this one too, else a new one, which stays. Empty
    // if there cannot be one.
    [[nodiscard]] cf::Ref<CMFormatDescriptionRef> formatDescriptionFor(CVImageBufferRef imageBuffer);

    // When the frame with the current sequence number is due, in host time. Frames keep the spacing of the
    // producer's times, or the nominal one where there are none.
    CMSampleTimingInfo sampleTimingFor(const std::optional<CMSampleTimingInfo>& producerTiming);

    std::uint64_t hostTimeNanoseconds();

private:
    friend struct StreamBufferControllerTestAccess;

    void notifyDelegate();

    std::weak_ptr<StreamBufferControllerDelegate> delegate_;
    std::uint64_t sequenceNumber_ = 0;
    std::optional<double> firstFrameTime_;  // seconds
    std::optional<CMSampleTimingInfo> originalTimingStart_;
    cf::Ref<CMFormatDescriptionRef> formatDescription_;
    double frameRate_ = 30.0;
    mach_timebase_info_data_t timebase_ = {};  // a denominator of 0: not fetched yet
};

}  // namespace pavo
