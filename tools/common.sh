# Read by the scripts beside it: settings and small helpers.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

jobs=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL=$jobs CTEST_PARALLEL_LEVEL=$jobs
python=.venv/bin/python

step() { printf '\n== %s\n' "$*"; }

# Runs a command silently; shows what it said only when it fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then cat "$log"; fi
    rm -f "$log"
    return "$status"
}

# Brings the build tree of a preset up to date.
build_preset() {
    local preset=$1
    shift
    if [ ! -f "build/$preset/build.ninja" ]; then quietly cmake --preset "$preset"; fi
    cmake --build --preset "$preset" "$@" -- --quiet
}
