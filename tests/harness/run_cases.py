#!/usr/bin/env python3
"""Runs command-line cases: a snapshot in JSON form, a command line, and the
exact standard output, standard error and exit status expected.

A case file (NAME.cases.json) holds a table of cases:

  {
    "snapshot": "host.snap.json",        default snapshot for every case: a path
                                         relative to the case file, an inline JSON
                                         form, or null for none
    "env": {"ZLC_HWDATA_DIR": "$CASEDIR/hwdata"},   environment for every case
    "cases": [
      {
        "name": "uptime in the long form",
        "mode": "cache",                 cache (default): no simulator;
                                         simulator: ZLC_SIMULATOR=snapshot.zifc;
                                         offhost: neither (same as cache here)
        "patch": {"records": [...]},     entries replacing those with the same
                                         node and keys (or added); an entry with
                                         "absent": true removes its match
        "argv": ["zlcziftools", "-c", "$SNAPSHOT", "uptime"],
        "stdout": "...", "stderr": "", "status": 0,
        "then": [ {"argv": [...], ...} ] later steps in the same directory
      }
    ]
  }

Each case runs in a fresh temporary directory holding the packed snapshot as
snapshot.zifc. argv[0] names the program as started: "zifcache" runs the
snapshot tool; any other word or relative path becomes a link to the
zlcziftools executable at that path inside the directory (so "ps",
"usr/bin/ps" and "zlcziftools.new" all work), run with the directory as the
working directory.

Expected streams are compared byte for byte; a JSON string stands for the
bytes of its characters (\\u000e is the byte 0x0e). Instead of "stdout" a step
may give "stdout_lines" (each line gets a newline) or "stdout_regex" (a full
match); likewise for stderr. A stream not mentioned is not checked; "status"
defaults to 0. "files" creates files before a step ({"path": "text"}, or
{"path": {"hex": "..."}}); "expect_files" checks files after it, with the same
forms, and a null value means the file must not exist. Tokens in argv, env
and files: $SNAPSHOT (snapshot.zifc), $CASEDIR (the case file's folder), $TMP
(the case's directory).
"""

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


def expected_stream(step, name):
    if name in step:
        return ("exact", to_bytes(step[name]))
    if name + "_lines" in step:
        return ("exact", to_bytes("".join(line + "\n" for line in step[name + "_lines"])))
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
            self.table = json.load(f)

    def load_snapshot(self, given):
        """A snapshot given inline (or null) as it is; a path, read from the case file's folder."""
        if given is None or isinstance(given, dict):
            return given
        with open(os.path.join(self.case_dir, given), encoding="utf-8") as f:
            return json.load(f)

    def substitute(self, text, tmp):
        return text.replace("$SNAPSHOT", "snapshot.zifc").replace("$CASEDIR", self.case_dir).replace("$TMP", tmp)

    def write_files(self, files, tmp):
        for path, content in files.items():
            full = os.path.join(tmp, self.substitute(path, tmp))
            os.makedirs(os.path.dirname(full), exist_ok=True)
            data = bytes.fromhex(content["hex"].replace(" ", "")) if isinstance(content, dict) else to_bytes(
                self.substitute(content, tmp))
            with open(full, "wb") as f:
                f.write(data)

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
            wanted = bytes.fromhex(content["hex"].replace(" ", "")) if isinstance(content, dict) else to_bytes(content)
            compare_stream("file " + path, ("exact", wanted), actual, problems)

    def pack(self, snapshot, tmp):
        source = os.path.join(tmp, "snapshot.json")
        with open(source, "w", encoding="utf-8") as f:
            json.dump(snapshot, f)
        result = subprocess.run([self.zifcache, "pack", source, os.path.join(tmp, "snapshot.zifc")],
                                capture_output=True)
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
            if "stderr" not in step and "stderr_lines" not in step and "stderr_regex" not in step:
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
    return Runner(args.zlcziftools, args.zifcache, args.case_file, shlex.split(args.wrapper)).run(args.case)


if __name__ == "__main__":
    sys.exit(main())
