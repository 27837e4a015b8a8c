#!/usr/bin/env python3
"""A stranger's project is built against an installed copy: by find_package, by pkg-config, as docs/cpp.md shows, and
after the copy moved.

Usage: check_installed_copy.py BUILD_TREE COMPILER
"""
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

here = pathlib.Path(__file__).parent
page = here.parents[1] / "docs" / "cpp.md"


def outcome(*command, env=None, cwd=None):
    """How a command ended, and what it said."""
    command = [str(part) for part in command]
    result = subprocess.run(
        command, env={**os.environ, **(env or {})}, cwd=cwd, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
    )
    return result.returncode, result.stdout


def run(*command, env=None, cwd=None):
    status, output = outcome(*command, env=env, cwd=cwd)
    if status != 0:
        sys.exit(f"failed: {shlex.join(map(str, command))}\n{output}")
    return output


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


def as_the_page_shows(build_tree, scratch, compiler):
    """The files and commands of docs/cpp.md, with a home of their own; only the library is not compiled anew."""
    print(f"-- {page.name}")
    text = page.read_text(encoding="utf-8")
    for language, name in (("cpp", "host.cpp"), ("cmake", "CMakeLists.txt")):
        (scratch / name).write_text(re.search(rf"```{language}\n(.*?)```", text, re.DOTALL)[1], encoding="utf-8")
    library, by_cmake, by_pkg_config = (
        re.findall(r"^\$ (.*)", block, re.MULTILINE) for block in re.findall(r"```console\n(.*?)```", text, re.DOTALL)
    )
    install = library[-1].replace("build/library", shlex.quote(str(build_tree)))
    home = {"HOME": str(scratch), "CXX": compiler, "LD_LIBRARY_PATH": ""}
    for commands, program in ((by_cmake, "build/host"), (by_pkg_config, "host")):
        # `c++` stands for the compiler that this tree is built with.
        script = "\n".join(["set -eu", install, *commands, f"./{program}"])
        said = run("sh", "-c", re.sub(r"^c\+\+ ", f"{shlex.quote(compiler)} ", script, flags=re.MULTILINE), env=home, cwd=scratch)
        if said.splitlines()[-1] != "0.50 0.50":
            sys.exit(f"expected 0.50 0.50 from {program}, got {said}")
        print("\n".join(commands))


def an_unfit_thrust_is_told(build, compiler):
    """CMake's messages come out whole, with their semicolons."""
    print("-- a Thrust that does not fit")
    other = build.parent / "newer_thrust"
    (other / "thrust").mkdir(parents=True)
    (other / "thrust" / "version.h").write_text("#define THRUST_VERSION 200200\n")
    status, output = outcome("cmake", "-S", here.parents[1], "-B", build, "-G", "Ninja", f"-DCMAKE_CXX_COMPILER={compiler}",
                             f"-DVELACAMPLIX_THRUST_INCLUDE_DIR={other}")
    message = f"Thrust in {other} has THRUST_VERSION '200200'; velacamplix needs version 1 (below 200000)"
    if status == 0 or message not in " ".join(output.split()):
        sys.exit(f"expected: {message}\nreceived: {output}")
    print(message)


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
        (scratch / "page").mkdir()
        as_the_page_shows(build_tree, scratch / "page", compiler)
        an_unfit_thrust_is_told(scratch / "build_4", compiler)


if __name__ == "__main__":
    main(*sys.argv[1:])
