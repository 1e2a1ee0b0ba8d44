#!/usr/bin/env python3
"""Makes the bundled sample host (samples/host/*.json) from a capture of a real
machine and hand-written enrichments.

    make-sample.py scrub RAW.json [--source DIR] > samples/source/capture.json
    make-sample.py [--source DIR] [--out DIR]      writes samples/host/*.json
    make-sample.py --check [--source DIR] [--out DIR]

`scrub` turns the JSON form of `zifcache capture` (scripts/capture-sample.sh)
into the committed samples/source/capture.json. It is deterministic and keeps
no trace of the machine the capture was taken on; the enrichments supply the
host's own values in their place (the merge fails when one is missing):
  - every user process (its worlds, command line, files, mappings and child
    list): on the machine the sample was taken from they are its agents and
    the jobs running at the time, with their settings and environment. The
    kernel's threads stay; the enrichment supplies the user processes;
  - the files of its ramdisks (their inodes); the enrichment supplies the
    sample's;
  - every ramdisk and tardisk that no enrichment lists (a mount of that
    machine, not of the host the sample shows) with its stats;
  - every resource pool group but the root, whose paths name that machine's
    services and users;
  - the boot command line, the kernel version (system_version and the
    capture's kernel note) and the host name: the enrichments write the
    sample host's own;
  - the signature, so that the sample always matches the library it is
    packed with, the simulator settings (the sample's inodes are the
    enrichment's, keyed by inode number), and the capture's command line in
    meta "by".

The default action merges samples/source/capture.json with every
samples/source/enrich/*.json (in name order) and writes one document per
family into the output directory. `zifcache pack` refuses duplicate entries,
so the merge resolves them:
  - records, data and devinfo replies: an enrichment entry replaces the
    capture's entry of the same node and keys (function), in place;
  - set answers: likewise, by node and input;
  - lists: an enrichment list of the same node and parent is unioned with the
    capture's (the capture's instances first, then the new ones in the
    enrichment's order); with "replace": true it replaces it instead, and a
    list with a "status" (an injected failure) always replaces;
  - records or lists named in an enrichment's "remove" array
    ({"section": ..., "node": ..., "keys"/"parent": ...}) are dropped;
  - two enrichments that set the same entry are an error, as is a node whose
    family is not known below.
meta comes from the capture, with each enrichment's notes appended and its
"host", if it has one, in place of the capture's.

--check makes the documents in memory and compares them with the output
directory; it prints what differs and exits 1 when they are not identical.
"""
import argparse
import copy
import json
import os
import sys

# The layout every JSON file of the tree is written in.
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from format_json import layout  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Which output document holds a node: the first prefix that matches.
FAMILIES = [
    ("world", ("world", "userworld_", "sched_Vcpus_")),
    ("pci", ("hardware_pci_", "system_modules")),
    ("acpi", ("hardware_acpi_", "system_devicetree_")),
    ("boot", ("system_boot", "hardware_interrupts_", "hardware_cpu_")),
    ("hostinfo", ("system_ntpclock_", "sched_globalStats_", "sched_groups_stats_cpuStatsDir_", "system_version",
                  "hardware_chipset_")),
    ("memfs", ("system_zelorfs_", "sched_groups_", "sched_groupPathNameToID")),
]
SECTIONS = ("lists", "records", "data", "devinfo", "sets")
MOUNT_LISTS = ("system_zelorfs_ramdisks", "system_zelorfs_tardisks")
GROUP_RECORDS = ("sched_groups_memAllocationInMB", "sched_groups_stats_memoryStats")  # keyed by group ID
MACHINE_FILES = ("system_zelorfs_inodes", "system_zelorfs_inodes_stats")  # the captured ramdisks' files
SCRUBBED_NOTE = "scrubbed by scripts/make-sample.py"
# What the scrub leaves out and an enrichment must put back: records, and meta members.
SUPPLIED_RECORDS = ("system_bootCmdLine", "system_version")
SUPPLIED_META = ("host",)


def fail(message):
    sys.stderr.write("make-sample.py: %s\n" % message)
    sys.exit(1)


def family_of(node):
    for family, prefixes in FAMILIES:
        if node.startswith(prefixes):
            return family
    fail("no family for node %s" % node)
    return None


def identity(section, entry):
    """What makes two entries of a section the same entry for zifcache pack."""
    if section == "lists":
        return (entry["node"], json.dumps(entry.get("parent", [])))
    if section == "devinfo":
        return ("devinfo", json.dumps(entry["function"]))
    if section == "sets":
        return (entry["node"], json.dumps(entry.get("input")))
    return (entry["node"], json.dumps(entry.get("keys", [])))


def load(path):
    with open(path, encoding="utf-8") as f:
        return json.load(f)


# ---------------------------------------------------------------------------
# scrub


def listed_mounts(enrichments):
    """The ramdisks and tardisks the enrichments list: the only mounts a sample keeps."""
    return {i for _, doc in enrichments for l in doc.get("lists", []) if l["node"] in MOUNT_LISTS
            for i in l.get("instances", [])}


def root_groups(doc):
    """The IDs the capture's path-to-ID answers give the root group "/"."""
    return {int.from_bytes(bytes.fromhex(s["hex"].replace(" ", "")), "little")
            for s in doc.get("sets", []) if s["node"] == "sched_groupPathNameToID" and s.get("input") == ["/"]
            and "hex" in s}


def scrub(raw, mounts):
    doc = copy.deepcopy(raw)
    for member in ("signature", "simulator"):
        doc.pop(member, None)
    records = doc.get("records", [])

    kernel_worlds = set()
    for r in records:
        if r["node"] == "world_info" and r.get("fields", {}).get("cartelId", 0) == 0:
            kernel_worlds.add(r["keys"][0])
    groups = root_groups(doc)

    def keep_list(entry):
        node, parent = entry["node"], entry.get("parent", [])
        if node.startswith("userworld_cartel_") or node in MACHINE_FILES:
            return False
        if node == "sched_groups_members_groups":
            if parent[0] not in groups:
                return False
            entry["instances"] = [i for i in entry.get("instances", []) if i in groups]
        if node in MOUNT_LISTS:
            entry["instances"] = [i for i in entry.get("instances", []) if i in mounts]
        if node == "userworld_cartel":
            entry["instances"] = []
        if node == "world":
            entry["instances"] = [i for i in entry["instances"] if i in kernel_worlds]
        return True

    def keep_record(entry):
        node, keys = entry["node"], entry.get("keys", [])
        if node.startswith("userworld_cartel") or node in SUPPLIED_RECORDS or node in MACHINE_FILES:
            return False
        if node.startswith(("world", "sched_Vcpus_")):
            return keys[0] in kernel_worlds
        if node in GROUP_RECORDS:
            return keys[0] in groups
        if node.startswith(MOUNT_LISTS):
            return keys[0] in mounts
        return True

    doc["lists"] = [l for l in doc.get("lists", []) if keep_list(l)]
    doc["records"] = [r for r in records if keep_record(r)]
    doc["sets"] = [s for s in doc.get("sets", []) if s["node"] != "sched_groupPathNameToID" or s.get("input") == ["/"]]
    if not doc["sets"]:
        del doc["sets"]
    meta = doc.get("meta")
    if meta:
        meta.pop("host", None)
        meta["by"] = "zifcache capture"
        meta["notes"] = [n for n in meta.get("notes", []) if not n.startswith(("kernel: ", SCRUBBED_NOTE))]
        meta["notes"].append(SCRUBBED_NOTE + ": user processes, the files of its ramdisks, the mounts the "
                             "enrichments do not list, the groups below the root, the boot command line, the kernel "
                             "version and the host name left out")
    return doc


# ---------------------------------------------------------------------------
# merge


def merge(capture, enrichments):
    """Merges (name, document) enrichments into the capture; returns one document."""
    merged = {section: list(capture.get(section, [])) for section in SECTIONS}
    meta = copy.deepcopy(capture.get("meta", {}))
    simulator = capture.get("simulator")
    index = {section: {identity(section, e): i for i, e in enumerate(merged[section])} for section in SECTIONS}
    setters = {}

    for name, doc in enrichments:
        unknown = set(doc) - {"zifcache", "meta", "simulator", "remove"} - set(SECTIONS)
        if unknown:
            fail("%s: unknown members %s" % (name, ", ".join(sorted(unknown))))
        for removal in doc.get("remove", []):
            section = removal["section"]
            ident = identity(section, removal)
            if ident not in index[section]:
                fail("%s: nothing to remove for %s" % (name, ident))
            merged[section][index[section].pop(ident)] = None
        for section in SECTIONS:
            for entry in doc.get(section, []):
                entry = copy.deepcopy(entry)
                ident = identity(section, entry)
                if (section, ident) in setters:
                    fail("%s and %s both set %s %s" % (setters[(section, ident)], name, section, ident))
                setters[(section, ident)] = name
                replace = entry.pop("replace", False)
                if ident not in index[section]:
                    index[section][ident] = len(merged[section])
                    merged[section].append(entry)
                    continue
                at = index[section][ident]
                old = merged[section][at]
                if section == "lists" and not replace and "instances" in entry and "instances" in old:
                    union = list(old["instances"])
                    union += [i for i in entry["instances"] if i not in union]
                    entry["instances"] = union
                merged[section][at] = entry
        notes = doc.get("meta", {}).get("notes", [])
        if notes:
            meta.setdefault("notes", []).extend(notes)
        for member in SUPPLIED_META:
            if member in doc.get("meta", {}):
                meta[member] = doc["meta"][member]
        if "simulator" in doc:
            simulator = doc["simulator"]

    for section in SECTIONS:
        merged[section] = [e for e in merged[section] if e is not None]
    present = {e["node"] for e in merged["records"]}
    missing = [n for n in SUPPLIED_RECORDS if n not in present] + [m for m in SUPPLIED_META if m not in meta]
    if missing:
        fail("the sample has no %s: the scrub leaves it out and an enrichment must supply it" % ", ".join(missing))
    if meta:
        meta["by"] = "scripts/make-sample.py: a capture of a real machine with hand-written enrichments"
    return meta, simulator, merged


def split(meta, simulator, merged):
    """One document per family; meta and simulator go with the host information."""
    documents = {family: {"zifcache": 1} for family, _ in FAMILIES}
    host = documents["hostinfo"]
    if simulator is not None:
        host["simulator"] = simulator
    if meta:
        host["meta"] = meta
    for section in SECTIONS:
        for entry in merged[section]:
            node = "hardware_pci_" if section == "devinfo" else entry["node"]
            documents[family_of(node)].setdefault(section, []).append(entry)
    return {family + ".json": layout(doc) + "\n" for family, doc in documents.items()}


def load_enrichments(source):
    enrich_dir = os.path.join(source, "enrich")
    names = sorted(n for n in os.listdir(enrich_dir) if n.endswith(".json"))
    return [(n, load(os.path.join(enrich_dir, n))) for n in names]


def make(source):
    capture = load(os.path.join(source, "capture.json"))
    return split(*merge(capture, load_enrichments(source)))


def main():
    default_source = os.path.join(ROOT, "samples", "source")
    if len(sys.argv) >= 2 and sys.argv[1] == "scrub":
        parser = argparse.ArgumentParser(prog="make-sample.py scrub", description="Scrubs a capture for the sample.")
        parser.add_argument("raw", help="the capture's JSON form, - for standard input")
        parser.add_argument("--source", default=default_source, help="the folder whose enrich/ lists the mounts kept")
        args = parser.parse_args(sys.argv[2:])
        raw = json.load(sys.stdin) if args.raw == "-" else load(args.raw)
        sys.stdout.write(layout(scrub(raw, listed_mounts(load_enrichments(args.source)))) + "\n")
        return 0
    parser = argparse.ArgumentParser(description="Makes samples/host from samples/source.")
    parser.add_argument("--source", default=default_source)
    parser.add_argument("--out", default=os.path.join(ROOT, "samples", "host"))
    parser.add_argument("--check", action="store_true", help="compare with --out instead of writing")
    args = parser.parse_args()
    documents = make(args.source)
    present = sorted(n for n in os.listdir(args.out) if n.endswith(".json")) if os.path.isdir(args.out) else []
    if args.check:
        differ = [n for n in sorted(documents) if n not in present or open(os.path.join(args.out, n),
                                                                           encoding="utf-8").read() != documents[n]]
        extra = [n for n in present if n not in documents]
        for n in differ:
            print("%s differs from what scripts/make-sample.py makes" % os.path.join(args.out, n))
        for n in extra:
            print("%s is not made by scripts/make-sample.py" % os.path.join(args.out, n))
        return 1 if differ or extra else 0
    os.makedirs(args.out, exist_ok=True)
    for n in present:
        if n not in documents:
            os.remove(os.path.join(args.out, n))
    for n, text in documents.items():
        with open(os.path.join(args.out, n), "w", encoding="utf-8") as f:
            f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
