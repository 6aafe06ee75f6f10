"""Send pictures to Pavo Camera.

    import pavo

    with pavo.Producer(1280, 720, format="BGRA", rate=30) as camera:
        for frame in camera.frames():
            frame.array[:] = ...          # NumPy, height x width x 4, shared with the camera

A producer looks for the camera by itself, and again whenever the camera goes and comes back. ``frames``
yields one frame at each beat of the rate while somebody watches, and sends it when the loop asks for the next
one.

Units: times are seconds of ``time.monotonic()``. Threads: every method may be called from any thread, and
lets other threads run while it waits. Errors: what cannot be is an ``Error`` or a ``ValueError``; what is
only not possible now is None.
"""

from __future__ import annotations

import ctypes
import enum
import os
import time
from dataclasses import dataclass
from fractions import Fraction
from types import TracebackType
from typing import TYPE_CHECKING, Any, Iterator, List, Optional, Tuple, Type, Union

from . import _native
from ._native import library as _library

if TYPE_CHECKING:
    import numpy

__all__ = [
    "ClosedError",
    "Error",
    "Event",
    "EventType",
    "Frame",
    "FrameError",
    "Plane",
    "Producer",
    "Statistics",
]

__version__: str = _library.pavo_producer_version().decode()

_FORMATS = {"UYVY": 1, "YUY2": 2, "NV12": 3, "I420": 4, "BGRA": 5}
_FOREVER = -1
_NS = 1_000_000_000
_MAX_NS = 2**63 - 1


class Error(Exception):
    """What the library refuses to do, in its words."""


class ClosedError(Error):
    """The producer is not open any more."""


class FrameError(Error):
    """The frame was sent or discarded before."""


def _check(status: int) -> int:
    """Raises what a negative status means, and returns the others."""
    if status >= 0:
        return status
    text = _library.pavo_status_text(status).decode()
    if status == _native.ERROR_CLOSED:
        raise ClosedError(text)
    if status == _native.ERROR_FRAME:
        raise FrameError(text)
    if status == _native.ERROR_ARGUMENT:
        raise ValueError(text)
    raise Error(text)


def _timeout_ns(timeout: Optional[float]) -> int:
    if timeout is None:
        return _FOREVER
    if not timeout >= 0:
        raise ValueError("a timeout is not below zero")
    return int(min(timeout * _NS, _MAX_NS))


def _whole(value: Any, what: str, most: int) -> int:
    number = value.__index__() if hasattr(value, "__index__") else None
    if number is None or not 0 < number <= most:
        raise ValueError(f"{what} is a whole number from 1 to {most}, not {value!r}")
    return int(number)


def _rate(value: Union[int, float, Fraction]) -> Fraction:
    try:
        rate = Fraction(value).limit_denominator(1_000_000)
    except (TypeError, ValueError, OverflowError):
        rate = Fraction(0)
    if not 0 < rate <= 1000:
        raise ValueError(f"a rate is a number above 0 and at most 1000, not {value!r}")
    return rate


class EventType(enum.IntEnum):
    """What a producer hears."""

    WAITING = 1  #: there is no camera; it is dialled until it comes
    CONNECTED = 2  #: ``pid`` is the camera's process
    LOST = 3  #: the camera has gone
    SUBSCRIBED = 4  #: somebody watches
    UNSUBSCRIBED = 5  #: nobody watches
    WATCHER_ADDED = 6  #: ``pid`` has begun to watch
    WATCHER_REMOVED = 7  #: ``pid`` has stopped watching
    MISSED = 8  #: earlier events were not fetched in time


@dataclass(frozen=True)
class Event:
    """An event, with a process id for the types that have one."""

    type: EventType
    pid: int


@dataclass(frozen=True)
class Statistics:
    """What became of the frames since the producer was opened."""

    sent: int
    skipped_unwatched: int
    skipped_ring_full: int
    discarded: int
    lost: int
    connections: int


class _Memory:
    """Keeps a surface's pixels mapped for as long as an object refers to them."""

    def __init__(self, handle: int) -> None:
        self._handle = handle
        self._release = _library.pavo_memory_release

    def __del__(self) -> None:
        self._release(self._handle)


class Plane:
    """One plane of a frame: ``height`` rows of ``width`` elements, ``stride`` bytes apart."""

    def __init__(self, native: _native.Plane, memory: _Memory) -> None:
        self.width: int = native.width
        self.height: int = native.height
        self.bytes_per_element: int = native.bytes_per_element
        self.stride: int = native.stride
        address = ctypes.addressof(native.data.contents)
        # Up to the last row's last element: what follows it may be another plane.
        size = self.stride * (self.height - 1) + self.width * self.bytes_per_element
        self._bytes = (ctypes.c_uint8 * size).from_address(address)
        # The array, and whatever is made of it, keeps the memory.
        self._bytes._memory = memory

    @property
    def buffer(self) -> memoryview:
        """The bytes of all rows, with what lies between them, writable."""
        return memoryview(self._bytes).cast("B")

    @property
    def array(self) -> "numpy.ndarray[Any, Any]":
        """The plane as a NumPy array of bytes, without a copy: height x width, or height x width x bytes."""
        import numpy

        shape: Tuple[int, ...] = (self.height, self.width)
        strides: Tuple[int, ...] = (self.stride, self.bytes_per_element)
        if self.bytes_per_element > 1:
            shape += (self.bytes_per_element,)
            strides += (1,)
        return numpy.ndarray(shape, numpy.uint8, self._bytes, 0, strides)


class Frame:
    """A picture to draw. Sent or discarded once; as a context manager it is sent at the end of the block, and
    discarded where the block fails.

    Arrays and buffers that were taken from it stay valid memory for good, but belong to the camera once the
    frame was sent.
    """

    def __init__(self, producer: "Producer", native: _native.Frame, memory: _Memory) -> None:
        self._producer = producer
        self._native = native
        self._memory: Optional[_Memory] = memory
        self.width: int = native.width
        self.height: int = native.height

    @property
    def planes(self) -> List[Plane]:
        """The planes of the format: one, Y and UV, or Y, U and V."""
        memory = self._memory
        if memory is None:
            raise FrameError("the frame was sent or discarded already")
        return [Plane(self._native.planes[i], memory) for i in range(self._native.plane_count)]

    @property
    def arrays(self) -> List["numpy.ndarray[Any, Any]"]:
        """The planes as NumPy arrays."""
        return [plane.array for plane in self.planes]

    @property
    def array(self) -> "numpy.ndarray[Any, Any]":
        """The only plane of UYVY, YUY2 and BGRA, the first one of the others."""
        return self.planes[0].array

    def send(self, presentation: Optional[float] = None, duration: Optional[float] = None) -> None:
        """Sends it. ``presentation``: when it was taken, in seconds of ``time.monotonic()``, instead of now;
        ``duration``: in seconds, instead of what the rate says."""
        timing = None
        if presentation is not None or duration is not None:
            at = time.monotonic() if presentation is None else presentation
            length = 1 / float(self._producer.rate) if duration is None else duration
            if not 0 < length < _MAX_NS / _NS or not abs(at) < _MAX_NS / _NS:
                raise ValueError("a duration is above zero, and a time is a number of seconds")
            timing = ctypes.byref(_native.Timing(int(at * _NS), max(int(length * _NS), 1)))
        _check(_library.pavo_producer_send_frame(self._producer._handle, ctypes.byref(self._native), timing))
        self._memory = None

    def discard(self) -> None:
        """Gives it back. Nothing happens where that was done, or it was sent, before."""
        if self._memory is None:
            return
        self._memory = None
        _library.pavo_producer_discard_frame(self._producer._handle, ctypes.byref(self._native))

    @property
    def is_open(self) -> bool:
        """Whether it was neither sent nor discarded."""
        return self._memory is not None

    def __enter__(self) -> "Frame":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        if kind is None and self.is_open:
            self.send()
        self.discard()

    def __del__(self) -> None:
        if getattr(self, "_memory", None) is not None:
            self.discard()


class Producer:
    """A program whose pictures the camera shows. Close it, or use it as a context manager.

    ``format`` is UYVY, YUY2, NV12, I420 or BGRA; Y, U and V are those of BT.601 with video range, as webcams'
    are, whatever the size. ``rate`` is in frames a second. ``surfaces`` is how many pictures take turns: 5 to
    64, 8 unless said otherwise. ``service`` is the name that the camera is found by.
    """

    def __init__(
        self,
        width: int,
        height: int,
        format: str = "BGRA",
        rate: Union[int, float, Fraction] = 60,
        surfaces: Optional[int] = None,
        service: Optional[str] = None,
    ) -> None:
        self._handle: Optional[int] = None
        if format not in _FORMATS:
            raise ValueError(f"a format is one of {', '.join(_FORMATS)}, not {format!r}")
        if surfaces is not None and not 5 <= _whole(surfaces, "the number of surfaces", 64):
            raise ValueError("there are at least 5 surfaces")
        if service is not None and (not service or "\0" in service):
            raise ValueError("a service has a name")
        self._rate = _rate(rate)
        self.format = format
        self.width = _whole(width, "a width", 16384)
        self.height = _whole(height, "a height", 16384)
        config = _native.Config(
            ctypes.sizeof(_native.Config),
            _FORMATS[format],
            self.width,
            self.height,
            self._rate.numerator,
            self._rate.denominator,
            surfaces or 0,
            None if service is None else os.fsencode(service),
        )
        handle = ctypes.c_void_p()
        _check(_library.pavo_producer_open(ctypes.byref(config), ctypes.byref(handle)))
        self._handle = handle.value

    def close(self) -> None:
        """Ends the connection. Calls of other threads that wait raise ClosedError. Closing again does
        nothing."""
        _library.pavo_producer_close(self._handle)

    def __enter__(self) -> "Producer":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            self.close()

    @property
    def is_connected(self) -> bool:
        """Whether the camera is there."""
        return _check(_library.pavo_producer_wait_until_connected(self._handle, 0)) == _native.OK

    @property
    def is_wanted(self) -> bool:
        """Whether somebody watches."""
        return _check(_library.pavo_producer_wait_until_wanted(self._handle, 0)) == _native.OK

    def wait_until_connected(self, timeout: Optional[float] = None) -> bool:
        """Waits for the camera. False after ``timeout`` seconds."""
        return self._wait(_library.pavo_producer_wait_until_connected, timeout)

    def wait_until_wanted(self, timeout: Optional[float] = None) -> bool:
        """Waits until somebody watches. False after ``timeout`` seconds."""
        return self._wait(_library.pavo_producer_wait_until_wanted, timeout)

    def _wait(self, function: Any, timeout: Optional[float], *arguments: Any) -> bool:
        # Whoever interrupts with Ctrl-C is heard: the library returns after a signal handler, and Python then
        # raises what its own handler says.
        end = None if timeout is None else time.monotonic() + timeout
        status = _check(function(self._handle, *arguments, _timeout_ns(timeout)))
        while status == _native.INTERRUPTED:
            left = None if end is None else max(end - time.monotonic(), 0)
            status = _check(function(self._handle, *arguments, _timeout_ns(left)))
        return status == _native.OK

    def next_event(self, timeout: Optional[float] = None) -> Optional[Event]:
        """The oldest event that was not fetched yet. None after ``timeout`` seconds."""
        native = _native.Event()
        if not self._wait(_library.pavo_producer_next_event, timeout, ctypes.byref(native)):
            return None
        return Event(EventType(native.type), native.pid)

    @property
    def watchers(self) -> List[int]:
        """The processes that watch."""
        count = ctypes.c_size_t(16)
        while True:
            capacity = count.value
            pids = (ctypes.c_int32 * capacity)()
            _check(_library.pavo_producer_get_watchers(self._handle, pids, capacity, ctypes.byref(count)))
            if count.value <= capacity:
                return list(pids[: count.value])

    def begin_frame(self) -> Optional[Frame]:
        """A frame to draw. None where nobody watches, or where the camera still has all surfaces."""
        native = _native.Frame()
        if _check(_library.pavo_producer_begin_frame(self._handle, ctypes.byref(native))) != _native.OK:
            return None
        memory = ctypes.c_void_p()
        status = _library.pavo_producer_hold_memory(self._handle, ctypes.byref(native), ctypes.byref(memory))
        if status != _native.OK:
            _library.pavo_producer_discard_frame(self._handle, ctypes.byref(native))
            _check(status)
        return Frame(self, native, _Memory(memory.value or 0))

    def send(self, *planes: Any) -> bool:
        """Copies NumPy arrays, or what becomes one, into a frame and sends it: one for each plane, of the
        plane's shape and of bytes. False where nothing can be sent now; shapes are checked all the same."""
        import numpy

        arrays = [numpy.asarray(plane) for plane in planes]
        shapes = self.plane_shapes
        if len(arrays) != len(shapes):
            raise ValueError(f"{self.format} has {len(shapes)} planes, not {len(arrays)}")
        for array, shape in zip(arrays, shapes):
            if array.shape != shape or array.dtype != numpy.uint8:
                raise ValueError(
                    f"a plane here is uint8 of the shape {shape}, not {array.dtype} of {array.shape}"
                )
        frame = self.begin_frame()
        if frame is None:
            return False
        with frame:
            for target, array in zip(frame.arrays, arrays):
                target[...] = array
        return True

    @property
    def plane_shapes(self) -> List[Tuple[int, ...]]:
        """The shape of each plane's array."""
        across, down = (self.width + 1) // 2, (self.height + 1) // 2
        if self.format in ("UYVY", "YUY2"):
            return [(self.height, across * 2, 2)]
        if self.format == "NV12":
            return [(self.height, self.width), (down, across, 2)]
        if self.format == "I420":
            return [(self.height, self.width), (down, across), (down, across)]
        return [(self.height, self.width, 4)]

    def frames(self) -> Iterator[Frame]:
        """Yields a frame at each beat of the rate, while somebody watches, and sends it when the next one is
        asked for, unless that was done. Ends when the producer is closed."""
        try:
            while True:
                self.wait_until_wanted()
                self.wait_for_next_frame()
                frame = self.begin_frame()
                if frame is None:
                    continue
                with frame:
                    yield frame
        except ClosedError:
            return

    def wait_for_next_frame(self) -> None:
        """Waits until the next frame is due. Times are counted from the first one, so errors do not add up;
        whoever is very late gets a new beginning."""
        due = ctypes.c_int64()
        _check(_library.pavo_producer_get_next_frame_time(self._handle, ctypes.byref(due)))
        while _check(_library.pavo_producer_wait_until(self._handle, due.value)) == _native.INTERRUPTED:
            pass

    @property
    def rate(self) -> Fraction:
        """Frames a second. Setting it tells the camera."""
        return self._rate

    @rate.setter
    def rate(self, value: Union[int, float, Fraction]) -> None:
        rate = _rate(value)
        _check(_library.pavo_producer_set_rate(self._handle, rate.numerator, rate.denominator))
        self._rate = rate

    @property
    def statistics(self) -> Statistics:
        """What became of the frames so far."""
        native = _native.Statistics()
        size = ctypes.sizeof(native)
        _check(_library.pavo_producer_get_statistics(self._handle, ctypes.byref(native), size))
        return Statistics(*(getattr(native, name) for name, _ in native._fields_))
