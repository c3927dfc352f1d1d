#!/usr/bin/env bash
# Installs what is missing, builds the library and its tools, and runs the
# demo. With --keep the demo's collector stays up at the end, so that its
# dashboard can be opened at the address the demo prints.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/install-deps.sh" chromium-headless-shell

build="${BUILD_DIR:-$root/build}"
launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" -G Ninja "${launcher[@]}"
cmake --build "$build" --target information_demo
exec bash "$root/tools/demo/run_demo.sh" "$build" "$@"
