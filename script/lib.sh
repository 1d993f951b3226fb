# shellcheck shell=bash
# What the scripts share. Sourced, never run: `source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"`.

set -euo pipefail

unset CDPATH    # cd would print
# shellcheck disable=SC2034  # used by the scripts that source this file
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

# say TEXT...: a line about what happens now; on standard error, so that standard output stays the programs' own.
say() { printf '%s\n' "$*" >&2; }

# die TEXT...: ends the script with one line that says why.
die() {
    say "${0##*/}: $*"
    exit 1
}

# usage: prints the comment at the top of the script, which is its help text.
usage() { sed -n '2,/^$/{ s/^# \{0,1\}//; p }' "$0"; }

# needs_clang PRESET: whether the preset builds with clang.
needs_clang() { [[ $1 == clang || $1 == tsan || $1 == fuzz ]]; }

# build_folder PRESET: the preset's binary folder.
build_folder() { if [[ $1 == dev ]]; then echo "$root/build"; else echo "$root/build/$1"; fi; }

# jobs_at_once: how many compilers may work at once: one a core, and each with a gigabyte of the memory that is free.
jobs_at_once() {
    local cores gigabytes
    cores=$(nproc)
    gigabytes=$(awk '/^MemAvailable:/ { print int($2 / 1048576) }' /proc/meminfo 2>/dev/null || echo "$cores")
    echo $((gigabytes < 1 ? 1 : gigabytes < cores ? gigabytes : cores))
}

# set_up PRESET: installs what the preset's build needs.
set_up() { if needs_clang "$1"; then "$root/script/setup" --with-clang; else "$root/script/setup"; fi; }

# configure PRESET: sets up, and configures where that was never done or the presets have changed since. What else
# CMake depends on it looks after itself when it builds.
configure() {
    local folder
    folder=$(build_folder "$1")
    set_up "$1"
    if [[ ! -e $folder/build.ninja || $root/CMakePresets.json -nt $folder/build.ninja ]]; then
        say "Configuring $folder"
        (cd "$root" && cmake --preset "$1") >&2
    fi
}

# build PRESET [TARGET...]: sets up, configures and builds.
build() {
    local preset=$1
    shift
    configure "$preset"
    (cd "$root" && cmake --build --preset "$preset" --parallel "$(jobs_at_once)" ${1:+--target "$@"}) >&2
}
