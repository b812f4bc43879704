#!/usr/bin/env bash
# Reads the export table of the Windows DLL and passes when it names exactly
# the three entry points, undecorated, and nothing else: no C++ runtime, no
# QtCore, no export by ordinal alone.
set -euo pipefail
dll=${1:?usage: check-windows-exports.sh module_storage.dll}
objdump=${CROSS_OBJDUMP:-x86_64-w64-mingw32-objdump}

if [ ! -f "$dll" ]; then
  echo "check-windows-exports: $dll not found" >&2
  exit 1
fi
table=$("$objdump" -p "$dll")
expected=$'GetModuleInterfaceInstance\nGetProductVersion\nReleaseModuleInterfaceInstance'

# "[Ordinal/Name Pointer] Table" lists one "[   0] Name" row per named export.
names=$(sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$table" |
        sed -n 's/^[[:space:]]*\[ *[0-9]*\] \(.*\)$/\1/p' | sort)
# "Export Address Table -- Ordinal Base N" lists one row per exported address.
addresses=$(sed -n '/^Export Address Table -- Ordinal Base/,/^$/p' <<<"$table" |
            grep -c '^[[:space:]]*\[ *[0-9]*\]' || true)

if [ "$names" != "$expected" ] || [ "$addresses" -ne 3 ]; then
  echo "check-windows-exports: $dll exports $addresses addresses, named:" >&2
  sed 's/^/  /' <<<"${names:-(none)}" >&2
  echo "check-windows-exports: expected exactly three, named:" >&2
  sed 's/^/  /' <<<"$expected" >&2
  exit 1
fi
echo "check-windows-exports: $(basename "$dll") exports exactly GetModuleInterfaceInstance," \
     "GetProductVersion and ReleaseModuleInterfaceInstance"
