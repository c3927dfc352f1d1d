#!/usr/bin/env bash
# Runs dashboard_browser_test.py with Debian's own Python, Selenium, Chromium
# and its driver (packages python3-selenium, chromium and chromium-driver,
# which scripts/test.sh installs); nothing is downloaded. Exits 77, which
# CTest reports as skipped, saying why, when one of them is missing.
#   run_browser_test.sh COLLECTOR UPLOADER RECORDER SCREENSHOT
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
skip() {
  echo "SKIPPED: the dashboard's browser test cannot run: $* (scripts/test.sh installs it)"
  exit 77
}

# Debian's Python, which sees Debian's Selenium whatever python3 comes first
# on the PATH.
python="${DASHBOARD_TEST_PYTHON:-/usr/bin/python3}"
browser="${DASHBOARD_TEST_BROWSER:-/usr/bin/chromium}"
driver="${DASHBOARD_TEST_DRIVER:-/usr/bin/chromedriver}"
[ -x "$python" ] || skip "$python is missing (Debian package python3)"
"$python" -c 'import selenium' 2>/dev/null || skip "$python cannot import selenium (Debian package python3-selenium)"
[ -x "$browser" ] || skip "$browser is missing (Debian package chromium)"
[ -x "$driver" ] || skip "$driver is missing (Debian package chromium-driver)"
exec "$python" "$here/dashboard_browser_test.py" "$browser" "$driver" "$@"
