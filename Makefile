# Entry points: `make demo` and `make test` do all the set-up on a fresh
# Debian 12 machine (as root).
JOBS ?= 2

.PHONY: all deps configure build test test-asan test-fidelity demo bench cross windows test-wine clean deb fuzz-build fuzz fuzz-smoke test-qemu

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake --preset default >/dev/null

build: configure
	@cmake --build --preset default -j $(JOBS)

test: build
	@ctest --preset default

# Unmodified smartctl, sg3_utils and sdparm against every disk of the built-in
# machine, their SG_IO served by the simulated disks; see fidelity/.
test-fidelity: build
	@scripts/install-fidelity-deps.sh
	@python3 fidelity/check_tools.py --build build

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

# The Debian package of the library, headers, hwc_cli and its manual, in build/packages/.
deb: build
	@cd build && cpack -G DEB

# Compiles src/win32/ and every Win* source against the real Windows headers.
cross: deps
	@scripts/cross-check.sh

# module_storage.dll, hwc_cli.exe and the Windows test programs in build-win/
# (MinGW-w64; QtCore cross-built once into the user's cache folder).
windows:
	@JOBS=$(JOBS) scripts/build-windows.sh

# The Windows build's tests under Wine, with the DLL's export table.
test-wine: windows
	@scripts/test-wine.sh

# One table of ratios, each side measured in the same run (bench/run_bench.py;
# BENCH_IMAGE_MIB=4096 for the 4 GiB image, docs/PERFORMANCE.md).
bench: build
	@scripts/install-bench-deps.sh
	@python3 bench/run_bench.py --build build

# libFuzzer targets (clang, AddressSanitizer, UndefinedBehaviorSanitizer) in
# build-fuzz/: `make fuzz` runs each for FUZZ_SECONDS, `make fuzz-smoke` for
# FUZZ_SMOKE_SECONDS (CI). fuzz/run.sh prints executions per target.
FUZZ_SECONDS ?= 600
FUZZ_SMOKE_SECONDS ?= 10

fuzz-build: deps
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz -j $(JOBS)

fuzz: fuzz-build
	@fuzz/run.sh $(FUZZ_SECONDS)

fuzz-smoke: fuzz-build
	@ASAN_OPTIONS=detect_leaks=1 build-fuzz/fuzz/fault_matrix_sanitized --gtest_brief=1
	@fuzz/run.sh $(FUZZ_SMOKE_SECONDS)

clean:
	@rm -rf build build-asan build-cross build-fuzz build-win
