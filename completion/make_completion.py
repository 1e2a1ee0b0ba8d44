"""Writes a bash completion script from its template and the options table.

Usage: make_completion.py OPTIONS_TABLE SIGNALS_SOURCE PREFIX TEMPLATE OUT

The line "@TABLES@" of TEMPLATE becomes bash arrays named after PREFIX: the
options of each command, the options that take a separate argument with what
completes it, what completes the operands, the command (or subcommand) names
and, from the signal table of the program's source, the signal names.
"""
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "man"))
import optionstable  # noqa: E402


def quote(text):
    return "'" + text.replace("'", "'\\''") + "'"


def option_words(command):
    words = []
    for option in command.options:
        if option.forms == ["-SIGNAL"]:
            continue
        for form in option.forms:
            words.append(form + "=" if option.arg_style == "equals" else form)
    return " ".join(words)


def tables(commands, signals, prefix):
    lines = []
    if prefix == "_zifcache":
        chosen = {n: c for n, c in commands.items() if n.startswith("zifcache ")}
        names = " ".join(n.split(" ", 1)[1] for n in chosen)
        lines.append(f"_zifcache_subcommands={quote(names)}")
    else:
        chosen = {n: c for n, c in commands.items() if not n.startswith("zifcache ")}
        names = " ".join(n for n in chosen if n != "zlcziftools")
        lines.append(f"_zlcziftools_commands={quote(names)}")
        lines.append(f"_zlcziftools_signals={quote(' '.join('-' + s for s in signals))}")
    for table in ("options", "optargs", "operands"):
        lines.append(f"declare -gA {prefix}_{table}=(")
        for name, command in chosen.items():
            if table == "options":
                value = option_words(command)
            elif table == "optargs":
                value = " ".join(f"{form}:{o.completion_kind()}" for o in command.options
                                 if o.arg_style == "separate" for form in o.forms)
            else:
                value = command.operands
            lines.append(f"    [{quote(name)}]={quote(value)}")
        lines.append(")")
    return "\n".join(lines)


def main():
    table_path, signals_path, prefix, template_path, out_path = sys.argv[1:6]
    commands = optionstable.load(table_path)
    with open(signals_path, encoding="utf-8") as f:
        signals = re.findall(r'\{"([A-Z][A-Z0-9]*)",\s*\d+\}', f.read())
    if not signals:
        sys.exit(f"{signals_path}: no signal names found")
    with open(template_path, encoding="utf-8") as f:
        text = f.read()
    if "@TABLES@" not in text:
        sys.exit(f"{template_path}: no @TABLES@ line")
    text = text.replace("@TABLES@", tables(commands, signals, prefix))
    optionstable.write_replacing(out_path, text)


if __name__ == "__main__":
    main()
