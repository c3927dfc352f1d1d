#!/usr/bin/env bash
# Installs what is missing, builds the library with its tools and tests and
# runs them (CTest). With --sanitize, the same under AddressSanitizer,
# UndefinedBehaviorSanitizer and LeakSanitizer, in a build folder of its own.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
sanitize=OFF
[ "${1:-}" = --sanitize ] && sanitize=ON

if [ $sanitize = ON ]; then
  "$root/scripts/install-deps.sh"
  build="${SANITIZE_BUILD_DIR:-$root/build-sanitize}"
  # Qt's offscreen platform plugin keeps a few objects for the whole process;
  # the suppressions name each of them with its reason.
  # Qt's libraries keep no frame pointers: the slower unwinder gives leaks
  # their whole stack, which the suppressions need to tell Qt's from ours.
  export ASAN_OPTIONS=detect_leaks=1:fast_unwind_on_malloc=0:check_initialization_order=1
  export LSAN_OPTIONS="suppressions=$root/tests/sanitizer/lsan.supp:print_suppressions=0"
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
else
  # The cross compiler and Wine run the Windows machine profile check.
  "$root/scripts/install-deps.sh" wine64 g++-mingw-w64-x86-64-posix
  build="${BUILD_DIR:-$root/build}"
fi

# The dashboard's browser test drives Debian's Chromium through its driver
# with Debian's Selenium for Python; nothing of it comes from elsewhere.
# Without them it says which is missing and is reported skipped.
"$root/scripts/install-deps.sh" chromium chromium-driver python3-selenium ||
  echo "test.sh: could not install Chromium, its driver or Selenium; the dashboard's browser test will be skipped" >&2

# The collector's tests on PostgreSQL make a throwaway cluster with
# pg_virtualenv (postgresql-common) from the server in postgresql; without
# them those tests say why and are reported skipped.
"$root/scripts/install-deps.sh" postgresql postgresql-common ||
  echo "test.sh: could not install PostgreSQL; the collector's tests on it will be skipped" >&2

# The packaging tests: dpkg-shlibdeps (dpkg-dev) finds the packages'
# dependencies, lintian checks them, systemd-analyze (systemd) the unit.
"$root/scripts/install-deps.sh" dpkg-dev lintian systemd

launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" -G Ninja -DINFORMATION_API_BUILD_TESTS=ON \
  -DINFORMATION_API_SANITIZE=$sanitize "${launcher[@]}"
cmake --build "$build"
[ -z "${DISPLAY:-}" ] && export QT_QPA_PLATFORM=offscreen
cd "$build"
ctest --output-on-failure -j "$(nproc)" --timeout 300
