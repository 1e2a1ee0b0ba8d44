#!/usr/bin/env python3
"""Checks of what a user installs: the install tree, the man pages, the bash
completion and the Debian package.

  install_checks.py CHECK --build-dir BUILD --source-dir SOURCE

CHECK is one of:
  layout      cmake --install into a temporary prefix: binaries, links, pages,
              completions, ID files, licence; a second install leaves foreign
              files alone; the installed and the built program find their ID
              files without ZLC_HWDATA_DIR
  man         every page renders with man -l without warnings, and each
              command's option list in the pages matches its usage text
  completion  the completion scripts offer each command's options
  package     cpack -G DEB, dpkg -x into a scratch root, commands run from there;
              the copyright file, changelog, maintainer and Installed-Size;
              lintian finds no error (when it is installed)

Every check also proves that what it looks at lists the commands of
commands.def (and the completion the signals of signals.def) in their order.
Exit status 77 (a skip for CTest) when a tool the check needs is missing.
"""
import argparse
import gzip
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "man"))
import optionstable  # noqa: E402

SKIP = 77
failures = []


def fail(message):
    failures.append(message)
    print("FAIL:", message)


def skip_note(message):
    print("SKIP:", message)


def run(argv, env=None, cwd=None, stdin=subprocess.DEVNULL, timeout=60, drop=None):
    full_env = {k: v for k, v in os.environ.items() if k not in ("ZLC_SIMULATOR", drop)}
    full_env.update(env or {})
    return subprocess.run(argv, env=full_env, cwd=cwd, stdin=stdin, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=timeout)


def text(proc):
    return proc.stdout.decode("utf-8", "replace") + proc.stderr.decode("utf-8", "replace")


class Tree:
    def __init__(self, args):
        self.build = os.path.abspath(args.build_dir)
        self.source = os.path.abspath(args.source_dir)
        self.program = os.path.join(self.build, "bin", "zlcziftools")
        self.zifcache = os.path.join(self.build, "bin", "zifcache")
        self.sample = os.path.join(self.build, "samples", "sample-host.zifc")
        self.table = optionstable.load(os.path.join(self.source, "man", "options.txt"))
        self.names = optionstable.command_names(os.path.join(self.source, "apps", "zlcziftools", "commands.def"))
        self.signals = optionstable.load_list(os.path.join(self.source, "apps", "zlcziftools", "world", "signals.def"),
                                              "ZIF_SIGNAL")
        self.tmp = tempfile.mkdtemp(prefix="zif-install-")

    def simulator(self):
        """A private copy of the sample snapshot to run commands on as the live host."""
        path = os.path.join(self.tmp, "simulated.zifc")
        if not os.path.exists(path):
            shutil.copyfile(self.sample, path)
        return path

    def install(self, prefix):
        proc = run(["cmake", "--install", self.build, "--prefix", prefix])
        if proc.returncode != 0:
            fail(f"cmake --install failed:\n{text(proc)}")
        return text(proc)


# ---------------------------------------------------------------------------
# layout

def check_layout(tree):
    prefix = os.path.join(tree.tmp, "prefix")
    tree.install(prefix)
    bindir = os.path.join(prefix, "bin")
    linkdir = os.path.join(prefix, "libexec", "zlcziftools")

    if sorted(os.listdir(bindir)) != ["zifcache", "zlcziftools"]:
        fail(f"bin/ holds {sorted(os.listdir(bindir))}, want only zifcache and zlcziftools")
    program = os.path.join(bindir, "zlcziftools")
    names = tree.names
    if sorted(os.listdir(linkdir)) != sorted(names):
        fail(f"libexec/zlcziftools holds {sorted(os.listdir(linkdir))}")
    for name in names:
        link = os.path.join(linkdir, name)
        if not os.path.islink(link):
            fail(f"{link} is not a link")
        elif os.readlink(link) != "../../bin/zlcziftools":
            fail(f"{link} links to {os.readlink(link)}, want the relative ../../bin/zlcziftools")
        elif not os.path.samefile(link, program):
            fail(f"{link} does not reach the installed program")

    # A link starts its command: the long usage would name any other word.
    proc = run([os.path.join(linkdir, "userspaceof")], env={"ZLC_SIMULATOR": tree.simulator()})
    if "userspaceof WID" not in text(proc):
        fail(f"the userspaceof link did not start userspaceof:\n{text(proc)}")
    usage = run([program, "nosuch"], env={"ZLC_SIMULATOR": tree.simulator()}).stderr.decode()
    if usage.split("Functions:\n")[-1].split() != names:
        fail(f"the program's command list is not that of commands.def:\n{usage}")

    for path in ["share/man/man8/zlcziftools.8.gz", "share/man/man1/zifcache.1.gz",
                 "share/bash-completion/completions/zlcziftools",
                 "share/bash-completion/completions/zifcache",
                 "share/hwdata/acpiHIDs.ids", "share/hwdata/acpiClasses.ids",
                 "share/doc/zlcziftools/copyright", "share/doc/zlcziftools/changelog.Debian.gz"]:
        if not os.path.isfile(os.path.join(prefix, path)):
            fail(f"{path} is not installed")

    # Installing again keeps our links and never replaces what is not ours.
    foreign_file = os.path.join(linkdir, "ps")
    foreign_link = os.path.join(linkdir, "lspci")
    os.unlink(foreign_file)
    with open(foreign_file, "w") as f:
        f.write("someone else's ps\n")
    os.unlink(foreign_link)
    os.symlink("/bin/true", foreign_link)
    os.unlink(os.path.join(linkdir, "zdf"))
    out = tree.install(prefix)
    with open(foreign_file) as f:
        if f.read() != "someone else's ps\n":
            fail("a second install replaced a file that is not our link")
    if os.readlink(foreign_link) != "/bin/true":
        fail("a second install replaced a link that is not ours")
    if "Leaving" not in out or "ps" not in out or "lspci" not in out:
        fail(f"a second install did not say which files it left alone:\n{out}")
    if os.readlink(os.path.join(linkdir, "zdf")) != "../../bin/zlcziftools":
        fail("a second install did not restore a missing link")

    check_finds_its_data(tree, program, "the installed program")
    check_finds_its_data(tree, tree.program, "the program in the build tree")


# ---------------------------------------------------------------------------
# man

ROFF_FONT = re.compile(r"\\f[BIRP]|\\&")


def man_sections(roff_path):
    """Option forms listed in each subsection of a page: {title: set of forms}."""
    with open(roff_path, encoding="utf-8") as f:
        lines = f.read().splitlines()
    sections, title = {}, None
    for i, line in enumerate(lines):
        if line.startswith(".SH"):
            title = None
        elif line.startswith(".SS "):
            title = line[4:].strip().strip('"')
            sections[title] = set()
        elif title and line.startswith("\\fB-") and i + 1 < len(lines) and lines[i + 1].startswith(".RS"):
            term = ROFF_FONT.sub("", line)
            for part in term.split(", "):
                sections[title].add(re.match(r"-[^\s\[=]*", part).group(0))
    return sections


USAGE_OPTION = re.compile(r"(?:^|(?<=[\s\[,]))(--?[A-Za-z][A-Za-z0-9-]*)")
PARSER_DIAGNOSTIC = re.compile(r"invalid option|unrecognized option|option requires")


def usage_forms(usage):
    """The option forms a usage text names: -x, --long, -flv as three, -SIGNAL."""
    forms = set()
    for line in usage.splitlines():
        if PARSER_DIAGNOSTIC.search(line):
            continue
        for token in USAGE_OPTION.findall(line):
            if token.startswith("--") or len(token) == 2 or token[1:].isupper():
                forms.add(token)
            else:
                forms.update("-" + letter for letter in token[1:])
    return forms


def usage_text(tree, name, command):
    if name.startswith("zifcache "):
        return text(run([tree.zifcache] + command.usage_args))
    argv = [tree.program] if name == "zlcziftools" else [tree.program, name]
    return text(run(argv + command.usage_args, env={"ZLC_SIMULATOR": tree.simulator()}))


def check_man_command_list(tree, roff_path):
    """The page's command sections and its sentence naming them follow commands.def."""
    titles = [t for t in man_sections(roff_path) if t in tree.names]
    if titles != tree.names:
        fail(f"the man page's command sections {titles} are not the commands of commands.def")
    with open(roff_path, encoding="utf-8") as f:
        flat = " ".join(ROFF_FONT.sub("", f.read()).split())
    if "In the command table's order: " + ", ".join(tree.names) + "." not in flat:
        fail("the man page's list of the commands is not that of commands.def")


def check_man(tree):
    if not shutil.which("man"):
        print("man is not installed")
        sys.exit(SKIP)
    pages = {}
    for page in ["zlcziftools.8", "zifcache.1"]:
        path = os.path.join(tree.build, "man", page)
        proc = run(["man", "--warnings", "-l", path], env={"MANWIDTH": "80", "MAN_KEEP_FORMATTING": ""})
        warnings = proc.stderr.decode("utf-8", "replace")
        if proc.returncode != 0 or warnings:
            fail(f"man -l {page}: status {proc.returncode}, warnings:\n{warnings}")
        if page == "zlcziftools.8":
            check_man_command_list(tree, path)
        for title, forms in man_sections(path).items():
            key = "zlcziftools" if (page, title) == ("zlcziftools.8", "Options") else title
            if page == "zifcache.1":
                key = f"zifcache {title}"
            pages[key] = forms

    for name, command in tree.table.items():
        if name not in pages:
            fail(f"no man page section for {name}")
            continue
        listed = pages[name]
        left_out = {f for o in command.options if not o.in_usage for f in o.forms}
        expected_in_usage = {command.usage_calls.get(f, f) for f in listed - left_out}
        if command.usage_args is None:
            if listed:
                fail(f"{name} has no usage text but its man section lists {sorted(listed)}")
            continue
        found = usage_forms(usage_text(tree, name, command))
        if found != expected_in_usage:
            fail(f"{name}: the man section and the usage text differ: only in the man page "
                 f"{sorted(expected_in_usage - found)}, only in the usage text {sorted(found - expected_in_usage)}")


# ---------------------------------------------------------------------------
# completion

def complete_all(script, queries):
    """Runs completion functions in one shell: queries are (function, words),
    the last word being the one completed. Returns each query's offers."""
    program = ['source "$0"']
    for function, words in queries:
        program.append(f"COMP_WORDS=({' '.join(shlex.quote(w) for w in words)}); "
                       f"COMP_CWORD={len(words) - 1}; COMPREPLY=(); {function}; "
                       f"printf '%s\\n' \"${{COMPREPLY[@]}}\" @@end")
    proc = run(["bash", "-c", "\n".join(program), script])
    results = proc.stdout.decode().split("@@end\n")
    if proc.returncode != 0 or len(results) != len(queries) + 1:
        fail(f"completion in {script} failed: status {proc.returncode}: {text(proc)}")
        return [[] for _ in queries]
    return [[w for w in r.splitlines() if w] for r in results[:-1]]


def complete(script, function, words):
    return complete_all(script, [(function, words)])[0]


def option_words(command):
    return {f + ("=" if o.arg_style == "equals" else "") for o in command.options
            for f in o.forms if f != "-SIGNAL"}


def expect(offered, wanted, what):
    missing = set(wanted) - set(offered)
    if missing:
        fail(f"{what}: completion does not offer {sorted(missing)} (offered {sorted(offered)})")


def check_completion(tree):
    if not shutil.which("bash"):
        sys.exit(SKIP)
    script = os.path.join(tree.build, "completion", "zlcziftools")
    zscript = os.path.join(tree.build, "completion", "zifcache")
    sample = tree.sample
    names = tree.names

    proc = run(["bash", "-c", 'source "$0"; echo "$_zlcziftools_commands"; echo "$_zlcziftools_signals"', script])
    listed = proc.stdout.decode().split("\n")
    if listed[0].split() != names:
        fail(f"completion lists the commands {listed[0]}, not those of commands.def")
    if listed[1].split() != ["-" + name for name, _ in tree.signals]:
        fail(f"completion lists the signals {listed[1]}, not those of signals.def")
    expect(complete(script, "_zlcziftools", ["zlcziftools", ""]), names, "command names")
    expect(complete(script, "_zlcziftools", ["zlcziftools", "-"]), ["-c", "--cache"], "the program's options")
    expect(complete(script, "_zlcziftools", ["zlcziftools", "-c", sample[:-3]]), [sample], "the snapshot file")
    expect(complete(script, "_zlcziftools", ["zlcziftools", "-c", sample, "ls"]), ["lspci", "lsacpi", "lsof"],
           "command names after the snapshot")
    queries = []
    for name in names:
        queries.append(("_zlcziftools", ["zlcziftools", "-c", sample, name, "-"]))
        queries.append(("_zlcziftools_link", ["/usr/libexec/zlcziftools/" + name, "-"]))
    offers = iter(complete_all(script, queries))
    for name in names:
        wanted = option_words(tree.table[name])
        through_program, through_link = next(offers), next(offers)
        if not wanted and (through_program or through_link):
            fail(f"{name} takes no options, yet completion offers some")
        expect(through_program, wanted, name)
        expect(through_link, wanted, f"{name} through its link")

    signals = complete(script, "_zlcziftools_link", ["pkill", "-K"])
    expect(signals, ["-KILL"], "pkill's first argument")
    if complete(script, "_zlcziftools_link", ["pkill", "-f", "-K"]):
        fail("pkill offers signals after its first argument")
    if complete(script, "_zlcziftools_link", ["hwclock", "-d", ""]):
        fail("hwclock offers something for a date")
    expect(complete(script, "_zlcziftools_link", ["lsof", "--fi"]), ["--file="], "lsof's filter")
    expect(complete(script, "_zlcziftools_link", ["zdu", os.path.join(tree.source, "READ")]),
           [os.path.join(tree.source, "README.md")], "zdu's path")

    # Boot option file names come from the command itself.
    listing = text(run([tree.program, "-c", sample, "bootOption", "-r", "-b"]))
    expect(complete(script, "_zlcziftools", [tree.program, "-c", sample, "bootOption", "-c", ""]), listing.split(),
           "bootOption's file names")

    # Links are completed as ours only when PATH finds them as our links.
    bindir = os.path.join(tree.tmp, "links")
    os.makedirs(bindir)
    os.symlink(tree.program, os.path.join(bindir, "zlcziftools"))
    os.symlink("zlcziftools", os.path.join(bindir, "pgrep"))
    path = bindir + ":/usr/bin:/bin"
    proc = run(["bash", "-c", 'source "$0"; complete -p pgrep uptime 2>&1', script], env={"PATH": path})
    registered = proc.stdout.decode()
    if "_zlcziftools_link pgrep" not in registered:
        fail(f"our pgrep link on PATH is not completed as ours: {registered}")
    if "_zlcziftools_link uptime" in registered:
        fail("uptime, not ours on PATH, was taken over")

    subcommands = complete(zscript, "_zifcache", ["zifcache", ""])
    expect(subcommands, [n.split()[1] for n in tree.table if n.startswith("zifcache ")], "zifcache subcommands")
    for name in (n for n in tree.table if n.startswith("zifcache ")):
        expect(complete(zscript, "_zifcache", ["zifcache", name.split()[1], "-"]),
               option_words(tree.table[name]), name)
    expect(complete(zscript, "_zifcache", ["zifcache", "dump", sample[:-3]]), [sample], "zifcache dump's file")


# ---------------------------------------------------------------------------
# package

def check_package(tree):
    for tool in ("cpack", "dpkg-deb", "dpkg"):
        if not shutil.which(tool):
            print(f"{tool} is not installed")
            sys.exit(SKIP)
    out = os.path.join(tree.tmp, "package")
    proc = run(["cpack", "--config", os.path.join(tree.build, "CPackConfig.cmake"), "-G", "DEB", "-B", out],
               timeout=600)  # a sanitizer build's package takes minutes on a busy machine
    debs = [f for f in os.listdir(out) if f.endswith(".deb")] if os.path.isdir(out) else []
    if proc.returncode != 0 or len(debs) != 1:
        fail(f"cpack -G DEB failed:\n{text(proc)}")
        return
    deb = os.path.join(out, debs[0])

    fields = deb_fields(deb, "Package", "Depends")
    if fields.get("Package") != "zlcziftools" or not re.search(r"\bhwdata\b", fields.get("Depends", "")):
        fail(f"package control fields: {fields}")
    contents = run(["dpkg-deb", "-c", deb]).stdout.decode()
    for name in tree.names:
        if f"./usr/libexec/zlcziftools/{name} -> ../../bin/zlcziftools" not in contents:
            fail(f"the package lacks the link for {name}")
    if re.search(r"\./usr/bin/(?!zlcziftools$|zifcache$)\S+$", contents, re.M):
        fail(f"the package puts more than the two programs into /usr/bin:\n{contents}")

    root = os.path.join(tree.tmp, "root")
    proc = run(["dpkg", "-x", deb, root])
    if proc.returncode != 0:
        fail(f"dpkg -x: {text(proc)}")
        return
    check_package_documents(tree, deb, root)
    check_finds_its_data(tree, os.path.join(root, "usr", "bin", "zlcziftools"), "the packaged program")


# ---------------------------------------------------------------------------
# ID files and package documents

def check_finds_its_data(tree, program, what):
    """Without ZLC_HWDATA_DIR, lsacpi lists the sample as from our ACPI ID files and
    lspci as from the system's pci.ids: the program finds both where it lives."""
    expected = {"lsacpi": os.path.join(tree.source, "data", "hwdata")}
    if os.path.isfile("/usr/share/hwdata/pci.ids"):
        expected["lspci"] = "/usr/share/hwdata"
    for command, hwdata in expected.items():
        want = run([tree.program, "-c", tree.sample, command], env={"ZLC_HWDATA_DIR": hwdata})
        got = run([program, "-c", tree.sample, command], drop="ZLC_HWDATA_DIR")
        if (got.returncode, got.stdout, got.stderr) != (want.returncode, want.stdout, want.stderr):
            fail(f"{what} without ZLC_HWDATA_DIR: {command} differs from the one given {hwdata}:\n"
                 f"{text(got)}\nwanted:\n{text(want)}")


def deb_fields(deb, *names):
    out = run(["dpkg-deb", "-f", deb] + list(names)).stdout.decode()
    return dict(re.findall(r"^([\w-]+): (.*)$", out, re.M))


def check_package_documents(tree, deb, root):
    doc = os.path.join(root, "usr", "share", "doc", "zlcziftools")
    fields = deb_fields(deb, "Maintainer", "Version", "Installed-Size", "Homepage")
    try:
        with open(os.path.join(doc, "copyright"), encoding="utf-8") as f:
            copyright_text = f.read()
        with gzip.open(os.path.join(doc, "changelog.Debian.gz"), "rt", encoding="utf-8") as f:
            changelog = f.read()
    except OSError as error:
        fail(f"the package's documents: {error}")
        return
    # The machine-readable copyright: every licence a Files paragraph names has
    # its own paragraph, and the test copies of pci.ids are covered.
    paragraphs = [p for p in copyright_text.split("\n\n") if p.strip()]
    if not paragraphs[0].startswith("Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/"):
        fail("the copyright file is not in the machine-readable format")
    named = {name for p in paragraphs if p.startswith("Files:")
             for name in re.split(r" or | and ", re.search(r"^License: (.*)$", p, re.M).group(1))}
    stand_alone = {re.match(r"License: (\S+)", p).group(1) for p in paragraphs if p.startswith("License:")}
    if named != stand_alone or "Expat" not in named:
        fail(f"the copyright file names the licences {sorted(named)} but gives the texts of {sorted(stand_alone)}")
    pci_ids = next((p for p in paragraphs if "tests/pci/data/pci.ids" in p), "")
    if "tests/samples/hwdata/pci.ids" not in pci_ids or "License: GPL-2+ or BSD-3-clause" not in pci_ids:
        fail(f"the copyright file does not give the licence of the test copies of pci.ids:\n{pci_ids}")
    with open(os.path.join(tree.source, "LICENSE"), encoding="utf-8") as f:
        licence_words = f.read().split("\n\n", 2)[2].split()
    expat = next((p for p in paragraphs if p.startswith("License: Expat\n")), "")
    if [w for w in expat.split()[2:] if w != "."] != licence_words:
        fail("the copyright file's Expat text is not that of LICENSE")
    # One maintainer, one version, no Homepage.
    maintainer = fields.get("Maintainer", "")
    if not re.fullmatch(r"[^<>@]+ <[^<>@\s]+@[\w.-]+\.\w+>", maintainer) or "localhost" in maintainer:
        fail(f"the Maintainer field is not a name and a mail address: {maintainer!r}")
    if f"Upstream-Contact: {maintainer}\n" not in copyright_text:
        fail("the copyright file's Upstream-Contact is not the package's Maintainer")
    if not changelog.startswith(f"zlcziftools ({fields.get('Version')}) ") or f" -- {maintainer}  " not in changelog:
        fail(f"the changelog's newest entry is not for {fields.get('Version')} by {maintainer}:\n{changelog}")
    if "Homepage" in fields:
        fail(f"the package names a Homepage: {fields['Homepage']}")
    # Installed-Size as dpkg counts it: files in KiB rounded up, one KiB for
    # every directory and link (CPack counts each link as its target).
    kib = 0
    for top, dirs, files in os.walk(root):
        for name in dirs + files:
            path = os.path.join(top, name)
            kib += 1 if os.path.islink(path) or os.path.isdir(path) else (os.path.getsize(path) + 1023) // 1024
    if fields.get("Installed-Size") != str(kib):
        fail(f"Installed-Size is {fields.get('Installed-Size')} KiB, the files take {kib}")
    if shutil.which("lintian"):
        proc = run(["lintian", "--fail-on", "error", deb])
        if proc.returncode != 0:
            fail(f"lintian finds errors in the package:\n{text(proc)}")
    else:
        skip_note("lintian is not installed")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("check", choices=["layout", "man", "completion", "package"])
    parser.add_argument("--build-dir", required=True)
    parser.add_argument("--source-dir", required=True)
    args = parser.parse_args()
    tree = Tree(args)
    try:
        globals()["check_" + args.check](tree)
    finally:
        shutil.rmtree(tree.tmp, ignore_errors=True)
    if failures:
        print(f"{len(failures)} failure(s)")
        sys.exit(1)
    print("ok")


if __name__ == "__main__":
    main()
