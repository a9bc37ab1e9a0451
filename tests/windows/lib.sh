# tests/windows/lib.sh - what the scripts beside it share; sourced by them with their arguments.
# shellcheck shell=bash
set -euo pipefail

source_dir=$1
# shellcheck disable=SC2034  # of use to those that source this
build_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# in_wine PROGRAM [ARGUMENT...]: its output, both kinds, goes to $work/said; its status to $status.
in_wine() {
    status=0
    "$source_dir/scripts/run-windows" "$@" >"$work/said" 2>&1 </dev/null || status=$?
}

expect_status() {
    [ "$status" -eq "$1" ] || fail "exit status $status, not $1: $(cat "$work/said")"
}

expect_said() {
    grep -q -F -- "$1" "$work/said" || fail "did not say '$1' but: $(cat "$work/said")"
}
