#!/usr/bin/env bash
# Installs the Debian packages that are missing for: build, test, bench, check. Quiet when nothing is missing.
set -euo pipefail

# group | package | why
packages='
build | g++           | the C++ compiler
build | cmake         | describes the build
build | ninja-build   | runs the build
build | libthrust-dev | the complex number type of the interface, header-only
test  | libgtest-dev  | the test framework
test  | binutils      | reads symbols and instructions of the built library
test  | ccache        | spares compiling the library twice, for C++ and for Python
test  | openmpi-bin   | launches the ranks of runs on many of them
test  | libopenmpi-dev | the library that they exchange by
test  | pkg-config    | one of the two ways in which an outside project finds the library
bench | libbenchmark-dev | the benchmark framework
check | libclang-rt-dev | the thread sanitizer
check | clang-format  | compares the layout of the sources
check | clang-tidy    | static analysis
check | clang         | the other compiler
check | libomp-dev    | its OpenMP runtime
check | g++-aarch64-linux-gnu | compiles for another processor
check | qemu-user     | runs what was compiled for it
check | googletest    | sources of the test framework, to be compiled for it
'
python_packages='
build | python3       | the language of the package and of the tools
build | python3-dev   | its headers, for the extension module
build | python3-venv  | the private Python environment in .venv
'
if ! "$(dirname "$0")/find_python.sh" >/dev/null; then packages+=$python_packages; fi

installed() { [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

missing=()
while IFS='|' read -r group package why; do
    group=${group// /} package=${package// /}
    if [[ -z $package || " $* " != *" $group "* ]]; then continue; fi
    if command -v dpkg-query >/dev/null && installed "$package"; then continue; fi
    missing+=("$package")
    if command -v apt-get >/dev/null; then
        echo "installing $package:$why"
    else
        echo "needed, under whatever name this system gives it: $package:$why"
    fi
done <<<"$packages"

if [ ${#missing[@]} -eq 0 ]; then exit 0; fi
if ! command -v apt-get >/dev/null; then
    echo "this system has no apt-get; going on in the hope that the above is present"
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "these need root, and there is no sudo; as root: apt-get install ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -qq --yes --no-install-recommends "${missing[@]}" >/dev/null
