#!/usr/bin/env bash
# Brings .venv up to date: the environment, what the build needs, velacamplix itself. An argument names an extra of
# pyproject.toml ("test") to install with it. Quiet when nothing has changed.
source "$(dirname "$0")/common.sh"
extra=${1:-}

if [ ! -x "$python" ]; then
    echo "creating .venv, a Python environment for this folder alone"
    "$(tools/find_python.sh)" -m venv .venv
fi

stamp=.venv/velacamplix-installed${extra:+-$extra}
sources=(CMakeLists.txt cmake include src pyproject.toml tested-versions.txt python/bindings python/src README.md LICENSE)
if [ -f "$stamp" ] && [ -z "$(find "${sources[@]}" -newer "$stamp" -print -quit)" ]; then exit 0; fi

# Taken before the build: what changes meanwhile belongs to the next one.
touch "$stamp.next"
echo "installing velacamplix${extra:+ with what its extra \"$extra\" names} into .venv"
mapfile -t build_requirements < <("$python" - <<'END'
import tomllib
with open("pyproject.toml", "rb") as file:
    print(*tomllib.load(file)["build-system"]["requires"], sep="\n")
END
)
"$python" -m pip install --quiet --disable-pip-version-check "${build_requirements[@]}"
# In this environment and not in one of pip's own, so that the next build can take up where this one ends.
if ! compgen -G 'build/python-*' >/dev/null; then announce_compiling python build; fi
compiling "$python" -m pip install --verbose --disable-pip-version-check --no-build-isolation \
    --constraint tested-versions.txt ".${extra:+[$extra]}"
mv "$stamp.next" "$stamp"
