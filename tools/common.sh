# Read by the scripts beside it: settings and small helpers.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

jobs=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL=$jobs CTEST_PARALLEL_LEVEL=$jobs
python=.venv/bin/python

# The library is part of two trees, the C++ one and the Python package's, but compiled once where there is ccache.
if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}
    export CCACHE_DIR=${CCACHE_DIR:-$PWD/build/ccache} CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=yes
    export CXX=${CXX:-c++} # under one name: another one counts as another compiler
    # Another language counts as another compiler, too, and where none is set Python sets this for what it starts.
    if [ -z "${LANG:-}${LC_ALL:-}" ]; then export LC_CTYPE=C.UTF-8; fi
fi

# Begins a step; tells how long the one before took. The last one's end is the script's.
step() {
    if [ -n "${step_began:-}" ]; then printf -- '-- %d s\n' $((SECONDS - step_began)); fi
    step_began=$SECONDS
    printf '\n== %s\n' "$*"
}

# Starts the calling script again without whatever its user has set: tests and checks must not depend on it. What stays
# is where programs and the home folder are, the language, the terminal, the place for temporary files, and how this
# machine's network reaches package registries (proxies, certificates, pip's settings) and keeps what was compiled.
in_clean_environment() {
    if [ "${VELACAMPLIX_CLEAN_ENVIRONMENT:-}" = yes ]; then return; fi
    local name kept=(VELACAMPLIX_CLEAN_ENVIRONMENT=yes)
    for name in $(compgen -e); do
        case $name in
        PATH | HOME | LANG | TERM | TMPDIR | CMAKE_*_LAUNCHER | CCACHE_*) ;;
        http_proxy | https_proxy | no_proxy | HTTP_PROXY | HTTPS_PROXY | NO_PROXY) ;;
        PIP_* | SSL_CERT_* | *_CA_BUNDLE) ;;
        *) continue ;;
        esac
        kept+=("$name=${!name}")
    done
    exec env -i "${kept[@]}" "tools/$(basename "$0")" "$@"
}

# Runs a command silently; shows what it said only when it fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then cat "$log"; fi
    rm -f "$log"
    return "$status"
}

# What compiling everything takes the first time, without a compiler cache: minutes of one processor, megabytes.
declare -A minutes=([release]=14 [dev]=9 [sanitize]=9 [threads]=4 [clang]=5 [aarch64]=5 [bench]=9 [python]=9)
declare -A megabytes=([release]=70 [dev]=60 [sanitize]=320 [threads]=40 [clang]=30 [aarch64]=40 [bench]=60 [python]=30)
announce_compiling() {
    echo "compiling takes about $(((minutes[$1] + jobs - 1) / jobs)) minutes on $jobs processors, and ${megabytes[$1]} MB in $2"
}

# Runs pip, with a compile somewhere inside; shows what is fetched, ninja's lines, and all that was said when it fails.
compiling() {
    local log status=0
    log=$(mktemp)
    "$@" 2>&1 | tee "$log" | sed -un -e 's/^ *\(\[[0-9]*\/[0-9]*\]\)/\1/p' -e '/^Collecting /p' || status=$?
    if [ "$status" -ne 0 ]; then cat "$log"; fi
    rm -f "$log"
    return "$status"
}

# Brings the build tree of a preset up to date.
build_preset() {
    local preset=$1
    shift
    if [ ! -f "build/$preset/build.ninja" ]; then
        announce_compiling "$preset" "build/$preset"
        quietly cmake --preset "$preset"
    fi
    cmake --build --preset "$preset" "$@"
}

# How many processes run the Python tests: most of them keep one processor busy, and some take 2 GiB. More than four would
# not end sooner: the longest files last as long, and threads are tested with more of them than there are processors.
python_test_processes() {
    local gigabytes
    gigabytes=$(awk '/^MemAvailable:/ { print int($2 / 1048576) }' /proc/meminfo)
    printf '%s\n' "$jobs" 4 $((gigabytes / 3 > 1 ? gigabytes / 3 : 1)) | sort -n | head -n 1
}

# Shows which tests a preset's programs left out, and why, as they said when they last ran.
show_left_out() {
    grep -h '^left out' "build/$1/Testing/Temporary/LastTest.log" | sort -u || true
}
