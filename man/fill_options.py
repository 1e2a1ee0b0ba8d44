"""Writes a man page's scdoc source with its option lists filled in.

Usage: fill_options.py OPTIONS_TABLE COMMANDS_DEF IN.scd OUT.scd

Each line "@options NAME" of IN.scd becomes the option list of NAME from the
table, so the pages never keep a second copy of the options; "@commands" in a
line becomes the command names of COMMANDS_DEF in their order. A page with
any "@options" line for a command must have one for each command of
COMMANDS_DEF, in that order, and the table a block for each and no other.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import optionstable  # noqa: E402


def main():
    table_path, def_path, in_path, out_path = sys.argv[1:5]
    commands = optionstable.load(table_path)
    names = optionstable.command_names(def_path)
    blocks = [n for n in commands if n != "zlcziftools" and not n.startswith("zifcache ")]
    if blocks != names:
        sys.exit(f"{table_path}: the command blocks {blocks} are not the commands of {def_path} {names}")
    out, listed = [], []
    with open(in_path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            if line.startswith("@options "):
                name = line[len("@options "):].strip()
                if name not in commands:
                    sys.exit(f"{in_path}:{number}: no options for {name!r} in {table_path}")
                listed.append(name)
                out.append(optionstable.scdoc_list(commands[name]))
            else:
                out.append(line.replace("@commands", ", ".join(f"*{n}*" for n in names)))
    sections = [n for n in listed if n in names]
    if sections and sections != names:
        sys.exit(f"{in_path}: the command sections {sections} are not the commands of {def_path} {names}")
    optionstable.write_replacing(out_path, "".join(out))


if __name__ == "__main__":
    main()
