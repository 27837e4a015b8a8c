#!/usr/bin/env python3
"""Runs what the documents show, so that it stays true.

Usage: run_snippets.py FILE.md...    (with the Python in which velacamplix is installed)

In each file, in order and from the project's folder:
  ```python    runs; the blocks of a file share their variables; a block with >>> is a doctest
  ```console   each line after "$ " runs in bash; what follows it is the expected output
  ```cpp       with a main function: is compiled against build/release and run
  ```text      directly after one of these: its expected output
In expected output "..." stands for anything, and white space counts only as a separation.
A block after the line <!-- not run: REASON --> is passed over, and the reason printed.
"""
import contextlib
import doctest
import io
import os
import pathlib
import re
import subprocess
import sys
import tempfile

root = pathlib.Path(__file__).resolve().parents[1]
fence = re.compile(r"^```([^\s`]*)\s*$")  # a language, or a directive of the documentation in braces
excuse = re.compile(r"^<!-- not run: (.+) -->$")
as_shown = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE


class Wrong(Exception):
    pass


def blocks_of(text):
    """Yields (line number, language, content, reason not to run it, expected output or None)."""
    lines = text.splitlines()
    found, reason, number = [], None, 0
    while number < len(lines):
        opening = fence.match(lines[number])
        if not opening:
            if lines[number].strip():
                match = excuse.match(lines[number].strip())
                reason = match[1] if match else None
                if not match:
                    found.append(None)  # prose: what follows is not the output of what came before
            number += 1
            continue
        end = number + 1
        while lines[end].strip() != "```":
            end += 1
        content = "\n".join(lines[number + 1 : end]) + "\n"
        if opening[1] == "text" and found and found[-1]:
            found[-1][4] = content
        elif opening[1] in ("python", "console", "cpp"):
            found.append([number + 1, opening[1], content, reason, None])
        else:
            found.append(None)
        reason, number = None, end + 1
    return [block for block in found if block]


def compare(expected, received):
    if not doctest.OutputChecker().check_output(expected, received, as_shown):
        raise Wrong(f"expected:\n{expected}received:\n{received}")


def environment():
    commands = str(pathlib.Path(sys.executable).parent)
    return {**os.environ, "PATH": commands + os.pathsep + os.environ["PATH"]}


def run_python(content, variables, name):
    if ">>>" in content:
        test = doctest.DocTestParser().get_doctest(content, variables, name, name, 0)
        log = io.StringIO()
        runner = doctest.DocTestRunner(optionflags=as_shown)
        runner.run(test, out=log.write, clear_globs=False)
        if runner.failures:
            raise Wrong(log.getvalue())
        variables.update(test.globs)
        return ""
    output = io.StringIO()
    with contextlib.redirect_stdout(output):
        exec(compile(content, name, "exec"), variables)
    return output.getvalue()


def run_command(command):
    result = subprocess.run(
        ["bash", "-c", command], cwd=root, env=environment(), text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
    )
    if result.returncode != 0:
        raise Wrong(f"$ {command}\nended with status {result.returncode}:\n{result.stdout}")
    return result.stdout


def run_console(content):
    for part in re.split(r"^\$ ", content, flags=re.MULTILINE)[1:]:
        command, _, expected = part.partition("\n")
        while command.endswith("\\"):
            more, _, expected = expected.partition("\n")
            command = command[:-1] + more
        received = run_command(command)
        if expected.strip():
            compare(expected, received)


def run_cpp(content):
    build = root / "build" / "release"
    with tempfile.TemporaryDirectory() as scratch:
        source, program = pathlib.Path(scratch, "snippet.cpp"), pathlib.Path(scratch, "snippet")
        source.write_text(content, encoding="utf-8")
        run_command(
            f"c++ -std=c++20 -DTHRUST_DEVICE_SYSTEM=THRUST_DEVICE_SYSTEM_CPP -I include -I {build}/velacamplix-thrust "
            f"{source} -o {program} -L {build}/lib -lvelacamplix -Wl,-rpath,{build}/lib"
        )
        return run_command(str(program))


def main(files):
    run, failed = 0, 0
    os.chdir(root)
    for file in files:
        variables = {"__name__": "__main__"}
        for number, language, content, reason, expected in blocks_of(pathlib.Path(file).read_text(encoding="utf-8")):
            name = f"{file}:{number}"
            if reason is None and language == "cpp" and "main(" not in content:
                reason = "a fragment without main"
            if reason is not None:
                print(f"{name}: not run: {reason}")
                continue
            run += 1
            try:
                if language == "console":
                    run_console(content)
                    continue
                output = run_cpp(content) if language == "cpp" else run_python(content, variables, name)
                if expected is not None:
                    compare(expected, output)
            except Wrong as wrong:
                failed += 1
                print(f"{name}: {wrong}")
            except Exception as error:
                failed += 1
                print(f"{name}: {type(error).__name__}: {error}")
    print(f"snippets: {run - failed} passed, {failed} failed, in {len(files)} files")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
