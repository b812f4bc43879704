#!/usr/bin/env python3
"""Writes the uncompressed ELF kernel carried inside a bzImage (vmlinuz).

An uncompressed vmlinux boots under TCG seconds faster than the bzImage,
which would first decompress itself instruction by instruction. The payload
is found the way the kernel's own extract script does it: look for each
compressor's magic bytes and keep the first stream that decompresses to an
ELF file.
"""
import lzma
import sys
import zlib


def candidates(image):
    magics = [
        (b"\xfd7zXZ\x00", "xz"),
        (b"\x1f\x8b\x08", "gzip"),
        (b"\x28\xb5\x2f\xfd", "zstd"),
    ]
    for magic, kind in magics:
        start = image.find(magic)
        while start != -1:
            yield start, kind
            start = image.find(magic, start + 1)


def decompress(data, kind):
    if kind == "xz":
        return lzma.LZMADecompressor().decompress(data)
    if kind == "gzip":
        return zlib.decompressobj(16 + zlib.MAX_WBITS).decompress(data)
    if kind == "zstd":
        import subprocess
        run = subprocess.run(["zstd", "-dc"], input=data, capture_output=True)
        return run.stdout
    return b""


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: extract_vmlinux.py VMLINUZ OUTPUT")
    image = open(sys.argv[1], "rb").read()
    for start, kind in candidates(image):
        try:
            kernel = decompress(image[start:], kind)
        except (lzma.LZMAError, zlib.error, EOFError, OSError):
            continue
        if kernel[:4] == b"\x7fELF":
            with open(sys.argv[2], "wb") as out:
                out.write(kernel)
            return
    sys.exit(f"extract_vmlinux: no ELF kernel found in {sys.argv[1]}")


if __name__ == "__main__":
    main()
