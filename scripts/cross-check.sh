#!/usr/bin/env bash
# Compiles the OS seam and every Win* source against the real Windows headers
# with the MinGW-w64 cross compiler, so that the layout checks of src/win32/
# hold on both compilers. Syntax only: nothing is linked.
set -euo pipefail
cd "$(dirname "$0")/.."

cxx=${CROSS_CXX:-x86_64-w64-mingw32-g++}
if ! command -v "$cxx" >/dev/null 2>&1; then
  echo "cross-check: $cxx not found (scripts/install-deps.sh installs it)" >&2
  exit 1
fi
flags=(-std=c++17 -Wall -Wextra -Werror -fsyntax-only -Iinclude -Isrc -D_WIN32_WINNT=0x0601)

files=()
# win32_*.h are the parts of win32.h, compiled through it.
for header in src/win32/*.h; do
  [[ "$(basename "$header")" == win32_*.h ]] || files+=("$header")
done
while IFS= read -r source; do files+=("$source"); done < <(
  find src -name '*.cpp' ! -name '*_test.cpp' \( -path 'src/win32/*' -o -name 'win_*.cpp' \) | sort)

failed=0
for file in "${files[@]}"; do
  if [[ "$file" == *.h ]]; then
    # A header is checked through a one-line unit that includes it.
    if ! echo "#include \"${file#src/}\"" | "$cxx" "${flags[@]}" -x c++ -; then
      echo "cross-check: $file failed" >&2
      failed=1
    fi
  elif ! "$cxx" "${flags[@]}" "$file"; then
    echo "cross-check: $file failed" >&2
    failed=1
  fi
done
[ "$failed" -eq 0 ] && echo "cross-check: ${#files[@]} files compiled against the Windows headers"
exit "$failed"
