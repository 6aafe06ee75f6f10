"""The Python module, against a camera in a process of its own: argument 1 is that camera's program. Names of
tests follow, as for unittest."""

import ctypes
import gc
import os
import signal
import subprocess
import sys
import tempfile
import threading
import time
import typing
import unittest

import numpy
import pavo
from pavo import _native

CAMERA = sys.argv[1]
LONG = 20.0


class Camera:
    """The camera's process."""

    def __init__(self, service):
        self.process = subprocess.Popen([CAMERA, service], stdout=subprocess.PIPE, text=True)
        self.expect("ready")

    def expect(self, line):
        said = self.process.stdout.readline().strip()
        if said != line:
            raise AssertionError(f"the camera said {said!r}, not {line!r}")

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()


class Case(unittest.TestCase):
    count = 0

    def setUp(self):
        Case.count += 1
        self.service = f"com.example.python.{os.getpid()}.{Case.count}"
        self.camera = None

    def tearDown(self):
        if self.camera:
            self.camera.kill()

    def open(self, *arguments, **options):
        return pavo.Producer(*arguments, service=self.service, **options)

    def open_wanted(self, *arguments, **options):
        if not self.camera:
            self.camera = Camera(self.service)
        producer = self.open(*arguments, **options)
        self.assertTrue(producer.wait_until_wanted(LONG))
        return producer

    def begin(self, producer):
        end = time.monotonic() + LONG
        while time.monotonic() < end:
            frame = producer.begin_frame()
            if frame is not None:
                return frame
        raise AssertionError("no free surface")


class Frames(Case):
    def test_a_frame_arrives(self):
        with self.open_wanted(64, 48, rate=25) as producer:
            frame = self.begin(producer)
            frame.array[:] = 7
            frame.send()
            self.camera.expect("frame at 25")
            self.assertEqual(producer.statistics.sent, 1)

    def test_the_loop_sends_what_it_yields_at_its_pace(self):
        with self.open_wanted(64, 48, rate=200) as producer:
            begin = time.monotonic()
            for number, frame in enumerate(producer.frames()):
                frame.array[...] = number % 256
                if number == 100:
                    break
            self.assertGreaterEqual(time.monotonic() - begin, 0.4)
            self.camera.expect("frame at 200")
            self.camera.expect("many")
            self.assertEqual(producer.statistics.sent, 100)
            self.assertEqual(producer.statistics.discarded, 1)

    def test_arrays_are_the_surface_and_no_copy(self):
        with self.open_wanted(30, 20, format="BGRA") as producer:
            frame = self.begin(producer)
            plane = frame.planes[0]
            self.assertFalse(plane.array.flags.owndata)
            plane.array[3, 4, 2] = 99
            self.assertEqual(plane.buffer[3 * plane.stride + 4 * 4 + 2], 99)
            self.assertEqual(frame.array[3, 4, 2], 99)

    def test_each_format_has_its_shapes(self):
        expected = {
            "UYVY": [(17, 34, 2)],
            "YUY2": [(17, 34, 2)],
            "NV12": [(17, 33), (9, 17, 2)],
            "I420": [(17, 33), (9, 17), (9, 17)],
            "BGRA": [(17, 33, 4)],
        }
        for format, shapes in expected.items():
            with self.open_wanted(33, 17, format=format) as producer:
                self.assertEqual(producer.plane_shapes, shapes)
                frame = self.begin(producer)
                self.assertEqual([array.shape for array in frame.arrays], shapes)
                for array in frame.arrays:
                    array[...] = 255
                frame.send()
            # A camera that loses a producer late forgets the next one, too.
            self.camera.kill()
            self.camera = None

    def test_arrays_can_be_sent_as_a_copy(self):
        with self.open_wanted(16, 8, format="NV12") as producer:
            luma = numpy.zeros((8, 16), numpy.uint8)
            chroma = numpy.zeros((4, 8, 2), numpy.uint8)
            self.assertTrue(producer.send(luma, chroma))
            self.camera.expect("frame at 60")

    def test_a_block_that_fails_sends_nothing(self):
        with self.open_wanted(16, 8) as producer:
            with self.assertRaises(ZeroDivisionError):
                with self.begin(producer):
                    1 / 0
            self.assertEqual(producer.statistics.sent, 0)
            self.assertEqual(producer.statistics.discarded, 1)

    def test_a_frame_that_is_forgotten_is_free_again(self):
        with self.open_wanted(16, 8, surfaces=5) as producer:
            for _ in range(20):
                self.begin(producer)
            gc.collect()
            self.assertEqual(producer.statistics.discarded, 20)

    def test_timing_is_taken(self):
        with self.open_wanted(16, 8) as producer:
            self.begin(producer).send(presentation=time.monotonic(), duration=0.5)
            frame = self.begin(producer)
            for wrong in (0, -1, float("nan"), float("inf")):
                with self.assertRaises(ValueError):
                    frame.send(duration=wrong)
            with self.assertRaises(ValueError):
                frame.send(presentation=float("nan"))
            frame.send()


class Events(Case):
    def test_a_camera_that_comes_and_goes_is_heard_of(self):
        with self.open(64, 48) as producer:
            self.assertEqual(producer.next_event(LONG).type, pavo.EventType.WAITING)
            self.assertFalse(producer.is_connected)
            self.assertIsNone(producer.begin_frame())
            self.camera = Camera(self.service)
            self.assertEqual(
                producer.next_event(LONG), pavo.Event(pavo.EventType.CONNECTED, self.camera.process.pid)
            )
            while producer.next_event(LONG).type != pavo.EventType.SUBSCRIBED:
                pass
            self.assertTrue(producer.is_wanted)
            self.assertEqual(producer.watchers, [])
            self.camera.kill()
            self.camera = None
            self.assertEqual(producer.next_event(LONG).type, pavo.EventType.LOST)
            self.assertEqual(producer.next_event(LONG).type, pavo.EventType.WAITING)
            self.camera = Camera(self.service)
            self.assertTrue(producer.wait_until_wanted(LONG))
            self.assertEqual(producer.statistics.connections, 2)

    def test_waiting_has_an_end(self):
        with self.open(64, 48) as producer:
            self.assertFalse(producer.wait_until_connected(0.01))
            self.assertFalse(producer.wait_until_wanted(0))
            self.assertEqual(producer.next_event(LONG).type, pavo.EventType.WAITING)
            self.assertIsNone(producer.next_event(0.01))

    def test_the_rate_can_change(self):
        with self.open(64, 48, rate=29.97) as producer:
            producer.rate = 24
            self.assertEqual(producer.rate, 24)
            with self.assertRaises(ValueError):
                producer.rate = 0
            self.assertEqual(producer.rate, 24)


class Misuse(Case):
    def test_wrong_sizes_and_formats(self):
        for wrong in (0, -1, 16385, 1.5, "64", None):
            with self.assertRaises(ValueError):
                self.open(wrong, 48)
            with self.assertRaises(ValueError):
                self.open(64, wrong)
        for options in (
            {"format": "RGB"},
            {"format": None},
            {"rate": 0},
            {"rate": 1001},
            {"rate": float("nan")},
            {"rate": "fast"},
            {"surfaces": 4},
            {"surfaces": 65},
        ):
            with self.assertRaises(ValueError):
                self.open(64, 48, **options)
        for service in ("", "a\0b"):
            with self.assertRaises(ValueError):
                pavo.Producer(64, 48, service=service)

    def test_wrong_shapes_and_types(self):
        with self.open_wanted(16, 8) as producer:
            for wrong in (
                numpy.zeros((8, 16), numpy.uint8),
                numpy.zeros((16, 8, 4), numpy.uint8),
                numpy.zeros((8, 16, 4), numpy.float32),
                [],
            ):
                with self.assertRaises(ValueError):
                    producer.send(wrong)
            with self.assertRaises(ValueError):
                producer.send()
            frame = self.begin(producer)
            with self.assertRaises(ValueError):
                frame.array[:] = numpy.zeros((4, 4, 4), numpy.uint8)
            with self.assertRaises(IndexError):
                frame.planes[0].buffer[10**9] = 1

    def test_use_after_sending(self):
        with self.open_wanted(16, 8) as producer:
            frame = self.begin(producer)
            array = frame.array
            frame.send()
            self.assertFalse(frame.is_open)
            for use in (frame.send, lambda: frame.array, lambda: frame.planes):
                with self.assertRaises(pavo.FrameError):
                    use()
            frame.discard()
            array[:] = 1

    def test_use_after_closing(self):
        producer = self.open_wanted(16, 8)
        frame = self.begin(producer)
        array = frame.array
        producer.close()
        producer.close()
        array[:] = 1
        for use in (
            frame.send,
            producer.begin_frame,
            producer.next_event,
            producer.wait_until_wanted,
            producer.wait_for_next_frame,
            lambda: producer.watchers,
            lambda: producer.statistics,
            lambda: producer.is_connected,
            lambda: setattr(producer, "rate", 5),
        ):
            with self.assertRaises(pavo.ClosedError):
                use()
        self.assertEqual(list(producer.frames()), [])
        frame.discard()
        del producer, frame
        gc.collect()
        array[:] = 2
        self.assertEqual(array.sum(), 2 * array.size)

    def test_a_producer_in_a_forked_process(self):
        with self.open_wanted(16, 8) as producer:
            child = os.fork()
            if child == 0:
                answer = 1
                try:
                    producer.begin_frame()
                except pavo.Error:
                    answer = 0
                os._exit(answer)
            self.assertEqual(os.waitpid(child, 0)[1], 0)
            self.begin(producer).send()

    def test_a_producer_that_was_never_made(self):
        broken = pavo.Producer.__new__(pavo.Producer)
        with self.assertRaises(AttributeError):
            broken.begin_frame()
        del broken
        gc.collect()


class Threads(Case):
    def test_waiting_lets_other_threads_run(self):
        with self.open(64, 48) as producer:
            answers = []

            def wait():
                try:
                    producer.wait_until_connected()
                except pavo.ClosedError:
                    answers.append("closed")

            waiting = threading.Thread(target=wait)
            waiting.start()
            self.assertEqual(sum(range(1000)), 499500)
            producer.close()
            waiting.join(LONG)
            self.assertEqual(answers, ["closed"])

    def test_several_threads_may_draw(self):
        with self.open_wanted(64, 48, surfaces=16) as producer:
            errors = []

            def draw():
                try:
                    for _ in range(100):
                        frame = producer.begin_frame()
                        if frame is not None:
                            frame.array[:] = 3
                            frame.send()
                except Exception as error:
                    errors.append(error)

            threads = [threading.Thread(target=draw) for _ in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(errors, [])

    def test_ctrl_c_is_heard_while_it_waits(self):
        with self.open(64, 48) as producer:
            # Until it is heard: the first signals may come before it waits.
            isOver = threading.Event()

            def interrupt():
                while not isOver.wait(0.05):
                    os.kill(os.getpid(), signal.SIGINT)

            killer = threading.Thread(target=interrupt)
            try:
                killer.start()
                producer.wait_until_connected(LONG)
                heard = False
            except KeyboardInterrupt:
                heard = True
            while True:
                try:
                    isOver.set()
                    killer.join()
                    break
                except KeyboardInterrupt:
                    pass
            self.assertTrue(heard)


class Declarations(unittest.TestCase):
    def test_every_public_name_has_words_and_types(self):
        for name in pavo.__all__:
            item = getattr(pavo, name)
            self.assertTrue(item.__doc__, name)
            for key, member in vars(item).items():
                if key.startswith("_") or not callable(getattr(member, "fget", member)):
                    continue
                function = getattr(member, "fget", member)
                if not hasattr(function, "__code__"):
                    continue
                self.assertTrue(function.__doc__, f"{name}.{key}")
                self.assertIn("return", typing.get_type_hints(function, {**vars(pavo), "numpy": numpy}), key)

    def test_it_is_marked_as_typed(self):
        self.assertTrue(os.path.exists(os.path.join(os.path.dirname(pavo.__file__), "py.typed")))

    def test_structures_are_as_large_as_in_c(self):
        self.assertEqual(ctypes.sizeof(_native.Config), 40)
        self.assertEqual(ctypes.sizeof(_native.Frame), 24 + 4 * 32)
        self.assertEqual(ctypes.sizeof(_native.Statistics), 48)


if __name__ == "__main__":
    os.environ["PAVO_BOOTSTRAP_DIR"] = tempfile.mkdtemp(prefix="pavo-python-")
    try:
        unittest.main(argv=[sys.argv[0]] + sys.argv[2:])
    finally:
        subprocess.run(["rm", "-rf", os.environ["PAVO_BOOTSTRAP_DIR"]], check=False)
