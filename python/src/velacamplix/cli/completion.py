"""`velacamplix completion`: scripts by which shells complete commands, options and file names, made from the parser."""

from __future__ import annotations

import argparse
from typing import Any, NamedTuple


class _Option(NamedTuple):
    """An option, or an argument without a name; `choices` are what it may be, if that is known."""

    names: list[str]
    says: str
    has_value: bool
    choices: list[str]
    is_file: bool


class _Command(NamedTuple):
    name: str
    says: str
    options: list[_Option]


def script(shell: str, parser: argparse.ArgumentParser) -> str:
    """Return the script for bash, zsh or fish."""
    return {"bash": _bash, "zsh": _zsh, "fish": _fish}[shell](_commands(parser))


def _commands(parser: argparse.ArgumentParser) -> list[_Command]:
    known: Any = next(action for action in parser._actions if isinstance(action, argparse._SubParsersAction))
    says = {action.dest: action.help or "" for action in known._choices_actions}
    return [_Command(name, says[name], [_option(a) for a in inner._actions]) for name, inner in known.choices.items()]


def _option(action: argparse.Action) -> _Option:
    says = (action.help or "") % vars(action)
    is_file = (action.metavar or "") in ("FILE", "FILE.qasm", "FILE.png")
    choices = [str(choice) for choice in action.choices or ()]
    return _Option(list(action.option_strings), says, action.nargs != 0, choices, is_file)


def _bash(commands: list[_Command]) -> str:
    cases: list[str] = []
    for command in commands:
        for option in command.options:
            if option.has_value and option.names:
                pattern = "|".join([f'"{command.name} {name}"' for name in option.names])
                if option.choices:
                    cases.append(f'{pattern}) words="{" ".join(option.choices)}" ;;')
                else:
                    cases.append(f"{pattern}) {'' if option.is_file else 'compopt +o default 2> /dev/null; '}return ;;")
        names = [name for option in command.options for name in option.names]
        others = [choice for option in command.options if not option.names for choice in option.choices]
        words = f'if [[ $word == -* ]]; then words="{" ".join(names)}"; else words="{" ".join(others)}"; fi'
        cases.append(f'"{command.name} "*) {words} ;;')
    inner = "\n".join([f"            {case}" for case in cases])
    return f"""\
# Completion of velacamplix for bash: source <(velacamplix completion bash)
_velacamplix() {{
    local word="${{COMP_WORDS[COMP_CWORD]}}" before="${{COMP_WORDS[COMP_CWORD-1]}}" words=""
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        words="{' '.join([command.name for command in commands])} --help --version"
        compopt +o default 2> /dev/null
    else
        case "${{COMP_WORDS[1]}} $before" in
{inner}
        esac
    fi
    # Where nothing fits the shell completes file names.
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}}
complete -o default -F _velacamplix velacamplix
"""


def _zsh(commands: list[_Command]) -> str:
    listed = "\n".join([f"        {_quoted(f'{command.name}:{command.says}')}" for command in commands])
    cases: list[str] = []
    for command in commands:
        lines = [f"        {command.name})", "            _arguments -S \\"]
        for option in command.options:
            value = ""
            if option.has_value:
                values = f"({' '.join(option.choices)})" if option.choices else "_files" if option.is_file else " "
                value = f":value:{values}"
            says = option.says.replace("[", "(").replace("]", ")").replace(":", "\\:")
            for name in option.names:
                lines.append(f"                {_quoted(f'*{name}[{says}]{value}')} \\")
            if not option.names:
                lines.append(f"                {_quoted(f'1{value}')} \\")
        lines[-1] = lines[-1].removesuffix(" \\")
        cases.append("\n".join([*lines, "            ;;"]))
    inner = "\n".join(cases)
    return f"""\
#compdef velacamplix
# Completion of velacamplix for zsh: source <(velacamplix completion zsh), behind compinit
_velacamplix() {{
    local -a commands=(
{listed}
    )
    if ((CURRENT == 2)); then
        _describe command commands
        compadd -- --help --version
        return
    fi
    shift words
    ((CURRENT--))
    case $words[1] in
{inner}
    esac
}}
if [[ "${{funcstack[1]}}" == _velacamplix ]]; then _velacamplix "$@"; else compdef _velacamplix velacamplix; fi
"""


def _fish(commands: list[_Command]) -> str:
    lines = ["# Completion of velacamplix for fish: velacamplix completion fish | source"]
    at_first = "complete -c velacamplix -n __fish_use_subcommand -f"
    lines += [f"{at_first} -a {command.name} -d {_quoted(command.says)}" for command in commands]
    lines += [f"{at_first} -l help -d {_quoted('show help')}", f"{at_first} -l version -d {_quoted('show the version')}"]
    for command in commands:
        here = f"complete -c velacamplix -n '__fish_seen_subcommand_from {command.name}'"
        takes_files = any([option.is_file and not option.names for option in command.options])
        if not takes_files:
            lines.append(f"{here} -f")
        for option in command.options:
            words = [f"-l {name[2:]}" if name.startswith("--") else f"-s {name[1:]}" for name in option.names]
            if option.choices:
                words.append(f"{'-x ' if option.names else ''}-a {_quoted(' '.join(option.choices))}")
            elif option.has_value and option.names:
                words.append("-r -F" if option.is_file else "-x")
            if words:
                lines.append(f"{here} {' '.join(words)} -d {_quoted(option.says)}")
    return "\n".join(lines) + "\n"


def _quoted(text: str) -> str:
    """Return a text in quotes in which no shell finds anything to do."""
    return "'" + text.replace("'", "’") + "'"
