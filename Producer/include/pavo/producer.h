#pragma once

/*
 * A producer: a program whose pictures the camera shows.
 *
 *     pavo_producer_config config = PAVO_PRODUCER_CONFIG_INIT(PAVO_BGRA, 1280, 720);
 *     pavo_producer* producer;
 *     if (pavo_producer_open(&config, &producer) != PAVO_OK) ...
 *     for (;;) {
 *         pavo_frame frame;
 *         pavo_producer_wait_for_next_frame(producer);
 *         if (pavo_producer_begin_frame(producer, &frame) != PAVO_OK) continue;  // nobody watches
 *         ... draw into frame.planes ...
 *         pavo_producer_send_frame(producer, &frame, NULL);
 *     }
 *
 * The camera may come, go and come back: a producer dials it twice a second until it answers, and keeps its
 * format, its rate, its surfaces and its statistics over a restart of the camera. Pixels are never copied: a
 * frame is memory that the camera maps.
 *
 * Units:     times are nanoseconds of CLOCK_MONOTONIC, durations are nanoseconds, strides and sizes are
 * bytes, widths and heights are pixels. Ownership: a producer belongs to whoever opened it, who closes it. A
 * frame belongs to the caller from pavo_producer_begin_frame until it is sent or discarded. Strings that are
 * returned are constants. Threads:   every function may be called from any thread, several at once. None
 * waits for the camera, but for those whose name says so. Waiting ends, too, when a signal handler has run
 * and when the producer is closed. Errors:    every failure is a pavo_status below zero; one above zero says
 * why there is nothing to do now. A producer that is not open, any more or at all, is an error like others,
 * never a crash. So is a producer in a process that was forked off the one that opened it.
 */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define PAVO_EXPORT __attribute__((visibility("default")))
#else
#define PAVO_EXPORT
#endif

typedef enum pavo_status {
    PAVO_OK = 0,

    PAVO_TIMED_OUT = 1,
    PAVO_INTERRUPTED = 2, /* a signal handler has run */
    PAVO_NOT_WANTED = 3,  /* nobody watches the camera, or it is not there: draw nothing */
    PAVO_RING_FULL = 4,   /* the camera still has all surfaces: leave this frame out */

    PAVO_ERROR_ARGUMENT = -1,  /* null where that is not allowed, or a value out of its range */
    PAVO_ERROR_CLOSED = -2,    /* not an open producer, or closed while it waited */
    PAVO_ERROR_FRAME = -3,     /* not a frame that was begun, or sent or discarded already */
    PAVO_ERROR_FORKED = -4,    /* opened by the process that this one was forked off */
    PAVO_ERROR_RESOURCES = -5, /* no memory, no descriptor or no thread left */
} pavo_status;

/* What a status means, in words. */
PAVO_EXPORT const char* pavo_status_text(pavo_status status);

/* "major.minor.patch" of the library. */
PAVO_EXPORT const char* pavo_producer_version(void);

/*
 * How pixels lie in memory. Y, U and V are those of BT.601 with video range, as webcams' are, whatever the
 * size: programs take every camera's pictures for that, and video of HD size, which is mostly BT.709, has to
 * be converted. Nobody reads the fourth byte of BGRA. Chroma of odd sizes is rounded up.
 */
typedef enum pavo_pixel_format {
    PAVO_UYVY = 1, /* one plane, 2 bytes a pixel: U Y V Y for two pixels */
    PAVO_YUY2 = 2, /* one plane, 2 bytes a pixel: Y U Y V for two pixels */
    PAVO_NV12 = 3, /* two planes: Y, then UV at half size each way, 2 bytes an element */
    PAVO_I420 = 4, /* three planes: Y, then U and V at half size each way */
    PAVO_BGRA = 5, /* one plane, 4 bytes a pixel */
} pavo_pixel_format;

/* Opaque. Never dereferenced by the library: any value is safe to pass. */
typedef struct pavo_producer pavo_producer;

#define PAVO_MAX_SIDE 16384u
#define PAVO_MIN_SURFACES 5u
#define PAVO_MAX_SURFACES 64u
#define PAVO_DEFAULT_SURFACES 8u

typedef struct pavo_producer_config {
    size_t struct_size;      /* sizeof(pavo_producer_config) */
    uint32_t format;         /* a pavo_pixel_format */
    uint32_t width;          /* 1 to PAVO_MAX_SIDE */
    uint32_t height;         /* 1 to PAVO_MAX_SIDE */
    uint32_t rate_numerator; /* frames per second as a fraction, above 0 and up to 1000 */
    uint32_t rate_denominator;
    uint32_t surface_count; /* how many surfaces to take turns with; 0: PAVO_DEFAULT_SURFACES */
    const char* service;    /* the name that the camera is found by; null: the camera's own. Copied. */
} pavo_producer_config;

/* 60 frames a second. */
#define PAVO_PRODUCER_CONFIG_INIT(format, width, height)                                                     \
    {sizeof(pavo_producer_config), (format), (width), (height), 60u, 1u, 0u, NULL}

/*
 * Starts looking for the camera, and returns without waiting for it. `producer` becomes null on failure.
 * PAVO_ERROR_ARGUMENT, PAVO_ERROR_RESOURCES.
 */
PAVO_EXPORT pavo_status pavo_producer_open(const pavo_producer_config* config, pavo_producer** producer);

/*
 * Ends the connection and lets go of everything but memory that is held with pavo_producer_hold_memory.
 * Waiting calls of other threads return PAVO_ERROR_CLOSED, and so does every later call.
 */
PAVO_EXPORT pavo_status pavo_producer_close(pavo_producer* producer);

/* What happens between the camera and its clients. */

typedef enum pavo_event_type {
    PAVO_EVENT_WAITING = 1,         /* there is no camera; it is dialled until it comes */
    PAVO_EVENT_CONNECTED = 2,       /* `pid`: the camera's process */
    PAVO_EVENT_LOST = 3,            /* the camera has gone */
    PAVO_EVENT_SUBSCRIBED = 4,      /* the camera wants frames: somebody watches */
    PAVO_EVENT_UNSUBSCRIBED = 5,    /* nobody watches */
    PAVO_EVENT_WATCHER_ADDED = 6,   /* `pid`: a process that has begun to watch */
    PAVO_EVENT_WATCHER_REMOVED = 7, /* `pid`: a process that has stopped watching */
    PAVO_EVENT_MISSED = 8,          /* events before this one were not fetched in time, and are gone */
} pavo_event_type;

typedef struct pavo_event {
    uint32_t type; /* a pavo_event_type; ignore those that you do not know */
    int32_t pid;   /* 0 where the type has none */
} pavo_event;

#define PAVO_FOREVER INT64_C(-1)

/*
 * The oldest event that was not fetched yet; waits for one up to `timeout_ns` (PAVO_FOREVER: without end).
 * PAVO_OK, PAVO_TIMED_OUT, PAVO_INTERRUPTED. The last 256 events are kept.
 */
PAVO_EXPORT pavo_status pavo_producer_next_event(pavo_producer* producer, pavo_event* event,
                                                 int64_t timeout_ns);

/*
 * A descriptor that polls as readable while there is an event to fetch. It belongs to the producer: do not
 * read it, and let go of it before the producer is closed. -1 where the producer is not open.
 */
PAVO_EXPORT int pavo_producer_event_fd(pavo_producer* producer);

/*
 * Wait until the camera is there, and until somebody watches it. PAVO_OK, PAVO_TIMED_OUT, PAVO_INTERRUPTED;
 * with `timeout_ns` 0 these ask without waiting.
 */
PAVO_EXPORT pavo_status pavo_producer_wait_until_connected(pavo_producer* producer, int64_t timeout_ns);
PAVO_EXPORT pavo_status pavo_producer_wait_until_wanted(pavo_producer* producer, int64_t timeout_ns);

/*
 * The processes that watch. Writes up to `capacity` of them to `pids`, which may be null where that is 0, and
 * how many there are to `count`.
 */
PAVO_EXPORT pavo_status pavo_producer_get_watchers(pavo_producer* producer, int32_t* pids, size_t capacity,
                                                   size_t* count);

/* Frames. */

typedef struct pavo_plane {
    uint8_t* data;
    size_t stride;              /* from one row to the next, in bytes */
    uint32_t width;             /* in elements */
    uint32_t height;            /* in rows */
    uint32_t bytes_per_element; /* see pavo_pixel_format */
    uint32_t reserved;
} pavo_plane;

typedef struct pavo_frame {
    uint64_t id; /* the library's */
    uint32_t format;
    uint32_t width;
    uint32_t height;
    uint32_t plane_count;
    pavo_plane planes[4];
} pavo_frame;

/*
 * Takes a surface that nobody reads any more, to be drawn into. It still holds an old picture, or zeros.
 * Counts what is left out. PAVO_OK, PAVO_NOT_WANTED, PAVO_RING_FULL.
 */
PAVO_EXPORT pavo_status pavo_producer_begin_frame(pavo_producer* producer, pavo_frame* frame);

typedef struct pavo_timing {
    int64_t presentation_ns; /* when the picture was taken, or is to be seen */
    int64_t duration_ns;     /* above 0 */
} pavo_timing;

/*
 * Sends a frame, whose memory is the camera's afterwards. Never waits; a camera that has gone meanwhile makes
 * no difference to the caller. `timing` may be null: now, for as long as the rate says. The frame is the
 * caller's to use again on PAVO_ERROR_ARGUMENT only, which means that the timing is wrong.
 */
PAVO_EXPORT pavo_status pavo_producer_send_frame(pavo_producer* producer, const pavo_frame* frame,
                                                 const pavo_timing* timing);

/* Gives a frame back without sending it. */
PAVO_EXPORT pavo_status pavo_producer_discard_frame(pavo_producer* producer, const pavo_frame* frame);

/*
 * Keeps the memory of a begun frame mapped, also after the frame was sent and the producer closed. For
 * languages that cannot know when the last reference to it goes. Each hold has to be released.
 */
typedef struct pavo_memory pavo_memory;
PAVO_EXPORT pavo_status pavo_producer_hold_memory(pavo_producer* producer, const pavo_frame* frame,
                                                  pavo_memory** memory);
PAVO_EXPORT pavo_status pavo_memory_release(pavo_memory* memory);

/* Pace. */

/*
 * When the next frame is due; every call is about one frame more. Times are counted from the first one
 * without an error that adds up. A caller that is late by more than a tenth of a second gets a new beginning,
 * not a burst of frames to catch up with.
 */
PAVO_EXPORT pavo_status pavo_producer_get_next_frame_time(pavo_producer* producer, int64_t* due_ns);

/* Waits until CLOCK_MONOTONIC shows `time_ns`. PAVO_OK, PAVO_INTERRUPTED. */
PAVO_EXPORT pavo_status pavo_producer_wait_until(pavo_producer* producer, int64_t time_ns);

/* Both of them: waits until the next frame is due. After PAVO_INTERRUPTED it counts as due. */
PAVO_EXPORT pavo_status pavo_producer_wait_for_next_frame(pavo_producer* producer);

/* Tells the camera another rate, now and whenever it comes back, and paces by it. As in the configuration. */
PAVO_EXPORT pavo_status pavo_producer_set_rate(pavo_producer* producer, uint32_t numerator,
                                               uint32_t denominator);

/* What became of the frames, since the producer was opened. */
typedef struct pavo_statistics {
    uint64_t sent;
    uint64_t skipped_unwatched; /* PAVO_NOT_WANTED of pavo_producer_begin_frame */
    uint64_t skipped_ring_full; /* PAVO_RING_FULL of pavo_producer_begin_frame */
    uint64_t discarded;
    uint64_t lost;        /* of those sent: the camera went before they were handed to it */
    uint64_t connections; /* how often the camera was found */
} pavo_statistics;

/* Writes the first `size` bytes of the statistics: sizeof(pavo_statistics). */
PAVO_EXPORT pavo_status pavo_producer_get_statistics(pavo_producer* producer, pavo_statistics* statistics,
                                                     size_t size);

#ifdef __cplusplus
}
#endif
