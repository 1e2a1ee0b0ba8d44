#!/usr/bin/env python3
"""Rewrites JSON files (case tables, snapshots) in a compact readable layout:
anything that fits on one line of 110 characters stays on one line.
Usage: format_json.py FILE..."""
import json
import sys

WIDTH = 110


def layout(value, indent=0):
    flat = json.dumps(value, ensure_ascii=True)
    if len(flat) + indent <= WIDTH or not isinstance(value, (dict, list)) or not value:
        return flat
    pad = " " * (indent + 2)
    if isinstance(value, dict):
        items = ["%s%s: %s" % (pad, json.dumps(k), layout(v, indent + 2)) for k, v in value.items()]
        return "{\n" + ",\n".join(items) + "\n" + " " * indent + "}"
    items = [pad + layout(v, indent + 2) for v in value]
    return "[\n" + ",\n".join(items) + "\n" + " " * indent + "]"


if __name__ == "__main__":
    for path in sys.argv[1:]:
        with open(path, encoding="utf-8") as f:
            data = json.load(f)
        with open(path, "w", encoding="utf-8") as f:
            f.write(layout(data) + "\n")
