#!/usr/bin/python3
"""hwc_cli --metrics read back by Prometheus' own parser of the text format.

Two sessions: the quick diagnostic on the built-in simulated PC, whose disk 0
has an unreadable sector, and a machine whose model and serial hold a double
quote and a backslash, which the labels must escape.

Usage: metrics_parse_test.py HWC_CLI
"""

import json
import os
import subprocess
import sys
import tempfile

from prometheus_client.parser import text_string_to_metric_families


def fail(message):
    print("FAIL: " + message)
    sys.exit(1)


def run(program, args, work):
    env = dict(os.environ)
    env.pop("MODULE_STORAGE_MACHINE", None)
    done = subprocess.run([program] + args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=300, cwd=work,
                          env=env)
    return done.returncode, done.stdout.decode("utf-8", "replace"), done.stderr.decode("utf-8", "replace")


def families_of(path):
    with open(path, encoding="utf-8") as handle:
        text = handle.read()
    families = {}
    for family in text_string_to_metric_families(text):
        if family.name in families:
            fail("family %s appears twice" % family.name)
        families[family.name] = family
    for name, family in families.items():
        if family.type != "gauge":
            fail("%s is a %s, expected a gauge" % (name, family.type))
        if not family.documentation:
            fail("%s has no HELP text" % name)
        seen = set()
        for sample in family.samples:
            key = tuple(sorted(sample.labels.items()))
            if key in seen:
                fail("%s has two samples with the labels %s" % (name, sample.labels))
            seen.add(key)
    return families


def default_machine(program, work):
    path = os.path.join(work, "quick.prom")
    status, out, err = run(program, ["-Mstorage", "--machine", "default", "-Q", "--metrics", path, "--json"], work)
    if status != 1:
        fail("quick run ended with %d, expected 1: %s" % (status, err))
    document = json.loads(out)
    families = families_of(path)
    for name in ("hwc_storage_disk_info", "hwc_storage_test_result", "hwc_storage_test_passed",
                 "hwc_storage_disk_unreadable_sectors", "hwc_storage_disk_smart_healthy", "hwc_storage_run_exit_status"):
        if name not in families:
            fail("no family " + name)

    devices = document["devices"]
    results = document["results"]
    info = families["hwc_storage_disk_info"].samples
    if len(info) != len(devices):
        fail("%d disk_info samples for %d devices" % (len(info), len(devices)))
    # One result sample per disk and test that the session tried.
    tried = [r for r in results if r["outcome"] != "not-run"]
    samples = families["hwc_storage_test_result"].samples
    if len(samples) != len(tried):
        fail("%d test_result samples for %d results" % (len(samples), len(tried)))
    by_key = {(s.labels["disk"], s.labels["test"]): s for s in samples}
    for result in tried:
        sample = by_key.get((str(result["device"]), result["test"]))
        if sample is None:
            fail("no sample for disk %s test %s" % (result["device"], result["test"]))
        expected = result["result"] if result["outcome"] == "ran" else {"not-supported": 3, "error": 6}[result["outcome"]]
        if sample.value != expected:
            fail("disk %s test %s: sample %s, result %s" % (result["device"], result["test"], sample.value, expected))
        for label in ("model", "serial", "name"):
            if label not in sample.labels:
                fail("sample without a %s label: %s" % (label, sample.labels))

    disk0 = [s for s in families["hwc_storage_disk_unreadable_sectors"].samples if s.labels["disk"] == "0"]
    if len(disk0) != 1 or disk0[0].value < 1:
        fail("disk 0's unreadable sectors: %s" % disk0)
    if disk0[0].labels["model"] != "WDC WD10EZEX-08WN4A0" or disk0[0].labels["serial"] != "WD-WCC6Y3KL5627":
        fail("disk 0's labels: %s" % disk0[0].labels)
    status_sample = families["hwc_storage_run_exit_status"].samples
    if len(status_sample) != 1 or status_sample[0].value != 1:
        fail("exit status sample: %s" % status_sample)
    return len(samples)


def quoted_machine(program, work):
    machine = os.path.join(work, "quotes.json")
    model = 'ACME "Quote" Back\\slash'
    serial = 'SN\\1"2'
    with open(machine, "w") as handle:
        json.dump({"name": "quotes", "disks": [{"name": "q0", "kind": "ata", "profile": {
            "capacitySectors": 2000000, "model": model, "serial": serial, "firmware": "F1"}}]}, handle)
    path = os.path.join(work, "quotes.prom")
    status, _, err = run(program, ["-Mstorage", "--machine", machine, "-Qm", "--metrics", path], work)
    if status != 0:
        fail("quotes run ended with %d: %s" % (status, err))
    families = families_of(path)
    info = families["hwc_storage_disk_info"].samples
    if len(info) != 1 or info[0].labels["model"] != model or info[0].labels["serial"] != serial:
        fail("escaped labels did not read back: %s" % [s.labels for s in info])
    healthy = families["hwc_storage_disk_smart_healthy"].samples
    if len(healthy) != 1 or healthy[0].value != 1:
        fail("SMART health sample: %s" % healthy)


def main():
    if len(sys.argv) != 2:
        fail("usage: metrics_parse_test.py HWC_CLI")
    program = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory(prefix="hwc-metrics-") as work:
        count = default_machine(program, work)
        quoted_machine(program, work)
    print("metrics parsed: %d test samples on the built-in machine; quotes and backslashes read back" % count)


if __name__ == "__main__":
    main()
