#!/usr/bin/env python3
"""Compares what hwc_cli said about the guest's disks with what smartctl,
sg3_utils and nvme-cli said about the same disks, with the errors injected
into them, and with the expected result of each test (docs/qemu-expected.md).

Prints one table per disk and every difference; exits 1 on any difference.
"""
import argparse
import json
import os
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

    def __init__(self, key, made):
        self.key = key
        self.made = made  # how run.sh made it (disks.json): identity, injected bad LBAs, the repair expected
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
            made = disk.made
            if made.get("serial") and made["serial"] == serial or \
               not made.get("serial") and made.get("model") == smart.get("scsi_product"):
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
            if not disk.made.get("serial") and model == disk.made.get("model") and best is None:
                best = disk
        if best is not None and best.hwc is None:
            best.hwc = device
    return [d for d in devices if not any(disk.hwc is d for disk in disks.values())]


def grouped(digits):
    """Hex digits in groups of four joined by '_', closed by '.'."""
    return "_".join(digits[i:i + 4] for i in range(0, len(digits), 4)) + "."


def nvme_as_translated(disk, found):
    """What the module reads of an NVMe namespace through Windows' SCSI
    translation, made from nvme-cli's Identify Controller and Identify
    Namespace: INQUIRY's product (16 bytes) and revision (4 bytes) cut from
    the model and firmware fields, and the unit serial number page's serial:
    the NGUID or else the EUI64 in groups of four hex digits, or, without
    either, the serial number, '_', the namespace id in eight hex digits and
    '.'. Returns (model, serial, firmware, how), or None without nvme-cli's
    answers."""
    ctrl = load_json(found.get(f"nvme-id-ctrl {disk.kernel}", ("", 0))[0])
    ns = load_json(found.get(f"nvme-id-ns {disk.kernel}", ("", 0))[0])
    m = re.search(r"n(\d+)$", disk.kernel or "")
    if not ctrl or not ns or not m:
        return None
    nguid = str(ns.get("nguid", "")).upper()
    eui64 = str(ns.get("eui64", "")).upper()
    if nguid.strip("0"):
        serial, how = grouped(nguid), f"NGUID {nguid}"
    elif eui64.strip("0"):
        serial, how = grouped(eui64), f"EUI64 {eui64}"
    else:
        serial, how = f"{ctrl['sn'].strip()}_{int(m.group(1)):08X}.", f"sn {ctrl['sn'].strip()!r}, no EUI64 or NGUID"
    return ctrl["mn"][:16].strip(), serial, ctrl["fr"][:4], how + f", fr {ctrl['fr'].strip()!r}"


def compare_identity(disk, found):
    s = disk.smart or {}
    h = disk.hwc
    protocol = (s.get("device") or {}).get("protocol")
    if h is None:
        disk.row("listed by hwc_cli", None, disk.kernel, False, "hwc_cli does not list this disk")
        return
    ref_serial, serial_note, firmware_note = s.get("serial_number"), "", ""
    if protocol == "SCSI":
        ref_model, ref_firmware = s.get("scsi_product"), s.get("scsi_revision")
    else:
        ref_model, ref_firmware = s.get("model_name"), s.get("firmware_version")
    if protocol == "NVMe":
        # The module reads an NVMe disk through the SCSI translation only:
        # compare with what the translation makes of nvme-cli's Identify data.
        translated = nvme_as_translated(disk, found)
        if translated is None:
            disk.row("NVMe identity", None, "nvme id-ctrl and id-ns", False, "nvme-cli gave no answer")
        else:
            ref_model, ref_serial, ref_firmware, how = translated
            serial_note = f"translated: {how}"
            firmware_note = "INQUIRY's four bytes of the firmware revision"
    disk.row("model", detail(h, "MODEL"), ref_model, detail(h, "MODEL") == ref_model)
    disk.row("serial", detail(h, "SERIAL"), ref_serial, detail(h, "SERIAL") == ref_serial, serial_note)
    disk.row("firmware", detail(h, "FIRMWARE"), ref_firmware, detail(h, "FIRMWARE") == ref_firmware, firmware_note)
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


def compare_health(disk, found, expected, index):
    """The SMART verdict: the module's SMART status test against smartctl's
    overall health. A test that gives no verdict (NOT_APPLICABLE, for the
    reason the expected table states) contradicts nothing; a verdict must be
    smartctl's."""
    run = load_json(found.get(f"hwc-tests {index}", ("", None))[0]) or {}
    result = next((r for r in run.get("results", []) if r.get("name") == "SMART_STATUS_TEST"), None)
    passed = ((disk.smart or {}).get("smart_status") or {}).get("passed")
    theirs = ABSENT if passed is None else "PASSED" if passed else "FAILED"
    supported = ((disk.smart or {}).get("smart_support") or {}).get("available")
    if supported is not None:
        theirs += f" (SMART {'available' if supported else 'not available'})"
    if result is None:
        disk.row("SMART health", None, theirs, False, "no SMART status test in hwc_cli's run")
        return
    got = result.get("resultName")
    if got == "SUCCESS":
        disk.row("SMART health", "PASSED", theirs, passed is True)
    elif got == "FAILED":
        disk.row("SMART health", "FAILED", theirs, passed is False)
    else:
        want, reason = expected.get((disk.key, "SMART_STATUS_TEST"), (None, ""))
        ok = want == got and bool(reason)
        disk.row("SMART health", f"no verdict ({got})", theirs, ok,
                 "see SMART_STATUS_TEST below" if ok else "the expected table gives no reason for it")
        sent = found.get(f"module-mode-sense {disk.kernel}")
        if supported and sent is not None:
            # smartctl finds SMART on this SCSI disk: the module may find none
            # only because the disk answers its MODE SENSE (allocation length
            # 0, as the module sends it) with no data.
            empty = "no data received" in sent[0].lower()
            disk.row("module's MODE SENSE 1Ch", "no data" if empty else "data", "no data", empty,
                     "allocation length 0: SMART is not found" if empty else "")


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
                if m and int(m.group(1)) not in disk.made.get("badLbas", []):
                    agree = False
                    note = f"sector {m.group(1)} was not injected"
                disk.row(name, got + (f" {message}" if message else ""), want, agree, note)


def scanned_bad(run):
    bad = []
    for event in (run.get("recover") or {}).get("events", []):
        if event.get("event") == "OnDeviceFinish":
            bad.extend(int(x) for x in event.get("BadSectorsList", []) if str(x).isdigit())
    return sorted(set(bad))


def compare_repair(disk, found, index, images):
    """The repair on the copy of the disk with medium errors. The tool
    repairs internal ATA disks only (its filterDevices offers no other), and
    the copy is a SCSI disk: QEMU's AHCI disks answer injected errors with
    ABRT, which the ATA protocol does not take for a medium error, so no disk
    here could show a rewrite. What the run can show: hwc_cli refuses the
    copy with exit 2 and the reason, nothing is rewritten, the scan after it
    finds what the scan before it found, and the image holds no byte written
    by anyone (it was created empty)."""
    if disk.made.get("repair") != "refused":
        return
    text, rc = found.get(f"hwc-repair {index}", ("", None))
    repair = load_json(text)
    rescan = load_json(found.get(f"hwc-rescan {index}", ("", 0))[0])
    before = load_json(found.get(f"hwc-scan {index}", ("", 0))[0])
    before = scanned_bad(before) if before else None
    refused = "the tool repairs internal ATA disks only" in (text or "")
    disk.row("repair: refused", f"exit {rc}" + (", internal ATA disks only" if refused else ""),
             "exit 2, internal ATA disks only", rc == 2 and refused)
    fixed = scanned_bad(repair) if repair else []
    disk.row("repair: LBAs rewritten", fixed, [], fixed == [])
    after = scanned_bad(rescan) if rescan else None
    disk.row("scan after the repair", after, before, after is not None and after == before)
    image = f"{images}/{disk.key}.img"
    try:
        with open(image, "rb") as f:
            written = any(chunk.strip(b"\0") for chunk in iter(lambda: f.read(1 << 20), b""))
    except OSError as error:
        disk.row("image after the run", None, "all zeros", False, str(error))
        return
    disk.row("image after the run", "written" if written else "all zeros", "all zeros", not written)


def compare_scan(disk, found, index, smart_log):
    run = load_json(found.get(f"hwc-scan {index}", ("", 0))[0])
    injected = sorted(disk.made.get("badLbas", []))
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
        compare_identity(disk, found)

    if args.expected:
        expected = load_expected(args.expected)
        for disk in disks.values():
            if disk.kernel is None or disk.hwc is None:
                continue
            index = disk.hwc.get("index")
            compare_health(disk, found, expected, index)
            compare_tests(disk, found, expected, index)
            compare_scan(disk, found, index, None)
            compare_repair(disk, found, index, os.path.dirname(os.path.abspath(args.disks)))

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
