#include "Platform/CoreMediaIO/linux/CameraNode.h"

#include "Platform/CoreMediaIO/linux/CameraFormats.h"
#include "Platform/CoreMediaIO/linux/Log.h"
#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"

#include <IOSurface/IOSurfacePrivate.h>
#include <mach/mach_time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace cmio {

namespace {

// Whether this PipeWire, when a cycle begins, finishes the last one in place of clients that have not.
bool finishesCycles()
{
    return ::strverscmp(pw_get_library_version(), "1.4") >= 0;
}

}  // namespace

// PipeWire's callbacks, and the hook that they hang on.
struct PipeWireNodeEvents {
    static CameraNode& node(void* data) { return *static_cast<CameraNode*>(data); }

    static const pw_stream_events& table()
    {
        static const pw_stream_events events = [] {
            pw_stream_events table{};
            table.version = PW_VERSION_STREAM_EVENTS;
            table.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char* error) {
                node(data).stateChanged(state, error);
            };
            table.param_changed = [](void* data, std::uint32_t id, const spa_pod* param) {
                if (id == SPA_PARAM_Format) node(data).formatChanged(param);
            };
            table.add_buffer = [](void* data, pw_buffer* buffer) { node(data).addBuffer(buffer); };
            table.remove_buffer = [](void* data, pw_buffer* buffer) { node(data).removeBuffer(buffer); };
            table.process = [](void* data) { node(data).process(); };
            // Older ones say it on the loop, where it comes too late to be of use.
            if (finishesCycles()) table.trigger_done = [](void* data) { node(data).triggerDone(); };
            return table;
        }();
        return events;
    }

    spa_hook hook{};
};

namespace {

// How soon the session manager takes the idle node's memory back.
constexpr const char* kSuspendTimeoutSeconds = "1";

// The content of a buffer that was never drawn into.
constexpr std::uint64_t kNothing = std::numeric_limits<std::uint64_t>::max();
// Beside those that clients hold. Two are on their way to them and back, and of those that are free one has
// to stay: a stream without any asks for no frame. Left alone they also rest: a client may be late to say
// that it reads one, and loses the frame that comes in one before it could say that it is done with it.
constexpr std::size_t kBuffersLeftToStream = 3;

// A trigger that gets lost must not end the pictures: after so many samples, half a second's, another is
// sent.
constexpr int kMaxTriggersSpared = 30;

// PW_STREAM_FLAG_RT_TRIGGER_DONE, which older headers lack: that event comes on the data thread, too.
constexpr std::uint32_t kTriggerDoneOnDataThread = 1U << 12;

// Whoever has a buffer counts in it, we too. A client that was killed counts until the memory is given up, or
// taken back.
spa_meta_busy* busyOf(const pw_buffer& buffer)
{
    return static_cast<spa_meta_busy*>(
        spa_buffer_find_meta_data(buffer.buffer, SPA_META_Busy, sizeof(spa_meta_busy)));
}

pw_properties* buildProperties(const CameraDescription& description)
{
    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_MEDIA_ROLE, "Camera", PW_KEY_NODE_NAME,
                          description.nodeName.c_str(), PW_KEY_NODE_DESCRIPTION, description.label.c_str(),
                          PW_KEY_NODE_NICK, description.label.c_str(), PW_KEY_NODE_VIRTUAL, "true",
                          "session.suspend-timeout-seconds", kSuspendTimeoutSeconds, nullptr);
    if (!description.model.empty())
        pw_properties_set(properties, PW_KEY_DEVICE_PRODUCT_NAME, description.model.c_str());
    if (!description.manufacturer.empty())
        pw_properties_set(properties, PW_KEY_DEVICE_VENDOR_NAME, description.manufacturer.c_str());
    return properties;
}

std::array<char, 5> fourCharacters(OSType code)
{
    return {static_cast<char>(code >> 24), static_cast<char>(code >> 16), static_cast<char>(code >> 8),
            static_cast<char>(code), '\0'};
}

}  // namespace

CameraNode::CameraNode(std::shared_ptr<PipeWireLoop> loop, CameraDescription description,
                       std::function<void()> onFailure)
    : loop_(std::move(loop)),
      description_(std::move(description)),
      onFailure_(std::move(onFailure)),
      events_(std::make_unique<PipeWireNodeEvents>()),
      cycle_(finishesCycles())
{}

CameraNode::~CameraNode() = default;

void CameraNode::attach(pw_core* core)
{
    stream_ = pw_stream_new(core, description_.label.c_str(), buildProperties(description_));
    if (!stream_) {
        os_log_printf(faceLog(), OS_LOG_TYPE_ERROR, "Cannot create the camera's PipeWire stream: %m");
        return;
    }
    pw_stream_add_listener(stream_, &events_->hook, &PipeWireNodeEvents::table(), this);

    std::array<std::uint8_t, 2048> memory;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    std::array<const spa_pod*, kOfferedFormats.size()> formats;
    for (std::size_t index = 0; index < formats.size(); ++index)
        formats[index] =
            buildFormat(builder, {kOfferedFormats[index], description_.width, description_.height});
    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_RT_PROCESS |
                                                    PW_STREAM_FLAG_MAP_BUFFERS |
                                                    (finishesCycles() ? kTriggerDoneOnDataThread : 0));
    const int result = pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, formats.data(),
                                         static_cast<std::uint32_t>(formats.size()));
    if (result < 0)
        os_log_printf(faceLog(), OS_LOG_TYPE_ERROR, "Cannot publish the camera in PipeWire: %s",
                      std::strerror(-result));
}

void CameraNode::detach()
{
    if (!stream_) return;
    isStreaming_ = false;
    // The data thread uses the stream until this has taken the node from it.
    pw_stream_destroy(stream_);
    stream_ = nullptr;
    endStreaming();
    const std::lock_guard guard(drawingMutex_);
    layout_.reset();
    contentOfBuffer_.clear();
    unusedBuffers_.clear();
    usedBuffers_.clear();
}

std::optional<std::uint32_t> CameraNode::nodeId() const
{
    const std::uint32_t id = stream_ ? pw_stream_get_node_id(stream_) : PW_ID_ANY;
    return id == PW_ID_ANY ? std::nullopt : std::optional(id);
}

CameraReport CameraNode::report()
{
    CameraReport report;
    report.nodeName = description_.nodeName;
    report.label = description_.label;
    report.nodeId = nodeId();
    report.isStreaming = isStreaming_;
    report.frames = tally_.counts();
    const std::lock_guard guard(drawingMutex_);
    report.layout = layout_;
    return report;
}

void CameraNode::send(OutgoingSample sample)
{
    // Most of the time nobody watches: that costs no lock.
    if (!isStreaming_) return;
    // Under the lock the state cannot change, and no two threads trigger at once.
    const PipeWireLoop::Lock lock(*loop_);
    if (!stream_ || !isStreaming_ || !pw_stream_is_driving(stream_)) return;
    std::optional<OutgoingSample> replaced = std::move(sample);
    {
        const std::lock_guard guard(waitingMutex_);
        std::swap(waiting_, replaced);
    }
    tally_.sent();
    if (replaced) tally_.dropped(FrameTally::Drop::replaced);
    // A sample that still waited has a trigger under way, which now draws this one. A data thread that is
    // late would else be sent triggers until its queue is full.
    if (replaced && ++triggersSpared_ < kMaxTriggersSpared) return;
    // One that could not even be sent is made good by the next sample.
    triggersSpared_ = pw_stream_trigger_process(stream_) < 0 ? kMaxTriggersSpared : 0;
}

void CameraNode::stateChanged(int state, const char* error)
{
    // What newer servers say when one client and the camera cannot agree: nothing has changed for the others.
    const bool isOurs = pw_stream_get_state(stream_, nullptr) == PW_STREAM_STATE_ERROR || !nodeId();
    if (state == PW_STREAM_STATE_ERROR && !isOurs) {
        os_log_printf(faceLog(), OS_LOG_TYPE_INFO, "PipeWire refused a client: %s",
                      error ? error : "no reason");
        return;
    }
    isStreaming_ = state == PW_STREAM_STATE_STREAMING;
    if (isStreaming_) return;
    endStreaming();
    if (state == PW_STREAM_STATE_ERROR) {
        os_log_printf(faceLog(), OS_LOG_TYPE_ERROR, "PipeWire gave up the camera: %s",
                      error ? error : "no reason");
        onFailure_();
    }
}

void CameraNode::formatChanged(const spa_pod* format)
{
    const std::optional<VideoLayout> layout = format ? parseFormat(format) : std::nullopt;
    {
        const std::lock_guard guard(drawingMutex_);
        layout_ = layout;
        contentSurface_ = {};
    }
    if (!format) return;
    if (!layout) {
        pw_stream_set_error(stream_, -EINVAL, "unsupported format");
        return;
    }
    std::array<std::uint8_t, 1024> memory;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    std::array<const spa_pod*, 2> parameters = {buildBuffers(builder, *layout), buildHeaderMeta(builder)};
    pw_stream_update_params(stream_, parameters.data(), parameters.size());
}

void CameraNode::addBuffer(pw_buffer* buffer)
{
    const std::lock_guard guard(drawingMutex_);
    contentOfBuffer_.emplace(buffer, kNothing);
    patience_ = {};
}

void CameraNode::removeBuffer(pw_buffer* buffer)
{
    const std::lock_guard guard(drawingMutex_);
    contentOfBuffer_.erase(buffer);
    std::erase(unusedBuffers_, buffer);
    std::erase(usedBuffers_, buffer);
}

void CameraNode::process()
{
    // In a graph that another node drives, nothing is triggered, nor done.
    if (!pw_stream_is_driving(stream_)) {
        cycle_.reset();
        queueWaiting();
    } else if (cycle_.process() && queueWaiting()) {
        cycle_.handedOver();
    }
}

void CameraNode::triggerDone()
{
    if (cycle_.triggerDone() && queueWaiting()) cycle_.handedOver();
}

bool CameraNode::queueWaiting()
{
    const std::optional<OutgoingSample> outgoing = takeWaiting();
    // A client that asks again after a frame finds nothing new.
    if (!outgoing) return false;
    CVImageBufferRef pixels = CMSampleBufferGetImageBuffer(outgoing->sample.get());
    if (!pixels) {
        tally_.dropped(FrameTally::Drop::unusable);
        return false;
    }
    const PictureReader picture(cf::retain(pixels));

    const std::lock_guard guard(drawingMutex_);
    if (!picture.isValid()) {
        complain(CVPixelBufferGetPixelFormatType(pixels));
        tally_.dropped(FrameTally::Drop::unusable);
        return false;
    }
    pw_buffer* buffer = layout_ ? takeFree() : nullptr;
    if (!buffer) {
        tally_.dropped(layout_ ? FrameTally::Drop::withoutBuffer : FrameTally::Drop::unwatched);
        return false;
    }
    spa_buffer* content = buffer->buffer;
    spa_chunk& chunk = *content->datas[0].chunk;
    chunk.offset = 0;
    chunk.stride = layout_->stride();
    IOSurfaceRef surface = CVPixelBufferGetIOSurface(pixels);
    const bool isDrawn = draw(picture, surface, *buffer);
    chunk.size = isDrawn ? static_cast<std::uint32_t>(layout_->size()) : 0;
    chunk.flags = isDrawn ? SPA_CHUNK_FLAG_NONE : SPA_CHUNK_FLAG_CORRUPTED;
    void* found = spa_buffer_find_meta_data(content, SPA_META_Header, sizeof(spa_meta_header));
    if (auto* header = static_cast<spa_meta_header*>(found)) {
        header->flags = outgoing->isDiscontinuous ? SPA_META_HEADER_FLAG_DISCONT : 0;
        header->offset = 0;
        header->pts = static_cast<std::int64_t>(outgoing->hostTimeNanoseconds ? outgoing->hostTimeNanoseconds
                                                                              : mach_absolute_time());
        header->dts_offset = 0;
        header->seq = sequence_++;
    }
    pw_stream_queue_buffer(stream_, buffer);
    if (isDrawn)
        tally_.drawn(surface && !IOSurfaceIsLocal(surface));
    else
        tally_.dropped(FrameTally::Drop::unusable);
    return true;
}

std::optional<OutgoingSample> CameraNode::takeWaiting()
{
    const std::lock_guard guard(waitingMutex_);
    return std::exchange(waiting_, std::nullopt);
}

void CameraNode::endStreaming()
{
    cycle_.reset();
    if (takeWaiting()) tally_.dropped(FrameTally::Drop::unwatched);
    const std::lock_guard guard(drawingMutex_);
    contentSurface_ = {};
}

pw_buffer* CameraNode::takeFree()
{
    pw_buffer* buffer = takeUnheld();
    if (!buffer && !contentOfBuffer_.empty() && patience_.isExhausted()) {
        takeBackFromClients();
        buffer = takeUnheld();
    }
    if (buffer) patience_.bufferFound();
    return buffer;
}

pw_buffer* CameraNode::takeUnheld()
{
    const std::size_t count = contentOfBuffer_.size();
    const std::size_t left = kBuffersLeftToStream + countHeldByClients();
    // A buffer that a client still holds goes to the end of the line: look at each once.
    for (std::size_t attempt = 0; attempt < count; ++attempt) {
        const std::size_t taken = unusedBuffers_.size() + usedBuffers_.size();
        if (taken > 0 && count - taken <= left) break;
        if (pw_buffer* buffer = pw_stream_dequeue_buffer(stream_)) {
            const bool isUnused = contentOfBuffer_.at(buffer) == kNothing;
            (isUnused ? unusedBuffers_ : usedBuffers_).push_back(buffer);
        } else if (errno != EBUSY) {
            break;
        }
    }
    // Memory that nobody touches is none: so only clients that hold several buffers make us use more.
    std::vector<pw_buffer*>& source = usedBuffers_.empty() ? unusedBuffers_ : usedBuffers_;
    if (source.empty()) return nullptr;
    pw_buffer* buffer = source.back();
    source.pop_back();
    return buffer;
}

std::size_t CameraNode::countHeldByClients()
{
    std::size_t held = 0;
    for (const auto& [buffer, content] : contentOfBuffer_) {
        spa_meta_busy* busy = busyOf(*buffer);
        if (!busy) continue;
        const std::atomic_ref count(busy->count);
        const auto holders = static_cast<std::int32_t>(count.load());
        // Below 0 after a client has given back what was taken from it before.
        if (holders < 0) count.store(0);
        held += holders > 0;
    }
    const std::size_t ours = unusedBuffers_.size() + usedBuffers_.size();
    return held > ours ? held - ours : 0;
}

void CameraNode::takeBackFromClients()
{
    // One that still reads may see the next frame in place of the one that it has had all the time.
    for (const auto& [buffer, content] : contentOfBuffer_)
        if (spa_meta_busy* busy = busyOf(*buffer)) std::atomic_ref(busy->count).store(0);
}

bool CameraNode::draw(const PictureReader& picture, IOSurfaceRef surface, pw_buffer& buffer)
{
    const spa_data& data = buffer.buffer->datas[0];
    // The server decides, so look.
    if (!data.data || data.maxsize < layout_->size()) return false;
    const std::uint64_t number = numberOfContent(surface);
    std::uint64_t& shown = contentOfBuffer_[&buffer];
    if (number == 0 || shown != number)
        converter_.convert(picture, *layout_, static_cast<std::uint8_t*>(data.data));
    shown = number;
    return true;
}

std::uint64_t CameraNode::numberOfContent(IOSurfaceRef surface)
{
    // Another process may change a surface of its own at any time without a word.
    if (!surface || !IOSurfaceIsLocal(surface)) return 0;
    const std::uint32_t seed = IOSurfaceGetSeed(surface);
    if (contentSurface_.get() != surface || contentSeed_ != seed) {
        // Kept, so that its address cannot become another surface's.
        contentSurface_ = cf::retain(surface);
        contentSeed_ = seed;
        ++contentNumber_;
    }
    return contentNumber_;
}

void CameraNode::complain(OSType format)
{
    if (std::exchange(complainedFormat_, format) == format) return;
    os_log_printf(faceLog(), OS_LOG_TYPE_ERROR,
                  "Dropping samples of format '%s': they cannot be read or converted",
                  fourCharacters(format).data());
}

}  // namespace cmio
