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

# The disk that build/ is on, in a line, for whoever reads of a failure.
tell_disk() { say "disk: $(df -h --output=source,size,used,avail,pcent "$root/build" | tail -1)"; }

# needs_room MEBIBYTES FOLDER: ends the script where FOLDER, which may hold a part of it, cannot become as large
# as this. On a full disk compilers and tests fail in ways that do not name it.
needs_room() {
    local size=$1 folder=$2 there left
    mkdir -p "$folder"
    # Another build may take files away meanwhile.
    there=$({ du -sm "$folder" 2>/dev/null || true; } | cut -f1)
    left=$(df --output=avail -BM "$folder" | tail -1 | tr -dc 0-9)
    [ $((there + left)) -ge "$size" ] ||
        die "no room: ${folder#"$root"/} takes $size MiB; it has $there, and its disk has $left left"
}

# one_at_a_time NAME COMMAND...: waits for whoever else does what has this name in this tree. CI builds
# ahead, and a stage may come to its build before that has ended.
one_at_a_time() {
    local lock=$root/build/$1.lock
    shift
    mkdir -p "$root/build"
    (flock 9 && "$@" 9>&-) 9>"$lock"
}

# room_of PRESET: the MiB that its folder takes, with what its tests leave there.
room_of() {
    case "$1" in
    dev) echo 2500 ;;
    asan) echo 4500 ;;
    *) echo 1700 ;;
    esac
}

configure_and_build() {
    local preset=$1
    shift
    local levels=()
    # The other presets have theirs, which needs no more than this. Always said, since a build folder keeps
    # what it was told last.
    if [ "$preset" = dev ]; then levels=("-DCMAKE_CXX_FLAGS_DEBUG=${PENNYWORT_DEV_FLAGS:--g}"); fi
    cd "$root" && cmake --preset "$preset" "${levels[@]}" --log-level=WARNING &&
        cmake --build --preset "$preset" -j "$jobs" "$@"
}

# build_preset PRESET [OPTION...]: configures and builds below build/PRESET, with options of the build.
build_preset() {
    say "build $1"
    needs_room "$(room_of "$1")" "$root/build/$1"
    # What another clone has compiled is found again, whatever folder it stands in.
    export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1
    one_at_a_time "$1" configure_and_build "$@" </dev/null
}
