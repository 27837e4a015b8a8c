"""`velacamplix completion`: the scripts do in real shells what they are for."""

import os
import re
import shutil
import subprocess

import pytest


def words_of_bash(tmp_path, script, *typed):
    """What bash offers behind these words, the last of which is being typed."""
    (tmp_path / "script").write_text(script)
    ask = 'source ./script; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _velacamplix; printf "%s\\n" "${COMPREPLY[@]}"'
    ended = subprocess.run(
        ["bash", "--norc", "-c", ask, "bash", "velacamplix", *typed], cwd=tmp_path, capture_output=True, text=True, timeout=60
    )
    assert (ended.returncode, ended.stderr) == (0, "")
    return ended.stdout.split()


@pytest.fixture
def script(command):
    def printed(shell):
        ended = command("completion", shell)
        assert (ended.returncode, ended.stderr) == (0, "")
        return ended.stdout

    return printed


def test_bash(tmp_path, script):
    text = script("bash")
    assert words_of_bash(tmp_path, text, "") == ["run", "convert", "info", "bench", "completion", "--help", "--version"]
    assert words_of_bash(tmp_path, text, "co") == ["convert", "completion"]
    assert words_of_bash(tmp_path, text, "run", "--s") == ["--set", "--shots", "--seed", "--schedule", "--storage"]
    assert words_of_bash(tmp_path, text, "run", "a.qasm", "--precision", "") == ["double", "single"]
    assert words_of_bash(tmp_path, text, "bench", "--precision", "s") == ["single"]
    assert words_of_bash(tmp_path, text, "convert", "--to", "") == ["2", "3"]
    assert words_of_bash(tmp_path, text, "completion", "") == ["bash", "zsh", "fish"]
    for typed in (("run", ""), ("run", "--plot", ""), ("run", "--shots", ""), ("convert", "-o", "x"), ("unknown", "")):
        assert words_of_bash(tmp_path, text, *typed) == [], "left to the names of files, or to nothing"


def test_every_option_is_offered(tmp_path, script, command):
    text = script("bash")
    for name in ("run", "convert", "info", "bench", "completion"):
        told = command(name, "--help").stdout
        known = re.findall(r"^  (?:-\w(?: [A-Z]+)?, )?(--[a-z-]+)", told, re.MULTILINE)
        assert "--help" in known and set(words_of_bash(tmp_path, text, name, "--")) == set(known)


@pytest.mark.skipif(shutil.which("zsh") is None, reason="zsh is not installed")
def test_zsh(tmp_path, script):
    (tmp_path / "_velacamplix").write_text(script("zsh"))
    # The shell's own functions are asked what they were told to offer.
    ask = """
        autoload -Uz compinit && compinit -u -d dump
        fpath=($PWD $fpath); source ./_velacamplix
        print -r -- ${_comps[velacamplix]}
        _describe() { print -r -- "describe:" ${(P)2} }
        compadd() { print -r -- "compadd:" "$@" }
        _arguments() { print -rl -- "arguments:" "$@" }
        words=(velacamplix r); CURRENT=2; _velacamplix
        words=(velacamplix run --pre); CURRENT=3; _velacamplix
    """
    ended = subprocess.run(
        ["zsh", "-f", "-c", ask], cwd=tmp_path, capture_output=True, text=True, timeout=60, env={**os.environ, "HOME": str(tmp_path)}
    )
    assert (ended.returncode, ended.stderr) == (0, "")
    lines = ended.stdout.splitlines()
    assert lines[0] == "_velacamplix" and lines[1].startswith("describe: run:run an OpenQASM file convert:")
    assert "*--precision[default\\: double]:value:(double single)" in lines
    assert "1:value:_files" in lines


@pytest.mark.skipif(shutil.which("fish") is None, reason="fish is not installed")
def test_fish(tmp_path, script):
    (tmp_path / "script").write_text(script("fish"))

    def offered(typed):
        ended = subprocess.run(
            ["fish", "--no-config", "-c", f"source ./script; complete -C '{typed}'"],
            cwd=tmp_path, capture_output=True, text=True, timeout=60, env={**os.environ, "HOME": str(tmp_path)},
        )  # fmt: skip
        assert (ended.returncode, ended.stderr) == (0, "")
        return [line.split("\t")[0] for line in ended.stdout.splitlines()]

    assert set(offered("velacamplix ")) == {"run", "convert", "info", "bench", "completion"}
    assert offered("velacamplix run --prec") == ["--precision"]
    assert sorted(offered("velacamplix run --precision ")) == ["double", "single"]
    assert sorted(offered("velacamplix completion ")) == ["bash", "fish", "zsh"]
    assert "script" in offered("velacamplix run s")


def test_an_unknown_shell(command):
    ended = command("completion", "tcsh")
    assert ended.returncode == 2 and "invalid choice: 'tcsh' (choose from 'bash', 'zsh', 'fish')" in ended.stderr
