#!/usr/bin/env bash
# The shared library exports exactly the public surface listed beside this
# script: the seven functions and the two exported classes.
set -euo pipefail
library="$1"
expected="$(dirname "${BASH_SOURCE[0]}")/exported_symbols.txt"
actual="$(nm -DC --defined-only "$library" | cut -c20- | sort -u)"
if ! diff -u "$expected" <(printf '%s\n' "$actual"); then
  echo "the exported symbols differ from the public surface" >&2
  exit 1
fi
echo "exports: $(wc -l < "$expected") symbols, exactly the public surface"
