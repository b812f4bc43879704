#!/usr/bin/env bash
# Builds the Debian package with CPack into a scratch folder, checks what it
# holds and what it depends on, unpacks it and runs the unpacked hwc_cli on
# the built-in simulated PC, where it must find the unpacked module.
# Usage: deb_test.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d /tmp/module-storage-deb.XXXXXX)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

(cd "$build" && cpack -G DEB -B "$work/out" >"$work/cpack.log" 2>&1) || { cat "$work/cpack.log"; fail "cpack"; }
deb=$(ls "$work"/out/module-storage_*_amd64.deb 2>/dev/null | head -n1)
[ -n "$deb" ] || fail "no module-storage .deb in $work/out: $(ls "$work/out")"

contents=$(dpkg-deb -c "$deb")
for path in ./usr/bin/hwc_cli ./usr/lib/libmodule_storage.so ./usr/include/module_storage/module_storage.h \
            ./usr/share/man/man1/hwc_cli.1 ./usr/lib/cmake/module_storage/module_storageConfig.cmake \
            ./usr/lib/cmake/module_storage/module_storageTargets.cmake; do
  grep -q " $path$" <<<"$contents" || fail "the package lacks $path"
done
depends=$(dpkg-deb -f "$deb" Depends)
grep -q "libqt6core6" <<<"$depends" || fail "the package does not depend on QtCore: $depends"
[ "$(dpkg-deb -f "$deb" Package)" = module-storage ] || fail "package name"

dpkg-deb -x "$deb" "$work/root"
version=$("$work/root/usr/bin/hwc_cli" --version)
grep -q "^hwc_cli " <<<"$version" || fail "the packed hwc_cli does not run"
listing=$(env -u MODULE_STORAGE_MACHINE "$work/root/usr/bin/hwc_cli" -Mstorage --machine default --list) ||
  fail "the packed hwc_cli could not list: $listing"
grep -q "($work/root/usr/lib/libmodule_storage.so)" <<<"$listing" || fail "the packed hwc_cli loaded another module"
grep -q "^Devices: 7$" <<<"$listing" || fail "the packed module did not find the simulated PC's disks"
echo "deb test: $(basename "$deb"), $(echo "$contents" | wc -l) entries, Depends: $depends"
