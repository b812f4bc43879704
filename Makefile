# Entry points: `make demo` and `make test` do all the set-up on a fresh
# Debian 12 machine (as root).
JOBS ?= 2

.PHONY: all deps configure build test test-asan demo bench cross clean test-qemu

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake --preset default >/dev/null

build: configure
	@cmake --build --preset default -j $(JOBS)

test: build
	@ctest --preset default

configure-asan: deps
	@cmake --preset asan >/dev/null

test-asan: configure-asan
	@cmake --build --preset asan -j $(JOBS)
	@ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --preset asan

demo: build
	@cli/demo.sh build/cli/hwc_cli

# The module on a real kernel's disks under QEMU, read beside smartctl,
# sg3_utils and nvme-cli (docs/QEMU.md).
test-qemu: configure
	@testing/qemu/install-deps.sh
	@cmake --build --preset default -j $(JOBS) --target hwc_cli module_storage
	@testing/qemu/run.sh build --expected docs/qemu-expected.md

# Compiles src/win32/ and every Win* source against the real Windows headers.
cross: deps
	@scripts/cross-check.sh

bench: build
	@if [ -d build/bench ]; then for b in build/bench/bench_*; do [ -x "$$b" ] && "$$b"; done; fi

clean:
	@rm -rf build build-asan build-cross
