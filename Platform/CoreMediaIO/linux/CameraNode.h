#pragma once

#include "Platform/CoreMediaIO/linux/BufferPatience.h"
#include "Platform/CoreMediaIO/linux/CameraReport.h"
#include "Platform/CoreMediaIO/linux/DriverCycle.h"
#include "Platform/CoreMediaIO/linux/FrameConverter.h"
#include "Platform/CoreMediaIO/linux/FrameTally.h"
#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"
#include "Platform/CoreMediaIO/linux/SampleSink.h"
#include "Platform/CoreMediaIO/linux/VideoLayout.h"

#include <IOSurface/IOSurface.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

struct pw_buffer;
struct pw_core;
struct pw_stream;
struct spa_pod;

namespace cmio {

struct PipeWireNodeEvents;

// What clients are told about a camera.
struct CameraDescription {
    std::string nodeName;  // the same from run to run: clients find the camera again by it
    std::string label;
    std::string model;         // empty: not told
    std::string manufacturer;  // empty: not told
    int width = 0;
    int height = 0;
};

// One camera in PipeWire: a node that we drive.
//
// The server allocates the frames' memory. It offers to take ours, but then PipeWire 0.3.65 waits for our
// answer under a number that any other answer may carry by chance, as when the session manager asks for the
// node's parameters just then; it goes on with memory that is not there yet, and that client never sees a
// frame.
//
// Ownership: keeps the loop. A sample that waits is replaced by the next one, and let go as soon as it is
//            drawn.
// Threads:   send from any thread, one at a time; the rest with the loop's lock held. Frames are drawn on
//            PipeWire's data thread.
// Errors:    what cannot be shown is logged, once for each kind, and dropped.
class CameraNode final : public SampleSink {
public:
    // `onFailure` is called on the loop when PipeWire gives the node up; it must not call back into the node.
    CameraNode(std::shared_ptr<PipeWireLoop> loop, CameraDescription description,
               std::function<void()> onFailure);
    // The node is detached.
    ~CameraNode();
    CameraNode(const CameraNode&) = delete;
    CameraNode& operator=(const CameraNode&) = delete;

    // Publishes the node through `core`, which must stay until detach.
    void attach(pw_core* core);
    void detach();

    // PipeWire's number of the node while it is published.
    std::optional<std::uint32_t> nodeId() const;
    const std::string& name() const { return description_.nodeName; }
    // Without clients.
    CameraReport report();

    void send(OutgoingSample sample) override;

private:
    friend struct PipeWireNodeEvents;

    void stateChanged(int state, const char* error);
    void formatChanged(const spa_pod* format);
    void addBuffer(pw_buffer* buffer);
    void removeBuffer(pw_buffer* buffer);
    void process();
    void triggerDone();
    bool queueWaiting();
    std::optional<OutgoingSample> takeWaiting();
    void endStreaming();
    pw_buffer* takeFree();
    pw_buffer* takeUnheld();
    std::size_t countHeldByClients();
    void takeBackFromClients();
    bool draw(const PictureReader& picture, IOSurfaceRef surface, pw_buffer& buffer);
    std::uint64_t numberOfContent(IOSurfaceRef surface);
    void complain(OSType format);

    const std::shared_ptr<PipeWireLoop> loop_;
    const CameraDescription description_;
    const std::function<void()> onFailure_;
    std::unique_ptr<PipeWireNodeEvents> events_;
    pw_stream* stream_ = nullptr;
    std::atomic<bool> isStreaming_ = false;
    FrameTally tally_;
    int triggersSpared_ = 0;  // since the last trigger
    DriverCycle cycle_;

    std::mutex waitingMutex_;
    std::optional<OutgoingSample> waiting_;  // guarded by waitingMutex_

    // Guards what follows: buffers change on the loop, drawing is on the data thread.
    std::mutex drawingMutex_;
    // What each buffer shows, by number; 0 is never drawn twice.
    std::unordered_map<const pw_buffer*, std::uint64_t> contentOfBuffer_;
    // Free buffers that we have taken from the stream: those never drawn into, and the others.
    std::vector<pw_buffer*> unusedBuffers_;
    std::vector<pw_buffer*> usedBuffers_;
    BufferPatience patience_;
    std::optional<VideoLayout> layout_;
    FrameConverter converter_;
    cf::Ref<IOSurfaceRef> contentSurface_;  // what contentNumber_ stands for
    std::uint32_t contentSeed_ = 0;
    std::uint64_t contentNumber_ = 0;
    std::uint64_t sequence_ = 0;
    OSType complainedFormat_ = 0;
};

}  // namespace cmio
