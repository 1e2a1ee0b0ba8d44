#!/usr/bin/env python3
"""Converts case tables from the old JSON form (NAME.cases.json) to the line
form that run_cases.py reads (NAME.cases), checks that the new file reads back
as the same cases, and removes the old file.

  convert_cases.py [FILE.cases.json...]    (default: every one under tests/)

When NAME.cases exists already (cases written in the old form after the
conversion), only what changed since the conversion is brought over: a case
whose name NAME.cases lacks is added at its end, and a case that differs from
its form at the conversion (found in git's history) replaces the case of its
name; cases left as they were, or retired on purpose, are not touched. Each
is named as it is taken. Prints the number of cases of each file before and
after.
"""
import json
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from run_cases import KEYWORD, SECTIONS, parse_cases, tokens  # noqa: E402

WIDTH = 120
BARE = re.compile(r"[A-Za-z0-9_./=:,+%@$-][A-Za-z0-9_./=:,+%@$#~*?!^&()\[\]<>|;-]*")
RESERVED = {"=>", "-", "<<", "~<<", "}", "case", "$"}
RETIRED = {"--tree is -J"}  # now a step of the tree case of tests/world/ps.cases


def cases_at_conversion(path):
    """The cases of path by name as they stood when the conversion removed it."""
    commit = subprocess.run(["git", "log", "-1", "--full-history", "--format=%H", "--diff-filter=D", "--", path],
                            capture_output=True, text=True).stdout.strip()
    shown = subprocess.run(["git", "show", f"{commit}^:{path}"], capture_output=True, text=True) if commit else None
    if not shown or shown.returncode != 0:
        return {}
    return {c["name"]: c for c in normal(json.loads(shown.stdout))["cases"]}


def merge(path, table, old_text):
    """old_text with the cases of table that changed since the conversion."""
    base = cases_at_conversion(path)
    head, blocks, names = [], [], []  # the lines before the first case, and those of each case
    for line in old_text.rstrip("\n").split("\n"):
        if line.startswith("case "):
            blocks.append([])
            names.append(tokens(line)[1][1])
        (blocks[-1] if blocks else head).append(line)
    TEXTS.clear()
    taken = []
    for case in normal(table)["cases"]:
        unchanged = base.get(case["name"]) == case or (not base and case["name"] in names)
        if unchanged or case["name"] in RETIRED:
            continue
        lines = case_lines(case)
        if case["name"] in names:
            blocks[names.index(case["name"])] = lines
        else:
            blocks.append(lines)
            names.append(case["name"])
        taken.append(case)
        print(f"{path}: took over {case['name']!r}")
    text = "\n\n".join("\n".join(block).strip("\n") for block in [head] + blocks) + "\n"
    read = {c["name"]: c for c in parse_cases(text)["cases"]}
    if any(read.get(case["name"]) != case for case in taken):
        sys.exit(f"{path}: the cases taken over read back differently; nothing written")
    return text


def escape(text):
    out = []
    for ch in text:
        if ch == "\\":
            out.append("\\\\")
        elif ch == '"':
            out.append('\\"')
        elif ch == "\n":
            out.append("\\n")
        elif ch == "\t":
            out.append("\\t")
        elif ord(ch) < 0x20 or 0x7f <= ord(ch) <= 0xff:
            out.append("\\x%02x" % ord(ch))
        elif ord(ch) > 0xff:
            raise ValueError("character beyond latin-1: %r" % ch)
        else:
            out.append(ch)
    return "".join(out)


def quote(text, prefix=""):
    if "'" not in text and all(0x20 <= ord(c) < 0x7f for c in text):
        return prefix + "'" + text + "'"
    return prefix + '"' + escape(text) + '"'


def word(text):
    if BARE.fullmatch(text) and text not in RESERVED and not re.fullmatch(r"\{\d+\.\.\d+:", text):
        return text
    return quote(text)


def argv_words(argv):
    """The words of argv, with runs of (word, n), (word, n+1), ... as repeats."""
    out, i = [], 0
    while i < len(argv):
        run = 0
        while (i + 2 * run + 1 < len(argv) and argv[i + 2 * run] == argv[i]
               and argv[i + 2 * run + 1] == str(int(argv[i + 1]) + run if argv[i + 1].isdigit() else "")):
            run += 1
        if run >= 4:
            first = int(argv[i + 1])
            out.append("{%d..%d: %s $i }" % (first, first + run - 1, word(argv[i])))
            i += 2 * run
        else:
            out.append(word(argv[i]))
            i += 1
    return out


def heredoc_line(line):
    text = escape(line)
    if text == "." or text.startswith("{") or KEYWORD.match(text):
        text = "\\x%02x" % ord(text[0]) + text[1:]
    if text.endswith(" "):
        text = text[:-1] + "\\x20"
    return text


def templates(a, b):
    """(template, value of a, mark) for each base in which b is a with one number one higher."""
    p = 0
    while p < min(len(a), len(b)) and a[p] == b[p]:
        p += 1
    s = 0
    while s < min(len(a), len(b)) - p and a[len(a) - 1 - s] == b[len(b) - 1 - s]:
        s += 1
    while p > 0 and a[p - 1] in "0123456789abcdef":
        p -= 1
    ma, mb = a[p:len(a) - s], b[p:len(b) - s]
    found = []
    for base, mark in ((10, "$i"), (16, "$x")):
        try:
            va, vb = int(ma, base), int(mb, base)
        except ValueError:
            continue
        if vb == va + 1 and ("%x" % va if base == 16 else str(va)) == ma:
            found.append((a[:p] + mark + a[len(a) - s:], va, mark))
    return found


def render(tmpl, mark, i):
    return tmpl.replace(mark, "%x" % i if mark == "$x" else str(i))


def heredoc_lines(lines):
    """The lines of a heredoc, with runs of lines counting up written as one."""
    out, j = [], 0
    while j < len(lines):
        n = 0
        if j + 1 < len(lines) and "$" not in lines[j] and "\\" not in lines[j]:
            for candidate in templates(lines[j], lines[j + 1]):
                length = 0
                while j + length < len(lines) and lines[j + length] == render(candidate[0], candidate[2],
                                                                                candidate[1] + length):
                    length += 1
                if length > n:
                    n, (tmpl, first, mark) = length, candidate
        if n >= 4:
            out.append("{%d..%d} %s" % (first, first + n - 1, heredoc_line(tmpl)))
            j += n
        else:
            out.append(heredoc_line(lines[j]))
            j += 1
    return out


def line_suffix(a, b):
    """The longest common tail of a and b made of whole lines."""
    la, lb = a.split("\n")[:-1], b.split("\n")[:-1]
    n = 0
    while n < min(len(la), len(lb)) and la[-1 - n] == lb[-1 - n]:
        n += 1
    return "".join(line + "\n" for line in la[len(la) - n:])


def best_text(text, candidates):
    """The longest candidate that text is, or ends in after at most three lines."""
    for candidate in candidates:
        if text.endswith(candidate) and text[:-len(candidate)].count("\n") <= 3 and (
                len(candidate) == len(text) or text[-len(candidate) - 1] == "\n"):
            return candidate
    return None


def named_texts(table):
    """Names for the texts of three lines or more that several streams are or
    end in, after the command line and stream of the first."""
    streams = []
    for case in table["cases"]:
        for step in [case] + case.get("then", []):
            for name in ("stdout", "stderr"):
                text = step.get(name, "")
                if text.count("\n") >= 3 and text.endswith("\n"):
                    streams.append((text, step["argv"], name))
    texts = [t for t, _, _ in streams]
    candidates = set()
    for i, (a, _, _) in enumerate(streams):
        for b, _, _ in streams[i + 1:]:
            tail = a if a == b else line_suffix(a, b)
            if tail.count("\n") >= 3:
                candidates.add(tail)
    candidates = sorted(candidates, key=len, reverse=True)
    for _ in range(2):
        users = {}
        for text in texts:
            users.setdefault(best_text(text, candidates), []).append(text)
        candidates = [c for c in candidates if len(users.get(c, [])) > 1]
    names = {}
    for candidate in candidates:
        text, argv, stream_name = next(s for s in streams if s[0].endswith(candidate))
        words = argv[3:] if argv[1:3] == ["-c", "$SNAPSHOT"] else argv
        slug = "-".join(re.findall(r"[A-Za-z0-9]+", " ".join(words)))[:30].strip("-") or "text"
        slug += "-err" if stream_name == "stderr" else ""
        name, k = slug, 1
        while name in names.values():
            k += 1
            name = f"{slug}-{k}"
        names[candidate] = name
    return names


TEXTS = {}


def stream(step, name):
    """[token, heredoc lines or None, "" or "<<"] for one stream."""
    if name in step:
        text = step[name]
        named = best_text(text, list(TEXTS))
        if named:
            head = text[:-len(named)]
            return [(quote(head) + " + " if head else "") + "@" + TEXTS[named], None, ""]
        lines = text[:-1].split("\n") if text.endswith("\n") else None
        return [quote(text), (lines if lines and len(lines) > 1 else None), ""]
    if name + "_regex" in step:
        return [quote(step[name + "_regex"], "~"), None, ""]
    return ["-", None, ""]


def step_lines(step, lead):
    """The line of a step (after lead) and the heredocs it needs."""
    streams = [stream(step, "stdout"), stream(step, "stderr")]
    if streams[1][0] == "-":
        streams.pop()
        if streams[0][0] == "-":
            streams.pop()

    def head():
        return " ".join([lead] + argv_words(step["argv"]) + ["=>", str(step.get("status", 0))]
                        + [s[0] if s[2] == "" else s[2] for s in streams])

    docs = []
    while len(head()) > WIDTH:
        candidates = [s for s in streams if s[1] and s[2] == ""]
        if not candidates:
            break
        longest = max(candidates, key=lambda s: len(s[0]))
        longest[2] = "<<"
    for s in streams:
        if s[2] == "<<":
            docs.extend(heredoc_lines(s[1]))
            if s[1][-1] == "" or s is streams[0] and len(streams) > 1 and streams[1][2] == "<<":
                docs.append(".")
    return [head()] + docs


def extras(step):
    out = []
    if step.get("env"):
        out.append(" ".join(["env"] + [word(f"{k}={v}") for k, v in step["env"].items()]))
    for key in ("files", "expect_files"):
        if key in step:
            out.append(key.replace("_", "-") + " " + json.dumps(step[key], separators=(", ", ": ")))
    if step.get("stdin"):
        out.append("stdin " + quote(step["stdin"]))
    if "stdin_file" in step:
        out.append("stdin-file " + word(step["stdin_file"]))
    return out


def case_lines(case):
    lines = []
    name = "case " + quote(case["name"]) + (" " + case["mode"] if case.get("mode", "cache") != "cache" else "")
    first = step_lines(case, name + " $")
    if len(first[0]) > WIDTH:
        lines.append(name)
        lines.extend(step_lines(case, "$"))
    else:
        lines.extend(first)
    for keyword, section, value in [(k.replace("_", "-"), section, value) for k in ("patch", "second_patch")
                                    for section, value in case.get(k, {}).items()]:
        line = ""
        for entry in (value if section in SECTIONS else [value]):
            text = json.dumps(entry, separators=(", ", ": "))
            if line and len(line) + 1 + len(text) <= WIDTH:
                line += " " + text
            else:
                if line:
                    lines.append(line)
                line = f"{keyword} {section} " + text
        lines.append(line)
    lines.extend(extras(case))
    for step in case.get("then", []):
        lines.extend(step_lines(step, "$"))
        lines.extend(extras(step))
    return lines


def convert(table):
    table = normal(table)
    lines = []
    snapshot = table.get("snapshot")
    lines.append("snapshot " + ("none" if snapshot is None else snapshot if isinstance(snapshot, str)
                                else json.dumps(snapshot, separators=(",", ":"))))
    if table.get("env"):
        lines.append(" ".join(["env"] + [word(f"{k}={v}") for k, v in table["env"].items()]))
    TEXTS.clear()
    TEXTS.update(named_texts(table))
    for text, name in sorted(TEXTS.items(), key=lambda item: item[1]):
        body = text[:-1].split("\n")
        lines.extend(["", "text " + name] + heredoc_lines(body) + (["."] if body[-1] == "" else []))
    for case in table["cases"]:
        lines.append("")
        lines.extend(case_lines(case))
    return "\n".join(lines) + "\n"


def normal(table):
    """The old table as parse_cases gives it: joined line lists, status always set."""
    def step(s):
        s = dict(s)
        for name in ("stdout", "stderr"):
            if name + "_lines" in s:
                s[name] = "".join(line + "\n" for line in s.pop(name + "_lines"))
        s.setdefault("status", 0)
        if "then" in s:
            s["then"] = [step(t) for t in s["then"]]
        if s.get("mode") == "cache":
            del s["mode"]
        return s
    return {"snapshot": table.get("snapshot"), "env": table.get("env", {}),
            "cases": [step(c) for c in table["cases"]]}


def main():
    files = sys.argv[1:] or subprocess.check_output(["git", "ls-files", "tests/*.cases.json"], text=True).split()
    for path in files:
        with open(path, encoding="utf-8") as f:
            table = json.load(f)
        new_path = path[:-len(".json")]
        if os.path.exists(new_path):
            with open(new_path, encoding="utf-8") as f:
                text = merge(path, table, f.read())
        else:
            text = convert(table)
            if parse_cases(text) != normal(table):
                sys.exit(f"{path}: the converted cases read back differently; nothing written")
        with open(new_path, "w", encoding="utf-8") as f:
            f.write(text)
        os.remove(path)
        print(f"{path}: {len(table['cases'])} cases -> {new_path}: {len(parse_cases(text)['cases'])} cases")


if __name__ == "__main__":
    main()
