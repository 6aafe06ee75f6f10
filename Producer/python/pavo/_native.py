"""The C interface of libpavo-producer, as declared in pavo/producer.h."""

import ctypes
import os
from ctypes import POINTER, Structure, c_char_p, c_int, c_int32, c_int64, c_size_t, c_uint8, c_uint32
from ctypes import c_uint64, c_void_p

OK = 0
TIMED_OUT = 1
INTERRUPTED = 2
NOT_WANTED = 3
RING_FULL = 4
ERROR_ARGUMENT = -1
ERROR_CLOSED = -2
ERROR_FRAME = -3
ERROR_FORKED = -4
ERROR_RESOURCES = -5


class Config(Structure):
    _fields_ = [
        ("struct_size", c_size_t),
        ("format", c_uint32),
        ("width", c_uint32),
        ("height", c_uint32),
        ("rate_numerator", c_uint32),
        ("rate_denominator", c_uint32),
        ("surface_count", c_uint32),
        ("service", c_char_p),
    ]


class Event(Structure):
    _fields_ = [("type", c_uint32), ("pid", c_int32)]


class Plane(Structure):
    _fields_ = [
        ("data", POINTER(c_uint8)),
        ("stride", c_size_t),
        ("width", c_uint32),
        ("height", c_uint32),
        ("bytes_per_element", c_uint32),
        ("reserved", c_uint32),
    ]


class Frame(Structure):
    _fields_ = [
        ("id", c_uint64),
        ("format", c_uint32),
        ("width", c_uint32),
        ("height", c_uint32),
        ("plane_count", c_uint32),
        ("planes", Plane * 4),
    ]


class Timing(Structure):
    _fields_ = [("presentation_ns", c_int64), ("duration_ns", c_int64)]


class Statistics(Structure):
    _fields_ = [
        ("sent", c_uint64),
        ("skipped_unwatched", c_uint64),
        ("skipped_ring_full", c_uint64),
        ("discarded", c_uint64),
        ("lost", c_uint64),
        ("connections", c_uint64),
    ]


def _load() -> ctypes.CDLL:
    name = os.environ.get("PAVO_PRODUCER_LIBRARY", "libpavo-producer.so.0")
    try:
        # Every call lets other Python threads run meanwhile.
        library = ctypes.CDLL(name)
    except OSError as error:
        raise ImportError(
            f"{error}. Install the library, or name its file in PAVO_PRODUCER_LIBRARY."
        ) from error
    handle = c_void_p
    functions = {
        "pavo_status_text": (c_char_p, [c_int]),
        "pavo_producer_version": (c_char_p, []),
        "pavo_producer_open": (c_int, [POINTER(Config), POINTER(c_void_p)]),
        "pavo_producer_close": (c_int, [handle]),
        "pavo_producer_next_event": (c_int, [handle, POINTER(Event), c_int64]),
        "pavo_producer_event_fd": (c_int, [handle]),
        "pavo_producer_wait_until_connected": (c_int, [handle, c_int64]),
        "pavo_producer_wait_until_wanted": (c_int, [handle, c_int64]),
        "pavo_producer_get_watchers": (c_int, [handle, POINTER(c_int32), c_size_t, POINTER(c_size_t)]),
        "pavo_producer_begin_frame": (c_int, [handle, POINTER(Frame)]),
        "pavo_producer_send_frame": (c_int, [handle, POINTER(Frame), POINTER(Timing)]),
        "pavo_producer_discard_frame": (c_int, [handle, POINTER(Frame)]),
        "pavo_producer_hold_memory": (c_int, [handle, POINTER(Frame), POINTER(c_void_p)]),
        "pavo_memory_release": (c_int, [c_void_p]),
        "pavo_producer_get_next_frame_time": (c_int, [handle, POINTER(c_int64)]),
        "pavo_producer_wait_until": (c_int, [handle, c_int64]),
        "pavo_producer_set_rate": (c_int, [handle, c_uint32, c_uint32]),
        "pavo_producer_get_statistics": (c_int, [handle, POINTER(Statistics), c_size_t]),
    }
    for name, (result, arguments) in functions.items():
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    return library


library = _load()
