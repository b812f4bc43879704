#!/usr/bin/env bash
# Installs the build into a fresh prefix with `cmake --install`, checks that
# every piece is in place, builds the small host of packaging/host against the
# installed package with find_package, and runs it and the installed hwc_cli
# on the built-in simulated PC.
# Usage: install_test.sh CMAKE BUILD_DIR SOURCE_DIR
set -euo pipefail
cmake_bin=$1 build=$2 source=$3
work=$(mktemp -d /tmp/module-storage-install.XXXXXX)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() { echo "FAIL: $*" >&2; exit 1; }

"$cmake_bin" --install "$build" --prefix "$prefix" >"$work/install.log" || { cat "$work/install.log"; fail "cmake --install"; }

libdir=$(cd "$prefix" && ls -d lib*/ | head -n1)
libdir=${libdir%/}
for path in "bin/hwc_cli" "$libdir/libmodule_storage.so" "include/module_storage/module_storage.h" \
            "include/module_storage/test.h" "share/man/man1/hwc_cli.1" \
            "$libdir/cmake/module_storage/module_storageConfig.cmake" \
            "$libdir/cmake/module_storage/module_storageConfigVersion.cmake" \
            "$libdir/cmake/module_storage/module_storageTargets.cmake"; do
  [ -e "$prefix/$path" ] || fail "cmake --install left out $path"
done
# Every public header is installed, and nothing from the private source tree.
for header in "$source"/include/module_storage/*.h; do
  [ -e "$prefix/include/module_storage/$(basename "$header")" ] || fail "header $(basename "$header") not installed"
done
[ -z "$(find "$prefix/include" -type f ! -name '*.h')" ] || fail "non-header files under include/"

# The manual renders without a warning.
if command -v groff >/dev/null; then
  warnings=$(groff -man -Tutf8 -ww -z "$prefix/share/man/man1/hwc_cli.1" 2>&1)
  [ -z "$warnings" ] || fail "the manual page has warnings: $warnings"
fi

# A host built against the installed package alone.
"$cmake_bin" -S "$source/packaging/host" -B "$work/host-build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_BUILD_TYPE=Release >"$work/host-configure.log" 2>&1 || { cat "$work/host-configure.log"; fail "configuring the host"; }
"$cmake_bin" --build "$work/host-build" -j 2 >"$work/host-build.log" 2>&1 || { cat "$work/host-build.log"; fail "building the host"; }
grep -q -- "$prefix/include" "$work/host-build/compile_commands.json" 2>/dev/null ||
  grep -rq -- "$prefix/include" "$work/host-build/CMakeFiles" || fail "the host did not compile against the installed headers"

out=$(MODULE_STORAGE_MACHINE=default "$work/host-build/storage_host") || fail "the host failed: $out"
echo "$out"
grep -q "^module 4.13.0.8834$" <<<"$out" || fail "the host did not read the module's version"
grep -q "^disks 7$" <<<"$out" || fail "the host did not find the simulated PC's seven disks"
grep -q "^disk 0: WDC WD10EZEX-08WN4A0" <<<"$out" || fail "the host did not describe disk 0"
grep -q "SMART status: passed (0)" <<<"$out" || fail "the host ran no passing SMART status test"
# Whole outputs are taken first and searched after: under pipefail, grep -q
# leaving a pipe early would fail the pipeline with the writer's SIGPIPE.
libraries=$(ldd "$work/host-build/storage_host")
grep -q "$prefix/$libdir/libmodule_storage.so" <<<"$libraries" ||
  fail "the host is not linked to the installed library: $libraries"

# The installed hwc_cli finds the installed module without being told.
version=$("$prefix/bin/hwc_cli" --version)
grep -q "^hwc_cli 4.13.0$" <<<"$version" || fail "hwc_cli --version"
listing=$(env -u MODULE_STORAGE_MACHINE "$prefix/bin/hwc_cli" -Mstorage --machine default --list) ||
  fail "the installed hwc_cli could not list: $listing"
grep -q "module STORAGE 4.13.0.8834 ($prefix/$libdir/libmodule_storage.so)" <<<"$listing" ||
  fail "the installed hwc_cli did not load the installed module: $(echo "$listing" | head -n1)"
echo "install test: prefix $prefix holds library, headers, hwc_cli, manual and package config; host and hwc_cli ran"
