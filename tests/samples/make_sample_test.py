#!/usr/bin/env python3
"""The merge and scrub rules of scripts/make-sample.py on small documents."""
import json
import os
import runpy
import shutil
import subprocess
import sys
import tempfile
import types
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "make-sample.py")
# The script's file name has a dash, so it is loaded by path.
ms = types.SimpleNamespace(**runpy.run_path(SCRIPT))

CAPTURE = {
    "zifcache": 1,
    "signature": {"digest": "0123456789abcdef", "date": "2026-01-01"},
    "simulator": {"rootDevice": 0},
    "meta": {"host": "buildbox", "captured": "2026-11-23T10:38:13Z", "by": "zifcache capture /tmp/x.zifc",
             "notes": ["kernel: Linux 9.9.9-custom", "parts: worlds"]},
    "lists": [
        {"node": "world", "instances": [1, 2, 3, 40]},
        {"node": "userworld_cartel", "instances": [1, 40]},
        {"node": "userworld_cartel_child", "parent": [1], "instances": [40]},
        {"node": "system_zelorfs_ramdisks", "instances": ["/dev/shm", "/opt/agent/env"]},
        {"node": "system_zelorfs_tardisks", "instances": ["/snap/tool/1"]},
        {"node": "system_zelorfs_inodes", "instances": [111669149697]},
        {"node": "sched_groups_members_groups", "parent": [1], "instances": [7]},
        {"node": "sched_groups_members_groups", "parent": [7], "instances": []},
        {"node": "hardware_pci_seg_bus_slot", "parent": [0, 0], "instances": [0, 1]},
    ],
    "records": [
        {"node": "world_info", "keys": [1], "fields": {"worldId": 1, "cartelId": 1}},
        {"node": "world_info", "keys": [2], "fields": {"worldId": 2, "cartelId": 0}},
        {"node": "world_info", "keys": [3], "fields": {"worldId": 3, "cartelId": 0}},
        {"node": "world_info", "keys": [40], "fields": {"worldId": 40, "cartelId": 40}},
        {"node": "world_name", "keys": [2], "text": "kthreadd"},
        {"node": "world_name", "keys": [40], "text": "bash"},
        {"node": "sched_Vcpus_stats_affinity", "keys": [40], "text": "0-1"},
        {"node": "userworld_cartel_cmdline", "keys": [40], "text": "bash --secret"},
        {"node": "system_zelorfs_ramdisks_stats", "keys": ["/opt/agent/env"], "fields": {"maxMB": 0}},
        {"node": "system_zelorfs_ramdisks_stats", "keys": ["/dev/shm"], "fields": {"maxMB": 64}},
        {"node": "system_zelorfs_tardisks_stats", "keys": ["/snap/tool/1"], "fields": {"size": 4096}},
        {"node": "system_zelorfs_inodes_stats", "keys": [111669149697], "hex": "00"},
        {"node": "sched_groups_memAllocationInMB", "keys": [1], "fields": {"min": 0, "max": -1}},
        {"node": "sched_groups_memAllocationInMB", "keys": [7], "fields": {"min": 0, "max": 64}},
        {"node": "system_bootCmdLine", "text": "/boot/vmlinuz-9.9.9-custom console=ttyS3 init=/agent -- --port 99"},
        {"node": "system_version", "fields": {"product": "Linux", "version": "9.9.9-custom"}},
    ],
    "sets": [
        {"node": "sched_groupPathNameToID", "input": ["/"], "hex": "0100000000000000"},
        {"node": "sched_groupPathNameToID", "input": ["/user.slice/user-1000.slice"], "hex": "0700000000000000"},
    ],
}
# What the scrub leaves out and an enrichment puts back.
HOST = {
    "meta": {"host": "rack1-node1"},
    "records": [{"node": "system_bootCmdLine", "text": "/boot/vmlinuz-6.1.0 ro"},
                {"node": "system_version", "fields": {"product": "Linux", "version": "6.1.0"}}],
}


class Scrub(unittest.TestCase):
    def setUp(self):
        self.doc = ms.scrub(CAPTURE, {"/dev/shm"})

    def test_keeps_kernel_threads_and_drops_user_processes(self):
        lists = {l["node"]: l["instances"] for l in self.doc["lists"]}
        self.assertEqual(lists["world"], [2, 3])
        self.assertEqual(lists["userworld_cartel"], [])
        self.assertNotIn("userworld_cartel_child", lists)
        nodes = [(r["node"], r.get("keys")) for r in self.doc["records"]]
        self.assertIn(("world_name", [2]), nodes)
        self.assertFalse([n for n in nodes if n[0].startswith(("world", "sched_Vcpus_", "userworld_"))
                          and n[1] in ([1], [40])], nodes)

    def test_leaves_no_trace_of_the_machine(self):
        text = json.dumps(self.doc)
        for trace in ("secret", "buildbox", "9.9.9-custom", "ttyS3", "/opt/agent", "/snap/tool", "user.slice",
                      "111669149697", "/tmp/x.zifc", "signature", "simulator"):
            self.assertNotIn(trace, text)
        lists = {(l["node"], json.dumps(l.get("parent"))): l["instances"] for l in self.doc["lists"]}
        self.assertEqual(lists[("system_zelorfs_ramdisks", "null")], ["/dev/shm"], "only the listed mounts")
        self.assertEqual(lists[("system_zelorfs_tardisks", "null")], [])
        self.assertEqual(lists[("sched_groups_members_groups", "[1]")], [], "the root group alone")
        self.assertNotIn(("sched_groups_members_groups", "[7]"), lists)
        self.assertEqual(self.doc["sets"], [CAPTURE["sets"][0]])
        self.assertEqual(self.doc["meta"]["notes"][0], "parts: worlds")

    def test_is_deterministic_and_can_run_again(self):
        self.assertEqual(ms.scrub(CAPTURE, {"/dev/shm"}), self.doc)
        self.assertEqual(ms.scrub(self.doc, {"/dev/shm"}), self.doc)

    def test_listed_mounts_are_those_of_the_enrichments(self):
        enrichments = [("a.json", {"lists": [{"node": "system_zelorfs_ramdisks", "instances": ["/tmp"]}]}),
                       ("b.json", {"lists": [{"node": "system_zelorfs_tardisks", "instances": ["s.v00"]},
                                             {"node": "world", "instances": [9]}]})]
        self.assertEqual(ms.listed_mounts(enrichments), {"/tmp", "s.v00"})


class Merge(unittest.TestCase):
    def merge(self, *enrichments):
        return ms.merge(ms.scrub(CAPTURE, {"/dev/shm"}),
                        [("e%d.json" % i, e) for i, e in enumerate((HOST,) + enrichments)])

    def test_records_replace_in_place_and_lists_union(self):
        meta, _, merged = self.merge({
            "meta": {"notes": ["enriched"]},
            "lists": [{"node": "world", "instances": [3, 1000001]},
                      {"node": "hardware_pci_seg_bus", "parent": [0], "instances": [1]}],
            "records": [{"node": "world_name", "keys": [2], "text": "kthreadd!"},
                        {"node": "world_name", "keys": [1000001], "text": "init"}],
            "sets": [{"node": "sched_groupPathNameToID", "input": ["/"], "hex": "0200000000000000"}],
        })
        worlds = [l for l in merged["lists"] if l["node"] == "world"]
        self.assertEqual(worlds, [{"node": "world", "instances": [2, 3, 1000001]}])
        names = [r for r in merged["records"] if r["node"] == "world_name"]
        self.assertEqual([(r["keys"], r["text"]) for r in names], [([2], "kthreadd!"), ([1000001], "init")])
        self.assertEqual(merged["sets"][0]["hex"], "0200000000000000")
        self.assertEqual(meta["notes"][-1], "enriched")
        self.assertEqual(meta["host"], "rack1-node1")

    def test_replace_and_remove(self):
        _, _, merged = self.merge({
            "lists": [{"node": "system_zelorfs_ramdisks", "instances": ["/tmp"], "replace": True}],
            "remove": [{"section": "records", "node": "system_zelorfs_ramdisks_stats", "keys": ["/dev/shm"]}],
        })
        lists = {l["node"]: l for l in merged["lists"]}
        self.assertEqual(lists["system_zelorfs_ramdisks"], {"node": "system_zelorfs_ramdisks", "instances": ["/tmp"]})
        self.assertFalse([r for r in merged["records"] if r["node"] == "system_zelorfs_ramdisks_stats"])

    def test_refusals(self):
        twice = {"records": [{"node": "world_name", "keys": [2], "text": "x"}]}
        cases = [
            ((twice, twice), "both set"),
            (({"remove": [{"section": "records", "node": "world_name", "keys": [99]}]},), "nothing to remove"),
            (({"record": []},), "unknown members"),
        ]
        for enrichments, message in cases:
            with self.subTest(message=message):
                with self.assertRaises(SystemExit):
                    self.merge(*enrichments)
        for missing in ("meta", "records"):
            with self.subTest(missing=missing), self.assertRaises(SystemExit):
                partial = {k: v for k, v in HOST.items() if k != missing}
                ms.merge(ms.scrub(CAPTURE, set()), [("host.json", partial)])
        with self.assertRaises(SystemExit):
            ms.split({}, None, {"lists": [{"node": "made_up_node", "instances": []}], "records": [], "data": [],
                                "devinfo": [], "sets": []})

    def test_one_document_per_family(self):
        documents = ms.split(*self.merge({}))
        self.assertEqual(sorted(documents), ["acpi.json", "boot.json", "hostinfo.json", "memfs.json", "pci.json",
                                             "world.json"])
        host = json.loads(documents["hostinfo.json"])
        self.assertEqual(host["meta"]["host"], "rack1-node1")
        self.assertEqual([r["node"] for r in host["records"]], ["system_version"])
        self.assertIn("system_bootCmdLine", documents["boot.json"])


class Check(unittest.TestCase):
    def test_check_notices_a_stale_or_extra_document(self):
        with tempfile.TemporaryDirectory() as tmp:
            source, out = os.path.join(tmp, "source"), os.path.join(tmp, "host")
            os.makedirs(os.path.join(source, "enrich"))
            with open(os.path.join(source, "capture.json"), "w") as f:
                json.dump(ms.scrub(CAPTURE, set()), f)
            with open(os.path.join(source, "enrich", "host.json"), "w") as f:
                json.dump(HOST, f)
            run = lambda *extra: subprocess.run([sys.executable, SCRIPT, "--source", source, "--out", out, *extra],
                                                capture_output=True, text=True)
            self.assertEqual(run().returncode, 0)
            self.assertEqual(run("--check").returncode, 0)
            with open(os.path.join(out, "world.json"), "a") as f:
                f.write(" ")
            shutil.copy(os.path.join(out, "pci.json"), os.path.join(out, "old.json"))
            result = run("--check")
            self.assertEqual(result.returncode, 1)
            self.assertIn("world.json differs", result.stdout)
            self.assertIn("old.json is not made", result.stdout)
            self.assertEqual(run().returncode, 0)
            self.assertFalse(os.path.exists(os.path.join(out, "old.json")))


if __name__ == "__main__":
    unittest.main()
