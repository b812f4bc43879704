#!/usr/bin/env python3
"""The fidelity run: unmodified smartctl, sg3_utils and sdparm read every disk
of a simulated machine through the SG_IO preload library, and what they decode
is compared with the disk's profile in the machine description.

A disk server (simdisk_server) holds the machine; each tool runs with
LD_PRELOAD=libsimdisk_preload.so and finds /dev/sim-NAME for every disk. The
run fails on a tool's non-zero exit (smartctl: on any exit bit the profile
does not call for), on any complaint in its output (a checksum, a failed or
unsupported command, a malformed or truncated page, an unknown value) and on
any value that differs from the profile. After the healthy pass, three
scenarios change the machine while it runs: SMART attributes falling to their
thresholds, a short self test that stops at an unreadable sector, and an NVMe
critical warning.

  check_tools.py --build BUILD_DIR [--machine default] [--keep OUT_DIR]
"""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

# Words that, in any tool's output, mean the tool found something wrong with
# what the disk answered.
COMPLAINTS = re.compile(
    r"checksum|failed|not (supported|implemented)|invalid|malformed|truncat|bad |unexpected|"
    r"unknown|warning|not found|no response|short response|mismatch|error reading|garbage",
    re.IGNORECASE)
# Phrases that contain one of those words but report the disk's own state,
# which the checks below compare with the profile instead.
EXPECTED_PHRASES = re.compile(
    r"another segment in self test failed|self-test failed|Unknown_Attribute|Unknown_SSD_Attribute|"
    r"FAILED!|Completed: read failure|No Errors Logged|prefailure warning|"
    r"SCT Error Recovery Control command not supported|"
    r"read element of the test failed|Command failed due to ICRC error|Temperature Warning: +Enabled",
    re.IGNORECASE)

FORM_FACTORS = {0: "not reported", 1: "5.25 inch", 2: "3.5 inch", 3: "2.5 inch", 4: "1.8 inch",
                5: "less than 1.8 inch"}
SATA_REVISIONS = {"2.5": "SATA 2.5", "2.6": "SATA 2.6", "3.0": "SATA 3.0", "3.1": "SATA 3.1",
                  "3.2": "SATA 3.2", "3.3": "SATA 3.3", "3.4": "SATA 3.4", "3.5": "SATA 3.5"}
SATA_SPEEDS = {1: "1.5 Gb/s", 2: "3.0 Gb/s", 3: "6.0 Gb/s"}


class Failures:
    def __init__(self):
        self.items = []

    def add(self, disk, tool, text):
        self.items.append(f"{disk}: {tool}: {text}")

    def expect(self, disk, tool, what, got, want):
        if got != want:
            self.add(disk, tool, f"{what} is {got!r}, the profile says {want!r}")


class Server:
    """One disk server for one scenario."""

    def __init__(self, build, machine, workdir):
        self.binary = os.path.join(build, "fidelity", "simdisk_server")
        self.socket = os.path.join(workdir, "simdisk.sock")
        if os.path.exists(self.socket):
            os.unlink(self.socket)
        self.process = subprocess.Popen([self.binary, "--socket", self.socket, "--machine", machine])
        for _ in range(200):
            if os.path.exists(self.socket):
                break
            if self.process.poll() is not None:
                raise RuntimeError(f"simdisk_server ended with {self.process.returncode}")
            time.sleep(0.05)
        else:
            raise RuntimeError("simdisk_server did not open its socket")

    def control(self, line):
        r = subprocess.run([self.binary, "--socket", self.socket, "--control", line],
                           capture_output=True, text=True, check=False)
        if r.returncode != 0:
            raise RuntimeError(f"control '{line}': {r.stdout.strip()} {r.stderr.strip()}")
        return r.stdout

    def stop(self):
        try:
            self.control("quit")
        except RuntimeError:
            pass
        try:
            self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


class Runner:
    def __init__(self, build, server, out_dir, failures, table):
        self.env = dict(os.environ)
        self.env["LD_PRELOAD"] = os.path.join(build, "fidelity", "libsimdisk_preload.so")
        self.env["SIMDISK_SOCKET"] = server.socket
        self.env["LC_ALL"] = "C"
        self.out_dir = out_dir
        self.failures = failures
        self.table = table

    def run(self, disk, argv, scenario="healthy"):
        r = subprocess.run(argv, capture_output=True, text=True, env=self.env, check=False, timeout=120)
        name = "_".join(a.strip("-").replace("/", "").replace(",", "") for a in argv[:-1] if a)
        base = os.path.join(self.out_dir, f"{scenario}.{disk}.{name}")
        with open(base + ".out", "w") as f:
            f.write(r.stdout)
        with open(base + ".err", "w") as f:
            f.write(r.stderr)
        self.table.append((scenario, disk, " ".join(argv[:-1]), r.returncode))
        return r


def disk_path(disk):
    return "/dev/sim-" + disk["name"]


def path_kind(disk):
    """How the disk's SCSI face is reached: the port's SCSI/ATA translation,
    a SAT USB bridge, a JMicron USB bridge, a SCSI drive, the NVMe
    translation; None when the disk has no SCSI face (eMMC)."""
    kind = disk["kind"]
    if kind == "ata":
        if disk.get("bus") == "usb":
            return "jmicron" if disk["bridge"]["type"] == "jmicron" else "sat-bridge"
        return "satl"
    if kind == "scsi":
        return "scsi"
    if kind == "nvme":
        return "nvme"
    return None


def smartctl_type(kind):
    return {"satl": "sat", "sat-bridge": "sat", "jmicron": "usbjmicron,x", "scsi": "scsi", "nvme": "scsi"}[kind]


def smartctl_options(kind):
    # The NVMe translation keeps no error-counter, self-test or background-scan
    # pages, and smartctl's -x counts their absence as a failed optional
    # command; health, identity and temperature are what it serves.
    if kind == "nvme":
        return ["-H", "-i", "-A"]
    # Through a JMicron chip smartctl reads no ATA registers but the SMART
    # verdict, so it refuses the SCT error recovery and write-cache
    # reordering queries (whose answers come in registers) before sending
    # them; everything else of -x is asked.
    if kind == "jmicron":
        return ["-H", "-i", "-g", "all", "-c", "-A", "-f", "brief", "-l", "xerror,error", "-l", "xselftest,selftest",
                "-l", "selective", "-l", "directory", "-l", "scttemp", "-l", "devstat", "-l", "defects",
                "-l", "sataphy"]
    return ["-x"]


def scan_complaints(failures, disk, tool, text):
    for line in text.splitlines():
        if COMPLAINTS.search(line) and not EXPECTED_PHRASES.search(line):
            failures.add(disk, tool, f"complains: {line.strip()}")


# --- What the profile says the tools should decode --------------------------

def ata_serial_strings(profile):
    return profile.get("model", "SIM ATA DISK"), profile.get("serial", "SIM0000000000001"), \
        profile.get("firmware", "1.0")


def scsi_identity(disk, kind):
    p = disk["profile"]
    if kind == "satl":
        model, _, firmware = ata_serial_strings(p)
        return "ATA", model[:16], firmware[-4:] if len(firmware) > 4 else firmware
    if kind in ("sat-bridge", "jmicron"):
        b = disk["bridge"]
        return b.get("vendor", "USB") or "USB", b.get("product", ""), b.get("revision", "")
    if kind == "nvme":
        return "NVMe", p.get("model", "SIM NVMe SSD")[:16], p.get("firmware", "1.0")[:4]
    return p.get("vendor", "SIM"), p.get("product", "SCSI DISK"), p.get("revision", "0001")


def unit_serial(disk, kind):
    p = disk["profile"]
    if kind == "satl":
        return p.get("serial", "SIM0000000000001")
    if kind in ("sat-bridge", "jmicron"):
        return disk["bridge"].get("serial") or p.get("serial", "SIM0000000000001")
    if kind == "nvme":
        eui = int(p["eui64"], 16) if "eui64" in p else 0x0025385A71B00001
        return "%04X_%04X_%04X_%04X." % (eui >> 48 & 0xFFFF, eui >> 32 & 0xFFFF, eui >> 16 & 0xFFFF, eui & 0xFFFF)
    return p.get("serial", "SIMSCSI0001")


def identifier(value, default):
    if value is None:
        return default
    return int(value, 16) if isinstance(value, str) else int(value)


def wwn_of(disk, kind):
    p = disk["profile"]
    if kind == "nvme":
        return identifier(p.get("eui64"), 0x0025385A71B00001)
    if kind == "scsi":
        return identifier(p.get("wwn"), 0x5000C50000000001)
    return identifier(p.get("wwn"), 0)


def temperatures(disk, kind):
    """(current, reference) in Celsius as the SCSI pages give them."""
    p = disk["profile"]
    if kind == "nvme":
        h = p.get("health", {})
        return h.get("compositeTemperatureKelvin", 308) - 273, p.get("warningTemperatureKelvin", 358) - 273
    if kind == "scsi":
        return p.get("temperatureCelsius", 38), p.get("referenceTemperatureCelsius", 65)
    return p.get("temperatureCelsius", 35), p.get("sct", {}).get("maxOperatingCelsius", 60)


def rotation_text(rate):
    return "Non-rotating medium" if rate == 1 else f"Nominal rotation rate: {rate} rpm"


def form_factor(disk, kind):
    if kind == "nvme":
        return 0
    return disk["profile"].get("formFactor", 3 if kind == "scsi" else 0)


def physical_exponent(disk, kind):
    return 0 if kind == "nvme" else disk["profile"].get("physicalSectorExponent", 0)


def rotation_rate(disk, kind):
    if kind == "nvme":
        return 1
    return disk["profile"].get("rotationRate", 10000 if kind == "scsi" else 7200)


def first(pattern, text):
    m = re.search(pattern, text)
    return m.group(1).strip() if m else None


def ata_attribute_raw(profile, attribute):
    raw = attribute.get("raw", 0)
    if attribute["id"] in (190, 194):
        raw = (raw & ~0xFF) | (profile.get("temperatureCelsius", 35) & 0xFF)
    return raw


def expected_smartctl_bits(disk, kind):
    """smartctl's exit bits that the profile itself calls for."""
    if kind in ("scsi", "nvme"):
        return 0
    smart = disk["profile"].get("smart", {})
    bits = 0
    for a in smart.get("attributes", []):
        t = a.get("threshold", 0)
        if t and a.get("value", 100) <= t:
            bits |= 0x10
        elif t and a.get("worst", a.get("value", 100)) <= t:
            bits |= 0x20
    if smart.get("errorLog") or smart.get("errorCount", 0):
        bits |= 0x40
    newest = {}
    for e in smart.get("selfTestLog", []):
        newest[e.get("subcommand", 1)] = e.get("status", 0) >> 4
    if any(3 <= r <= 8 for r in newest.values()):
        bits |= 0x80
    return bits


# --- Checks ---------------------------------------------------------------

def check_sg_tools(run, failures, disk, kind):
    path = disk_path(disk)
    name = disk["name"]
    p = disk["profile"]
    sectors = p["capacitySectors"]

    r = run.run(name, ["sg_inq", path])
    vendor, product, revision = scsi_identity(disk, kind)
    check_exit(failures, name, "sg_inq", r)
    failures.expect(name, "sg_inq", "vendor", first(r"Vendor identification: (.*)", r.stdout), vendor)
    failures.expect(name, "sg_inq", "product", first(r"Product identification: (.*)", r.stdout), product.strip())
    failures.expect(name, "sg_inq", "revision", first(r"Product revision level: (.*)", r.stdout), revision)

    r = run.run(name, ["sg_vpd", "-a", path])
    check_exit(failures, name, "sg_vpd -a", r)
    failures.expect(name, "sg_vpd -a", "unit serial number", first(r"Unit serial number: (.*)", r.stdout),
                    unit_serial(disk, kind))
    rotation = first(r"\n\s*(Non-rotating medium|Nominal rotation rate: .*)", r.stdout)
    failures.expect(name, "sg_vpd -a", "rotation rate", rotation, rotation_text(rotation_rate(disk, kind)))
    factor = first(r"Nominal form factor(?::| ) *(.*)", r.stdout)
    failures.expect(name, "sg_vpd -a", "form factor", factor, FORM_FACTORS.get(form_factor(disk, kind)))
    wwn = wwn_of(disk, kind)
    if wwn and ("0x%016x" % wwn) not in r.stdout.lower():
        failures.add(name, "sg_vpd -a", "device identification lacks the world wide name 0x%016x" % wwn)
    if kind in ("satl", "sat-bridge"):
        model, serial, firmware = ata_serial_strings(p)
        failures.expect(name, "sg_vpd -a", "ATA model", first(r"model: (.*)", r.stdout), model)
        failures.expect(name, "sg_vpd -a", "ATA serial", first(r"\n\s+serial number: (.*)", r.stdout), serial)
        failures.expect(name, "sg_vpd -a", "ATA firmware", first(r"firmware revision: (.*)", r.stdout), firmware)
        want_sat = ("MSFT", "SCSI-ATA XLATION", "10.0") if kind == "satl" else (vendor, product, revision)
        failures.expect(name, "sg_vpd -a", "SAT vendor", first(r"SAT Vendor identification: (.*)", r.stdout),
                        want_sat[0])
        failures.expect(name, "sg_vpd -a", "SAT product", first(r"SAT Product identification: (.*)", r.stdout),
                        want_sat[1])

    r = run.run(name, ["sdparm", "-i", path])
    check_exit(failures, name, "sdparm -i", r)
    if wwn and ("0x%016x" % wwn) not in r.stdout.lower():
        failures.add(name, "sdparm -i", "device identification lacks the world wide name 0x%016x" % wwn)

    r = run.run(name, ["sg_readcap", "-l", path])
    check_exit(failures, name, "sg_readcap -l", r)
    failures.expect(name, "sg_readcap -l", "last LBA", first(r"Last LBA=(\d+)", r.stdout), str(sectors - 1))
    failures.expect(name, "sg_readcap -l", "block length", first(r"Logical block length=(\d+)", r.stdout),
                    str(p.get("logicalSectorSize", 512)))
    failures.expect(name, "sg_readcap -l", "physical exponent",
                    first(r"Logical blocks per physical block exponent=(\d+)", r.stdout),
                    str(physical_exponent(disk, kind)))

    for argv, longlba in ((["sg_modes", "-a", path], False), (["sg_modes", "-a", "-L", path], True)):
        tool = " ".join(argv[:-1])
        r = run.run(name, argv)
        check_exit(failures, name, tool, r)
        m = re.search(r"block descriptors:\n(?:.*\n)?\s*00\s+((?:[0-9a-f]{2} ?)+)", r.stdout)
        if not m:
            failures.add(name, tool, "no block descriptor decoded")
            continue
        raw = bytes.fromhex(m.group(1).replace(" ", ""))
        if longlba:
            if len(raw) >= 8:
                failures.expect(name, tool, "blocks (long descriptor)", int.from_bytes(raw[:8], "big"), sectors)
            failures.expect(name, tool, "LONGLBA", first(r"longlba=(\d)", r.stdout), "1")
        else:
            failures.expect(name, tool, "blocks (short descriptor)", int.from_bytes(raw[:4], "big"),
                            min(sectors, 0xFFFFFFFF))

    r = run.run(name, ["sg_logs", "-a", path])
    check_exit(failures, name, "sg_logs -a", r)
    current, reference = temperatures(disk, kind)
    failures.expect(name, "sg_logs -a", "temperature", first(r"Current temperature = (\d+) C", r.stdout),
                    str(current))
    failures.expect(name, "sg_logs -a", "reference temperature",
                    first(r"Reference temperature = (\d+) C", r.stdout), str(reference))
    failures.expect(name, "sg_logs -a", "IE threshold temperature",
                    first(r"Threshold temperature = (\d+) C", r.stdout), str(reference))
    failures.expect(name, "sg_logs -a", "IE additional sense", first(r"IE asc = (\S+ ascq = \S+)", r.stdout),
                    "0x0, ascq = 0x0")
    if kind == "scsi":
        check_scsi_logs(failures, name, r.stdout, p)
    if kind in ("satl", "sat-bridge", "jmicron"):
        hours = [int(h) for h in re.findall(r"accumulated power-on hours = (\d+)", r.stdout)]
        want = [e.get("hours", 0) for e in reversed(p.get("smart", {}).get("selfTestLog", []))]
        failures.expect(name, "sg_logs -a", "self-test hours", hours[:len(want)], want)

    r = run.run(name, ["sg_requests", path])
    # sg_requests writes its decoding of the sense data to stderr.
    if r.returncode != 0 or "No Sense" not in r.stderr:
        failures.add(name, "sg_requests", f"exit {r.returncode}, {r.stderr.strip()!r}")
    scan_complaints(failures, name, "sg_requests", r.stdout)

    r = run.run(name, ["sg_luns", path])
    check_exit(failures, name, "sg_luns", r)
    if "Lun list length = 8" not in r.stdout or "0000000000000000" not in r.stdout:
        failures.add(name, "sg_luns", "the one logical unit 0 is not reported")

    pages = {"rw": "AWRE", "ca": "WCE", "co": "ESTCT", "ie": "MRIE"}
    # A translation keeps no saved values (its pages are not saveable, and
    # SPC's answer to asking for them is SAVING PARAMETERS NOT SUPPORTED): ask
    # it for current, changeable and default values only.
    mask = ["-o", "7"] if kind in ("satl", "sat-bridge", "jmicron") else []
    for page, field in pages.items():
        tool = f"sdparm -a {' '.join(mask)} -p {page}".replace("  ", " ")
        r = run.run(name, ["sdparm", "-a", *mask, "-p", page, path])
        check_exit(failures, name, tool, r)
        value = first(rf"\n\s*{field}\s+(\d+)", r.stdout)
        if page == "ca":
            want = "1" if p.get("writeCacheEnabled", True) else "0"
        elif page == "co":
            if kind == "scsi":
                want = str(min(p.get("selfTest", {}).get("extendedSeconds", 3600), 0xFFFF))
            elif kind == "nvme":
                want = "0"
            else:
                want = str(min(p.get("smart", {}).get("extendedTestMinutes", 120) * 60, 0xFFFF))
        elif page == "ie":
            want = str(p.get("mrie", 6))
        else:
            want = "1"
        failures.expect(name, tool, field, value, want)


def check_scsi_logs(failures, name, text, p):
    counters = p.get("errorCounters", {})
    found = [int(v) for v in re.findall(r"Total bytes processed = (\d+)", text)]
    want = [counters.get(k, {}).get("bytesProcessed", 0) for k in ("write", "read", "verify")]
    failures.expect(name, "sg_logs -a", "bytes processed (write, read, verify)", found, want)
    failures.expect(name, "sg_logs -a", "non-medium errors", first(r"Non-medium error count = (\d+)", text),
                    str(counters.get("nonMedium", 0)))
    scan = p.get("backgroundScan", {})
    failures.expect(name, "sg_logs -a", "background scans",
                    first(r"Number of background scans performed: (\d+)", text), str(scan.get("scansPerformed", 0)))
    hours = [int(h) for h in re.findall(r"accumulated power-on hours = (\d+)", text)]
    want = [e.get("hours", 0) for e in reversed(p.get("selfTest", {}).get("log", []))]
    failures.expect(name, "sg_logs -a", "self-test hours", hours[:len(want)], want)


def check_exit(failures, disk, tool, r):
    if r.returncode != 0:
        failures.add(disk, tool, f"exit status {r.returncode}")
    if r.stderr.strip():
        failures.add(disk, tool, f"stderr: {r.stderr.strip().splitlines()[0]}")
    scan_complaints(failures, disk, tool, r.stdout)


def check_smartctl(run, failures, disk, kind):
    name = disk["name"]
    path = disk_path(disk)
    argv = ["smartctl", *smartctl_options(kind), "-d", smartctl_type(kind), path]
    tool = " ".join(argv[:-1])
    r = run.run(name, argv)
    want_bits = expected_smartctl_bits(disk, kind)
    failures.expect(name, tool, "exit status", r.returncode, want_bits)
    scan_complaints(failures, name, tool, r.stdout + r.stderr)
    j = run.run(name, ["smartctl", "-j", *argv[1:]])
    try:
        data = json.loads(j.stdout)
    except json.JSONDecodeError as e:
        failures.add(name, tool + " -j", f"output is not JSON: {e}")
        return
    p = disk["profile"]
    failures.expect(name, tool, "SMART status passed", data.get("smart_status", {}).get("passed"), True)
    failures.expect(name, tool, "blocks", data.get("user_capacity", {}).get("blocks"), p["capacitySectors"])
    if kind in ("scsi", "nvme"):
        vendor, product, revision = scsi_identity(disk, kind)
        failures.expect(name, tool, "vendor", data.get("scsi_vendor"), vendor)
        failures.expect(name, tool, "product", data.get("scsi_product"), product.strip())
        failures.expect(name, tool, "serial", data.get("serial_number"), unit_serial(disk, kind))
        current, reference = temperatures(disk, kind)
        failures.expect(name, tool, "temperature", data.get("temperature", {}).get("current"), current)
        failures.expect(name, tool, "trip temperature", data.get("temperature", {}).get("drive_trip"), reference)
        if kind == "scsi":
            failures.expect(name, tool, "form factor", data.get("form_factor", {}).get("scsi_value"),
                            form_factor(disk, kind))
            failures.expect(name, tool, "extended self-test seconds", data.get("scsi_extended_self_test_seconds"),
                            p.get("selfTest", {}).get("extendedSeconds", 3600))
            read = data.get("scsi_error_counter_log", {}).get("read", {})
            failures.expect(name, tool, "read errors corrected", read.get("total_errors_corrected"),
                            p.get("errorCounters", {}).get("read", {}).get("corrected", 0))
            failures.expect(name, tool, "power-on hours", data.get("power_on_time", {}).get("hours"),
                            p.get("powerOnHours", 20000))
        return
    model, serial, firmware = ata_serial_strings(p)
    failures.expect(name, tool, "model", data.get("model_name"), model)
    failures.expect(name, tool, "serial", data.get("serial_number"), serial)
    failures.expect(name, tool, "firmware", data.get("firmware_version"), firmware)
    rate = p.get("rotationRate", 7200)
    failures.expect(name, tool, "rotation rate", data.get("rotation_rate"), 0 if rate == 1 else rate)
    failures.expect(name, tool, "physical block size", data.get("physical_block_size"),
                    512 << p.get("physicalSectorExponent", 0))
    failures.expect(name, tool, "form factor", data.get("form_factor", {}).get("ata_value"), form_factor(disk, kind))
    wwn = data.get("wwn", {})
    got_wwn = (wwn.get("naa", 0) << 60) | (wwn.get("oui", 0) << 36) | wwn.get("id", 0) if wwn else 0
    failures.expect(name, tool, "world wide name", "0x%016x" % got_wwn, "0x%016x" % wwn_of(disk, kind))
    failures.expect(name, tool, "SATA version", data.get("sata_version", {}).get("string"),
                    SATA_REVISIONS[p.get("sataRevision", "3.2")])
    failures.expect(name, tool, "SATA speed", data.get("interface_speed", {}).get("max", {}).get("string"),
                    SATA_SPEEDS[p.get("sataGeneration", 3)])
    failures.expect(name, tool, "temperature", data.get("temperature", {}).get("current"),
                    p.get("temperatureCelsius", 35))
    smart = p.get("smart", {})
    table = {a["id"]: a for a in data.get("ata_smart_attributes", {}).get("table", [])}
    listed = len(smart.get("attributes", []))
    if len(table) != listed:
        failures.add(name, tool, f"{len(table)} attributes decoded, the profile lists {listed}")
    for a in smart.get("attributes", []):
        got = table.get(a["id"])
        if got is None:
            failures.add(name, tool, f"attribute {a['id']} missing")
            continue
        failures.expect(name, tool, f"attribute {a['id']} value", got.get("value"), a.get("value", 100))
        failures.expect(name, tool, f"attribute {a['id']} worst", got.get("worst"),
                        a.get("worst", a.get("value", 100)))
        failures.expect(name, tool, f"attribute {a['id']} threshold", got.get("thresh"), a.get("threshold", 0))
        failures.expect(name, tool, f"attribute {a['id']} raw", got.get("raw", {}).get("value"),
                        ata_attribute_raw(p, a))
    log = data.get("ata_smart_self_test_log", {})
    entries = (log.get("extended") or log.get("standard") or {}).get("table", [])
    want = list(reversed(smart.get("selfTestLog", [])))
    failures.expect(name, tool, "self-test log entries", len(entries), len(want))
    for got, e in zip(entries, want):
        failures.expect(name, tool, "self-test type", got.get("type", {}).get("value"), e.get("subcommand", 1))
        failures.expect(name, tool, "self-test status", got.get("status", {}).get("value"), e.get("status", 0))
        failures.expect(name, tool, "self-test hours", got.get("lifetime_hours"), e.get("hours", 0))
        if "failingLba" in e:
            failures.expect(name, tool, "self-test failing LBA", got.get("lba"), e["failingLba"])
    errors = data.get("ata_smart_error_log", {})
    errors = errors.get("extended") or errors.get("summary") or {}
    want_errors = list(reversed(smart.get("errorLog", [])))
    failures.expect(name, tool, "device error count", errors.get("count", 0),
                    max(smart.get("errorCount", 0), len(want_errors)))
    for got, e in zip(errors.get("table", []), want_errors):
        regs = got.get("completion_registers", {})
        failures.expect(name, tool, "error LBA", regs.get("lba"), e.get("lba", 0))
        failures.expect(name, tool, "error hours", got.get("lifetime_hours"), e.get("hours", 0))
        commands = got.get("previous_commands", [])
        failures.expect(name, tool, "commands before the error", len(commands), 5)
        failures.expect(name, tool, "device state at the error", got.get("device_state", {}).get("value"),
                        e.get("state", 3))
        stamps = [c.get("powerup_milliseconds", 0) for c in commands]
        if not commands or commands[0].get("registers", {}).get("lba") != e.get("lba", 0):
            failures.add(name, tool, "the newest command of an error entry is not the one that failed")
        if any(t == 0 for t in stamps) or stamps != sorted(stamps, reverse=True):
            failures.add(name, tool, f"error entry timestamps {stamps} are not the drive's power-on clock")
    if kind != "jmicron":
        sct = data.get("ata_sct_status", {})
        failures.expect(name, tool, "SCT temperature", sct.get("temperature", {}).get("current"),
                        p.get("temperatureCelsius", 35))


def healthy_pass(run, failures, disks):
    for disk in disks:
        kind = path_kind(disk)
        if kind is None:
            continue
        check_smartctl(run, failures, disk, kind)
        check_sg_tools(run, failures, disk, kind)


def failing_smart_scenario(run, server, failures, disks):
    """Attribute 5 (reallocated sectors) at its threshold on every ATA disk
    that lists it: the verdict reaches smartctl through each path, and the
    translation's informational exceptions page reports it."""
    for disk in disks:
        kind = path_kind(disk)
        if kind not in ("satl", "sat-bridge", "jmicron"):
            continue
        attrs = {a["id"]: a for a in disk["profile"].get("smart", {}).get("attributes", [])}
        if 5 not in attrs or not attrs[5].get("threshold"):
            continue
        server.control(f"attribute {disk['name']} 5 {attrs[5]['threshold']}")
        tool = f"smartctl -H -A -d {smartctl_type(kind)}"
        r = run.run(disk["name"], ["smartctl", "-H", "-A", "-d", smartctl_type(kind), disk_path(disk)], "failing")
        # Bit 3: the drive reports failing; bit 4: a pre-failure attribute
        # is at its threshold.
        want = 0x08 | (0x10 if attrs[5].get("flags", 0) & 1 else 0)
        if (r.returncode & 0x18) != want or "FAILED!" not in r.stdout:
            failures.add(disk["name"], tool, f"a failing drive gave exit {r.returncode}, expected bits {want:#x}")
        if kind != "jmicron":
            r = run.run(disk["name"], ["sg_logs", "-p", "0x2f", disk_path(disk)], "failing")
            failures.expect(disk["name"], "sg_logs -p 0x2f", "IE additional sense",
                            first(r"IE asc = (\S+ ascq = \S+)", r.stdout), "0x5d, ascq = 0x10")


def self_test_scenario(run, server, failures, disks):
    """A short self test started by smartctl on each ATA disk with an
    unreadable sector inside its short-test span, run to its end on the
    machine's clock, then read back by smartctl and sg_logs."""
    for disk in disks:
        kind = path_kind(disk)
        smart = disk["profile"].get("smart", {})
        bad = disk.get("faults", {}).get("unreadableSectors", [])
        span = smart.get("shortTestSpan", 0)
        if kind not in ("satl", "sat-bridge") or not bad or not span:
            continue
        first_bad = min(b if isinstance(b, int) else b["lba"] for b in bad)
        if first_bad >= span:
            continue
        name = disk["name"]
        r = run.run(name, ["smartctl", "-t", "short", "-d", "sat", disk_path(disk)], "selftest")
        if r.returncode != 0 or "Testing has begun" not in r.stdout:
            failures.add(name, "smartctl -t short", f"exit {r.returncode}; {r.stdout.strip().splitlines()[-1:]}")
        server.control(f"advance {smart.get('shortTestMinutes', 2) * 60000 + 1000}")
        r = run.run(name, ["smartctl", "-j", "-l", "selftest", "-d", "sat", disk_path(disk)], "selftest")
        if not r.returncode & 0x80:
            failures.add(name, "smartctl -l selftest", f"exit {r.returncode} lacks the self-test error bit")
        table = json.loads(r.stdout).get("ata_smart_self_test_log", {}).get("standard", {}).get("table", [])
        newest = table[0] if table else {}
        failures.expect(name, "smartctl -l selftest", "newest test", newest.get("type", {}).get("value"), 1)
        failures.expect(name, "smartctl -l selftest", "newest result", newest.get("status", {}).get("value", 0) >> 4,
                        7)
        failures.expect(name, "smartctl -l selftest", "failing LBA", newest.get("lba"), first_bad)
        r = run.run(name, ["sg_logs", "-p", "0x10", disk_path(disk)], "selftest")
        failures.expect(name, "sg_logs -p 0x10", "first failure", first(r"address of first error = (\S+)", r.stdout),
                        hex(first_bad))


def nvme_warning_scenario(run, server, failures, disks):
    """A critical warning (spare below threshold) on every NVMe disk: the
    translation reports a predicted failure."""
    for disk in disks:
        if path_kind(disk) != "nvme":
            continue
        server.control(f"nvme-warning {disk['name']} 1")
        r = run.run(disk["name"], ["smartctl", "-H", "-d", "scsi", disk_path(disk)], "nvme-warning")
        if not r.returncode & 0x08 or "FAILURE PREDICTION THRESHOLD EXCEEDED" not in r.stdout:
            failures.add(disk["name"], "smartctl -H -d scsi", f"a critical warning gave exit {r.returncode}")
        r = run.run(disk["name"], ["sg_logs", "-p", "0x2f", disk_path(disk)], "nvme-warning")
        failures.expect(disk["name"], "sg_logs -p 0x2f", "IE additional sense",
                        first(r"IE asc = (\S+), ascq", r.stdout), "0x5d")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", required=True)
    parser.add_argument("--machine", default="default")
    parser.add_argument("--keep", help="folder for the tools' outputs (kept)")
    args = parser.parse_args()
    for tool in ("smartctl", "sg_inq", "sg_vpd", "sg_logs", "sg_modes", "sg_readcap", "sg_requests", "sg_luns",
                 "sdparm"):
        if shutil.which(tool) is None:
            print(f"check_tools: {tool} is not installed (scripts/install-fidelity-deps.sh)", file=sys.stderr)
            return 2
    workdir = tempfile.mkdtemp(prefix="fidelity.")
    out_dir = args.keep or os.path.join(workdir, "out")
    os.makedirs(out_dir, exist_ok=True)
    failures = Failures()
    table = []
    scenarios = [("healthy", lambda run, server, disks: healthy_pass(run, failures, disks)),
                 ("failing", lambda run, server, disks: failing_smart_scenario(run, server, failures, disks)),
                 ("selftest", lambda run, server, disks: self_test_scenario(run, server, failures, disks)),
                 ("nvme-warning", lambda run, server, disks: nvme_warning_scenario(run, server, failures, disks))]
    skipped = []
    for scenario, body in scenarios:
        server = Server(args.build, args.machine, workdir)
        try:
            machine = json.loads(server.control("describe"))
            disks = machine.get("disks", [])
            if scenario == "healthy":
                skipped = [d["name"] for d in disks if path_kind(d) is None]
            body(Runner(args.build, server, out_dir, failures, table), server, disks)
        finally:
            server.stop()
    print(f"{'scenario':<13} {'disk':<7} {'exit':>4}  tool")
    for scenario, disk, tool, code in table:
        print(f"{scenario:<13} {disk:<7} {code:>4}  {tool}")
    for name in skipped:
        print(f"(no SCSI face, not reachable by SG_IO: {name})")
    if failures.items or args.keep:
        print(f"outputs in {out_dir}")
    if failures.items:
        print(f"\n{len(failures.items)} difference(s) or complaint(s):")
        for item in failures.items:
            print("  " + item)
        return 1
    print(f"\n{len(table)} tool runs, every answer as the profiles say")
    if not args.keep:
        shutil.rmtree(workdir, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
