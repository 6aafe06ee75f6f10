#pragma once

#include "CMIOExtensionSupport/VideoStreamSource.h"
#include "Platform/Support/Dispatch.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <set>

namespace pavo {

// Looks into a stream source, on its own queue, for what cannot be seen from outside.
struct VideoStreamSourceTestAccess {
    template <typename Work>
    static auto onQueue(VideoStreamSource& source, Work work)
    {
        std::optional<decltype(work())> result;
        dispatch::sync(source.frameQueue(), [&] { result = work(); });
        return *result;
    }
    static dispatch_queue_t queue(VideoStreamSource& source) { return source.frameQueue(); }
    static bool isTimerRunning(VideoStreamSource& source)
    {
        return onQueue(source, [&] { return source.defaultFrameTimer_->isRunning(); });
    }
    static double timerInterval(VideoStreamSource& source)
    {
        return source.defaultFrameTimer_->timeInterval();
    }
    static bool isGettingFrames(VideoStreamSource& source)
    {
        return onQueue(source, [&] { return source.gettingFrames_; });
    }
    static std::uint32_t streamingCounter(VideoStreamSource& source)
    {
        return onQueue(source, [&] { return source.streamingCounter_; });
    }
    static std::set<std::int32_t> currentClientPIDs(VideoStreamSource& source)
    {
        return onQueue(source, [&] { return source.currentClientPIDs_; });
    }
    static std::uint64_t sequenceNumber(VideoStreamSource& source)
    {
        return onQueue(source, [&] { return source.streamBufferController_.sequenceNumber(); });
    }
    static double frameRate(VideoStreamSource& source)
    {
        return onQueue(source, [&] { return source.streamBufferController_.frameRate(); });
    }
    static void setStreamingCounter(VideoStreamSource& source, std::uint32_t counter)
    {
        dispatch::sync(source.frameQueue(), [&] { source.streamingCounter_ = counter; });
    }
    static void clearStream(VideoStreamSource& source) { source.stream_.reset(); }
    static void clearStreamFormat(VideoStreamSource& source) { source.streamFormat_.reset(); }

    // A fire of the timer, and a send that does not ask whether the timer runs.
    static void fireTimer(VideoStreamSource& source) { source.defaultFrameTimerFired(); }
    static void sendDefaultFrame(VideoStreamSource& source)
    {
        dispatch::sync(source.frameQueue(), [&] { source.sendDefaultFrame(); });
    }
};

}  // namespace pavo
