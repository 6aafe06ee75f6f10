#include "Tools/CameraClient.h"

#include "Tools/OfferedFormats.h"

#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>

namespace pavo::tools {
namespace {

struct FormatName {
    CameraFormat format;
    spa_video_format id;
    std::string_view name;
};

constexpr std::array<FormatName, 4> kFormats = {{
    {CameraFormat::yuy2, SPA_VIDEO_FORMAT_YUY2, "YUY2"},
    {CameraFormat::uyvy, SPA_VIDEO_FORMAT_UYVY, "UYVY"},
    {CameraFormat::nv12, SPA_VIDEO_FORMAT_NV12, "NV12"},
    {CameraFormat::bgrx, SPA_VIDEO_FORMAT_BGRx, "BGRx"},
}};

// A camera that tells nothing of its formats is believed to have the right one.
constexpr std::chrono::seconds kPatienceForFormats(5);

std::int64_t monotonicNs()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

// The format that the stream offers to take: the wanted packings, any size, any rate.
const spa_pod* buildFormat(spa_pod_builder& builder, const std::vector<CameraFormat>& formats)
{
    spa_pod_frame object{};
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), 0);

    spa_pod_frame choice{};
    spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_format, 0);
    spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
    bool isFirst = true;
    for (const auto format : formats) {
        for (const auto& known : kFormats) {
            if (known.format != format) continue;
            spa_pod_builder_id(&builder, known.id);
            // The first value of a choice is its default and must be said once more as an alternative.
            if (std::exchange(isFirst, false)) spa_pod_builder_id(&builder, known.id);
        }
    }
    spa_pod_builder_pop(&builder, &choice);

    const spa_rectangle size{1920, 1080}, smallest{1, 1}, largest{16384, 16384};
    const spa_fraction rate{60, 1}, slowest{0, 1}, fastest{1000, 1};
    spa_pod_builder_add(
        &builder, SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&size, &smallest, &largest),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&rate, &slowest, &fastest), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &object));
}

// "YUY2, UYVY or NV12"
std::string listed(const std::vector<std::string>& names, std::string_view lastWord)
{
    std::string text;
    for (std::size_t index = 0; index < names.size(); ++index) {
        if (index > 0) text += index + 1 < names.size() ? ", " : " " + std::string(lastWord) + " ";
        text += names[index];
    }
    return text;
}

// Holds the thread loop's lock for a scope.
class LoopLock final {
public:
    explicit LoopLock(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
    ~LoopLock() { pw_thread_loop_unlock(loop_); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

private:
    pw_thread_loop* loop_;
};

}  // namespace

std::string_view nameOf(CameraFormat format)
{
    for (const auto& known : kFormats)
        if (known.format == format) return known.name;
    return "unknown";
}

struct CameraClient::Impl {
    explicit Impl(Options wanted) : options(std::move(wanted)) {}

    std::optional<std::string> start();
    void stop();
    bool waitUntil(const std::function<bool()>& condition, std::chrono::nanoseconds deadline) const;
    std::optional<std::string> waitForCamera();
    std::optional<std::string> problemWithFormats() const;
    bool connectStream();
    void report(CameraState state, std::string_view reason);
    void formatChanged(const spa_pod* param);
    void process();
    void deliver(pw_buffer& buffer);

    static void onGlobal(void* data, std::uint32_t id, std::uint32_t permissions, const char* type,
                         std::uint32_t version, const spa_dict* properties);
    static void onGlobalRemoved(void* data, std::uint32_t id);
    static void onCoreError(void* data, std::uint32_t id, int sequence, int result, const char* message);
    static void onStreamState(void* data, pw_stream_state old, pw_stream_state state, const char* error);

    const Options options;
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_registry* registry = nullptr;
    pw_stream* stream = nullptr;
    spa_hook coreHook{};
    spa_hook registryHook{};
    spa_hook streamHook{};
    std::uint32_t cameraId = SPA_ID_INVALID;
    std::optional<OfferedFormats> offered;  // by the camera, until the stream is made
    bool isLost = false;

    // Written on the loop's thread, read on the data thread.
    std::mutex formatMutex;
    std::optional<spa_video_info_raw> negotiated;
};

void CameraClient::Impl::report(CameraState state, std::string_view reason)
{
    if (std::exchange(isLost, isLost || state == CameraState::lost)) return;
    if (options.onStateChanged) options.onStateChanged(state, reason);
}

void CameraClient::Impl::onGlobal(void* data, std::uint32_t id, std::uint32_t, const char* type,
                                  std::uint32_t, const spa_dict* properties)
{
    auto& self = *static_cast<Impl*>(data);
    if (!properties || std::strcmp(type, PW_TYPE_INTERFACE_Node) != 0) return;
    const char* name = spa_dict_lookup(properties, PW_KEY_NODE_NAME);
    const char* mediaClass = spa_dict_lookup(properties, PW_KEY_MEDIA_CLASS);
    if (!name || self.options.cameraName != name) return;
    if (!mediaClass || std::strcmp(mediaClass, "Video/Source") != 0) return;
    self.cameraId = id;
    if (self.stream) return;
    self.offered.emplace(self.core, self.registry, id, [&self] { pw_thread_loop_signal(self.loop, false); });
    pw_thread_loop_signal(self.loop, false);
}

void CameraClient::Impl::onGlobalRemoved(void* data, std::uint32_t id)
{
    auto& self = *static_cast<Impl*>(data);
    if (id != self.cameraId) return;
    self.cameraId = SPA_ID_INVALID;
    self.offered.reset();
    if (self.stream) self.report(CameraState::lost, "the camera has gone");
}

void CameraClient::Impl::onCoreError(void* data, std::uint32_t id, int, int result, const char* message)
{
    auto& self = *static_cast<Impl*>(data);
    // Errors on other objects concern requests that the stream reports itself.
    if (id != PW_ID_CORE || result != -EPIPE) return;
    self.report(CameraState::lost, std::string("PipeWire has gone: ") + message);
    pw_thread_loop_signal(self.loop, false);
}

void CameraClient::Impl::onStreamState(void* data, pw_stream_state old, pw_stream_state state,
                                       const char* error)
{
    auto& self = *static_cast<Impl*>(data);
    switch (state) {
    case PW_STREAM_STATE_STREAMING:
        self.report(CameraState::streaming, {});
        break;
    case PW_STREAM_STATE_PAUSED:
        self.report(CameraState::paused, {});
        break;
    case PW_STREAM_STATE_ERROR:
        self.report(CameraState::lost, error ? error : "the stream failed");
        break;
    case PW_STREAM_STATE_UNCONNECTED:
        if (old != PW_STREAM_STATE_UNCONNECTED) self.report(CameraState::lost, "the stream was closed");
        break;
    case PW_STREAM_STATE_CONNECTING:
        break;
    }
}

void CameraClient::Impl::formatChanged(const spa_pod* param)
{
    spa_video_info_raw info{};
    const bool isKnown = param && spa_format_video_raw_parse(param, &info) >= 0;
    {
        const std::lock_guard lock(formatMutex);
        negotiated.reset();
        if (isKnown) negotiated = info;
    }
    if (!isKnown) return;

    std::array<std::uint8_t, 1024> memory{};
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(memory.data(), static_cast<std::uint32_t>(memory.size()));
    std::array<const spa_pod*, 2> parameters{};
    parameters[0] = static_cast<const spa_pod*>(
        spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
                                   SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(8, 2, 32),
                                   SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_dataType,
                                   SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr))));
    parameters[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
        SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
    pw_stream_update_params(stream, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

void CameraClient::Impl::process()
{
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream)) {
        deliver(*buffer);
        pw_stream_queue_buffer(stream, buffer);
    }
}

void CameraClient::Impl::deliver(pw_buffer& buffer)
{
    const std::int64_t arrival = monotonicNs();
    spa_video_info_raw info{};
    {
        const std::lock_guard lock(formatMutex);
        if (!negotiated) return;
        info = *negotiated;
    }
    if (buffer.buffer->n_datas == 0) return;
    const spa_data& data = buffer.buffer->datas[0];
    if (!data.data || !data.chunk || data.chunk->size == 0 || data.chunk->stride <= 0) return;
    // What the other side wrote into shared memory is checked before it is believed.
    const std::uint32_t offset = data.chunk->offset, size = data.chunk->size;
    if (offset > data.maxsize || size > data.maxsize - offset) return;

    CameraFrame frame{};
    bool isWanted = false;
    for (const auto& known : kFormats) {
        if (known.id != info.format) continue;
        frame.format = known.format;
        isWanted = true;
    }
    if (!isWanted) return;
    frame.bytes = {static_cast<const std::uint8_t*>(data.data) + offset, size};
    frame.width = info.size.width;
    frame.height = info.size.height;
    frame.strideBytes = static_cast<std::uint32_t>(data.chunk->stride);
    frame.matrix = info.color_matrix == SPA_VIDEO_COLOR_MATRIX_BT709 ? Matrix::bt709 : Matrix::bt601;
    frame.presentationTimeNs = -1;
    frame.arrivalNs = arrival;
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(buffer.buffer, SPA_META_Header, sizeof(spa_meta_header)));
    if (header) {
        frame.presentationTimeNs = header->pts;
        frame.sequence = header->seq;
    }
    if (options.onFrame) options.onFrame(frame);
}

bool CameraClient::Impl::connectStream()
{
    static const pw_stream_events events = [] {
        pw_stream_events all{};
        all.version = PW_VERSION_STREAM_EVENTS;
        all.state_changed = onStreamState;
        all.param_changed = [](void* data, std::uint32_t id, const spa_pod* param) {
            if (id == SPA_PARAM_Format) static_cast<Impl*>(data)->formatChanged(param);
        };
        all.process = [](void* data) { static_cast<Impl*>(data)->process(); };
        return all;
    }();

    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE,
                          "Camera", PW_KEY_MEDIA_CLASS, "Stream/Input/Video", PW_KEY_TARGET_OBJECT,
                          options.cameraName.c_str(), PW_KEY_NODE_NAME, options.clientName.c_str(), nullptr);
    stream = pw_stream_new(core, options.clientName.c_str(), properties);
    if (!stream) return false;
    pw_stream_add_listener(stream, &streamHook, &events, this);

    std::array<std::uint8_t, 1024> memory{};
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(memory.data(), static_cast<std::uint32_t>(memory.size()));
    const spa_pod* format = buildFormat(builder, options.formats);
    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                    PW_STREAM_FLAG_RT_PROCESS);
    return pw_stream_connect(stream, PW_DIRECTION_INPUT, PW_ID_ANY, flags, &format, 1) >= 0;
}

// On the owner's thread, which holds the loop's lock. False: time is up.
bool CameraClient::Impl::waitUntil(const std::function<bool()>& condition,
                                   std::chrono::nanoseconds deadline) const
{
    timespec until{};
    pw_thread_loop_get_time(loop, &until, deadline.count());
    while (!condition())
        if (pw_thread_loop_timed_wait_full(loop, &until) < 0) return condition();
    return true;
}

std::optional<std::string> CameraClient::Impl::waitForCamera()
{
    waitUntil([this] { return cameraId != SPA_ID_INVALID || isLost; }, options.deadline);
    if (cameraId != SPA_ID_INVALID)
        waitUntil([this] { return !offered || offered->areKnown() || isLost; }, kPatienceForFormats);
    if (isLost) return "PipeWire has gone";
    if (cameraId == SPA_ID_INVALID) return "PipeWire has no camera named " + options.cameraName;
    return problemWithFormats();
}

std::optional<std::string> CameraClient::Impl::problemWithFormats() const
{
    const auto& names = offered->names();
    if (!offered->areKnown() || names.empty()) return std::nullopt;
    std::vector<std::string> wanted;
    for (const auto format : options.formats)
        wanted.emplace_back(nameOf(format));
    if (std::ranges::find_first_of(wanted, names) != wanted.end()) return std::nullopt;
    return "the camera does not offer " + listed(wanted, "or") + ", only " + listed(names, "and");
}

std::optional<std::string> CameraClient::Impl::start()
{
    static const pw_core_events coreEvents = [] {
        pw_core_events all{};
        all.version = PW_VERSION_CORE_EVENTS;
        all.error = onCoreError;
        return all;
    }();
    static const pw_registry_events registryEvents = [] {
        pw_registry_events all{};
        all.version = PW_VERSION_REGISTRY_EVENTS;
        all.global = onGlobal;
        all.global_remove = onGlobalRemoved;
        return all;
    }();

    pw_init(nullptr, nullptr);
    loop = pw_thread_loop_new("camera client", nullptr);
    if (!loop) return "PipeWire's loop cannot be made: " + std::string(std::strerror(errno));
    context = pw_context_new(pw_thread_loop_get_loop(loop), nullptr, 0);
    if (!context || pw_thread_loop_start(loop) < 0)
        return "PipeWire cannot be used: " + std::string(std::strerror(errno));

    const LoopLock lock(loop);
    pw_properties* properties = pw_properties_new(nullptr, nullptr);
    if (!options.remoteName.empty())
        pw_properties_set(properties, PW_KEY_REMOTE_NAME, options.remoteName.c_str());
    core = pw_context_connect(context, properties, 0);
    if (!core)
        return "no PipeWire" + (options.remoteName.empty() ? "" : " named " + options.remoteName) +
               " answers: " + std::strerror(errno);
    pw_core_add_listener(core, &coreHook, &coreEvents, this);
    registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
    pw_registry_add_listener(registry, &registryHook, &registryEvents, this);

    if (auto problem = waitForCamera()) return problem;
    offered.reset();
    if (!connectStream()) return "the stream cannot be made: " + std::string(std::strerror(errno));
    return std::nullopt;
}

void CameraClient::Impl::stop()
{
    if (!loop) return;
    {
        const LoopLock lock(loop);
        isLost = true;  // what follows is our own doing and nobody's news
        // The data thread uses the pointer until the stream has stopped it, which is inside of this call.
        if (stream) pw_stream_destroy(stream);
        stream = nullptr;
        offered.reset();
        if (registry) {
            spa_hook_remove(&registryHook);
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(std::exchange(registry, nullptr)));
        }
        if (core) {
            spa_hook_remove(&coreHook);
            pw_core_disconnect(std::exchange(core, nullptr));
        }
    }
    pw_thread_loop_stop(loop);
    if (context) pw_context_destroy(std::exchange(context, nullptr));
    pw_thread_loop_destroy(std::exchange(loop, nullptr));
    pw_deinit();
}

CameraClient::CameraClient(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

CameraClient::~CameraClient()
{
    stop();
}

std::optional<std::string> CameraClient::start()
{
    auto problem = impl_->start();
    if (problem) impl_->stop();
    return problem;
}

void CameraClient::stop()
{
    impl_->stop();
}

}  // namespace pavo::tools
