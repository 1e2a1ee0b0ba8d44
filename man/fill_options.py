"""Writes a man page's scdoc source with its option lists filled in.

Usage: fill_options.py OPTIONS_TABLE IN.scd OUT.scd

Each line "@options NAME" of IN.scd becomes the option list of NAME from the
table, so the pages never keep a second copy of the options.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import optionstable  # noqa: E402


def main():
    table_path, in_path, out_path = sys.argv[1:4]
    commands = optionstable.load(table_path)
    out = []
    with open(in_path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            if line.startswith("@options "):
                name = line[len("@options "):].strip()
                if name not in commands:
                    sys.exit(f"{in_path}:{number}: no options for {name!r} in {table_path}")
                out.append(optionstable.scdoc_list(commands[name]))
            else:
                out.append(line)
    optionstable.write_replacing(out_path, "".join(out))


if __name__ == "__main__":
    main()
