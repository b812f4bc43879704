# Entry points: `make demo` and `make test` do all the set-up on a fresh
# Debian 12 machine (as root).
JOBS ?= 2

.PHONY: all deps configure build test test-asan demo bench cross windows test-wine clean

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

# module_storage.dll, hwc_cli.exe and the Windows test programs in build-win/
# (MinGW-w64; QtCore cross-built once into the user's cache folder).
windows:
	@JOBS=$(JOBS) scripts/build-windows.sh

# The Windows build's tests under Wine, with the DLL's export table.
test-wine: windows
	@scripts/test-wine.sh

bench: build
	@if [ -d build/bench ]; then for b in build/bench/bench_*; do [ -x "$$b" ] && "$$b"; done; fi

clean:
	@rm -rf build build-asan build-cross build-win
