"""Timing shared by the whole-command benchmarks.

A figure times one command line ("ours") against a peer: another command
(pciutils' lspci, /bin/true, du), or the same command on a smaller host when the
question is how the time grows. The two run alternately, each pair in turn
starting with the other one, so that both see the same machine load; the
result is the median of each side and the median of the paired ratios. Times
are wall time and processor time (user + system) of the child from wait4.
Targets are judged on processor time, which other work on a shared machine
disturbs much less than wall time. Peak memory comes from a run of its own
under /usr/bin/time: a child spawned from this process would report this
process's own peak when that is higher (the peak carries over an exec).

Every script writes its figures with write_figures(); scripts/bench.sh gathers
them into one table (bench/report.py).
"""
import contextlib
import hashlib
import inspect
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)


class Sample:
    """One run of a command: wall and processor seconds, exit status."""

    def __init__(self, wall, cpu, status):
        self.wall, self.cpu, self.status = wall, cpu, status


def run_once(argv, env=None, stdout=os.devnull):
    """Runs argv once with its output sent to stdout (a path) and stderr
    discarded; returns a Sample."""
    actions = [(os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
               (os.POSIX_SPAWN_OPEN, 1, stdout, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600),
               (os.POSIX_SPAWN_OPEN, 2, os.devnull, os.O_WRONLY, 0)]
    start = time.perf_counter()
    pid = os.posix_spawn(argv[0], argv, os.environ if env is None else env, file_actions=actions)
    _, wait_status, usage = os.wait4(pid, 0)
    wall = time.perf_counter() - start
    return Sample(wall, usage.ru_utime + usage.ru_stime, os.waitstatus_to_exitcode(wait_status))


def peak_memory_kib(argv, env=None):
    """Peak resident memory of one run of argv in KiB, None without /usr/bin/time."""
    if not os.path.exists("/usr/bin/time"):
        return None
    result = subprocess.run(["/usr/bin/time", "-f", "%M"] + argv, env=env, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True, check=False)
    return int(result.stderr.strip().splitlines()[-1])


def check_status(argv, sample, expected):
    if sample.status != expected:
        sys.exit("%s: exit status %d, expected %d" % (" ".join(argv), sample.status, expected))


class Timing:
    """How many runs a figure gets: at least min_runs, then more until
    max_runs or until budget seconds have passed."""

    def __init__(self, min_runs=5, max_runs=41, budget=3.0):
        self.min_runs, self.max_runs, self.budget = min_runs, max_runs, budget

    def scaled(self, factor):
        return Timing(max(3, int(self.min_runs * factor)), max(3, int(self.max_runs * factor)), self.budget * factor)

    def runs(self):
        start = time.perf_counter()
        count = 0
        while count < self.min_runs or (count < self.max_runs and time.perf_counter() - start < self.budget):
            yield count
            count += 1


def _median(values):
    return statistics.median(values) if values else None


def measure(argv, timing, env=None, status=0):
    """Times argv alone: medians of wall and processor time."""
    check_status(argv, run_once(argv, env), status)  # warms the page cache
    samples = []
    for _ in timing.runs():
        sample = run_once(argv, env)
        check_status(argv, sample, status)
        samples.append(sample)
    return {"wall": _median([s.wall for s in samples]), "cpu": _median([s.cpu for s in samples]),
            "runs": len(samples)}


def compare(ours, peer, timing, env=None, peer_env=None, status=0, peer_status=0, peer_offset=0.0):
    """Times ours against peer in alternating pairs. peer_offset seconds are
    added to each of the peer's times (a cost measured apart)."""
    check_status(ours, run_once(ours, env), status)
    check_status(peer, run_once(peer, peer_env), peer_status)
    pairs = []
    for index in timing.runs():
        if index % 2 == 0:
            a = run_once(ours, env)
            b = run_once(peer, peer_env)
        else:
            b = run_once(peer, peer_env)
            a = run_once(ours, env)
        check_status(ours, a, status)
        check_status(peer, b, peer_status)
        pairs.append((a, b))
    for _, b in pairs:
        b.wall += peer_offset
        b.cpu += peer_offset
    ratio = lambda key: _median([key(a) / key(b) for a, b in pairs if key(b) > 0])
    return {"wall": _median([a.wall for a, _ in pairs]), "cpu": _median([a.cpu for a, _ in pairs]),
            "peer_wall": _median([b.wall for _, b in pairs]), "peer_cpu": _median([b.cpu for _, b in pairs]),
            "ratio_wall": ratio(lambda s: s.wall), "ratio_cpu": ratio(lambda s: s.cpu), "runs": len(pairs)}


def figure(group, name, result, peer_name=None, unit="s", max_value=None, max_ratio=None, note=None):
    """A time figure from measure() or compare(), with its targets: ours at
    most max_value seconds, the ratio to the peer at most max_ratio."""
    fig = {"group": group, "name": name, "unit": unit, "ours": result["cpu"], "ours_wall": result["wall"],
           "peer_name": peer_name, "peer": result.get("peer_cpu"), "peer_wall": result.get("peer_wall"),
           "ratio": result.get("ratio_cpu"), "ratio_wall": result.get("ratio_wall"), "runs": result["runs"],
           "targets": []}
    if max_value is not None:
        fig["targets"].append({"what": "ours", "max": max_value, "met": result["cpu"] <= max_value})
    if max_ratio is not None:
        met = result.get("ratio_cpu") is not None and result["ratio_cpu"] <= max_ratio
        fig["targets"].append({"what": "ratio", "max": max_ratio, "met": met})
    if note:
        fig["note"] = note
    return fig


def memory_figure(group, name, peak_kib, peer_name, peer_bytes, max_excess_mib):
    """Peak resident memory against a size (such as the snapshot's): at most
    max_excess_mib MiB more. Without a peak (no /usr/bin/time) nothing is judged."""
    peer = peer_bytes / 1048576.0
    fig = {"group": group, "name": name, "unit": "MiB", "ours": None, "peer_name": peer_name, "peer": peer,
           "ratio": None, "runs": 1, "targets": []}
    if peak_kib is not None:
        fig.update(ours=peak_kib / 1024.0, ratio=peak_kib / 1024.0 / peer if peer else None)
        fig["targets"].append({"what": "excess", "max": max_excess_mib, "met": fig["ours"] - peer <= max_excess_mib})
    return fig


def count_text(count):
    """10000 as 10k, 1500 as 1500."""
    return "%dk" % (count // 1000) if count >= 1000 and count % 1000 == 0 else str(count)


def load_average():
    with open("/proc/loadavg") as f:
        return [float(x) for x in f.read().split()[:3]]


def write_figures(path, script, figures, started_load):
    """Writes a script's figures for report.py; without a path, nothing."""
    if not path:
        return
    with open(path, "w") as f:
        json.dump({"script": script, "load": [started_load, load_average()], "figures": figures}, f, indent=1)


def print_figure(fig):
    def show(value, unit):
        if value is None:
            return "-"
        return "%.2f MiB" % value if unit == "MiB" else "%.1f ms" % (value * 1e3)
    verdicts = ", ".join("%s <= %g: %s" % (t["what"], t["max"], "met" if t["met"] else "MISSED") for t in fig["targets"])
    ratio = "-" if fig.get("ratio") is None else "%.2f" % fig["ratio"]
    print("%-34s %12s  %-24s %12s  ratio %6s  %s" % (fig["name"], show(fig["ours"], fig["unit"]),
                                                      fig.get("peer_name") or "", show(fig.get("peer"), fig["unit"]),
                                                      ratio, verdicts), flush=True)


@contextlib.contextmanager
def work_directory(args, prefix):
    """The directory for generated hosts: --cache when given (kept), else a
    scratch directory removed afterwards."""
    if args.cache:
        os.makedirs(args.cache, exist_ok=True)
        yield args.cache
    else:
        with tempfile.TemporaryDirectory(prefix=prefix) as scratch:
            yield scratch


def cached_file(cache_dir, name, inputs, make):
    """A generated file or directory kept in cache_dir under a name that
    carries a digest of its inputs (what decides its contents: the functions
    that generate it, the packer's file), so that a changed input makes it
    anew. make(path) creates it."""
    digest = hashlib.sha1()
    for item in inputs:
        if callable(item):
            digest.update(inspect.getsource(item).encode())
        else:
            with open(item, "rb") as f:
                digest.update(hashlib.sha1(f.read()).digest())
    base, ext = os.path.splitext(name)
    path = os.path.join(cache_dir, "%s-%s%s" % (base, digest.hexdigest()[:12], ext))
    if not os.path.exists(path):
        os.makedirs(cache_dir, exist_ok=True)
        for old in os.listdir(cache_dir):
            if old.startswith(base + "-") and old.endswith(ext):
                remove(os.path.join(cache_dir, old))
        partial = path + ".partial"
        remove(partial)
        make(partial)
        os.replace(partial, path)
    return path


def remove(path):
    if os.path.isdir(path) and not os.path.islink(path):
        shutil.rmtree(path)
    elif os.path.lexists(path):
        os.unlink(path)


def pack(zifcache, document, path):
    """Packs a snapshot in the JSON form into path, through a scratch JSON file."""
    source = path + ".json"
    with open(source, "w") as f:
        json.dump(document, f)
    try:
        subprocess.run([zifcache, "pack", source, path], check=True)
    finally:
        os.unlink(source)


def common_arguments(parser, runs=(5, 41, 3.0)):
    """Options every script takes: the build directory, a results file,
    --quick, a cache directory for generated hosts."""
    parser.add_argument("--build", default=os.path.join(SOURCE, "build"), help="build directory (its bin/)")
    parser.add_argument("--json", help="write the figures to this file")
    parser.add_argument("--quick", action="store_true", help="fewer runs and smaller hosts")
    parser.add_argument("--cache", help="keep generated hosts in this directory between runs")
    parser.add_argument("--min-runs", type=int, default=runs[0])
    parser.add_argument("--max-runs", type=int, default=runs[1])
    parser.add_argument("--budget", type=float, default=runs[2], help="seconds per figure beyond the minimum runs")


def timing_from(args):
    timing = Timing(args.min_runs, args.max_runs, args.budget)
    return timing.scaled(0.4) if args.quick else timing
