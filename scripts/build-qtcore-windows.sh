#!/usr/bin/env bash
# Cross-builds QtCore for Windows x86-64 from Debian's own qt6-base source
# package (the same 6.4.2 as the Linux build), static, with Debian's posix
# MinGW-w64, and installs it under the user's cache folder. No Windows Qt exists
# as a Debian package. The host tools (moc and friends) are Debian's Qt 6.
#
# Static, because the module must be one DLL a host can load with nothing
# beside it: QtCore linked in (its symbols stay unexported), no Qt6Core.dll to
# ship, no second copy to clash with a host's own Qt.
#
# Does nothing when the installed QtCore is already there. Prints the folder it
# installed to on its last line.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

cache=${XDG_CACHE_HOME:-$HOME/.cache}/module_storage
qt_version=6.4.2
prefix=${QTCORE_WINDOWS_PREFIX:-$cache/qtcore-$qt_version-mingw64-posix-static}
source_parent=$cache/src
work=$cache/qtcore-build

# Written last, after a complete install: a half-done install is done again.
stamp=$prefix/.complete
if [ -f "$stamp" ] && [ -f "$prefix/lib/libQt6Core.a" ]; then
  echo "$prefix"
  exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi

# --- The source ------------------------------------------------------------------
source_dir=$(find "$source_parent" -maxdepth 1 -type d -name "qt6-base-$qt_version*" 2>/dev/null | head -n1 || true)
if [ -z "$source_dir" ] || [ ! -f "$source_dir/CMakeLists.txt" ]; then
  if ! apt-cache showsrc qt6-base 2>/dev/null | grep -q "^Version: $qt_version"; then
    # Debian's own archive, source side only, beside the binary lists.
    list=/etc/apt/sources.list.d/module-storage-deb-src.sources
    echo "build-qtcore-windows: enabling Debian source packages ($list)" >&2
    "${sudo_cmd[@]}" tee "$list" >/dev/null <<'EOF'
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: bookworm bookworm-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
EOF
    "${sudo_cmd[@]}" apt-get update -qq
  fi
  mkdir -p "$source_parent"
  rm -rf "$source_parent"/qt6-base-"$qt_version"*
  (cd "$source_parent" && apt-get source -qq qt6-base >/dev/null)
  rm -f "$source_parent"/*.dsc "$source_parent"/*.tar.*
  source_dir=$(find "$source_parent" -maxdepth 1 -type d -name "qt6-base-$qt_version*" | head -n1)
fi
if [ -z "$source_dir" ] || [ ! -f "$source_dir/CMakeLists.txt" ]; then
  echo "build-qtcore-windows: no qt6-base $qt_version source under $source_parent" >&2
  exit 1
fi

# --- Configure, build, install ------------------------------------------------------
# Qt builds with precompiled headers: ccache only hits them when it may ignore
# the header's time stamps and the defines a precompiled header carries.
export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
export CCACHE_BASEDIR=$cache
export CCACHE_NOHASHDIR=true
jobs=${JOBS:-2}

# Removes the export directives of every member of the static library $1
# that carries one; nothing else in those sections.
unexport_startup_hook() {
  local library=$1 scratch member
  scratch=$(mktemp -d)
  (
    cd "$scratch"
    for member in $(x86_64-w64-mingw32-ar t "$library"); do
      x86_64-w64-mingw32-ar x "$library" "$member"
      if x86_64-w64-mingw32-objdump -s -j .drectve "$member" 2>/dev/null | grep -q 'export'; then
        x86_64-w64-mingw32-objcopy --remove-section .drectve "$member"
        x86_64-w64-mingw32-ar r "$library" "$member"
      fi
      rm -f "$member"
    done
  )
  x86_64-w64-mingw32-ranlib "$library"
  rm -rf "$scratch"
}

start=$(date +%s)
if [ ! -f "$work/build.ninja" ]; then
  rm -rf "$work"
  cmake -S "$source_dir" -B "$work" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64-posix.cmake" \
    -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
    -DQT_HOST_PATH=/usr \
    -DQT_HOST_PATH_CMAKE_DIR=/usr/lib/x86_64-linux-gnu/cmake \
    -DBUILD_SHARED_LIBS=OFF \
    -DQT_BUILD_EXAMPLES=OFF -DQT_BUILD_TESTS=OFF -DQT_BUILD_BENCHMARKS=OFF \
    -DFEATURE_gui=OFF -DFEATURE_widgets=OFF -DFEATURE_network=OFF -DFEATURE_sql=OFF \
    -DFEATURE_testlib=OFF -DFEATURE_xml=OFF -DFEATURE_dbus=OFF -DFEATURE_concurrent=OFF \
    -DFEATURE_printsupport=OFF -DFEATURE_opengl=OFF \
    -DFEATURE_system_pcre2=OFF -DFEATURE_system_zlib=OFF \
    -DFEATURE_icu=OFF -DFEATURE_zstd=OFF -DFEATURE_pkg_config=OFF \
    >"$cache/qtcore-configure.log" 2>&1 \
    || { tail -n 40 "$cache/qtcore-configure.log" >&2; exit 1; }
fi
configured=$(date +%s)
# Everything the configuration left on: QtCore, its bundled PCRE2 and zlib,
# and the entry-point library its installed package refers to.
ninja -C "$work" -j "$jobs" >"$cache/qtcore-build.log" 2>&1 \
  || { tail -n 40 "$cache/qtcore-build.log" >&2; exit 1; }
built=$(date +%s)
cmake --install "$work" >"$cache/qtcore-install.log" 2>&1 \
  || { tail -n 40 "$cache/qtcore-install.log" >&2; exit 1; }
# A static QtCore exports nothing of its own, except the startup hook, which
# QtCore declares for export even when static: its object asks the linker to
# export it (a .drectve section), and a DLL linked with it would list
# qt_startup_hook beside the module's three entry points. The directive goes.
unexport_startup_hook "$prefix/lib/libQt6Core.a"
touch "$stamp"
done_at=$(date +%s)
echo "build-qtcore-windows: configure $((configured - start)) s, build $((built - configured)) s," \
     "install $((done_at - built)) s" >&2
echo "$prefix"
