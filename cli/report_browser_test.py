#!/usr/bin/python3
"""hwc_cli --report opened in a real browser.

Runs the quick diagnostic on the built-in simulated PC with --report, opens
the page in headless Chromium, and checks that
  - the page asks for nothing from outside (no script, link, import or url()),
  - the browser's console stays silent (a page that does log an error is run
    first, so that a console that is never read cannot pass the test),
  - the screenshot shows the surface map of disk 0 with a cell marked as a
    failed read, in the colour the report keeps for that alone.

Usage: report_browser_test.py HWC_CLI [KEEP_FOLDER]
"""

import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

UNREADABLE = (0xD5, 0x00, 0x00)  # kUnreadableFill in html_report.cpp
WINDOW = (1280, 1400)


def fail(message):
    print("FAIL: " + message)
    sys.exit(1)


def chromium_binary():
    for name in ("chromium", "chromium-browser"):
        path = shutil.which(name)
        if path:
            return path
    fail("chromium is not installed (scripts/install-deps.sh installs it)")


def screenshot(page, picture, work):
    """Opens `page` in a fresh profile, saves a screenshot, returns the browser's log."""
    profile = tempfile.mkdtemp(prefix="profile-", dir=work)
    command = [
        chromium_binary(), "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
        "--disable-background-networking", "--disable-component-update", "--disable-sync",
        "--user-data-dir=" + profile, "--enable-logging=stderr", "--v=0",
        "--window-size=%d,%d" % WINDOW, "--screenshot=" + picture, "file://" + page,
    ]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
    log = done.stdout.decode("utf-8", "replace")
    if done.returncode != 0:
        fail("chromium ended with %d:\n%s" % (done.returncode, log))
    if not os.path.exists(picture):
        fail("chromium wrote no screenshot:\n" + log)
    return log


def console_lines(log):
    return [line for line in log.splitlines() if ":CONSOLE" in line]


def read_png(path):
    """Width, height and rows of RGB tuples of an 8-bit, non-interlaced PNG."""
    with open(path, "rb") as handle:
        data = handle.read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        fail(path + " is not a PNG file")
    at, idat, header = 8, b"", None
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        at += 12 + length
    width, height, depth, colour, _, _, interlace = header
    if depth != 8 or interlace != 0 or colour not in (2, 6):
        fail("unexpected PNG layout: depth %d colour %d interlace %d" % (depth, colour, interlace))
    channels = 3 if colour == 2 else 4
    raw = zlib.decompress(idat)
    stride = width * channels
    rows, previous = [], bytearray(stride)
    for y in range(height):
        base = y * (stride + 1)
        kind = raw[base]
        line = bytearray(raw[base + 1:base + 1 + stride])
        if kind == 1:
            for i in range(channels, stride):
                line[i] = (line[i] + line[i - channels]) & 0xFF
        elif kind == 2:
            for i in range(stride):
                line[i] = (line[i] + previous[i]) & 0xFF
        elif kind == 3:
            for i in range(stride):
                left = line[i - channels] if i >= channels else 0
                line[i] = (line[i] + ((left + previous[i]) >> 1)) & 0xFF
        elif kind == 4:
            for i in range(stride):
                a = line[i - channels] if i >= channels else 0
                b = previous[i]
                c = previous[i - channels] if i >= channels else 0
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                predictor = a if pa <= pb and pa <= pc else (b if pb <= pc else c)
                line[i] = (line[i] + predictor) & 0xFF
        rows.append(line)
        previous = line
    return width, height, channels, rows


def unreadable_pixels(picture):
    width, height, channels, rows = read_png(picture)
    count, xs, ys = 0, [], []
    for y, line in enumerate(rows):
        for x in range(width):
            at = x * channels
            if (line[at], line[at + 1], line[at + 2]) == UNREADABLE:
                count += 1
                xs.append(x)
                ys.append(y)
    return count, xs, ys


def main():
    if len(sys.argv) < 2:
        fail("usage: report_browser_test.py HWC_CLI [KEEP_FOLDER]")
    program = os.path.abspath(sys.argv[1])
    work = tempfile.mkdtemp(prefix="hwc-report-")
    keep = sys.argv[2] if len(sys.argv) > 2 else None

    # The console check must be able to fail: a page that logs an error and
    # throws is caught first.
    control = os.path.join(work, "control.html")
    with open(control, "w") as handle:
        handle.write("<!DOCTYPE html><html><body><p>control</p>"
                     "<script>console.error('control-marker'); notDefined();</script></body></html>")
    caught = console_lines(screenshot(control, os.path.join(work, "control.png"), work))
    if not any("control-marker" in line for line in caught):
        fail("the browser log does not show console errors, so their absence proves nothing")

    report = os.path.join(work, "r.html")
    env = dict(os.environ)
    env.pop("MODULE_STORAGE_MACHINE", None)
    run = subprocess.run([program, "-Mstorage", "--machine", "default", "-Q", "--report", report],
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=300, cwd=work, env=env)
    # Disk 0 has unreadable sectors, so the quick diagnostic fails.
    if run.returncode != 1:
        fail("hwc_cli ended with %d, expected 1:\n%s" % (run.returncode, run.stderr.decode()))
    with open(report, encoding="utf-8") as handle:
        page = handle.read()
    for pattern in (r"<script", r"<link", r"<img", r"<iframe", r"@import", r"url\(", r"\bsrc=", r"href=\"(?!#)"):
        if re.search(pattern, page, re.IGNORECASE):
            fail("the report refers to something outside itself: " + pattern)
    if 'id="surface-map-0"' not in page or "unreadable-zone" not in page:
        fail("the report has no surface map of disk 0 with a marked zone")
    if "Unreadable sector at LBA 193,536,017" not in page:
        fail("the report does not name the unreadable sector of disk 0")

    picture = os.path.join(work, "report.png")
    log = screenshot(report, picture, work)
    errors = console_lines(log)
    if errors:
        fail("the browser's console reported:\n" + "\n".join(errors))
    count, xs, ys = unreadable_pixels(picture)
    # One marked cell is about 24 x 24 pixels less its cross; the legend's
    # sample alone is 12 x 12.
    if count < 250:
        fail("the screenshot shows %d pixels of a failed-read cell; expected a marked cell of disk 0's map" % count)
    print("report: %d bytes; screenshot %s: %d pixels of failed-read cells, between x %d-%d and y %d-%d; "
          "console silent" % (len(page), picture, count, min(xs), max(xs), min(ys), max(ys)))
    if keep:
        os.makedirs(keep, exist_ok=True)
        shutil.copy(report, os.path.join(keep, "report.html"))
        shutil.copy(picture, os.path.join(keep, "report.png"))
    shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
