#include "Tests/Platform/CoreMediaIO/PickyClient.h"

#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"
#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"
#include "Tests/Support/PipeWireSession.h"
#include "Tests/Support/Wait.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <set>
#include <utility>

namespace cmio::test {

ClientHabits browserHabits()
{
    ClientHabits habits;
    habits.name = "browser";
    habits.formats = {{SPA_VIDEO_FORMAT_I420, SPA_VIDEO_FORMAT_NV12, SPA_VIDEO_FORMAT_YUY2,
                       SPA_VIDEO_FORMAT_UYVY, SPA_VIDEO_FORMAT_RGB}};
    habits.hasOwnStride = true;
    habits.aimsById = true;
    habits.isReconnecting = false;
    habits.asksForTransform = true;
    return habits;
}

ClientHabits obsHabits()
{
    ClientHabits habits;
    habits.name = "obs";
    for (const auto format : {SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_RGBA, SPA_VIDEO_FORMAT_BGRx,
                              SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_YUY2, SPA_VIDEO_FORMAT_NV12})
        habits.formats.push_back({format});
    habits.takesMemFd = false;
    return habits;
}

ClientHabits gstreamerHabits()
{
    ClientHabits habits;
    habits.name = "gstreamer";
    habits.formats = {{SPA_VIDEO_FORMAT_AYUV, SPA_VIDEO_FORMAT_RGBA, SPA_VIDEO_FORMAT_BGRA,
                       SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_I420,
                       SPA_VIDEO_FORMAT_NV12, SPA_VIDEO_FORMAT_UYVY, SPA_VIDEO_FORMAT_YUY2}};
    habits.buffers = 16;
    habits.minBuffers = 8;
    return habits;
}

ClientHabits v4l2Habits()
{
    ClientHabits habits = insistingOn(SPA_VIDEO_FORMAT_YUY2);
    habits.name = "v4l2";
    habits.width = 1920;
    habits.height = 1080;
    habits.rate = 60;
    habits.buffers = 4;
    return habits;
}

ClientHabits insistingOn(std::uint32_t format)
{
    ClientHabits habits;
    habits.name = "insisting";
    habits.formats = {{format}};
    return habits;
}

namespace {

const spa_pod* finish(void* pod)
{
    return static_cast<const spa_pod*>(pod);
}

const spa_pod* buildEntry(spa_pod_builder& builder, const ClientHabits& habits,
                          const std::vector<std::uint32_t>& formats)
{
    spa_pod_frame object{};
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), 0);
    spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_format, 0);
    if (formats.size() == 1) {
        spa_pod_builder_id(&builder, formats.front());
    } else {
        spa_pod_frame choice{};
        spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
        // The first value of a choice is its default, and an alternative only when it is said again.
        spa_pod_builder_id(&builder, formats.front());
        for (const std::uint32_t format : formats)
            spa_pod_builder_id(&builder, format);
        spa_pod_builder_pop(&builder, &choice);
    }
    const spa_rectangle wanted{habits.width ? habits.width : 640, habits.height ? habits.height : 480};
    const spa_rectangle smallest{1, 1}, largest{8192, 8192};
    if (habits.width != 0)
        spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&wanted), 0);
    else
        spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size,
                            SPA_POD_CHOICE_RANGE_Rectangle(&wanted, &smallest, &largest), 0);
    const spa_fraction rate{habits.rate ? habits.rate : 30, 1}, slowest{0, 1}, fastest{INT32_MAX, 1};
    if (habits.rate != 0)
        spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate), 0);
    else
        spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_framerate,
                            SPA_POD_CHOICE_RANGE_Fraction(&rate, &slowest, &fastest), 0);
    if (habits.colorMatrix != 0) {
        spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_colorMatrix, SPA_POD_PROP_FLAG_MANDATORY);
        spa_pod_builder_id(&builder, habits.colorMatrix);
    }
    return finish(spa_pod_builder_pop(&builder, &object));
}

const spa_pod* buildBuffers(spa_pod_builder& builder, const ClientHabits& habits, int stride)
{
    spa_pod_frame object{};
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
    if (habits.hasOwnStride) spa_pod_builder_add(&builder, SPA_PARAM_BUFFERS_stride, SPA_POD_Int(stride), 0);
    const int types = 1 << SPA_DATA_MemPtr | (habits.takesMemFd ? 1 << SPA_DATA_MemFd : 0);
    spa_pod_builder_add(&builder, SPA_PARAM_BUFFERS_buffers,
                        SPA_POD_CHOICE_RANGE_Int(habits.buffers, habits.minBuffers, habits.maxBuffers),
                        SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(types), 0);
    return finish(spa_pod_builder_pop(&builder, &object));
}

const spa_pod* buildMeta(spa_pod_builder& builder, std::uint32_t type, std::size_t size)
{
    return finish(spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta,
                                             SPA_PARAM_META_type, SPA_POD_Id(type), SPA_PARAM_META_size,
                                             SPA_POD_Int(static_cast<int>(size))));
}

std::optional<YCbCr> firstColorOf(const PickedFrame& frame, const std::uint8_t* pixels)
{
    const std::size_t luma = std::size_t{frame.width} * frame.height;
    if (frame.format == SPA_VIDEO_FORMAT_YUY2 && frame.room >= luma * 2)
        return YCbCr{pixels[0], pixels[1], pixels[3]};
    if (frame.format == SPA_VIDEO_FORMAT_NV12 && frame.room >= luma * 3 / 2)
        return YCbCr{pixels[0], pixels[luma], pixels[luma + 1]};
    return std::nullopt;
}

}  // namespace

struct PickyClient::Impl {
    explicit Impl(ClientHabits wanted) : habits(std::move(wanted)) {}

    static const pw_stream_events& events()
    {
        static const pw_stream_events table = [] {
            pw_stream_events all{};
            all.version = PW_VERSION_STREAM_EVENTS;
            all.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char* error) {
                static_cast<Impl*>(data)->stateChanged(state, error);
            };
            all.param_changed = [](void* data, std::uint32_t id, const spa_pod* param) {
                if (id == SPA_PARAM_Format) static_cast<Impl*>(data)->formatChanged(param);
            };
            all.add_buffer = [](void* data, pw_buffer*) { static_cast<Impl*>(data)->countBuffer(1); };
            all.remove_buffer = [](void* data, pw_buffer*) { static_cast<Impl*>(data)->countBuffer(-1); };
            all.process = [](void* data) { static_cast<Impl*>(data)->process(); };
            return all;
        }();
        return table;
    }

    void connect(const std::string& remote, const std::string& camera);
    void disconnect();
    void stateChanged(pw_stream_state now, const char* error);
    void formatChanged(const spa_pod* param);
    void countBuffer(int difference);
    void process();
    void see(const spa_buffer& buffer);

    const ClientHabits habits;
    PipeWireLoop loop;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    spa_hook hook{};

    mutable std::mutex mutex;  // guards what follows
    pw_stream_state state = PW_STREAM_STATE_UNCONNECTED;
    std::string refusal;
    spa_video_info_raw format{};
    int buffers = 0;
    std::size_t frames = 0;
    std::set<const spa_buffer*> usedBuffers;
    std::optional<PickedFrame> last;
};

void PickyClient::Impl::connect(const std::string& remote, const std::string& camera)
{
    std::uint32_t id = PW_ID_ANY;
    if (habits.aimsById)
        if (const auto node = pavo::test::PipeWireSession::node(camera, remote)) id = node->id;

    const PipeWireLoop::Lock lock(loop);
    context = pw_context_new(loop.get(), nullptr, 0);
    pw_properties* where = pw_properties_new(nullptr, nullptr);
    if (!remote.empty()) pw_properties_set(where, PW_KEY_REMOTE_NAME, remote.c_str());
    core = pw_context_connect(context, where, 0);
    if (!core) return;
    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE,
                          "Camera", PW_KEY_NODE_NAME, habits.name.c_str(), nullptr);
    if (id == PW_ID_ANY) pw_properties_set(properties, PW_KEY_TARGET_OBJECT, camera.c_str());
    stream = pw_stream_new(core, habits.name.c_str(), properties);
    pw_stream_add_listener(stream, &hook, &events(), this);

    std::array<std::uint8_t, 4096> memory;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    std::vector<const spa_pod*> entries;
    for (const auto& formats : habits.formats)
        entries.push_back(buildEntry(builder, habits, formats));
    const int reconnect = habits.isReconnecting ? 0 : PW_STREAM_FLAG_DONT_RECONNECT;
    pw_stream_connect(
        stream, PW_DIRECTION_INPUT, id,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | reconnect),
        entries.data(), static_cast<std::uint32_t>(entries.size()));
}

void PickyClient::Impl::disconnect()
{
    const PipeWireLoop::Lock lock(loop);
    if (stream) pw_stream_destroy(stream);
    if (core) pw_core_disconnect(core);
    pw_context_destroy(context);
}

void PickyClient::Impl::stateChanged(pw_stream_state now, const char* error)
{
    const std::lock_guard guard(mutex);
    state = now;
    if (now == PW_STREAM_STATE_ERROR) refusal = error && *error ? error : "without a reason";
}

void PickyClient::Impl::formatChanged(const spa_pod* param)
{
    spa_video_info_raw info{};
    if (!param || spa_format_video_raw_parse(param, &info) < 0) return;
    {
        const std::lock_guard guard(mutex);
        format = info;
    }
    const bool isPacked = info.format == SPA_VIDEO_FORMAT_YUY2 || info.format == SPA_VIDEO_FORMAT_UYVY;
    std::array<std::uint8_t, 1024> memory;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    std::vector<const spa_pod*> parameters = {
        buildBuffers(builder, habits, static_cast<int>(info.size.width) * (isPacked ? 2 : 1)),
        buildMeta(builder, SPA_META_Header, sizeof(spa_meta_header))};
    if (habits.asksForTransform)
        parameters.push_back(buildMeta(builder, SPA_META_VideoTransform, sizeof(spa_meta_videotransform)));
    pw_stream_update_params(stream, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

void PickyClient::Impl::countBuffer(int difference)
{
    const std::lock_guard guard(mutex);
    buffers += difference;
}

void PickyClient::Impl::process()
{
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream)) {
        see(*buffer->buffer);
        if (habits.givesBack) pw_stream_queue_buffer(stream, buffer);
    }
}

void PickyClient::Impl::see(const spa_buffer& buffer)
{
    const std::lock_guard guard(mutex);
    const spa_data& data = buffer.datas[0];
    PickedFrame frame;
    frame.format = format.format;
    frame.width = format.size.width;
    frame.height = format.size.height;
    frame.offset = data.chunk->offset;
    frame.size = data.chunk->size;
    frame.room = data.maxsize;
    frame.stride = data.chunk->stride;
    frame.colorimetry = {format.color_range, format.color_matrix, format.transfer_function,
                         format.color_primaries};
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
    frame.hasHeader = header != nullptr;
    if (header) {
        frame.sequence = header->seq;
        frame.time = header->pts;
    }
    if (data.data) frame.firstColor = firstColorOf(frame, static_cast<const std::uint8_t*>(data.data));
    last = std::move(frame);
    usedBuffers.insert(&buffer);
    ++frames;
}

PickyClient::PickyClient(ClientHabits habits, const std::string& remote, const std::string& camera)
    : impl_(std::make_unique<Impl>(std::move(habits)))
{
    impl_->connect(remote, camera);
}

PickyClient::~PickyClient()
{
    impl_->disconnect();
}

std::size_t PickyClient::frameCount() const
{
    const std::lock_guard guard(impl_->mutex);
    return impl_->frames;
}

std::size_t PickyClient::bufferCount() const
{
    const std::lock_guard guard(impl_->mutex);
    return static_cast<std::size_t>(impl_->buffers);
}

std::size_t PickyClient::takeUsedBufferCount()
{
    const std::lock_guard guard(impl_->mutex);
    return std::exchange(impl_->usedBuffers, {}).size();
}

std::optional<PickedFrame> PickyClient::lastFrame() const
{
    const std::lock_guard guard(impl_->mutex);
    return impl_->last;
}

std::string PickyClient::refusal() const
{
    const std::lock_guard guard(impl_->mutex);
    return impl_->refusal;
}

bool PickyClient::isConnected() const
{
    const std::lock_guard guard(impl_->mutex);
    return impl_->state != PW_STREAM_STATE_UNCONNECTED && impl_->state != PW_STREAM_STATE_ERROR;
}

bool PickyClient::isStreaming() const
{
    const std::lock_guard guard(impl_->mutex);
    return impl_->state == PW_STREAM_STATE_STREAMING;
}

bool PickyClient::waitForFrames(std::size_t count, std::chrono::seconds deadline) const
{
    const std::size_t wanted = frameCount() + count;
    return pavo::test::waitFor([this, wanted] { return frameCount() >= wanted; }, deadline);
}

void PickyClient::setActive(bool isActive)
{
    const PipeWireLoop::Lock lock(impl_->loop);
    pw_stream_set_active(impl_->stream, isActive);
}

}  // namespace cmio::test
