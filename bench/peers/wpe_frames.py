#!/usr/bin/env python3
"""Counts the frames of GStreamer's wpevideosrc on a page and prints one line of JSON.

usage: wpe_frames.py URL [--size WxH] [--fps N] [--seconds S]

The source pushes at the asked rate and repeats its last picture when the page gave no new one, so
that the fresh frames are the ones to look at. Needs Python's GObject bindings and the GStreamer
plug-ins "wpe" and "app".
"""
import argparse
import json
import os
import resource
import time
import zlib

# Without a GPU the page and the source draw with Mesa's software rasteriser, off any screen.
os.environ.setdefault("LIBGL_ALWAYS_SOFTWARE", "1")
os.environ.setdefault("EGL_PLATFORM", "surfaceless")
os.environ.setdefault("GST_GL_PLATFORM", "egl")
# The system bus is not asked for anything.
os.environ.setdefault("WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS", "1")

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


def percentile(values, q):
    values = sorted(values)
    return values[min(len(values) - 1, int(q * len(values)))] if values else 0


def own_cpu():
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return usage.ru_utime + usage.ru_stime


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
    parser = argparse.ArgumentParser()
    parser.add_argument("url")
    parser.add_argument("--size", default="1920x1080")
    parser.add_argument("--fps", type=int, default=60)
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("--warm-up", type=float, default=3)
    args = parser.parse_args()
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
        cpu, begin, counter.counting = own_cpu(), time.monotonic(), True
        run_for(context, args.seconds, pipeline)
        counter.counting, span = False, time.monotonic() - begin
        cpu = own_cpu() - cpu
    finally:
        pipeline.set_state(Gst.State.NULL)
    print(json.dumps({
        "size": args.size, "fps": args.fps, "displays": 1,
        "frames_s": round(counter.frames / span, 1), "fresh_s": round(counter.fresh / span, 1),
        "p50_ms": round(percentile(counter.intervals, .5), 2),
        "p99_ms": round(percentile(counter.intervals, .99), 2),
        "max_ms": round(max(counter.intervals, default=0), 2),
        "first_ms": round((counter.first - start) * 1000) if counter.first else -1,
        "cpu_own": round(cpu / span, 3)}))


if __name__ == "__main__":
    main()
