# Entry points: `make demo` and `make test` do all the set-up on a fresh
# Debian 12 machine (as root).
JOBS ?= 2

.PHONY: all deps configure build test test-asan demo bench cross clean

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

# Compiles src/win32/ and every Win* source against the real Windows headers.
cross: deps
	@scripts/cross-check.sh

# One table of ratios, each side measured in the same run (bench/run_bench.py;
# BENCH_IMAGE_MIB=4096 for the 4 GiB image, docs/PERFORMANCE.md).
bench: build
	@scripts/install-bench-deps.sh
	@python3 bench/run_bench.py --build build

clean:
	@rm -rf build build-asan build-cross
