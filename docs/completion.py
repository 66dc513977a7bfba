#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes the completion of bash, zsh and fish in docs/completion: from what the programs' --help tells, the vocabulary
and the functions of the bus.

  completion.py BIN            write the files; BIN is the folder of the built programs
  completion.py --check BIN    change nothing; report each file that is another

The exit status is 1 when something is wrong, else 0.
"""

import argparse
import csv
import dataclasses
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
FOLDER = ROOT / "docs/completion"
HOSTS = ["voice_application", "fxs_plugin", "dect_plugin", "fxo_plugin", "dsp_plugin"]
PROGRAMS = ["voicectl", *HOSTS, "kex_conformance"]
FILES, FOLDERS = "files", "folders"
HEAD = "Made by docs/completion.py from what {} --help tells."


@dataclasses.dataclass
class Option:
    names: list  # "-s", "--socket"
    value: str  # what the help calls it; "" for none
    help: str
    values: object = ()  # words, FILES or FOLDERS

    @property
    def repeats(self):
        return self.value.endswith("...")


@dataclasses.dataclass
class Command:
    name: str
    help: str = ""
    options: list = dataclasses.field(default_factory=list)
    values: object = ()  # of words without an option
    commands: list = dataclasses.field(default_factory=list)


# ------------------------------------------------------------------------------------------------ Where words are from


def vocabulary():
    """The identifiers' names as voicectl shortens them."""
    with open(ROOT / "vocabulary/ids.csv", encoding="utf-8", newline="") as rows:
        return sorted({re.sub("^LIBVOICE_[A-Z]+_", "", row["name"]) for row in csv.DictReader(rows)})


def packages():
    return sorted({name.partition("_")[0] for name in vocabulary()})


def functions():
    text = (ROOT / "include/libvoice_plugin.h").read_text(encoding="utf-8")
    table = text.partition("LIBVOICE_BUS_FUNCTION_COLUMNS] = {")[2].partition("};")[0]
    return sorted(set(re.findall(r'^ *"\w*", "(\w+)",', table, re.M)))


# What the help of a program leaves to its sentence.
WORDS = {
    ("voicectl", "--package"): packages,
    ("voicectl", "--function"): functions,
    ("voicectl ids", ""): lambda: sorted({*packages(), *vocabulary()}),
    ("voicectl params", ""): vocabulary,
    ("voicectl block", "--time"): lambda: ["now"],
    ("fxs_plugin", "--codecs"): lambda: ["PCMA", "PCMU", "PCMA,PCMU", "PCMU,PCMA"],
    ("fxs_plugin", "--display-modem"): lambda: ["v23", "bell202"],
}


def values_of(command, name, shown):
    for owner in (command, command.partition(" ")[0]):
        if (owner, name) in WORDS:
            return WORDS[owner, name]()
    if re.fullmatch(r"[a-z0-9]+(\|[a-z0-9]+)+", shown):
        return shown.split("|")
    if re.match(r"(FILE|PATH|LIBRARY)\b", shown):
        return FILES
    return FOLDERS if shown == "DIR" else ()


# ---------------------------------------------------------------------------------------------------- Reading the help


def help_of(folder, *words):
    run = subprocess.run([folder / words[0], *words[1:], "--help"], capture_output=True, text=True, check=True)
    return run.stdout


def option_rows(text):
    """Rows of options, each on one line: its names and value, two blanks, what it does."""
    joined = re.sub(r"^(  -.*\S)\n {20,}(?=\S)", r"\1  ", text, flags=re.M)
    for row in re.findall(r"^  (-.*)$", joined, re.M):
        left, _, said = row.partition("  ")
        names = re.findall(r"(?<![\w-])-{1,2}[\w-]+", left)
        if left == "--help, --version":
            yield ["--help"], "", "Print a summary and exit"
            yield ["--version"], "", "Print the version and exit"
        else:
            yield names, left.partition(names[-1])[2].strip(), said.strip()


def command_read(folder, *words):
    text = help_of(folder, *words)
    name = " ".join(words)
    command = Command(words[-1])
    for names, shown, said in option_rows(text):
        command.options.append(Option(names, shown, said, values_of(name, names[-1], shown)))
    positional = re.search(r"^Positionals:\n  (\S+)", text, re.M) or re.search(r"^usage: .* ([A-Z]+)$", text, re.M)
    command.values = values_of(name, "", positional[1]) if positional else ()
    for sub, said in re.findall(r"^  (\w+)  +(\S.*)$", text.partition("Subcommands:\n")[2], re.M):
        command.commands.append(command_read(folder, *words, sub))
        command.commands[-1].help = said
    return command


# ----------------------------------------------------------------------------------------------------------------- bash

BASH = """# {head}
_{name}() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} command='' option='' word='' values='' index
    for ((index = 1; index < COMP_CWORD; index++)); do
        word=${{COMP_WORDS[index]}}
        case $word in
        -*) option=$word ;;
        =) ;; # of --option=value, which bash takes apart
        *)
{takes_command}            case $option in
            {repeats}) ;; # takes further values
            *) option= ;;
            esac
            ;;
        esac
    done
    [[ $current == = ]] && current=
    [[ -n $option && $current == -* ]] && option=
    case $command:$option in
{options}
    esac
    if [[ -z $values ]]; then
        case $current:$command in
{words}
        esac
    fi
    COMPREPLY=()
    case $values in
    @files) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    @folders) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current") ;;
    esac
}}
complete -F _{name} {name}
"""


def bash_values(values, free="-"):
    if values in (FILES, FOLDERS):
        return f"values=@{values}"
    return f"values='{' '.join(values)}'" if values else f"values={free}"


def bash(command):
    options, words, repeats = [], [], []
    for one in [command, *command.commands]:
        key = "" if one is command else one.name
        for option in one.options:
            if not option.value:
                continue
            if option.repeats:
                repeats += option.names
            pattern = " | ".join(f"{key}:{name}" for name in option.names)
            options.append(f"    {pattern}) {bash_values(option.values)} ;;")
        names = " ".join(name for option in one.options for name in option.names)
        words.append(f"        -*:{key}) values='{names}' ;;")
        plain = [sub.name for sub in one.commands] or one.values
        if plain:
            words.append(f"        *:{key}) {bash_values(plain)} ;;")
    return BASH.format(
        head=HEAD.format(command.name),
        name=command.name,
        takes_command="            [[ -n $command ]] || command=$word\n" if command.commands else "",
        repeats=" | ".join(sorted(set(repeats))) or "''",
        options="\n".join(options) or "    *) ;;",
        words="\n".join(words),
    )


# ------------------------------------------------------------------------------------------------------------------ zsh


def zsh_quoted(text):
    return text.replace("'", "'\\''")


def zsh_said(text):
    return zsh_quoted(re.sub(r"([\[\]:\\])", r"\\\1", text))


def zsh_action(values):
    if values in (FILES, FOLDERS):
        return "_files" if values == FILES else "_files -/"
    return f"({' '.join(values)})" if values else " "


def zsh_specs(command):
    for option in command.options:
        long = [name + ("=" if option.value and name.startswith("--") else "") for name in option.names]
        others = "*" if option.repeats else f"({' '.join(option.names)})"
        names = "'{" + ",".join(long) + "}'" if len(long) > 1 else long[0]
        shown = ("*-*:" if option.repeats else "") + zsh_said(option.value.removesuffix(" ..."))
        value = f":{shown}:{zsh_action(option.values)}" if option.value else ""
        yield f"'{others}{names}[{zsh_said(option.help)}]{zsh_quoted(value)}'"
    if command.values:
        yield f"'*: :{zsh_action(command.values)}'"


def zsh(command):
    rows = [f"#compdef {command.name}", f"# {HEAD.format(command.name)}", f"_{command.name}() {{"]
    specs = list(zsh_specs(command))
    if command.commands:
        rows += ["    local context state state_descr line", "    typeset -A opt_args"]
        specs += ["'1: :->command'", "'*:: :->words'"]
    rows += ["    _arguments -S \\"]
    rows += [f"        {spec} \\" for spec in specs]
    rows[-1] = rows[-1].removesuffix(" \\")
    if command.commands:
        rows += ["    case $state in", "    command)", "        local -a commands=("]
        rows += [f"            '{sub.name}:{zsh_said(sub.help)}'" for sub in command.commands]
        rows += [
            "        )",
            "        _describe 'command' commands",
            "        ;;",
            "    words)",
            "        case $words[1] in",
        ]
        for sub in command.commands:
            rows += [f"        {sub.name})", "            _arguments -S \\"]
            rows += [f"                {spec} \\" for spec in zsh_specs(sub)]
            rows[-1] = rows[-1].removesuffix(" \\")
            rows += ["            ;;"]
        rows += ["        esac", "        ;;", "    esac"]
    rows += ["}", f'_{command.name} "$@"', ""]
    return "\n".join(rows)


# ----------------------------------------------------------------------------------------------------------------- fish


def fish_quoted(text):
    return "'" + text.replace("\\", "\\\\").replace("'", "\\'") + "'"


def fish_values(values):
    if values in (FILES, FOLDERS):
        return "-r -F" if values == FILES else "-x -a '(__fish_complete_directories)'"
    return f"-x -a {fish_quoted(' '.join(values))}" if values else "-x"


def fish_names(option):
    """As __fish_contains_opt takes them."""
    return " ".join(name[2:] if name.startswith("--") else f"-s {name[1:]}" for name in option.names)


def fish(command):
    rows = [f"# {HEAD.format(command.name)}", f"complete -c {command.name} -f"]
    for one in [command, *command.commands]:
        begin = f"complete -c {command.name}"
        if command.commands:
            begin += " -n __fish_use_subcommand" if one is command else f" -n '__fish_seen_subcommand_from {one.name}'"
        rows += [f"{begin} -a {sub.name} -d {fish_quoted(sub.help)}" for sub in one.commands]
        for option in one.options:
            names = [f"-l {name[2:]}" if name.startswith("--") else f"-s {name[1:]}" for name in option.names]
            value = [fish_values(option.values)] if option.value else []
            rows.append(" ".join([begin, *names, *value, "-d", fish_quoted(option.help)]))
            if option.repeats and option.values:  # those behind the first one
                seen = f"__fish_seen_subcommand_from {one.name}; and __fish_contains_opt {fish_names(option)}"
                further = "-F" if option.values == FILES else f"-a {fish_quoted(' '.join(option.values))}"
                rows.append(f"complete -c {command.name} -n '{seen}' {further}")
        if one.values:
            kind = "-F" if one.values == FILES else f"-a {fish_quoted(' '.join(one.values))}"
            rows.append(f"{begin} {kind}")
    return "\n".join(rows) + "\n"


# ---------------------------------------------------------------------------------------------------------------- files


def files(folder):
    """Name of each file and its text."""
    for program in PROGRAMS:
        command = command_read(folder, program)
        yield f"bash/{program}", bash(command)
        yield f"zsh/_{program}", zsh(command)
        yield f"fish/{program}.fish", fish(command)


def main():
    options = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    options.add_argument("--check", action="store_true", help="change nothing")
    options.add_argument("folder", type=Path, metavar="BIN", help="the folder of the built programs")
    arguments = options.parse_args()
    faults = 0
    for name, text in files(arguments.folder.resolve()):
        path = FOLDER / name
        held = path.read_text(encoding="utf-8") if path.exists() else ""
        if held == text:
            continue
        if arguments.check:
            print(
                f"docs/completion/{name}: differs from what --help tells; run docs/completion.py BIN", file=sys.stderr
            )
            faults += 1
            continue
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
