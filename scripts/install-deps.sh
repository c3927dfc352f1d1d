#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing need, and only
# those that are missing. Uses sudo when not run as root.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config ccache
  qtbase5-dev libboost-dev libgoogle-glog-dev
  libgtest-dev libgmock-dev
  libcpp-httplib-dev libssl-dev openssl zlib1g-dev libbrotli-dev
  libsqlite3-dev sqlite3 libpq-dev
  libjs-chart.js
)
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  as_root=()
elif command -v sudo >/dev/null 2>&1; then
  as_root=(sudo)
else
  echo "install-deps: missing packages (${missing[*]}) and no sudo to install them as root" >&2
  exit 1
fi
echo "install-deps: installing ${missing[*]}"
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
