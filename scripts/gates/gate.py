"""What the gates written in Python share: the tracked files, their lines and the way to end."""
import os
import pathlib
import posixpath
import subprocess
import sys

# The self-test points the gates at trees of its own.
ROOT = pathlib.Path(os.environ.get("PENNYWORT_GATE_ROOT")
                    or pathlib.Path(__file__).resolve().parents[2])


def tracked(*patterns):
    """The paths that git knows, files of a change not yet committed included."""
    out = subprocess.run(["git", "ls-files", "-z", "--", *patterns], cwd=ROOT, check=True,
                         stdout=subprocess.PIPE).stdout.decode()
    return sorted(path for path in out.split("\0") if path and (ROOT / path).is_file())


def lines(path):
    return enumerate((ROOT / path).read_text(encoding="utf-8").splitlines(), 1)


def normal(path):
    return posixpath.normpath(path)


def finish(name, faults):
    for fault in faults:
        print(fault, file=sys.stderr)
    if faults:
        sys.exit(f"{name}: {len(faults)} faults")
