#!/usr/bin/env python3
"""Counts the frames of GStreamer's wpevideosrc on a page and prints one line of JSON.

usage: wpe_frames.py URL [--size WxH] [--fps N] [--seconds S]

The source pushes at the asked rate and repeats its last picture when the page gave no new one, so
that the fresh frames are the ones to look at. Needs Python's GObject bindings and the GStreamer
plug-ins "wpe" and "app".
"""
import os
import time
import zlib

# Without a GPU the page and the source draw with Mesa's software rasteriser, off any screen.
os.environ.setdefault("LIBGL_ALWAYS_SOFTWARE", "1")
os.environ.setdefault("EGL_PLATFORM", "surfaceless")
os.environ.setdefault("GST_GL_PLATFORM", "egl")
# The system bus is not asked for anything.
os.environ.setdefault("WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS", "1")

import figures  # noqa: E402
import gi  # noqa: E402

gi.require_version("Gst", "1.0")
gi.require_version("GstApp", "1.0")
from gi.repository import GLib, Gst, GstApp  # noqa: E402,F401

# One word in so many is looked at: enough to tell two frames apart, and next to no work.
STEP = 512


class Counter:
    def __init__(self):
        self.frames = self.fresh = self.last = 0
        self.first = self.previous = None
        self.counting = False
        self.intervals = []

    def arrived(self, sink):
        sample = sink.emit("pull-sample")
        now = time.monotonic()
        self.first = self.first or now
        if not self.counting:
            return Gst.FlowReturn.OK
        self.frames += 1
        seen = fingerprint(sample.get_buffer())
        if seen != self.last:
            self.fresh += 1
            if self.previous:
                self.intervals.append((now - self.previous) * 1000)
            self.previous = now
        self.last = seen
        return Gst.FlowReturn.OK


def fingerprint(buffer):
    ok, mapped = buffer.map(Gst.MapFlags.READ)
    if not ok:
        raise RuntimeError("a buffer could not be read")
    try:
        words = memoryview(mapped.data)[:mapped.size // 8 * 8].cast("Q")
        return zlib.crc32(words[::STEP].tobytes())
    finally:
        buffer.unmap(mapped)


def run_for(context, seconds, pipeline):
    end = time.monotonic() + seconds
    bus = pipeline.get_bus()
    while time.monotonic() < end:
        while context.iteration(False):
            pass
        message = bus.timed_pop_filtered(5 * Gst.MSECOND, Gst.MessageType.ERROR)
        if message:
            raise RuntimeError(": ".join(str(part) for part in message.parse_error()))


def main():
    args = figures.arguments(warm_up=3)
    width, height = args.size.split("x")

    Gst.init(None)
    pipeline = Gst.parse_launch(
        f"wpevideosrc location={args.url} ! video/x-raw,format=BGRA,width={width},height={height},"
        f"framerate={args.fps}/1 ! appsink name=sink sync=false max-buffers=4 drop=true")
    counter = Counter()
    sink = pipeline.get_by_name("sink")
    sink.set_property("emit-signals", True)
    sink.connect("new-sample", counter.arrived)
    start = time.monotonic()
    context = GLib.MainContext.default()
    try:
        pipeline.set_state(Gst.State.PLAYING)
        run_for(context, args.warm_up, pipeline)
        cpu, begin, counter.counting = figures.own_cpu(), time.monotonic(), True
        run_for(context, args.seconds, pipeline)
        counter.counting, span = False, time.monotonic() - begin
        cpu = figures.own_cpu() - cpu
    finally:
        pipeline.set_state(Gst.State.NULL)
    figures.show(args, span, counter.frames, counter.fresh, counter.intervals,
                 counter.first - start if counter.first else None, cpu)


if __name__ == "__main__":
    main()
