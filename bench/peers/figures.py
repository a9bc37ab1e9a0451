"""What the programs that count frames of a peer have in common: their arguments and their line."""
import argparse
import json
import resource


def arguments(warm_up):
    """The command line; `warm_up` is how many seconds this peer needs before it is counted."""
    parser = argparse.ArgumentParser()
    parser.add_argument("url")
    parser.add_argument("--size", default="1920x1080")
    parser.add_argument("--fps", type=int, default=60)
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("--warm-up", type=float, default=warm_up)
    return parser.parse_args()


def own_cpu():
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return usage.ru_utime + usage.ru_stime


def percentile(values, q):
    values = sorted(values)
    return values[min(len(values) - 1, int(q * len(values)))] if values else 0


def show(args, span, frames, fresh, intervals, first, cpu):
    """Prints the line. `span`, `first` (None: no frame) and `cpu` in seconds, `intervals` in
    milliseconds."""
    print(json.dumps({
        "size": args.size, "fps": args.fps, "displays": 1, "frames_s": round(frames / span, 1),
        "fresh_s": round(fresh / span, 1), "p50_ms": round(percentile(intervals, .5), 2),
        "p99_ms": round(percentile(intervals, .99), 2), "max_ms": round(max(intervals, default=0), 2),
        "first_ms": -1 if first is None else round(first * 1000), "cpu_own": round(cpu / span, 3)}))
