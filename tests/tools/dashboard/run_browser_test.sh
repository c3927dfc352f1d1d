#!/usr/bin/env bash
# Runs dashboard_browser_test.mjs: installs playwright-core (package-lock.json)
# into WORK once, then drives Debian's chromium-headless-shell with it.
# Exits 77, which CTest reports as skipped, saying why, when the browser,
# Node.js or the npm package cannot be had.
#   run_browser_test.sh WORK COLLECTOR UPLOADER RECORDER SCREENSHOT
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
work="$1"
shift
skip() {
  echo "SKIPPED: the dashboard's browser test cannot run: $*"
  exit 77
}

browser="${CHROMIUM_HEADLESS_SHELL:-/usr/bin/chromium-headless-shell}"
[ -x "$browser" ] || skip "$browser is missing (Debian package chromium-headless-shell; scripts/test.sh installs it)"
command -v node >/dev/null && command -v npm >/dev/null || skip "node and npm are missing"
[ "$(node -p 'parseInt(process.versions.node)')" -ge 20 ] || skip "playwright-core needs Node.js 20 or later"
command -v sqlite3 >/dev/null || skip "sqlite3 is missing (Debian package sqlite3)"

mkdir -p "$work"
if ! cmp -s "$here/package-lock.json" "$work/node_modules/.installed-lock.json"; then
  cp "$here/package.json" "$here/package-lock.json" "$work/"
  (cd "$work" && npm ci --no-audit --no-fund --loglevel=error >npm.log 2>&1) ||
    skip "npm could not install playwright-core: $(tail -n 3 "$work/npm.log")"
  cp "$here/package-lock.json" "$work/node_modules/.installed-lock.json"
fi
# Resolved from WORK, where node_modules is.
cp "$here/dashboard_browser_test.mjs" "$work/"
exec node "$work/dashboard_browser_test.mjs" "$browser" "$@"
