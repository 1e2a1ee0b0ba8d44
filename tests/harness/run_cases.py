#!/usr/bin/env python3
"""Runs command-line cases: a snapshot in JSON form, command lines, and the
exact standard output, standard error and exit status expected. The format
of a case file is described in tests/README.md."""

import argparse
import difflib
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

SECTIONS = ("lists", "records", "data", "devinfo", "sets")
MODES = ("simulator", "offhost")
ESCAPES = {"n": "\n", "t": "\t", "r": "\r", "\\": "\\", '"': '"'}
TOKEN = re.compile(r"""\s*(?:(~?)'([^']*)'|(~?)"((?:[^"\\]|\\.)*)"|(\S+))""")


class CaseError(Exception):
    pass


def unescape(text):
    def one(m):
        code = m.group(1)
        return chr(int(code[1:], 16)) if code[0] == "x" else ESCAPES[code]
    try:
        return re.sub(r"\\(x[0-9a-fA-F]{2}|[ntr\\\"])", one, text)
    except KeyError:
        raise CaseError("bad escape in " + text) from None


def tokens(line):
    """(kind, text) pairs: kind is "word", "string" or "regex"."""
    out, pos, line = [], 0, line.rstrip()
    while pos < len(line):
        m = TOKEN.match(line, pos)
        if not m:
            raise CaseError("unreadable text: " + line[pos:])
        pos = m.end()
        if m.group(2) is not None:
            out.append(("regex" if m.group(1) else "string", m.group(2)))
        elif m.group(4) is not None:
            out.append(("regex" if m.group(3) else "string", unescape(m.group(4))))
        else:
            out.append(("word", m.group(5)))
    return out


def expand_repeats(words):
    argv, i = [], 0
    while i < len(words):
        m = re.fullmatch(r"\{(\d+)\.\.(\d+):", words[i][1]) if words[i][0] == "word" else None
        if not m:
            argv.append(words[i][1])
            i += 1
            continue
        end = words.index(("word", "}"), i)
        for n in range(int(m.group(1)), int(m.group(2)) + 1):
            argv.extend(w.replace("$i", str(n)) for _, w in words[i + 1:end])
        i = end + 1
    return argv


KEYWORD = re.compile(r"(case|\$|patch|second-patch|env|files|expect-files|stdin|stdin-file|text) ")


class Lines:
    """The lines of a case file, read one at a time; pos counts those read."""
    def __init__(self, text):
        self.items, self.pos = text.split("\n"), 0

    def __iter__(self):
        return self

    def __next__(self):
        if self.pos == len(self.items):
            raise StopIteration
        self.pos += 1
        return self.items[self.pos - 1]

    def at_keyword(self):
        return self.pos == len(self.items) or KEYWORD.match(self.items[self.pos]) is not None


def heredoc(lines):
    """The text of the lines up to a line "." or the next keyword line; blank
    lines before a keyword line are not part of it."""
    block, closed = [], False
    while not closed and not lines.at_keyword():
        line = next(lines)
        closed = line == "."
        m = re.match(r"\{(\d+)\.\.(\d+)\} (.*)", line)
        for i in range(int(m.group(1)), int(m.group(2)) + 1) if m else [] if closed else [None]:
            text = m.group(3).replace("$i", str(i)).replace("$x", "%x" % i) if m else line
            block.append(unescape(text) + "\n")
    while not closed and block and block[-1] == "\n":
        block.pop()
    return "".join(block)


def parse_step(toks, lines, texts):
    """A step from the tokens after "$"; heredoc lines are taken from lines."""
    words = [t if kind == "word" else None for kind, t in toks]
    arrow = words.index("=>") if "=>" in words else len(toks)
    step = {"argv": expand_repeats(toks[:arrow])}
    expect = toks[arrow + 1:]
    if expect:
        step["status"] = int(expect.pop(0)[1])
    for name in ("stdout", "stderr"):
        if not expect:
            break
        kind, text = expect.pop(0)
        if kind == "regex":
            step[name + "_regex"] = text
            continue
        pieces = [(kind, text)]
        while expect and expect[0] == ("word", "+"):
            pieces.append(expect[1])
            del expect[:2]
        if pieces != [("word", "-")]:
            step[name] = "".join(piece(kind, text, lines, texts) for kind, text in pieces)
    return step


def piece(kind, text, lines, texts):
    if kind == "string":
        return text
    if text == "<<":
        return heredoc(lines)
    if text.startswith("@") and text[1:] in texts:
        return texts[text[1:]]
    raise CaseError(f"{text}: not a string, ~regex, -, << or a named text")


def json_values(text):
    """The JSON values of text, one after another."""
    values, pos, decoder = [], 0, json.JSONDecoder()
    while text[pos:].strip():
        value, pos = decoder.raw_decode(text, len(text) - len(text[pos:].lstrip()))
        values.append(value)
    return values


def parse_cases(text):
    """The table of a case file, in the form the runner takes."""
    lines = Lines(text)
    try:
        return parse_lines(lines)
    except (CaseError, ValueError, IndexError, StopIteration) as error:
        raise CaseError(f"line {lines.pos}: {error}") from None


def parse_lines(lines):
    table = {"snapshot": None, "env": {}, "cases": []}
    texts = {}
    case = step = None
    for line in lines:
        if not line.strip() or line.lstrip().startswith("#"):
            continue
        toks = tokens(line)
        head, rest = toks[0][1], line.strip()[len(toks[0][1]):].strip()
        if head == "case":
            case, step = {"name": toks[1][1]}, None
            table["cases"].append(case)
            more = toks[2:]
            if more and more[0][1] in MODES:
                case["mode"] = more.pop(0)[1]
            if more:
                if more[0] != ("word", "$"):
                    raise CaseError("no $ before the command line")
                step = case
                case.update(parse_step(more[1:], lines, texts))
        elif case is None and head == "text" and len(toks) == 2:
            texts[toks[1][1]] = heredoc(lines)
        elif case is None and head == "snapshot":
            table["snapshot"] = None if rest == "none" else json.loads(rest) if rest.startswith("{") else rest
        elif head == "env":
            env = (step if step is not None else case if case is not None else table).setdefault("env", {})
            env.update(pair.partition("=")[::2] for _, pair in toks[1:])
        elif case is None:
            raise CaseError("before the first case: " + line)
        elif head == "$":
            step = parse_step(toks[1:], lines, texts)
            if "argv" in case:
                case.setdefault("then", []).append(step)
            else:
                case.update(step)
                step = case
        elif head in ("patch", "second-patch"):
            section, values = toks[1][1], json_values(rest[len(toks[1][1]):])
            patch = case.setdefault(head.replace("-", "_"), {})
            if section in SECTIONS:
                patch.setdefault(section, []).extend(values)
            else:
                patch[section] = values[0]
        elif head in ("stdin", "stdin-file") and len(toks) == 2:
            (step if step is not None else case)[head.replace("-", "_")] = toks[1][1]
        elif head in ("files", "expect-files"):
            (step if step is not None else case).setdefault(head.replace("-", "_"), {}).update(json.loads(rest))
        else:
            raise CaseError("unknown line: " + line)
    return table


def identity(section, entry):
    if section == "lists":
        return (entry.get("node"), json.dumps(entry.get("parent", [])))
    if section in ("records", "data"):
        return (entry.get("node"), json.dumps(entry.get("keys", [])))
    if section == "devinfo":
        return (json.dumps(entry.get("function")),)
    return (entry.get("node"), json.dumps(entry.get("input")))


def apply_patch(snapshot, patch):
    snapshot = json.loads(json.dumps(snapshot))
    for key, value in patch.items():
        if key not in SECTIONS:
            snapshot[key] = value
            continue
        entries = snapshot.setdefault(key, [])
        for change in value:
            wanted = identity(key, change)
            index = next((i for i, e in enumerate(entries) if identity(key, e) == wanted), None)
            if change.get("absent"):
                if index is not None:
                    del entries[index]
            elif index is None:
                entries.append(change)
            else:
                entries[index] = change
    return snapshot


def to_bytes(text):
    return text.encode("latin-1")


def file_bytes(content):
    """A file's bytes as a case gives them: a text, or {"hex": "..."}."""
    return bytes.fromhex(content["hex"].replace(" ", "")) if isinstance(content, dict) else to_bytes(content)


def expected_stream(step, name):
    if name in step:
        return ("exact", to_bytes(step[name]))
    if name + "_regex" in step:
        return ("regex", step[name + "_regex"])
    return None


def show(data):
    return [repr(line) for line in data.decode("latin-1").splitlines(keepends=True)] or ["(empty)"]


def compare_stream(name, expected, actual, problems):
    if expected is None:
        return
    kind, value = expected
    if kind == "exact":
        if actual != value:
            diff = difflib.unified_diff(show(value), show(actual), "expected " + name, "actual " + name, lineterm="")
            problems.append("\n".join(diff))
    elif re.fullmatch(value, actual.decode("latin-1"), re.DOTALL) is None:
        problems.append("%s does not match /%s/:\n%s" % (name, value, "\n".join(show(actual))))


class Runner:
    def __init__(self, zlcziftools, zifcache, case_file, wrapper=()):
        self.wrapper = list(wrapper)
        self.zlcziftools = os.path.abspath(zlcziftools)
        self.zifcache = os.path.abspath(zifcache)
        self.case_file = os.path.abspath(case_file)
        self.case_dir = os.path.dirname(self.case_file)
        with open(self.case_file, encoding="utf-8") as f:
            self.table = parse_cases(f.read())

    def load_snapshot(self, given):
        """A snapshot given inline (or null) as it is; a path, read from the case file's folder."""
        if given is None or isinstance(given, dict):
            return given
        with open(os.path.join(self.case_dir, given), encoding="utf-8") as f:
            return json.load(f)

    def substitute(self, text, tmp):
        return (text.replace("$SNAPSHOT", "snapshot.zifc").replace("$SECOND", "second.zifc")
                .replace("$CASEDIR", self.case_dir).replace("$TMP", tmp))

    def write_files(self, files, tmp):
        for path, content in files.items():
            full = os.path.join(tmp, self.substitute(path, tmp))
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, "wb") as f:
                f.write(file_bytes(content if isinstance(content, dict) else self.substitute(content, tmp)))

    def check_files(self, files, tmp, problems):
        for path, content in files.items():
            full = os.path.join(tmp, self.substitute(path, tmp))
            if content is None:
                if os.path.lexists(full):
                    problems.append("file %s should not exist" % path)
                continue
            if not os.path.exists(full):
                problems.append("file %s was not written" % path)
                continue
            with open(full, "rb") as f:
                actual = f.read()
            compare_stream("file " + path, ("exact", file_bytes(content)), actual, problems)

    def pack(self, snapshot, tmp, name="snapshot.zifc"):
        source = os.path.join(tmp, "snapshot.json")
        with open(source, "w", encoding="utf-8") as f:
            json.dump(snapshot, f)
        result = subprocess.run([self.zifcache, "pack", source, os.path.join(tmp, name)], capture_output=True)
        os.unlink(source)
        if result.returncode != 0:
            return "zifcache pack failed: " + result.stderr.decode("latin-1")
        return None

    def run_step(self, step, mode, env, tmp):
        argv = [self.substitute(a, tmp) for a in step["argv"]]
        if argv[0] == "zifcache":
            executable = self.zifcache
        else:
            executable = os.path.join(tmp, argv[0])
            if not os.path.lexists(executable):
                os.makedirs(os.path.dirname(executable), exist_ok=True)
                os.symlink(self.zlcziftools, executable)
        step_env = dict(env)
        for key, value in step.get("env", {}).items():
            step_env[key] = self.substitute(value, tmp)
        if mode == "simulator":
            step_env["ZLC_SIMULATOR"] = step_env.get("ZLC_SIMULATOR", "snapshot.zifc")
        self.write_files(step.get("files", {}), tmp)
        stdin = to_bytes(step.get("stdin", ""))
        if "stdin_file" in step:
            with open(os.path.join(tmp, self.substitute(step["stdin_file"], tmp)), "rb") as f:
                stdin = f.read()
        if self.wrapper:
            # The wrapper starts argv[0] as given, a bare name found through PATH,
            # so that the program sees the same name.
            if "/" not in argv[0]:
                step_env["PATH"] = os.path.dirname(executable) + os.pathsep + step_env.get("PATH", "")
            argv, executable = self.wrapper + argv, None
        result = subprocess.run(argv, executable=executable, cwd=tmp, env=step_env, input=stdin,
                                capture_output=True, timeout=step.get("timeout", 60) * (10 if self.wrapper else 1))
        problems = []
        compare_stream("stdout", expected_stream(step, "stdout"), result.stdout, problems)
        compare_stream("stderr", expected_stream(step, "stderr"), result.stderr, problems)
        wanted_status = step.get("status", 0)
        if result.returncode != wanted_status:
            problems.append("exit status %d, expected %d" % (result.returncode, wanted_status))
            if "stderr" not in step and "stderr_regex" not in step:
                problems.append("stderr was:\n" + "\n".join(show(result.stderr)))
        self.check_files(step.get("expect_files", {}), tmp, problems)
        return problems

    def base_env(self, tmp):
        env = {k: v for k, v in os.environ.items() if not k.startswith("ZLC_")}
        env.setdefault("LC_ALL", "C")
        for key, value in self.table.get("env", {}).items():
            env[key] = self.substitute(value, tmp)
        return env

    def run_case(self, case):
        tmp = tempfile.mkdtemp(prefix="zifcase-")
        try:
            snapshot = self.load_snapshot(case["snapshot"] if "snapshot" in case else self.table.get("snapshot"))
            if snapshot is not None:
                snapshot = apply_patch(snapshot, case.get("patch", {}))
                failure = self.pack(snapshot, tmp)
                if not failure and "second_patch" in case:
                    failure = self.pack(apply_patch(snapshot, case["second_patch"]), tmp, "second.zifc")
                if failure:
                    return [failure]
            env = self.base_env(tmp)
            for key, value in case.get("env", {}).items():
                env[key] = self.substitute(value, tmp)
            mode = case.get("mode", "cache")
            problems = []
            for number, step in enumerate([case] + case.get("then", [])):
                for problem in self.run_step(step, mode, env, tmp):
                    problems.append(("step %d: " % (number + 1) if number else "") + problem)
            return problems
        finally:
            shutil.rmtree(tmp, ignore_errors=True)

    def run(self, only):
        passed = failed = 0
        for case in self.table["cases"]:
            if only and case["name"] != only:
                continue
            try:
                problems = self.run_case(case)
            except (OSError, subprocess.SubprocessError, KeyError, json.JSONDecodeError) as error:
                problems = ["harness error: %r" % (error,)]
            if problems:
                failed += 1
                print("FAIL: %s\n  argv: %s\n%s\n" % (case["name"], " ".join(case["argv"]), "\n".join(problems)))
            else:
                passed += 1
        print("%d passed, %d failed" % (passed, failed))
        return 1 if failed or passed == 0 else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--zlcziftools", required=True)
    parser.add_argument("--zifcache", required=True)
    parser.add_argument("--case", help="run only the case of this name")
    parser.add_argument("--wrapper", default="", help='a command line the programs run under, e.g. "valgrind -q"')
    parser.add_argument("case_file")
    args = parser.parse_args()
    try:
        runner = Runner(args.zlcziftools, args.zifcache, args.case_file, shlex.split(args.wrapper))
    except CaseError as error:
        print(f"{args.case_file}: {error}")
        return 1
    return runner.run(args.case)


if __name__ == "__main__":
    sys.exit(main())
