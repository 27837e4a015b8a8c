#!/usr/bin/env python3
"""A stranger's project is built against an installed copy: by find_package, by pkg-config, and after the copy moved.

Usage: check_installed_copy.py BUILD_TREE COMPILER
"""
import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile

here = pathlib.Path(__file__).parent


def run(*command, env=None):
    command = [str(part) for part in command]
    result = subprocess.run(
        command, env={**os.environ, **(env or {})}, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
    )
    if result.returncode != 0:
        sys.exit(f"failed: {shlex.join(command)}\n{result.stdout}")
    return result.stdout


def check_programs(folder, prefix):
    """Both programs run, and what the loader gave them is a library below `prefix`."""
    print(run(folder / "ghz").rstrip())
    print(run(folder / "every_function").rstrip())
    loader_log = run(folder / "ghz", env={"LD_DEBUG": "libs"})
    loaded = [line.split()[-1] for line in loader_log.splitlines() if "calling init" in line and "velacamplix" in line]
    if len(loaded) != 1 or not pathlib.Path(loaded[0]).is_relative_to(prefix):
        sys.exit(f"expected one library below {prefix}, the loader took {loaded}")
    print(f"loaded {pathlib.Path(loaded[0]).relative_to(prefix)}")


def by_find_package(prefix, build, compiler):
    print("-- find_package")
    # A GPU toolkit's Thrust on the include path must not be the one that is used.
    other = build.parent / "other_thrust"
    (other / "thrust").mkdir(parents=True, exist_ok=True)
    (other / "thrust" / "complex.h").write_text('#error "a second Thrust was picked up"\n')
    run("cmake", "-S", here / "stranger", "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}",
        f"-DCMAKE_CXX_COMPILER={compiler}", "-DCMAKE_BUILD_TYPE=Release", env={"CPATH": str(other)})
    run("cmake", "--build", build, "-j2", env={"CPATH": str(other)})
    check_programs(build, prefix)


def by_pkg_config(prefix, build, compiler):
    print("-- pkg-config")
    build.mkdir()
    search = {"PKG_CONFIG_PATH": ":".join(str(folder.parent) for folder in prefix.rglob("velacamplix.pc"))}
    flags = shlex.split(run("pkg-config", "--cflags", "--libs", "velacamplix", env=search))
    libdir = run("pkg-config", "--variable=libdir", "velacamplix", env=search).strip()
    for source in sorted((here / "stranger").glob("*.cpp")):
        run(compiler, "-O1", source, "-o", build / source.stem, *flags, f"-Wl,-rpath,{libdir}")
    check_programs(build, prefix)


def main(build_tree, compiler):
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch).resolve()
        run("cmake", "--install", build_tree, "--prefix", scratch / "first")
        installed = sorted(p.relative_to(scratch / "first") for p in (scratch / "first").rglob("*") if not p.is_dir())
        print("\n".join(str(path) for path in installed))
        by_find_package(scratch / "first", scratch / "build_1", compiler)
        # Nothing in the copy may know where it was installed.
        shutil.move(scratch / "first", scratch / "moved")
        by_find_package(scratch / "moved", scratch / "build_2", compiler)
        by_pkg_config(scratch / "moved", scratch / "build_3", compiler)


if __name__ == "__main__":
    main(*sys.argv[1:])
