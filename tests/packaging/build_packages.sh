#!/usr/bin/env bash
# Builds the Debian packages from this build with scripts/package.sh into
# PACKAGE_DIR, then checks that each holds its files and names its
# dependencies.
#   build_packages.sh SOURCE_DIR BUILD_DIR PACKAGE_DIR
set -euo pipefail
source_dir="$1" build_dir="$2" packages="$3"
rm -rf "$packages"
BUILD_DIR="$build_dir" PACKAGE_DIR="$packages" "$source_dir/scripts/package.sh"

version="$(sed -n '1s/^information-api (\([^)]*\)).*/\1/p' "$source_dir/packaging/changelog")"
libdir="usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)"
# expect PACKAGE TEXT...: its file list, control fields, shlibs and conffiles show every TEXT.
expect() {
  local package="$1" deb
  shift
  deb="$packages/${package}_${version}_$(dpkg --print-architecture).deb"
  local shown
  shown="$(dpkg-deb -c "$deb" && dpkg-deb -f "$deb" && dpkg-deb -I "$deb" shlibs conffiles 2>/dev/null)" || true
  for text in "Version: $version" "./usr/share/doc/$package/copyright" \
    "./usr/share/doc/$package/changelog.gz" "$@"; do
    grep -qF -- "$text" <<<"$shown" || { echo "$package: no '$text' in it"; exit 1; }
  done
}
expect libinformation-api1 "./$libdir/libinformation_api.so.1 -> libinformation_api.so.1.0.0" \
  "libqt5network5" "libinformation_api 1 libinformation-api1 (>= $version)"
expect libinformation-api-dev "./usr/include/information_api/information_api.h" \
  "./$libdir/libinformation_api.so -> libinformation_api.so.1" \
  "./$libdir/cmake/information_api/information_apiConfig.cmake" \
  "./$libdir/pkgconfig/information_api.pc" "libinformation-api1 (= $version), qtbase5-dev"
expect information-tools "./usr/bin/information_uploader" "libinformation-api1 (= $version)"
expect information-collector "./usr/bin/information_collector" \
  "./lib/systemd/system/information-collector.service" \
  "./etc/information-collector/collector.conf" "/etc/information-collector/collector.conf" \
  "adduser, libjs-chart.js" "libpq5" "libsqlite3-0"
echo "4 packages of version $version in $packages"
