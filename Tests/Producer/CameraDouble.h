#pragma once

#include "CMIOExtensionSupport/BidirectionalXPCServiceServer.h"
#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Platform/Support/Ref.h"

#include <CoreMedia/CoreMedia.h>
#include <IOSurface/IOSurface.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// The camera's end of the frame service without the camera: registered under a name of its own, it subscribes
// when it is told to and keeps the latest surfaces in use, as a camera does while clients read them.
//
// Threads: any.
class CameraDouble final : public VideoFrameConsumerService,
                           public std::enable_shared_from_this<CameraDouble> {
public:
    struct Frame {
        cf::Ref<IOSurfaceRef> surface;
        CMSampleTimingInfo timing;
    };

    // Keeps `keptSurfaces` in use.
    static std::shared_ptr<CameraDouble> create(const std::string& service, std::size_t keptSurfaces = 2);
    ~CameraDouble();
    CameraDouble(const CameraDouble&) = delete;
    CameraDouble& operator=(const CameraDouble&) = delete;

    // Ends the listener and the connection, as far as another process can tell.
    void end();

    // Said to whoever connects, too.
    void setSubscribed(bool isSubscribed);
    // False where no producer is connected.
    bool reportWatcher(std::int32_t pid, bool isWatching);
    bool isConnected() const { return server_->remoteObject().has_value(); }

    std::uint64_t frameCount() const;
    std::optional<Frame> latestFrame() const;
    std::vector<double> rates() const;
    // From now on every surface that comes stays in use; or all are let go of.
    void setKeepsAll(bool keepsAll);

    void didRecieveRawFrame(IOSurfaceRef surface, CMSampleTimingInfo timing) override;
    void targetFPSChangedTo(double framesPerSecond) override;

private:
    using Server =
        BidirectionalXPCServiceServer<VideoFrameProducerServiceReportReceiving, VideoFrameConsumerService>;

    explicit CameraDouble(std::size_t keptSurfaces) : keptSurfaces_(keptSurfaces) {}
    void dropLocked(std::size_t rest);

    const std::size_t keptSurfaces_;
    std::shared_ptr<xpc::Listener> listener_;
    std::shared_ptr<Server> server_;

    mutable std::mutex mutex_;
    bool isSubscribed_ = false;
    bool keepsAll_ = false;
    std::uint64_t frameCount_ = 0;
    std::deque<Frame> kept_;
    std::vector<double> rates_;
};

}  // namespace pavo::test
