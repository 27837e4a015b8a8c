#!/usr/bin/env python3
"""Looks into wheels and source distributions, installs each into a fresh environment, and runs tests there.

Usage: check_wheel.py WHEEL_OR_SDIST...

The tests are copied to a folder of their own, so that the installed package alone can be what they import. Those that
need no more than the package's own dependencies and pytest are run.
"""
import os
import pathlib
import platform
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
LEVELS = {"x86-64": "-AVX2", "x86-64-v3": "-AVX512F", "x86-64-v4": ""}

# Files of python/tests; what they import beside the package must be the package's own dependency.
TESTS = [
    "states/test_statevector.py",
    "states/test_sampling.py",
    "states/test_copies.py",
    "states/test_expectations.py",
    "states/test_single_precision.py",
    "machine/test_threads.py",
    "qasm/test_qasm_examples.py",
    "package/test_packaging.py",
    "core/test_stub.py",
]


class Refused(Exception):
    """What was built is not what it should be."""


def run(*command, **options):
    ended = subprocess.run([str(word) for word in command], capture_output=True, text=True, **options)
    if ended.returncode != 0:
        raise Refused(f"{' '.join(map(str, command))} failed:\n{ended.stdout}{ended.stderr}")
    return ended.stdout


def expected_libraries():
    """Where the library's variants stand below the package, with the part of the name that carries no version."""
    folders = ["lib/"]
    if platform.machine() in ("x86_64", "AMD64"):
        folders += [f"lib/glibc-hwcaps/{level}/" for level in LEVELS if level != "x86-64"]
    return folders


def look_into_wheel(wheel, folder):
    """Check the name of a wheel, the names in it, and where its libraries look for others."""
    if platform.system() == "Linux" and not re.search(r"-manylinux_2_\d+_\w+\.whl$", wheel.name):
        raise Refused(f"{wheel.name} does not say for which Linux it is; tools/wheel lets auditwheel find out")
    with zipfile.ZipFile(wheel) as archive:
        names = archive.namelist()
        archive.extractall(folder)
    package = [name[len("velacamplix/"):] for name in names if name.startswith("velacamplix/")]
    for needed in ("py.typed", "_core.pyi", "__init__.py", "qasm/__init__.py"):
        if needed not in package:
            raise Refused(f"{wheel.name} lacks velacamplix/{needed}")
    for place in expected_libraries():
        if not any(re.fullmatch(re.escape(place) + r"libvelacamplix\.so\.\d+", name) for name in package):
            raise Refused(f"{wheel.name} lacks the library in velacamplix/{place}")
    strangers = [name for name in names if not re.match(r"velacamplix(-[^/]*\.dist-info)?/|velacamplix\.libs/(libgomp-[^/]*)?$", name)]
    if strangers:
        raise Refused(f"{wheel.name} also holds {strangers}")

    extensions = [name for name in package if re.fullmatch(r"_core\..*\.so", name)]
    if len(extensions) != 1:
        raise Refused(f"{wheel.name} should hold one extension module, not {extensions}")
    for name in [name for name in package if re.search(r"\.so(\.\d+)*$", name)]:
        # OpenMP's runtime, which auditwheel has put beside the package; for the extension also the library.
        expected = "$ORIGIN/" + "../" * (name.count("/") + 1) + "velacamplix.libs"
        if name in extensions:
            expected = f"$ORIGIN/lib:{expected}"
        found = re.findall(r"\(R(?:UN)?PATH\).*\[(.*)\]", run("readelf", "--dynamic", folder / "velacamplix" / name))
        if found != [expected]:
            raise Refused(f"the run path of {name} should be {expected}, not {found}")
    print(f"{wheel.name}: {len(names)} files, library in {', '.join(expected_libraries())}, OpenMP's runtime beside it")


def fresh_environment(folder, archive):
    """Make an environment with the archive and pytest; give its interpreter."""
    run(sys.executable, "-m", "venv", folder)
    python = folder / "bin" / "python"
    run(python, "-m", "pip", "install", "--quiet", "--disable-pip-version-check", "pytest", archive, cwd=folder)
    return python


def levels_of(python, folder, environment):
    """Load the library as processors of each level would; give what it says of itself."""
    found = set()
    for mask in LEVELS.values():
        tunables = {"GLIBC_TUNABLES": f"glibc.cpu.hwcaps={mask}"} if mask else {}
        code = "from velacamplix import _core; print(_core.instruction_set())"
        found.add(run(python, "-c", code, cwd=folder, env={**environment, **tunables}).strip())
    return sorted(found)


def check(archive):
    print(f"== {archive.name}")
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        if archive.suffix == ".whl":
            look_into_wheel(archive, folder / "inside")
        python = fresh_environment(folder / "environment", archive.resolve())
        tests = folder / "place" / "python" / "tests"
        shutil.copytree(ROOT / "python" / "tests", tests, ignore=shutil.ignore_patterns("__pycache__", ".*"))
        shutil.copytree(ROOT / "examples", folder / "place" / "examples")
        environment = {key: value for key, value in os.environ.items() if key not in ("PYTHONPATH", "LD_LIBRARY_PATH")}

        place = run(python, "-c", "import velacamplix; print(velacamplix.__file__)", cwd=tests, env=environment)
        if str(folder / "environment") not in place:
            raise Refused(f"the package was imported from {place}")
        print("instruction sets that can be chosen here:", *levels_of(python, folder, environment))
        command = [python, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-rs", *TESTS]
        if subprocess.run(command, cwd=tests, env=environment).returncode != 0:
            raise Refused(f"tests fail with what {archive.name} installs")
        run(folder / "environment" / "bin" / "velacamplix", "info", cwd=folder, env=environment)


def main(archives):
    if not archives:
        print(__doc__)
        return 2
    try:
        for archive in archives:
            check(pathlib.Path(archive))
    except Refused as reason:
        print(reason, file=sys.stderr)
        return 1
    print(f"{len(archives)} archives are in order")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
