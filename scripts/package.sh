#!/usr/bin/env bash
# Builds the Debian packages libinformation-api1, libinformation-api-dev,
# information-tools and information-collector into $PACKAGE_DIR (default
# ./packages), from the build in $BUILD_DIR (default ./build, the one
# scripts/test.sh makes and this script reuses; configured here when absent).
# Installs what is missing with scripts/install-deps.sh.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"
packages="${PACKAGE_DIR:-$root/packages}"

# dpkg-shlibdeps (dpkg-dev) finds what the programs need from Debian.
"$root/scripts/install-deps.sh" dpkg-dev

# The packages' changelog names their version: the project's.
version="$(sed -n 's/^project(information_api VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt")"
latest="$(sed -n '1s/^information-api (\([^)]*\)).*/\1/p' "$root/packaging/changelog")"
if [ "$version" != "$latest" ]; then
  echo "package.sh: packaging/changelog's latest entry is $latest, the project is $version: add an entry for $version" >&2
  exit 1
fi

if [ ! -f "$build/CMakeCache.txt" ]; then
  launcher=()
  command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -S "$root" -B "$build" -G Ninja "${launcher[@]}"
fi
cmake --build "$build" --target information_api information_uploader information_collector \
  package_changelog

# CPack stages in a folder of the build; only the packages go to $packages.
staging="$build/cpack"
rm -rf "$staging"
(cd "$build" && cpack -G DEB -B "$staging" >"$build/cpack.log") || {
  cat "$build/cpack.log" >&2
  exit 1
}
mkdir -p "$packages"
for deb in "$staging"/*.deb; do
  mv "$deb" "$packages/"
  echo "package.sh: $packages/$(basename "$deb")"
done
