"""An animation on the camera, drawn with NumPy: a wave of colours."""

import numpy
import pavo

x = numpy.linspace(0, 4 * numpy.pi, 640)
y = numpy.linspace(0, 2 * numpy.pi, 360)[:, None]
with pavo.Producer(640, 360, format="BGRA", rate=30) as camera:
    for number, frame in enumerate(camera.frames()):
        wave = numpy.sin(x + y + number / 10)
        frame.array[..., 0] = 128 + 127 * wave
        frame.array[..., 1] = 128 - 127 * wave
        frame.array[..., 2] = number % 256
