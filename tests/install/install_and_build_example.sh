#!/usr/bin/env bash
# Installs the library into a temporary prefix, then builds the example host
# out of tree against it, once through the CMake package and once through
# pkg-config, and runs it.
set -euo pipefail
build_dir="$1"
source_dir="$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
test -f "$work/prefix/include/information_api/information_api.h"

cmake -S "$source_dir/examples/host" -B "$work/example" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/example" >/dev/null

export QT_QPA_PLATFORM=offscreen
cd "$work"
output="$("$work/example/example_host" 2>/dev/null)"
echo "$output"
grep -q "release of an unknown connection: -1" <<<"$output"
test -n "$(ls "$work"/keploinfo/*.info2)"

libdir="$(dirname "$(find "$work/prefix" -name 'libinformation_api.so' | head -n1)")"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
g++ -std=c++17 -fPIC -o "$work/example_pc" "$source_dir/examples/host/main.cpp" \
  $(pkg-config --cflags --libs information_api) -Wl,-rpath,"$libdir"
rm -rf "$work/keploinfo"
"$work/example_pc" 2>/dev/null | grep -q "release of an unknown connection: -1"
echo "installed package builds and runs the example host"
