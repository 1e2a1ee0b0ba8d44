#!/usr/bin/env python3
"""Gathers the figures of one benchmark run into one table.

Reads the figure files of the whole-command scripts (benchlib.write_figures)
and the JSON output of the Google Benchmark programs, and writes NAME.json
(machine, date, commit, load, every figure with its peer and ratio) and NAME.md
(the same as a table) into the output directory.

With --readme, also replaces the part of that file between the lines
README_BEGIN and README_END with the figures that have targets.

Usage: report.py --out DIR [--name LATEST] [--mode full] [--readme README.md] FILE.json ...
"""
import argparse
import datetime
import json
import os
import platform
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import benchlib  # noqa: E402

README_BEGIN = "<!-- benchmark table: written by scripts/bench.sh -->"
README_END = "<!-- end of benchmark table -->"

# Google Benchmark figures timed against another benchmark of the same program,
# with the largest ratio allowed (None: shown, not judged).
BENCHMARK_PEERS = {
    "BM_OpenAndReadRecord_1GB": ("BM_OpenAndReadRecord_10KB", 2.0),
    "BM_NameSix": ("BM_NameSixByScan", None),
}
GROUPS = {"snapshot_bench": "snapshot", "pciids_bench": "pci"}
# The order of the table's sections.
GROUP_ORDER = ["world", "pci", "hostinfo", "snapshot", "zifcache", "memfs", "capture"]
GROUP_TITLES = {"world": "Worlds and cartels", "pci": "PCI", "hostinfo": "Host information",
                "snapshot": "Snapshot file", "zifcache": "Comparing snapshots", "memfs": "In-memory file system", "capture": "Capture"}


def google_benchmark_figures(path, document):
    program = os.path.basename(path).split(".")[0]
    runs = {run["name"]: run for run in document["benchmarks"] if run.get("run_type", "iteration") == "iteration"}

    def seconds(run, key):
        return run[key] * {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[run["time_unit"]]

    figures = []
    for name, run in runs.items():
        fig = {"group": GROUPS.get(program, program), "name": "%s %s" % (program, name), "unit": "s",
               "ours": seconds(run, "cpu_time"), "ours_wall": seconds(run, "real_time"), "peer_name": None,
               "peer": None, "ratio": None, "runs": run["iterations"], "targets": []}
        peer, limit = BENCHMARK_PEERS.get(name, (None, None))
        if peer in runs:
            fig.update(peer_name=peer, peer=seconds(runs[peer], "cpu_time"),
                       ratio=seconds(run, "cpu_time") / seconds(runs[peer], "cpu_time"))
            if limit is not None:
                fig["targets"].append({"what": "ratio", "max": limit, "met": fig["ratio"] <= limit})
        figures.append(fig)
    return figures, document.get("context", {})


def machine():
    model = "unknown"
    with open("/proc/cpuinfo") as f:
        for line in f:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    with open("/proc/meminfo") as f:
        memory_kib = int(f.readline().split()[1])
    return {"host": platform.node(), "cpu": model, "cores": os.cpu_count(), "memory_gib": round(memory_kib / 2**20, 1),
            "kernel": platform.release()}


def commit():
    def git(*args):
        return subprocess.run(["git", "-C", benchlib.SOURCE] + list(args), capture_output=True, text=True).stdout
    head = git("rev-parse", "--short=12", "HEAD").strip()
    dirty = git("status", "--porcelain", "--untracked-files=no").strip()
    return head + ("+local changes" if dirty else "")


def show(value, unit):
    if value is None:
        return ""
    if unit == "MiB":
        return "%.1f MiB" % value
    if value >= 1:
        return "%.2f s" % value
    if value >= 1e-3:
        return "%.1f ms" % (value * 1e3)
    return "%.1f us" % (value * 1e6)


def target_text(fig):
    parts = []
    for target in fig["targets"]:
        if target["what"] == "ours" and fig["unit"] == "s":
            limit = target["max"]
            parts.append("<= %g ms" % (limit * 1e3) if limit < 1 else "<= %g s" % limit)
        elif target["what"] == "ours":
            parts.append("<= %g %s" % (target["max"], fig["unit"]))
        elif target["what"] == "ratio":
            parts.append("ratio <= %g" % target["max"])
        else:
            parts.append("<= peer + %g MiB" % target["max"])
    return ", ".join(parts)


def verdict(fig):
    if not fig["targets"]:
        return ""
    return "met" if all(t["met"] for t in fig["targets"]) else "**missed**"


def header(report):
    m = report["machine"]
    low, high = load_range(report)
    lines = [
        "# Benchmark results",
        "",
        "%s, commit %s, %s run of `scripts/bench.sh`." % (report["date"], report["commit"], report["mode"]),
        "Machine: %s, %d cores, %.1f GiB, Linux %s." % (m["cpu"], m["cores"], m["memory_gib"], m["kernel"]),
        "Load average (1 min) while the benchmarks ran: %.1f to %.1f on %d cores%s." % (
            low, high, m["cores"], "; other work was running, so wall times are inflated" if high > m["cores"] / 2 else ""),
        "",
        "Times are medians of processor time (user + system) per run, which other work on the machine disturbs",
        "less than wall time; wall-clock medians are in the JSON beside this file. A whole-command figure's ratio",
        "is the median of ratios of paired runs, ours and the peer run alternately.",
        "",
    ]
    return lines


def table(figures, with_groups=True):
    lines = ["| Figure | Ours | Peer | Peer's | Ratio | Target | |", "|---|---|---|---|---|---|---|"]
    for group in GROUP_ORDER + sorted({f["group"] for f in figures} - set(GROUP_ORDER)):
        in_group = [f for f in figures if f["group"] == group]
        if in_group and with_groups:
            lines.append("| **%s** | | | | | | |" % GROUP_TITLES.get(group, group))
        for fig in in_group:
            ratio = "" if fig.get("ratio") is None else ("%.2f" if fig["ratio"] >= 0.1 else "%.2g") % fig["ratio"]
            lines.append("| %s | %s | %s | %s | %s | %s | %s |" % (
                fig["name"], show(fig["ours"], fig["unit"]), fig.get("peer_name") or "",
                show(fig.get("peer"), fig["unit"]), ratio, target_text(fig), verdict(fig)))
    return lines


def markdown(report):
    return "\n".join(header(report) + table(report["figures"])) + "\n"


def update_readme(path, report):
    """The figures with targets, between the markers of the README."""
    with open(path) as f:
        text = f.read()
    begin, end = text.find(README_BEGIN), text.find(README_END)
    if begin < 0 or end < begin:
        sys.exit("%s: no benchmark table markers" % path)
    judged = [f for f in report["figures"] if f["targets"]]
    block = [README_BEGIN, "", "%s run of %s, commit %s, load average %.0f to %.0f on %d cores." % (
        report["mode"].capitalize(), report["date"][:10], report["commit"], *load_range(report),
        report["machine"]["cores"]), ""]
    block += table(judged, with_groups=False) + [""]
    with open(path, "w") as f:
        f.write(text[:begin] + "\n".join(block) + "\n" + text[end:])


def load_range(report):
    loads = [pair[0] for script in report["loads"] for pair in script["load"]]
    return min(loads), max(loads)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", required=True)
    parser.add_argument("--name", default="LATEST")
    parser.add_argument("--mode", default="full")
    parser.add_argument("--readme", help="the README whose benchmark table to replace")
    parser.add_argument("files", nargs="+")
    args = parser.parse_args()
    figures, loads = [], []
    for path in args.files:
        with open(path) as f:
            document = json.load(f)
        if "benchmarks" in document:
            more, context = google_benchmark_figures(path, document)
            if "load_avg" in context:
                loads.append({"script": os.path.basename(path), "load": [context["load_avg"]] * 2})
        else:
            more = document["figures"]
            loads.append({"script": document["script"], "load": document["load"]})
        figures += more
    report = {"machine": machine(), "date": datetime.datetime.now().astimezone().isoformat(timespec="seconds"),
              "commit": commit(), "mode": args.mode, "loads": loads, "figures": figures}
    os.makedirs(args.out, exist_ok=True)
    with open(os.path.join(args.out, args.name + ".json"), "w") as f:
        json.dump(report, f, indent=1)
        f.write("\n")
    with open(os.path.join(args.out, args.name + ".md"), "w") as f:
        f.write(markdown(report))
    if args.readme:
        update_readme(args.readme, report)
    return 0


if __name__ == "__main__":
    sys.exit(main())
