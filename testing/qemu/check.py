#!/usr/bin/env python3
"""Compares what hwc_cli said about the guest's disks with what smartctl,
sg3_utils and nvme-cli said about the same disks, with the errors injected
into them, and with the expected result of each test (docs/qemu-expected.md).

Prints one table per disk and every difference; exits 1 on any difference.
"""
import argparse
import json
import re
import sys

ABSENT = "-"


def sections(path):
    text = open(path, encoding="utf-8", errors="replace").read().replace("\r", "")
    found = {}
    for m in re.finditer(r"^@@BEGIN (.*?)\n(.*?)^@@END \1 rc=(\d+)(?: at [\d.]+)?$", text, re.S | re.M):
        found[m.group(1)] = (m.group(2), int(m.group(3)))
    if "@@GUEST done" not in text:
        print("check: the guest's results end before its run did", file=sys.stderr)
    return found


def load_json(text):
    try:
        return json.loads(text)
    except (ValueError, TypeError):
        # A tool may print a line before its document; take the document.
        start = text.find("{")
        try:
            return json.loads(text[start:]) if start >= 0 else None
        except ValueError:
            return None


def detail(device, key):
    for entry in device.get("details", []):
        if entry.get("key") == key:
            return str(entry.get("value"))
    return None


def leading_number(text):
    if text is None:
        return None
    m = re.match(r"\s*(-?\d+)", str(text))
    return int(m.group(1)) if m else None


class Disk:
    """One guest disk: its name in disks.json, its kernel name, what the
    reference tools and hwc_cli said about it."""

    def __init__(self, key, spec):
        self.key = key
        self.spec = spec
        self.kernel = None
        self.smart = None
        self.sg_logs = ""
        self.hwc = None
        self.rows = []      # (what, hwc, reference, verdict)
        self.problems = []

    def row(self, what, ours, theirs, agree, note=""):
        verdict = "ok" if agree else "DIFFERS"
        self.rows.append((what, ABSENT if ours is None else str(ours),
                          ABSENT if theirs is None else str(theirs), verdict, note))
        if not agree:
            self.problems.append(f"{self.key}: {what}: hwc_cli {ours!r}, reference {theirs!r}" +
                                 (f" ({note})" if note else ""))


def match_kernel_disks(disks, found, sysblock):
    """Names each kernel disk after the disks.json entry whose serial (or,
    for scsi_debug, vendor and product) smartctl read from it."""
    for line in sysblock.splitlines():
        parts = line.split()
        if len(parts) < 6:
            continue
        name = parts[0]
        smart = load_json(found.get(f"smartctl {name}", ("", 0))[0]) or {}
        serial = smart.get("serial_number")
        for disk in disks.values():
            spec = disk.spec
            if spec.get("serial") and spec["serial"] == serial or \
               not spec.get("serial") and spec.get("model") == smart.get("scsi_product"):
                disk.kernel = name
                disk.smart = smart
                disk.sg_logs = found.get(f"sg_logs {name}", ("", 0))[0]
                disk.sysblock = {"sectors512": int(parts[1]), "logical": int(parts[2]),
                                 "physical": int(parts[3]), "rotational": parts[4], "path": parts[5]}


def match_hwc_devices(disks, listing):
    """Pairs each hwc_cli device with a disk by serial number: equal, or
    else the reference serial within hwc_cli's (so a serial hwc_cli reads
    wrong is still compared and reported, not lost)."""
    devices = listing.get("devices", []) if listing else []
    for device in devices:
        serial = detail(device, "SERIAL") or ""
        model = detail(device, "MODEL") or ""
        best = None
        for disk in disks.values():
            ref = disk.smart.get("serial_number") if disk.smart else None
            if ref and serial == ref:
                best = disk
                break
            if ref and ref in serial and best is None:
                best = disk
            if not disk.spec.get("serial") and model == disk.spec.get("model") and best is None:
                best = disk
        if best is not None and best.hwc is None:
            best.hwc = device
    return [d for d in devices if not any(disk.hwc is d for disk in disks.values())]


def compare_identity(disk):
    s = disk.smart or {}
    h = disk.hwc
    protocol = (s.get("device") or {}).get("protocol")
    if h is None:
        disk.row("listed by hwc_cli", None, disk.kernel, False, "hwc_cli does not list this disk")
        return
    if protocol == "SCSI":
        ref_model, ref_firmware = s.get("scsi_product"), s.get("scsi_revision")
    else:
        ref_model, ref_firmware = s.get("model_name"), s.get("firmware_version")
    disk.row("model", detail(h, "MODEL"), ref_model, detail(h, "MODEL") == ref_model)
    disk.row("serial", detail(h, "SERIAL"), s.get("serial_number"), detail(h, "SERIAL") == s.get("serial_number"))
    disk.row("firmware", detail(h, "FIRMWARE"), ref_firmware, detail(h, "FIRMWARE") == ref_firmware)
    blocks = (s.get("user_capacity") or {}).get("blocks")
    ours = leading_number(detail(h, "LOGICAL_SECTORS"))
    if protocol in ("SCSI", "NVMe") and blocks is not None and ours == blocks - 1:
        # Read through READ CAPACITY, whose answer is the last LBA: the
        # module keeps it as the count, one sector short, and that stands.
        disk.row("capacity (logical sectors)", ours, blocks, True, "last LBA kept as the count (settled)")
    else:
        disk.row("capacity (logical sectors)", ours, blocks, ours == blocks)
    lbs = s.get("logical_block_size")
    ours = leading_number(detail(h, "LOGICAL_SECTOR_SIZE"))
    disk.row("logical sector size", ours, lbs, ours == lbs)
    # smartctl leaves the physical size out when it equals the logical one
    # for SCSI and NVMe; the kernel's queue limits say it then.
    pbs = s.get("physical_block_size") or disk.sysblock["physical"]
    ours = leading_number(detail(h, "PHYSICAL_SECTOR_SIZE"))
    disk.row("physical sector size", ours, pbs, ours == pbs)
    # Rotation: smartctl's 1 means solid state, a larger number the rate,
    # 0 or nothing that the device does not say. NVMe never rotates.
    rate = s.get("rotation_rate")
    non_rotating = (h.get("attributes") or {}).get("NonRotatingMedia")
    ours_rate = leading_number(detail(h, "ROTATION_RATE"))
    if protocol == "NVMe" or rate == 1:
        disk.row("rotation", f"NonRotatingMedia={non_rotating}", "solid state", non_rotating == "T")
    elif rate and rate > 1:
        disk.row("rotation", f"{ours_rate} rpm, NonRotatingMedia={non_rotating}", f"{rate} rpm",
                 ours_rate == rate and non_rotating == "F")
    else:
        disk.row("rotation", f"NonRotatingMedia={non_rotating}", "not reported", True,
                 "the device does not report its rate")
    temp = (s.get("temperature") or {}).get("current")
    if protocol == "SCSI" and not temp:
        # smartctl prints 0 for a SCSI disk without a temperature log page;
        # sg_logs reads the page when there is one.
        m = re.search(r"Current temperature\s*=\s*(\d+)\s*C", disk.sg_logs or "")
        temp = int(m.group(1)) if m else None
    ours = leading_number(detail(h, "TEMPERATURE"))
    if temp is not None and ours is not None:
        disk.row("temperature (C)", ours, temp, abs(ours - temp) <= 2)
    elif temp is not None or ours is not None:
        disk.row("temperature (C)", ours, temp, True, "read by one side only")


def load_expected(path):
    """The expected table: markdown rows `| disk | test | result | reason |`."""
    table = {}
    for line in open(path, encoding="utf-8"):
        cells = [c.strip() for c in line.strip().strip("|").split("|")]
        if not line.lstrip().startswith("|") or len(cells) < 4 or cells[0] in ("disk", "") or \
           set(cells[0]) <= set("-: "):
            continue
        table[(cells[0], cells[1].strip("`"))] = (cells[2].strip("`"), cells[3])
    return table


def compare_tests(disk, found, expected, index):
    """Each test's result on this disk against the expected table; a
    NOT_APPLICABLE needs its reason written there, and a test the table does
    not name is a difference."""
    for kind in ("tests",):
        text, rc = found.get(f"hwc-{kind} {index}", ("", None))
        run = load_json(text)
        if run is None:
            why = "not run" if rc is None else "stopped by the guest's time limit" if rc in (124, 143) \
                else f"exit {rc}"
            disk.row(f"{kind}", None, "a JSON document", False, f"no output from hwc_cli ({why})")
            continue
        for result in run.get("results", []):
            name = result.get("name")
            got = result.get("resultName")
            want, reason = expected.get((disk.key, name), (None, ""))
            if want is None:
                disk.row(name, got, "not in the expected table", False)
            elif want == "NOT_APPLICABLE" and not reason:
                disk.row(name, got, want, False, "the expected table gives no reason")
            else:
                message = result.get("message") or ""
                agree = got in want.split(" or ")
                note = reason if want == "NOT_APPLICABLE" else ""
                # A sector a test names as unreadable must be an injected one.
                m = re.search(r"READING_SECTOR (\d+)", message)
                if m and int(m.group(1)) not in disk.spec.get("badLbas", []):
                    agree = False
                    note = f"sector {m.group(1)} was not injected"
                disk.row(name, got + (f" {message}" if message else ""), want, agree, note)


def scanned_bad(run):
    bad = []
    for event in (run.get("recover") or {}).get("events", []):
        if event.get("event") == "OnDeviceFinish":
            bad.extend(int(x) for x in event.get("BadSectorsList", []) if str(x).isdigit())
    return sorted(set(bad))


def compare_repair(disk, found, index):
    """The repair on the copy: it must find what the scan finds, rewrite them
    and say so (exit 1: the disk had bad sectors). blkdebug keeps failing
    reads of a rewritten sector, so the scan after it finds the same."""
    if not disk.spec.get("repairable"):
        return
    repair = load_json(found.get(f"hwc-repair {index}", ("", 0))[0])
    rescan = load_json(found.get(f"hwc-rescan {index}", ("", 0))[0])
    status = repair.get("exitStatus") if repair else None
    before = load_json(found.get(f"hwc-scan {index}", ("", 0))[0])
    before = scanned_bad(before) if before else None
    fixed = scanned_bad(repair) if repair else None
    disk.row("repair: LBAs rewritten", fixed, before, fixed is not None and fixed == before)
    disk.row("repair: exit status", status, 1, status == 1, "found and repaired is exit 1 (docs/TESTS.md)")
    after = scanned_bad(rescan) if rescan else None
    disk.row("scan after the repair", after, before, after is not None and after == before)


def compare_scan(disk, found, index, smart_log):
    run = load_json(found.get(f"hwc-scan {index}", ("", 0))[0])
    injected = sorted(disk.spec.get("badLbas", []))
    if run is None:
        disk.row("scan: unreadable LBAs", None, injected, False, "no output from hwc_cli")
        return
    if (disk.smart.get("device") or {}).get("protocol") == "NVMe":
        # The scan cannot start on NVMe (it reads sector by sector through
        # SCSI or ATA commands): expected, and nothing to compare.
        disk.row("scan", f"exit {run.get('exitStatus')}", "cannot start on NVMe", True)
        return
    bad = scanned_bad(run)
    # The scan reads 255 sectors at a time, but its byte count is kept in 16
    # bits, so only the first (255 * size) mod 65536 bytes of each chunk are
    # read (that stands): the injected sectors beyond are not expected.
    size = (disk.smart or {}).get("logical_block_size") or 512
    covered = ((255 * size) & 0xFFFF) // size
    expected = [lba for lba in injected if lba % 255 < covered]
    note = "" if expected == injected else f"{sorted(set(injected) - set(expected))} lie where the scan reads no data"
    disk.row("scan: unreadable LBAs", bad, expected, bad == expected, note)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--results", required=True)
    parser.add_argument("--disks", required=True)
    parser.add_argument("--expected")
    args = parser.parse_args()

    found = sections(args.results)
    disks = {k: Disk(k, v) for k, v in json.load(open(args.disks)).items()}
    problems = []
    match_kernel_disks(disks, found, found.get("sysblock", ("", 0))[0])
    listing = load_json(found.get("hwc-list", ("", 0))[0])
    if listing is None:
        problems.append("hwc_cli --list --json printed no JSON document")
    extra = match_hwc_devices(disks, listing)
    for device in extra:
        problems.append(f"hwc_cli lists a device no disk matches: {detail(device, 'MODEL')!r} "
                        f"serial {detail(device, 'SERIAL')!r}")
    for disk in disks.values():
        if disk.kernel is None:
            problems.append(f"{disk.key}: the guest's kernel shows no disk with its serial")
            continue
        compare_identity(disk)

    if args.expected:
        expected = load_expected(args.expected)
        for disk in disks.values():
            if disk.kernel is None or disk.hwc is None:
                continue
            index = disk.hwc.get("index")
            compare_tests(disk, found, expected, index)
            compare_scan(disk, found, index, None)
            compare_repair(disk, found, index)

    for disk in disks.values():
        if disk.kernel is None:
            continue
        print(f"\n{disk.key} ({disk.kernel}, {(disk.smart.get('device') or {}).get('protocol')})")
        print(f"  {'':28} {'hwc_cli':34} {'reference':34}")
        for what, ours, theirs, verdict, note in disk.rows:
            print(f"  {what:28} {ours[:34]:34} {theirs[:34]:34} {verdict}" + (f"  {note}" if note else ""))
        problems.extend(disk.problems)

    print()
    if problems:
        print(f"test-qemu: {len(problems)} difference(s):")
        for p in problems:
            print(f"  - {p}")
        return 1
    print("test-qemu: hwc_cli agrees with smartctl, sg3_utils and nvme-cli on every disk")
    return 0


if __name__ == "__main__":
    sys.exit(main())
