#!/usr/bin/env bash
# Installs what is missing, builds the library with its tests and runs them.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
# The cross compiler and Wine run the Windows machine profile check.
"$root/scripts/install-deps.sh" wine64 g++-mingw-w64-x86-64-posix

build="${BUILD_DIR:-$root/build}"
launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" -G Ninja -DINFORMATION_API_BUILD_TESTS=ON "${launcher[@]}"
cmake --build "$build"
[ -z "${DISPLAY:-}" ] && export QT_QPA_PLATFORM=offscreen
cd "$build"
ctest --output-on-failure -j "$(nproc)" --timeout 300
