# scripts/lib.sh - what the other scripts share; sourced by them, never run.
# shellcheck shell=bash
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=${PENNYWORT_JOBS:-$(nproc 2>/dev/null || echo 2)}

# Words for the person at the terminal go to standard error, so that standard output stays usable.
say() { printf '== %s\n' "$*" >&2; }
die() {
    printf '%s: error: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# Prints the comment block at the head of the running script: one text is both comment and help.
usage() { sed -n '2,/^[^#]/{s/^# \{0,1\}//p}' "$0"; }

# one_at_a_time NAME COMMAND...: waits for whoever else does what has this name in this tree. CI builds
# ahead, and a stage may come to its build before that has ended.
one_at_a_time() {
    local lock=$root/build/$1.lock
    shift
    mkdir -p "$root/build"
    (flock 9 && "$@" 9>&-) 9>"$lock"
}

configure_and_build() {
    local preset=$1
    shift
    cd "$root" && cmake --preset "$preset" --log-level=WARNING &&
        cmake --build --preset "$preset" -j "$jobs" "$@"
}

# build_preset PRESET [OPTION...]: configures and builds below build/PRESET, with options of the build.
build_preset() {
    say "build $1"
    # What another clone has compiled is found again, whatever folder it stands in.
    export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1
    one_at_a_time "$1" configure_and_build "$@" </dev/null
}
