#!/usr/bin/env python3
"""`make bench`: the module's reads against the limit and the peers, side by side.

Every figure is a ratio of two things measured in the same run, their
repetitions interleaved (A B C A B C ...), and each side's median taken: the
machines this runs on are shared and noisy, so an absolute time alone says
little. Prints one table; --markdown prints it as docs/PERFORMANCE.md holds it.

The disk image is a file of pseudo-random bytes under the build directory,
made once and kept (BENCH_IMAGE_MIB, 1024 by default; 4096 for the 4 GiB
figure). The module's reads are timed from inside hwc_cli by a preloaded
library (libread_trace.so) that stamps each pread of the image, so the
module's own cost between reads is measured without the process's start and
discovery around them.
"""

import argparse
import json
import os
import platform
import re
import statistics
import subprocess
import sys
import tempfile
import time

SECTOR = 512
CHUNK_SECTORS = 255
CHUNK_BYTES = CHUNK_SECTORS * SECTOR  # 130,560: the disk a scan chunk covers
FAST_READ_BYTES = CHUNK_BYTES % 65536  # 65,024: what the fast pass reads of it


class Bench:
    def __init__(self, build, image_mib, reps, cold_reps):
        self.build = os.path.abspath(build)
        self.hwc = os.path.join(self.build, "cli", "hwc_cli")
        self.plain = os.path.join(self.build, "bench", "plain_pread")
        self.trace_lib = os.path.join(self.build, "bench", "libread_trace.so")
        self.image_mib = image_mib
        self.reps = reps
        self.cold_reps = cold_reps
        self.rows = []
        self.notes = []
        self.tmp = tempfile.mkdtemp(prefix="bench-")
        for path in (self.hwc, self.plain, self.trace_lib):
            if not os.path.exists(path):
                sys.exit("bench: %s is missing; run `make build` first" % path)

    # ---- running things -------------------------------------------------
    def run(self, argv, env=None, stdout=subprocess.DEVNULL):
        """Runs argv; returns (wall seconds, peak RSS in KiB, exit status, output)."""
        out = tempfile.TemporaryFile() if stdout is None else stdout
        start = time.monotonic()
        proc = subprocess.Popen(argv, env=env, stdout=out, stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(proc.pid, 0)
        wall = time.monotonic() - start
        proc.returncode = os.waitstatus_to_exitcode(status)
        text = ""
        if stdout is None:
            out.seek(0)
            text = out.read().decode(errors="replace")
            out.close()
        return wall, usage.ru_maxrss, proc.returncode, text

    def traced(self, argv, target):
        """Runs argv with every pread of target stamped; returns the reads."""
        out = os.path.join(self.tmp, "trace.txt")
        env = dict(os.environ, LD_PRELOAD=self.trace_lib, READ_TRACE_FILE=target, READ_TRACE_OUT=out)
        wall, rss, status, text = self.run(argv, env=env, stdout=None)
        reads = []
        with open(out) as f:
            for line in f:
                if line.startswith("#"):
                    raise RuntimeError("trace overflowed: " + line)
                o, n, r, s, e = (int(x) for x in line.split())
                reads.append((o, n, r, s, e))
        os.unlink(out)
        return reads, wall, status, text

    def plain_loop(self, args):
        _, _, status, text = self.run([self.plain] + args, stdout=None)
        if status != 0:
            raise RuntimeError("plain_pread %s failed" % " ".join(args))
        fields = dict(kv.split("=") for kv in text.split())
        return int(fields["bytes"]), float(fields["seconds"])

    def evict(self, path):
        self.run([self.plain, "evict", path])

    # ---- the image ------------------------------------------------------
    def image(self):
        path = os.path.join(self.build, "bench", "image-%dMiB.img" % self.image_mib)
        size = self.image_mib << 20
        if not os.path.exists(path) or os.path.getsize(path) != size:
            print("bench: writing %s (%d MiB of pseudo-random bytes)" % (path, self.image_mib), file=sys.stderr)
            block = os.urandom(1 << 20)
            with open(path + ".part", "wb") as f:
                for i in range(self.image_mib):
                    # Different bytes in every MiB, so nothing below can
                    # share or compress pages.
                    f.write(i.to_bytes(8, "little") + block[8:])
            os.replace(path + ".part", path)
        return path

    def add(self, item, what, ours, limit, ratio, goal, met):
        self.rows.append((item, what, ours, limit, ratio, goal, met))

    # ---- 1. surface scan ------------------------------------------------
    def scan_once(self, image):
        reads, wall, status, _ = self.traced([self.hwc, "-Mstorage", "--disk", image, "--recover", "scan"], image)
        scan = [r for r in reads if r[1] == FAST_READ_BYTES or (r[0] % CHUNK_BYTES == 0 and r[1] < FAST_READ_BYTES
                                                                 and r[0] + r[1] >= os.path.getsize(image) - CHUNK_BYTES)]
        if status != 0 or len(scan) < os.path.getsize(image) // CHUNK_BYTES:
            raise RuntimeError("the scan did not read the image (exit %d, %d chunk reads)" % (status, len(scan)))
        span = (scan[-1][4] - scan[0][3]) / 1e9
        return sum(r[2] for r in scan), span, wall

    def badblocks_once(self, image):
        wall, _, status, _ = self.run(["badblocks", "-s", image])
        if status != 0:
            raise RuntimeError("badblocks failed with %d" % status)
        return wall

    def surface_scan(self):
        image = self.image()
        size = os.path.getsize(image)
        same_reads = ["stride", image, str(FAST_READ_BYTES), str(CHUNK_BYTES)]
        sequential = ["stride", image, str(FAST_READ_BYTES), str(FAST_READ_BYTES)]
        have_badblocks = subprocess.run(["sh", "-c", "command -v badblocks"], stdout=subprocess.DEVNULL).returncode == 0
        if not have_badblocks:
            self.notes.append("badblocks is not installed (Debian: e2fsprogs): its rows are left out.")

        for cold in (False, True):
            reps = self.cold_reps if cold else self.reps
            module_read, module_cover, module_wall = [], [], []
            plain_same, plain_seq, plain_direct, bb = [], [], [], []
            if not cold:
                self.plain_loop(sequential)  # warms the page cache
            for _ in range(reps):
                if cold:
                    self.evict(image)
                read, span, wall = self.scan_once(image)
                module_read.append(read / span)
                module_cover.append(size / span)
                module_wall.append(size / wall)
                if cold:
                    self.evict(image)
                b, s = self.plain_loop(same_reads)
                plain_same.append(b / s)
                if cold:
                    self.evict(image)
                b, s = self.plain_loop(sequential)
                plain_seq.append(b / s)
                if cold:
                    self.evict(image)
                    b, s = self.plain_loop(same_reads + ["direct"])
                    plain_direct.append(b / s)
                if have_badblocks:
                    if cold:
                        self.evict(image)
                    bb.append(size / self.badblocks_once(image))
            tag = "cold" if cold else "warm"
            m_read, m_cover = statistics.median(module_read), statistics.median(module_cover)
            self.add("1 scan %s" % tag, "bytes read/s vs sequential pread loop, 65,024 B reads",
                     mib(m_read), mib(statistics.median(plain_seq)), m_read / statistics.median(plain_seq),
                     ">= 0.95", m_read / statistics.median(plain_seq) >= 0.95)
            self.add("1 scan %s" % tag, "bytes read/s vs pread loop over the same offsets",
                     mib(m_read), mib(statistics.median(plain_same)), m_read / statistics.median(plain_same),
                     ">= 0.95", m_read / statistics.median(plain_same) >= 0.95)
            if cold:
                d = statistics.median(plain_direct)
                self.add("1 scan cold", "bytes read/s vs same offsets with O_DIRECT",
                         mib(m_read), mib(d), m_read / d, "(info)", None)
            if bb:
                b = statistics.median(bb)
                self.add("1 scan %s" % tag, "disk covered/s vs badblocks -s (read-only)",
                         mib(m_cover), mib(b), m_cover / b, ">= 1", m_cover / b >= 1)
                w = statistics.median(module_wall)
                self.add("1 scan %s" % tag, "whole hwc_cli process, disk covered/s vs badblocks -s",
                         mib(w), mib(b), w / b, "(info)", None)

    # ---- 2, 3. tests that read --------------------------------------------
    def test_reads(self, image, selector, discovery):
        reads, _, status, _ = self.traced([self.hwc, "-Mstorage", selector, "--disk", image], image)
        if reads[:len(discovery)] != discovery[:len(reads)] and \
                [r[:2] for r in reads[:len(discovery)]] != [r[:2] for r in discovery]:
            raise RuntimeError("%s: discovery read differently from --list" % selector)
        return reads[len(discovery):], status

    def read_tests(self):
        image = self.image()
        listing, _, _, _ = self.traced([self.hwc, "-Mstorage", "--disk", image, "--list"], image)
        self.plain_loop(["stride", image, str(FAST_READ_BYTES), str(FAST_READ_BYTES)])  # warm
        for label, selector, goal in TESTS_THAT_READ:
            ours, limit, counts, inside = [], [], [], []
            offsets = os.path.join(self.tmp, "offsets.txt")
            for rep in range(self.reps):
                reads, status = self.test_reads(image, selector, listing)
                if not reads:
                    why = WHY_NOT_ON_AN_IMAGE.get(selector, "") if status == 3 else ""
                    self.notes.append("%s (%s) read nothing of the image file: exit status %d%s." %
                                      (label, selector, status, why and " (not applicable: %s)" % why))
                    break
                with open(offsets, "w") as f:
                    for r in reads:
                        f.write("%d %d\n" % (r[0], r[1]))
                plain, _, _, _ = self.traced([self.plain, "offsets", image, offsets], image)
                # Per read, the time from one read's start to the next's: the
                # read and whatever the caller does before the next one. The
                # median keeps a preempted read from counting for many.
                ours.append(cycle(reads))
                limit.append(cycle(plain))
                inside.append(statistics.median((r[4] - r[3]) / 1e9 for r in plain))
                counts.append(len(reads))
            if not ours:
                continue
            o, l, n, i = (statistics.median(x) for x in (ours, limit, counts, inside))
            ratio = o / l
            self.add(label, "%d reads of %d B; the read itself %s, module above it %s" %
                     (n, reads[0][1], us(i), us(o - l)), us(o), us(l), ratio,
                     goal and "<= %.2f" % goal or "(info)", ratio <= goal if goal else None)
        self.device_read_on_simulated_nvme(image)

    def device_read_on_simulated_nvme(self, image):
        """The device read test where it runs: a simulated 16 GiB NVMe disk.

        Its chunks of 4096 sectors ask the handle for (4096 x 512) mod 65536
        = 0 bytes, as settled, so only the last, shorter chunk of each range
        moves data: the test covers 11 GiB and reads less than 192 KiB. There
        is no pread loop to set against that; the row gives the time per
        chunk, the whole run less a --list run of the same machine.
        """
        machine = os.path.join(self.tmp, "nvme.json")
        with open(machine, "w") as f:
            json.dump({"disks": [{"name": "nv", "kind": "nvme", "bus": "nvme",
                                  "profile": {"capacitySectors": 16 << 21}, "media": {"image": image}}]}, f)
        sectors = 16 << 21
        gib = 1 << 21
        first, central, final = 2 * gib, 6 * gib, 3 * gib
        middle = (sectors - final + first) // 2
        ranges = [(0, first - 1), (middle - central // 2, middle + central // 2), (sectors - final, sectors - 1)]
        # A range is read from its first LBA in steps of 4096 while below its last.
        chunks = sum((last - start + 4095) // 4096 for start, last in ranges)
        moving = sum(1 for start, last in ranges if ((last - start) % 4096) * SECTOR % 65536 != 0)
        runs, lists = [], []
        for _ in range(self.reps):
            wall, _, status, _ = self.run([self.hwc, "-Mstorage", "--machine", machine, "-Qe"])
            if status != 0:
                self.notes.append("3 device read on a simulated NVMe disk: exit status %d." % status)
                return
            runs.append(wall)
            lists.append(self.run([self.hwc, "-Mstorage", "--machine", machine, "--list"])[0])
        per_chunk = max(statistics.median(runs) - statistics.median(lists), 0) / chunks
        self.add("3 device read", "simulated 16 GiB NVMe disk, image as media: 11 GiB in %d chunks, %d of them "
                 "moving data (time per chunk)" % (chunks, moving), us(per_chunk), "-", None, "(info)", None)

    # ---- 4. simulated PC -------------------------------------------------
    def gbench(self, binary):
        path = os.path.join(self.build, "bench", binary)
        _, _, status, text = self.run([path, "--benchmark_format=json", "--benchmark_min_time=0.2"], stdout=None)
        if status != 0:
            raise RuntimeError("%s failed" % binary)
        return json.loads(text)["benchmarks"]

    def simulated_pc(self):
        for b in self.gbench("bench_sim"):
            self.add("4 sim", "%s, CPU per 512-byte read" % b["name"].replace("BM_", ""),
                     "%.0f ns" % b["cpu_time"], "50-60 ns", b["cpu_time"] / 60.0, "~1", None)
        refresh = {int(b["name"].split("/")[1]): b for b in self.gbench("bench_refresh")}
        # CPU time: on a machine shared by many builds the wall time of a
        # millisecond-long refresh is mostly the time spent waiting for a core.
        one = refresh[1]["cpu_time"]
        for n, b in sorted(refresh.items()):
            t = b["cpu_time"]  # milliseconds
            goal = n == 64
            self.add("4 sim", "refresh of %d simulated disks, CPU (wall %.1f ms); per disk x%.2f of one disk's" %
                     (n, b["real_time"], t / one / n),
                     "%.2f ms" % t, "50 ms" if goal else "-", t / 50.0 if goal else t / one,
                     "< 1" if goal else "(linear: ~%d)" % n, t < 50.0 if goal else None)
        demo = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "cli", "demo.sh")
        walls = [self.run(["bash", demo, self.hwc])[0] for _ in range(3)]
        self.add("4 sim", "the whole `make demo` run (after the build)", fmt_s(statistics.median(walls)),
                 "-", None, "(info)", None)

    # ---- 5. memory -------------------------------------------------------
    def memory(self):
        rss_quick, status = self.peak_rss([self.hwc, "-Mstorage", "--machine", "default", "-Q"])
        self.add("5 memory", "peak RSS, Quick on the default machine (exit %d)" % status,
                 "%.1f MiB" % (rss_quick / 1024), "-", None, "(info)", None)
        seconds = int(os.environ.get("BENCH_SIM_SCAN_SECONDS", "20"))
        peaks = {}
        for label, sectors in (("2 GiB", 2 << 21), ("2 TiB", 2 << 31)):
            machine = os.path.join(self.tmp, "big.json")
            with open(machine, "w") as f:
                json.dump({"disks": [{"name": "big", "kind": "ata", "bus": "sata",
                                      "profile": {"capacitySectors": sectors}}]}, f)
            peaks[label] = self.rss_while_scanning(machine, seconds)
        small, big = peaks["2 GiB"], peaks["2 TiB"]
        self.add("5 memory", "peak RSS, scan of a 2 TiB simulated disk (%s) vs a 2 GiB one (%s)" %
                 (big[2], small[2]), "%.1f MiB" % (big[0] / 1024), "%.1f MiB" % (small[0] / 1024),
                 big[0] / small[0], "bounded", big[0] / small[0] < 1.5)

    def peak_rss(self, argv):
        """Peak RSS (KiB) of argv, taken by GNU time: the rusage of a child of
        this script would count the Python image it was forked from."""
        out = os.path.join(self.tmp, "rss.txt")
        _, _, status, _ = self.run(["/usr/bin/time", "-f", "%M", "-o", out] + argv)
        with open(out) as f:
            return int(f.read().split()[-1]), status

    def rss_while_scanning(self, machine, seconds):
        """Peak RSS (KiB) of a scan, stopped after `seconds` if still running."""
        log = os.path.join(self.tmp, "scan.out")
        rss = os.path.join(self.tmp, "rss.txt")
        with open(log, "w") as out:
            proc = subprocess.Popen(["/usr/bin/time", "-f", "%M", "-o", rss, self.hwc, "-Mstorage", "--machine",
                                     machine, "--recover", "scan"], stdout=out, stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + seconds
        samples = []
        child = None
        while proc.poll() is None:
            if child is None:
                try:
                    with open("/proc/%d/task/%d/children" % (proc.pid, proc.pid)) as f:
                        child = int(f.read().split()[0])
                except (OSError, IndexError, ValueError):
                    pass
            if child is not None:
                samples.append(vm_hwm(child))
                if time.monotonic() >= deadline:
                    os.kill(child, 15)
                    proc.wait()
                    break
            time.sleep(0.5)
        finished = proc.returncode == 0
        if finished:
            with open(rss) as f:
                peak = int(f.read().split()[-1])
        else:
            peak = max(samples or [0])
        with open(log, errors="replace") as f:
            percents = [int(p) for p in re.findall(r": (\d+)%", f.read())]
        done = "%d%% scanned" % (percents[-1] if percents else 0)
        half = [x for x in samples[len(samples) // 2:] if x]
        growth = ", VmHWM grew %d KiB in the second half" % (max(half) - min(half)) if len(half) > 1 else ""
        return peak, seconds, ("finished" if finished else "stopped at %ds" % seconds) + ", " + done + growth

    # ---- output -----------------------------------------------------------
    def table(self, markdown):
        head = ("Item", "What", "Module", "Limit/peer", "Ratio", "Goal", "Met")
        rows = [head] + [(i, w, o, l, "-" if r is None else "%.3f" % r, g,
                          "-" if m is None else ("yes" if m else "NO")) for i, w, o, l, r, g, m in self.rows]
        if markdown:
            lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
            lines += ["| " + " | ".join(r) + " |" for r in rows[1:]]
        else:
            widths = [max(len(r[c]) for r in rows) for c in range(len(head))]
            lines = ["  ".join(r[c].ljust(widths[c]) for c in range(len(head))).rstrip() for r in rows]
        return "\n".join(lines)


# Tests by their selector on hwc_cli, and the goal of the module's time over
# the plain loop's for the same reads.
TESTS_THAT_READ = [
    ("2 random seek", "-Qr", 1.1),
    ("2 funnel seek", "-Qf", 1.1),
    ("2 targeted read", "-Qt", 1.1),
    ("2 ext. random seek", "-Er", 1.1),
    ("2 ext. funnel seek", "-Ef", 1.1),
    ("3 device read", "-Qe", None),
]

# Why a test does not run on an image given with --disk, which the Linux host
# serves as a plain SCSI disk of the local bus (docs/PERFORMANCE.md).
WHY_NOT_ON_AN_IMAGE = {
    "-Qt": "the targeted read takes its LBAs from ATA logs and refuses any drive whose protocol is not ATA, "
           "with TEST_NOT_SUPPORTED_IN_THIS_DEVICE",
    "-Qe": "the device read test serves eMMC and NVMe devices only and refuses any other bus in silence",
}


def cycle(reads):
    """Median time from the start of one read to the start of the next."""
    return statistics.median((b[3] - a[3]) / 1e9 for a, b in zip(reads, reads[1:]))


def mib(bytes_per_second):
    return "%.0f MiB/s" % (bytes_per_second / (1 << 20))


def us(seconds):
    return "%.2f us" % (seconds * 1e6)


def fmt_s(seconds):
    return "%.3f s" % seconds if seconds >= 0.1 else "%.2f ms" % (seconds * 1e3)


def vm_hwm(pid):
    try:
        with open("/proc/%d/status" % pid) as f:
            for line in f:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1])
    except OSError:
        pass
    return 0


def machine_line():
    mem = 0
    with open("/proc/meminfo") as f:
        for line in f:
            if line.startswith("MemTotal:"):
                mem = int(line.split()[1]) / (1 << 20)
    cpu = platform.processor() or ""
    with open("/proc/cpuinfo") as f:
        for line in f:
            if line.startswith("model name"):
                cpu = line.split(":", 1)[1].strip()
                break
    return "%s UTC, %d cores (%s), %.1f GiB memory, %s" % (
        time.strftime("%Y-%m-%d %H:%M", time.gmtime()), os.cpu_count(), cpu, mem, platform.release())


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default="build")
    parser.add_argument("--image-mib", type=int, default=int(os.environ.get("BENCH_IMAGE_MIB", "1024")))
    parser.add_argument("--reps", type=int, default=int(os.environ.get("BENCH_REPS", "5")))
    parser.add_argument("--cold-reps", type=int, default=int(os.environ.get("BENCH_COLD_REPS", "3")))
    parser.add_argument("--only", default=os.environ.get("BENCH_ONLY", "scan,tests,sim,memory"))
    parser.add_argument("--markdown", action="store_true")
    args = parser.parse_args()
    bench = Bench(args.build, args.image_mib, args.reps, args.cold_reps)
    parts = args.only.split(",")
    for name, step in (("scan", bench.surface_scan), ("tests", bench.read_tests),
                       ("sim", bench.simulated_pc), ("memory", bench.memory)):
        if name in parts:
            print("bench: %s ..." % name, file=sys.stderr)
            step()
    print(machine_line())
    print("image %d MiB; medians of %d interleaved repetitions (%d cold)" % (args.image_mib, args.reps, args.cold_reps))
    print(bench.table(args.markdown))
    for note in bench.notes:
        print("note: " + note)


if __name__ == "__main__":
    main()
