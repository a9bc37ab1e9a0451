"""What is measured: each cell sets contenders side by side on one page, size and rate."""
import dataclasses
import itertools
import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
PEERS = HERE / "peers"
SIZES = ("1280x720", "1920x1080", "3840x2160")
RATES = (50, 60, 120)
MODES = ("request", "timer", "clock")
DISPLAYS = (1, 2, 4, 8, 16)

# The options that drive both programs in the same way. The yardstick ticks in its loop; a mixer's
# clock is a thread, so that is measured as well, though the thread's own wake-ups count against us.
OURS = {"request": ["--pacing", "request"], "timer": ["--pacing", "timer"],
        "clock": ["--pacing", "request", "--host-clock", "1", "--ticks", "loop"],
        "clock-thread": ["--pacing", "request", "--host-clock", "1", "--ticks", "thread"]}
BARE = {"request": [], "timer": ["--timer", "15"], "clock": ["--host-clock", "1"], "clock-thread": ["--host-clock", "1"]}


@dataclasses.dataclass
class Contender:
    name: str
    command: list
    missing: str = ""  # why it cannot be run; empty if it can


@dataclasses.dataclass
class Cell:
    name: str  # "group/..."
    contenders: list
    seconds: float  # of measuring, in one run
    rounds: int
    overhead: float  # seconds that one run takes besides
    ratios: bool = False  # whether the contenders are ours and the yardstick

    def estimate(self):
        runnable = sum(1 for one in self.contenders if not one.missing)
        return runnable * self.rounds * (self.seconds + self.overhead)


@dataclasses.dataclass
class Setting:
    """The programs, and how long to look."""
    programs: pathlib.Path
    runtime: pathlib.Path
    bare: pathlib.Path | None  # null: there is no yardstick here
    no_bare: str
    seconds: float
    idle_seconds: float
    rounds: int
    calls: int


def page(name):
    return (HERE / "pages" / f"{name}.html").as_uri()


def display_cell(setting, name, url, options, displays, mode):
    # Starting and ending take a second or two, and the pages' warm-up comes before the measuring.
    common = [*options, "--displays", str(displays), "--seconds", str(setting.seconds)]
    ours = [str(setting.programs / "display_bench"), url, *common, *OURS[mode]]
    bare = [str(setting.bare), str(setting.runtime), url, *common, *BARE[mode]]
    return Cell(name, [Contender("pennywort", ours), Contender("bare", bare, setting.no_bare)],
                setting.seconds, setting.rounds, 2.6 + 0.35 * displays, ratios=True)


def single_displays(setting):
    shapes = [("full_change", size, rate) for size, rate in itertools.product(SIZES, RATES)]
    shapes += [("producer", size, 60) for size in SIZES]
    threads = [("full_change", size, 60, "clock-thread") for size in SIZES]
    for look, size, rate, mode in [*((*shape, mode) for shape in shapes for mode in MODES), *threads]:
        yield display_cell(setting, f"display/{look}/{size}/{rate}/{mode}", page(look),
                           ["--size", size, "--fps", str(rate)], 1, mode)


def many_displays(setting):
    for count in DISPLAYS:
        yield display_cell(setting, f"displays/{count}", page("full_change"),
                           ["--size", "1280x720", "--fps", "50"], count, "request")


def python_with_gstreamer():
    for program in dict.fromkeys([sys.executable, "/usr/bin/python3"]):
        try:
            if subprocess.run([program, "-c", "import gi"], capture_output=True).returncode == 0:
                return program
        except OSError:
            continue
    return None


def peers(setting):
    gstreamer = python_with_gstreamer()
    no_gstreamer = "" if gstreamer else "Python's GObject bindings are not installed (python3-gi)"
    for look in ("full_change", "producer"):
        options = [page(look), "--size", "1920x1080", "--fps", "60", "--seconds", str(setting.seconds)]
        yield Cell(f"peers/{look}/1920x1080/60", [
            Contender("pennywort", [str(setting.programs / "display_bench"), *options]),
            Contender("wpevideosrc", [gstreamer, str(PEERS / "wpe_frames.py"), *options], no_gstreamer),
            Contender("screencast", [sys.executable, str(PEERS / "chromium_screencast.py"), *options]),
        ], setting.seconds, setting.rounds, 4)


def scripts(setting):
    still, calls = page("still"), ["--calls", str(setting.calls)]
    ours = [str(setting.programs / "script_bench"), still, *calls]
    yield Cell("script/round_trip", [
        Contender("request", [*ours, "--pacing", "request"]),
        Contender("timer", [*ours, "--pacing", "timer"]),
        Contender("devtools", [sys.executable, str(PEERS / "chromium_script.py"), still, *calls]),
    ], setting.calls * 0.007, 1, 4)


def idle(setting):
    ours = [str(setting.programs / "idle_bench"), page("still"), "--seconds", str(setting.idle_seconds)]
    yield Cell("idle/still", [Contender("request", [*ours, "--pacing", "request"]),
                              Contender("timer", [*ours, "--pacing", "timer"])],
               setting.idle_seconds, 1, 3)


def overhead(setting):
    yield Cell("overhead/frame", [
        Contender("pennywort", [str(setting.programs / "overhead_bench"), "--benchmark_format=json"])], 6, 1, 1)


def all_cells(setting):
    groups = (overhead, scripts, peers, many_displays, single_displays, idle)
    return [cell for group in groups for cell in group(setting)]
