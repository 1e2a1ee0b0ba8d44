"""Writes a bash completion script from its template and the options table.

Usage: make_completion.py OPTIONS_TABLE COMMANDS_DEF SIGNALS_DEF PREFIX TEMPLATE OUT

The line "@TABLES@" of TEMPLATE becomes bash arrays named after PREFIX: the
options of each command, the options that take a separate argument with what
completes it, what completes the operands, the command names (from the
program's commands.def; zifcache's subcommands from the table) and the signal
names (from the program's signals.def).
"""
import os
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


def tables(commands, names, signals, prefix):
    lines = []
    if prefix == "_zifcache":
        chosen = {n: c for n, c in commands.items() if n.startswith("zifcache ")}
        subcommands = " ".join(n.split(" ", 1)[1] for n in chosen)
        lines.append(f"_zifcache_subcommands={quote(subcommands)}")
    else:
        chosen = {n: commands[n] for n in ["zlcziftools"] + names}
        lines.append(f"_zlcziftools_commands={quote(' '.join(names))}")
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
    table_path, commands_path, signals_path, prefix, template_path, out_path = sys.argv[1:7]
    commands = optionstable.load(table_path)
    names = optionstable.command_names(commands_path)
    missing = [n for n in ["zlcziftools"] + names if n not in commands]
    if missing:
        sys.exit(f"{table_path}: no block for {', '.join(missing)}")
    signals = [name for name, _ in optionstable.load_list(signals_path, "ZIF_SIGNAL")]
    with open(template_path, encoding="utf-8") as f:
        text = f.read()
    if "@TABLES@" not in text:
        sys.exit(f"{template_path}: no @TABLES@ line")
    text = text.replace("@TABLES@", tables(commands, names, signals, prefix))
    optionstable.write_replacing(out_path, text)


if __name__ == "__main__":
    main()
