#pragma once

#include "CMIOExtensionSupport/VideoStreamSource.h"
#include "Tests/CMIOExtensionSupport/CameraTreeFixture.h"
#include "Tests/CMIOExtensionSupport/VideoStreamSourceTestAccess.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace pavo::test {

// A stream source over the doubles, and producers for it.
class VideoStreamSourceFixture : public CameraTreeFixture {
protected:
    ~VideoStreamSourceFixture() override;

    std::shared_ptr<xpc::test::Peer> connectProducer() const { return xpc::test::Peer::connect(*listener); }
    // Returns when the stream source is done with the frame.
    void sendFrame(const xpc::test::Peer& producer, std::int32_t width = 64, std::int32_t height = 48) const;
    void drainFrameQueue() const { drain(Access::queue(*source)); }
    std::size_t sentCount() const { return cmio::test::sentSampleCount(*source->stream()); }

    using Access = VideoStreamSourceTestAccess;

    std::shared_ptr<VideoStreamSource> source = VideoStreamSource::create();
    std::shared_ptr<xpc::Listener> listener = xpc::test::lastListener();
};

// "<pid> 1" or "<pid> 0" for each subscription report that the producer got.
std::vector<std::string> reports(const xpc::test::Peer& producer);

}  // namespace pavo::test
