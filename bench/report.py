"""Turns the runs of each cell into medians, ratios and a Markdown page."""
import statistics

# What the figures are held to. The ratios are ours over the yardstick's.
FRESH_AT_LEAST, CPU_AT_MOST, P99_AT_MOST = 0.99, 1.05, 1.05
PEER_AT_LEAST, IDLE_CPU_AT_MOST, FRAME_NS_AT_MOST = 2.0, 0.03, 2000


def medians(runs):
    """The median of each figure over the runs; what is not a number is taken from the first."""
    if not runs:
        return {}
    return {key: statistics.median(run[key] for run in runs) if isinstance(value, (int, float)) else value
            for key, value in runs[0].items()}


def ratio(ours, theirs, key):
    return ours[key] / theirs[key] if ours.get(key) and theirs.get(key) else None


def verdict(cell):
    """(ratios, names of the goals that are missed) of a cell of ours and the yardstick's."""
    ours, bare = cell["medians"].get("pennywort", {}), cell["medians"].get("bare", {})
    ratios = {key: ratio(ours, bare, key) for key in ("fresh_s", "cpu_own", "p99_ms", "first_ms")}
    missed = [key for key, is_met in (
        ("fresh_s", lambda r: r >= FRESH_AT_LEAST), ("cpu_own", lambda r: r <= CPU_AT_MOST),
        ("p99_ms", lambda r: r <= P99_AT_MOST)) if ratios[key] is not None and not is_met(ratios[key])]
    return ratios, missed


def number(value, digits):
    return "–" if value is None else f"{value:.{digits}f}"


def row(*columns):
    return "| " + " | ".join(str(column) for column in columns) + " |"


def table(head, rows):
    return [row(*head), "|" + "---|" * len(head), *rows, ""] if rows else []


def ratio_rows(cells):
    for cell in cells:
        ours, bare = cell["medians"].get("pennywort", {}), cell["medians"].get("bare", {})
        if not ours:
            continue
        ratios, missed = verdict(cell)

        def shown(key, digits=2):
            mark = "**" if key in missed else ""
            return f"{mark}{number(ratios[key], digits)}{mark}"
        frame_us = 1e6 * ours["cpu_own"] / ours["frames_s"] if ours["frames_s"] else None
        yield row(cell["name"].split("/", 1)[1], number(ours["fresh_s"], 1), number(bare.get("fresh_s"), 1), shown("fresh_s", 3),
                  number(ours["p50_ms"], 1), number(ours["p99_ms"], 1), number(bare.get("p99_ms"), 1), shown("p99_ms"),
                  number(frame_us, 0), number(ours["cpu_own"], 3), number(bare.get("cpu_own"), 3), shown("cpu_own"),
                  number(ours["first_ms"], 0), number(bare.get("first_ms"), 0))


RATIO_HEAD = ("page, size, rate, pacing", "fresh/s", "bare", "ratio", "p50 ms", "p99 ms", "bare", "ratio", "own CPU µs/frame",
              "own CPU, cores", "bare", "ratio", "first frame ms", "bare")


def ratio_part(title, head, cells):
    lines = table((head, *RATIO_HEAD[1:]), list(ratio_rows(cells)))
    return [f"## {title}", "", *lines] if lines else []


def contender_rows(cells, keys):
    for cell in cells:
        for name in cell["contenders"]:
            figures = cell["medians"].get(name)
            if figures:
                yield row(cell["name"].split("/", 1)[1], name, *(number(figures.get(key), digits) for key, digits in keys))
            else:
                yield row(cell["name"].split("/", 1)[1], name, *["–"] * len(keys))


def contender_part(title, head, cells, keys):
    lines = table(head, list(contender_rows(cells, keys)))
    return [f"## {title}", "", *lines] if lines else []


def overhead_part(cells):
    rows = [row(one["name"], number(one["real_time"], 0), number(one.get("allocations"), 0))
            for cell in cells for run in cell["runs"].get("pennywort", []) for one in run["benchmarks"]
            if "real_time" in one]
    lines = table(("from the runtime's callback", "ns a frame", "allocations"), rows)
    return ["## What we add to a frame", "", *lines] if lines else []


def group(results, name):
    return [cell for cell in results["cells"] if cell["name"].split("/")[0] == name]


def page_is_missed(cell, peer):
    ours, theirs = cell["medians"].get("pennywort", {}), cell["medians"].get(peer, {})
    found = ratio(ours, theirs, "fresh_s")
    return found is not None and found < PEER_AT_LEAST


def missed_goals(results):
    """One line for each goal that a cell does not reach."""
    for cell in results["cells"]:
        if cell["ratios"]:
            ratios, missed = verdict(cell)
            yield from (f"{cell['name']}: {key} {ratios[key]:.3f} of bare" for key in missed)
    for cell in group(results, "peers"):
        if page_is_missed(cell, "wpevideosrc"):
            yield f"{cell['name']}: less than {PEER_AT_LEAST:g} times the fresh frames of wpevideosrc"
    for cell in group(results, "idle"):
        yield from (f"{cell['name']}: {name} uses {figures['cpu_own']:.3f} of a core" for name, figures in cell["medians"].items()
                    if figures.get("cpu_own", 0) > IDLE_CPU_AT_MOST)
    for cell in group(results, "overhead"):
        yield from (f"{cell['name']}: {one['name']} {one.get('error_message', '')} {one.get('real_time', 0):.0f} ns"
                    for run in cell["runs"].get("pennywort", []) for one in run["benchmarks"]
                    if one.get("error_occurred") or one.get("real_time", 0) > FRAME_NS_AT_MOST)


def notes(results):
    lines = [f"- {cell['name']}, {name}: {note}" for cell in results["cells"] for name, note in cell["notes"].items()]
    lines += [f"- {name}: not measured, the time was up" for name in results["left_out"]]
    return ["## Not measured", "", *lines, ""] if lines else []


def markdown(results):
    machine = results["machine"]
    missed = list(missed_goals(results))
    peer_keys = (("fresh_s", 1), ("frames_s", 1), ("p50_ms", 1), ("p99_ms", 1), ("first_ms", 0), ("cpu_own", 3))
    return "\n".join([
        f"Measured {results['started']} at {results['commit']}: {machine['processors']} processors ({machine['model']}), "
        f"load {machine['load_before']:.2f} before and {machine['load_after']:.2f} after; "
        f"{results['rounds']} rounds of {results['seconds']:g} s, contenders in turn, medians.", "",
        *(["Goals missed:", "", *(f"- {line}" for line in missed), ""] if missed else ["Every goal is reached.", ""]),
        *ratio_part("One display", RATIO_HEAD[0], group(results, "display")),
        *ratio_part("Several displays, 1280x720 at 50, on request", "displays", group(results, "displays")),
        *contender_part("Peers", ("page, size, rate", "what", "fresh/s", "frames/s", "p50 ms", "p99 ms", "first frame ms", "own CPU, cores"),
                        group(results, "peers"), peer_keys),
        *contender_part("Script with a result", ("", "what", "p50 µs", "p99 µs", "longest µs"), group(results, "script"),
                        (("p50_us", 0), ("p99_us", 0), ("max_us", 0))),
        *contender_part("A page that stands still", ("", "pacing", "own CPU, cores", "children's CPU, cores", "own MB", "children's MB", "frames"),
                        group(results, "idle"), (("cpu_own", 4), ("cpu_children", 4), ("rss_mb", 0), ("rss_children_mb", 0), ("frames", 0))),
        *overhead_part(group(results, "overhead")),
        *notes(results)])
