#!/usr/bin/env python3
"""Runs what the documents show, so that it stays true.

Usage: run_snippets.py [--with PACKAGE] FILE.md...    (with the Python in which velacamplix is installed)

In each file, in order and from the project's folder:
  ```python    runs; the blocks of a file share their variables; a block with >>> is a doctest
  ```console   each line after "$ " runs in bash; what follows it is the expected output
  ```cpp       with a main function: is compiled against build/release and run
  ```text      directly after one of these: its expected output
  ![...](made/NAME.svg)   directly after a ```python block: the picture it draws, in the current figure of pyplot or as the
               value of its last line; the documentation writes it there
In expected output "..." stands for anything, and white space counts only as a separation.
A block after the line <!-- not run: REASON --> is passed over, and the reason printed. With --with PACKAGE those run, and no
other ones, whose reason begins with "needs PACKAGE".
Of output after the line <!-- differs: ONE; OTHER --> these parts may be anything: what depends on the machine.
"""
import ast
import contextlib
import doctest
import io
import os
import pathlib
import re
import subprocess
import sys
import tempfile

os.environ.setdefault("MPLBACKEND", "Agg")  # pictures open no windows
root = pathlib.Path(__file__).resolve().parents[1]
fence = re.compile(r"^```([^\s`]*)(?: [^`]*)?$")  # a language, or a directive of the documentation in braces
picture = re.compile(r"^!\[[^\]]*\]\(made/([\w-]+\.svg)\)$")
excuse = re.compile(r"^<!-- not run: (.+) -->$")
differing = re.compile(r"^<!-- differs: (.+) -->$")
as_shown = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE


class Wrong(Exception):
    pass


class Block:
    """What stands between two fences, and what the lines around it say about it."""

    def __init__(self, number, language, content, reason, differs):
        self.number, self.language, self.content = number, language, content
        self.reason = reason  # not to run it
        self.expected = None
        self.differs = differs  # parts of the output
        self.picture = None  # the file it is drawn into

    def compare(self, expected, received):
        for part in self.differs:
            if part not in expected:
                raise Wrong(f"what differs is not in the output: {part!r}")
            expected = expected.replace(part, "...")
        if not doctest.OutputChecker().check_output(expected, received, as_shown):
            raise Wrong(f"expected:\n{expected}received:\n{received}")


def blocks_of(text):
    """Returns the blocks that run, in order."""
    lines = text.splitlines()
    found, reason, differs, number = [], None, [], 0
    while number < len(lines):
        line = lines[number].strip()
        opening = fence.match(lines[number])
        if opening:
            end = number + 1
            while lines[end].strip() != "```":
                end += 1
            content = "\n".join(lines[number + 1 : end]) + "\n"
            if opening[1] == "text" and found and found[-1]:
                found[-1].expected = content
                found[-1].differs += differs
            elif opening[1] in ("python", "console", "cpp"):
                found.append(Block(number + 1, opening[1], content, reason, differs))
            else:
                found.append(None)
            reason, differs, number = None, [], end
        elif match := differing.match(line):
            differs = match[1].split("; ")
        elif match := excuse.match(line):
            reason = match[1]
        elif match := picture.match(line):
            if not (found and found[-1] and found[-1].language == "python"):
                raise Wrong(f"the picture in line {number + 1} stands behind no python block")
            found[-1].picture = match[1]
        elif line:
            reason, differs = None, []
            found.append(None)  # prose: what follows is not the output of what came before
        number += 1
    return [block for block in found if block]


def environment():
    commands = str(pathlib.Path(sys.executable).parent)
    return {**os.environ, "PATH": commands + os.pathsep + os.environ["PATH"]}


def run_python(content, variables, name, drawn=None):
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
        if drawn is None:
            exec(compile(content, name, "exec"), variables)
        else:
            drawn.append(picture_of(ast.parse(content, name), variables, name))
    return output.getvalue()


def picture_of(code, variables, name):
    """Runs a block; returns the picture it draws as the bytes of an SVG file."""
    from matplotlib import pyplot

    pyplot.close("all")
    value = None
    if isinstance(code.body[-1], ast.Expr):
        last = ast.Expression(code.body.pop().value)
        exec(compile(code, name, "exec"), variables)
        value = eval(compile(last, name, "eval"), variables)
    else:
        exec(compile(code, name, "exec"), variables)
    if hasattr(value, "_repr_svg_"):
        return value._repr_svg_().encode()
    if not pyplot.get_fignums() or not pyplot.gcf().axes:
        raise Wrong("the block draws no picture")
    file = io.BytesIO()
    with pyplot.rc_context({"svg.hashsalt": name}):  # the same file each time
        pyplot.gcf().savefig(file, format="svg", metadata={"Date": None})
    return file.getvalue()


def run_command(command):
    result = subprocess.run(
        ["bash", "-c", command], cwd=root, env=environment(), text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
    )
    if result.returncode != 0:
        raise Wrong(f"$ {command}\nended with status {result.returncode}:\n{result.stdout}")
    return result.stdout


def run_console(block):
    for part in re.split(r"^\$ ", block.content, flags=re.MULTILINE)[1:]:
        command, _, expected = part.partition("\n")
        while command.endswith("\\"):
            more, _, expected = expected.partition("\n")
            command = command[:-1] + more
        received = run_command(command)
        if expected.strip():
            block.compare(expected, received)


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


def write_pictures(file, folder):
    """Runs the python blocks of a page and writes the pictures that they draw."""
    from matplotlib import pyplot

    variables, text = {"__name__": "__main__"}, pathlib.Path(file).read_text(encoding="utf-8")
    with contextlib.chdir(root), pyplot.rc_context():
        for block in blocks_of(text):
            if block.language == "python" and block.reason is None:
                pictures = None if block.picture is None else []
                run_python(block.content, variables, f"{file}:{block.number}", pictures)
                if pictures:
                    pathlib.Path(folder, block.picture).write_bytes(pictures[0])
    pyplot.close("all")


def main(files):
    package = None
    if files[:1] == ["--with"]:
        package, files = files[1], files[2:]
    run, failed = 0, 0
    os.chdir(root)
    for file in files:
        variables = {"__name__": "__main__"}
        for block in blocks_of(pathlib.Path(file).read_text(encoding="utf-8")):
            name = f"{file}:{block.number}"
            if package is not None:
                if not re.match(rf"needs {package}\b", block.reason or ""):
                    continue
                block.reason = None
            if block.reason is None and block.language == "cpp" and "main(" not in block.content:
                block.reason = "a fragment without main"
            if block.reason is not None:
                print(f"{name}: not run: {block.reason}")
                continue
            run += 1
            try:
                if block.language == "console":
                    run_console(block)
                elif block.language == "cpp":
                    output = run_cpp(block.content)
                else:
                    output = run_python(block.content, variables, name, None if block.picture is None else [])
                if block.expected is not None:
                    block.compare(block.expected, output)
            except Wrong as wrong:
                failed += 1
                print(f"{name}: {wrong}")
            except Exception as error:
                failed += 1
                print(f"{name}: {type(error).__name__}: {error}")
    print(f"snippets: {run - failed} passed, {failed} failed, in {len(files)} files")
    return 1 if failed or package and not run else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
