"""Reads man/options.txt, the one list of every command's options, and the
.def lists of the program (the commands, the signal names).

The man page generator, the completion generator and the install tests all go
through this module, so that the three cannot read the tables differently.
"""
import os
import re
from dataclasses import dataclass, field

# Argument names whose completion is the local files.
FILE_ARGS = {"FILE", "SNAPSHOT", "OUT"}


@dataclass
class Option:
    forms: list          # "-x", "--long", "-SIGNAL"
    arg: str = ""        # argument name, "" when none
    arg_style: str = ""  # "separate", "equals" (--long=ARG) or "attached" (-x[ARG])
    text: str = ""
    in_usage: bool = True

    def completion_kind(self):
        if self.arg_style != "separate":
            return ""
        if self.arg in FILE_ARGS:
            return "files"
        if self.arg == "BOOTFILE":
            return "bootfiles"
        return "none"


@dataclass
class Command:
    name: str
    options: list = field(default_factory=list)
    usage_args: list = None   # None: the command has no usage text
    operands: str = "none"
    usage_calls: dict = field(default_factory=dict)


_FORM = re.compile(r"^(--?[A-Za-z][A-Za-z0-9-]*)(?:\[([A-Z]+)\]|=([A-Z]+)| ([A-Z]+))?$")


def parse_forms(text):
    """Splits "-c, --cache FILE" into forms and the argument they share."""
    forms, arg, style = [], "", ""
    for part in (p.strip() for p in text.split(",")):
        m = _FORM.match(part)
        if not m:
            raise ValueError(f"bad option form {part!r}")
        forms.append(m.group(1))
        if m.group(2):
            arg, style = m.group(2), "attached"
        elif m.group(3):
            arg, style = m.group(3), "equals"
        elif m.group(4):
            arg, style = m.group(4), "separate"
    return forms, arg, style


def load(path):
    """Returns the commands of the table in its order, keyed by name."""
    commands = {}
    current = None
    with open(path, encoding="utf-8") as f:
        for number, raw in enumerate(f, 1):
            line = raw.rstrip("\n")
            if not line.strip() or line.startswith("#"):
                continue
            try:
                if line.startswith("["):
                    current = Command(line.strip("[] "))
                    commands[current.name] = current
                elif current is None:
                    raise ValueError("option outside a command block")
                elif line.startswith("@usage-calls "):
                    form, other = line.split()[1:]
                    current.usage_calls[form] = other
                elif line.startswith("@usage"):
                    args = line.split()[1:]
                    current.usage_args = None if args == ["none"] else args
                elif line.startswith("@operands "):
                    current.operands = line.split()[1]
                else:
                    in_usage = not line.startswith("* ")
                    body = line[2:] if not in_usage else line
                    forms_text, sep, text = body.partition("  ")
                    if not sep:
                        raise ValueError("no description after the forms")
                    forms, arg, style = parse_forms(forms_text)
                    current.options.append(Option(forms, arg, style, text.strip(), in_usage))
            except ValueError as e:
                raise ValueError(f"{path}:{number}: {e}") from None
    return commands


_DEF_ENTRY = re.compile(r'^([A-Z_]+)\("([^"]+)", ([A-Za-z0-9_]+)\)$')


def load_list(path, macro):
    """The entries of a .def list (commands.def, signals.def) in order: the
    pairs (name, second argument) of its lines MACRO("name", value). Any line
    but those, comments and blank lines is an error, so that the C++ code and
    the scripts cannot read the list differently."""
    entries = []
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            line = line.strip()
            if not line or line.startswith("//"):
                continue
            m = _DEF_ENTRY.match(line)
            if not m or m.group(1) != macro:
                raise ValueError(f"{path}:{number}: not a {macro}(\"name\", value) line")
            entries.append((m.group(2), m.group(3)))
    return entries


def command_names(commands_def):
    """The command names of commands.def, in the table's stored order."""
    return [name for name, _ in load_list(commands_def, "ZIF_COMMAND")]


def scdoc_term(option):
    """The option's forms in scdoc markup: *-c*, *--cache* _SNAPSHOT_."""
    if option.forms == ["-SIGNAL"]:
        return "*-*_SIGNAL_"
    parts = [f"*{form}*" for form in option.forms]
    if option.arg_style == "attached":
        parts[-1] += f"[_{option.arg}_]"
    elif option.arg_style == "equals":
        parts[-1] = f"*{option.forms[-1]}=*_{option.arg}_"
    elif option.arg_style == "separate":
        parts[-1] += f" _{option.arg}_"
    return ", ".join(parts)


def scdoc_list(command):
    """The option list of one command as scdoc text."""
    if not command.options:
        return "This command takes no options.\n"
    return "\n".join(f"{scdoc_term(o)}\n\t{o.text}\n" for o in command.options)


def write_replacing(path, text):
    """Writes text to path through a temporary file, so that a reader never
    sees half a file and a failed build leaves the old one."""
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8") as f:
        f.write(text)
    os.replace(tmp, path)
