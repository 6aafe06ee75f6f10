#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Producer/HandleTable.h"
#include "Producer/Session.h"

#include <os/log_printf.h>
#include <pavo/producer.h>

#include <algorithm>
#include <cstring>
#include <exception>

// The C interface: checks what callers pass, and keeps exceptions of the language's library from leaving.
namespace {

using pavo::producer::HandleTable;
using pavo::producer::Rate;
using pavo::producer::Session;
using Surface = cf::Ref<IOSurfaceRef>;
using Sessions = HandleTable<pavo_producer, Session>;
using Memories = HandleTable<pavo_memory, Surface>;

bool isSound(const pavo_producer_config& config)
{
    const bool isFormat = config.format >= PAVO_UYVY && config.format <= PAVO_BGRA;
    const auto isSide = [](std::uint32_t side) { return side > 0 && side <= PAVO_MAX_SIDE; };
    const bool isCount = config.surface_count == 0 || (config.surface_count >= PAVO_MIN_SURFACES &&
                                                       config.surface_count <= PAVO_MAX_SURFACES);
    return config.struct_size == sizeof config && isFormat && isSide(config.width) && isSide(config.height) &&
           isCount && Rate{config.rate_numerator, config.rate_denominator}.isValid() &&
           !(config.service && *config.service == '\0');
}

Session::Configuration configurationOf(const pavo_producer_config& config)
{
    return {{static_cast<pavo_pixel_format>(config.format), config.width, config.height},
            {config.rate_numerator, config.rate_denominator},
            config.surface_count ? config.surface_count : PAVO_DEFAULT_SURFACES,
            config.service ? std::string(config.service) : std::string(pavo::kVideoFrameServiceName)};
}

// Runs `work` with the session behind the handle. An exception can only be the lack of memory or of threads.
template <typename Work>
pavo_status with(const pavo_producer* producer, Work work)
{
    try {
        const auto session = Sessions::shared().find(producer);
        if (!session) return PAVO_ERROR_CLOSED;
        if (!session->isOfThisProcess()) return PAVO_ERROR_FORKED;
        return work(*session);
    } catch (const std::exception&) {
        return PAVO_ERROR_RESOURCES;
    }
}

}  // namespace

const char* pavo_status_text(pavo_status status)
{
    switch (status) {
    case PAVO_OK:
        return "all is well";
    case PAVO_TIMED_OUT:
        return "the time is over";
    case PAVO_INTERRUPTED:
        return "interrupted by a signal";
    case PAVO_NOT_WANTED:
        return "nobody watches the camera";
    case PAVO_RING_FULL:
        return "the camera still has all surfaces";
    case PAVO_ERROR_ARGUMENT:
        return "an argument is missing or out of its range";
    case PAVO_ERROR_CLOSED:
        return "the producer is not open";
    case PAVO_ERROR_FRAME:
        return "the frame was not begun, or was sent or discarded already";
    case PAVO_ERROR_FORKED:
        return "the producer belongs to the process that this one was forked off";
    case PAVO_ERROR_RESOURCES:
        return "no memory, descriptors or threads left";
    }
    return "no such status";
}

const char* pavo_producer_version(void)
{
    return PAVO_VERSION;
}

pavo_status pavo_producer_open(const pavo_producer_config* config, pavo_producer** producer)
{
    if (!producer) return PAVO_ERROR_ARGUMENT;
    *producer = nullptr;
    if (!config || !isSound(*config)) return PAVO_ERROR_ARGUMENT;
    // The standard error stream is the program's.
    os_log_set_standard_error_fallback(false);
    try {
        auto session = Session::open(configurationOf(*config));
        if (!session) return PAVO_ERROR_RESOURCES;
        *producer = Sessions::shared().add(std::move(session));
        return PAVO_OK;
    } catch (const std::exception&) {
        return PAVO_ERROR_RESOURCES;
    }
}

pavo_status pavo_producer_close(pavo_producer* producer)
{
    const auto status = with(producer, [](Session&) { return PAVO_OK; });
    if (status != PAVO_OK) return status;
    const auto session = Sessions::shared().remove(producer);
    if (!session) return PAVO_ERROR_CLOSED;  // another thread was faster
    session->close();
    return PAVO_OK;
}

pavo_status pavo_producer_next_event(pavo_producer* producer, pavo_event* event, int64_t timeout_ns)
{
    if (!event) return PAVO_ERROR_ARGUMENT;
    return with(producer, [=](Session& session) { return session.nextEvent(*event, timeout_ns); });
}

int pavo_producer_event_fd(pavo_producer* producer)
{
    int descriptor = -1;
    with(producer, [&descriptor](Session& session) {
        descriptor = session.eventDescriptor();
        return PAVO_OK;
    });
    return descriptor;
}

pavo_status pavo_producer_wait_until_connected(pavo_producer* producer, int64_t timeout_ns)
{
    return with(producer, [=](Session& session) { return session.waitUntilConnected(timeout_ns); });
}

pavo_status pavo_producer_wait_until_wanted(pavo_producer* producer, int64_t timeout_ns)
{
    return with(producer, [=](Session& session) { return session.waitUntilWanted(timeout_ns); });
}

pavo_status pavo_producer_get_watchers(pavo_producer* producer, int32_t* pids, size_t capacity, size_t* count)
{
    if (!count || (!pids && capacity > 0)) return PAVO_ERROR_ARGUMENT;
    *count = 0;
    return with(producer, [=](Session& session) {
        const auto watchers = session.watchers();
        std::copy_n(watchers.begin(), std::min(capacity, watchers.size()), pids);
        *count = watchers.size();
        return PAVO_OK;
    });
}

pavo_status pavo_producer_begin_frame(pavo_producer* producer, pavo_frame* frame)
{
    if (!frame) return PAVO_ERROR_ARGUMENT;
    return with(producer, [=](Session& session) { return session.beginFrame(*frame); });
}

pavo_status pavo_producer_send_frame(pavo_producer* producer, const pavo_frame* frame,
                                     const pavo_timing* timing)
{
    if (!frame) return PAVO_ERROR_ARGUMENT;
    return with(producer, [=](Session& session) { return session.sendFrame(frame->id, timing); });
}

pavo_status pavo_producer_discard_frame(pavo_producer* producer, const pavo_frame* frame)
{
    if (!frame) return PAVO_ERROR_ARGUMENT;
    return with(producer, [=](Session& session) { return session.discardFrame(frame->id); });
}

pavo_status pavo_producer_hold_memory(pavo_producer* producer, const pavo_frame* frame, pavo_memory** memory)
{
    if (!memory) return PAVO_ERROR_ARGUMENT;
    *memory = nullptr;
    if (!frame) return PAVO_ERROR_ARGUMENT;
    return with(producer, [=](Session& session) {
        auto surface = session.surfaceOf(frame->id);
        if (!surface) return PAVO_ERROR_FRAME;
        *memory = Memories::shared().add(std::make_shared<Surface>(std::move(surface)));
        return PAVO_OK;
    });
}

pavo_status pavo_memory_release(pavo_memory* memory)
{
    return Memories::shared().remove(memory) ? PAVO_OK : PAVO_ERROR_ARGUMENT;
}

pavo_status pavo_producer_get_next_frame_time(pavo_producer* producer, int64_t* due_ns)
{
    if (!due_ns) return PAVO_ERROR_ARGUMENT;
    return with(producer, [=](Session& session) {
        *due_ns = session.nextFrameTime();
        return PAVO_OK;
    });
}

pavo_status pavo_producer_wait_until(pavo_producer* producer, int64_t time_ns)
{
    return with(producer, [=](Session& session) { return session.waitUntil(time_ns); });
}

pavo_status pavo_producer_wait_for_next_frame(pavo_producer* producer)
{
    return with(producer, [](Session& session) { return session.waitUntil(session.nextFrameTime()); });
}

pavo_status pavo_producer_set_rate(pavo_producer* producer, uint32_t numerator, uint32_t denominator)
{
    const Rate rate{numerator, denominator};
    if (!rate.isValid()) return PAVO_ERROR_ARGUMENT;
    return with(producer, [&rate](Session& session) {
        session.setRate(rate);
        return PAVO_OK;
    });
}

pavo_status pavo_producer_get_statistics(pavo_producer* producer, pavo_statistics* statistics, size_t size)
{
    if (!statistics || size == 0 || size > sizeof *statistics) return PAVO_ERROR_ARGUMENT;
    return with(producer, [=](Session& session) {
        const auto current = session.statistics();
        std::memcpy(statistics, &current, size);
        return PAVO_OK;
    });
}
