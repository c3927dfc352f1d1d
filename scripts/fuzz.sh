#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer (ASan and UBSan on) and
# runs each for SECONDS (default 60). Each target starts from its corpus in
# tests/fuzz/corpus/ and grows a working corpus in the build folder; an input
# that crashes is written beside it, under fuzz-artifacts/: copy it into the
# target's corpus folder, where the normal test suite replays it.
#   scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(answer_handlers record_file collector_requests)

"$root/scripts/install-deps.sh" clang libclang-rt-14-dev
build="${FUZZ_BUILD_DIR:-$root/build-fuzz}"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DINFORMATION_API_FUZZ=ON -DINFORMATION_API_BUILD_TESTS=ON -DINFORMATION_API_BUILD_BENCH=OFF
cmake --build "$build" --target "${targets[@]/%/_fuzz}"

export QT_QPA_PLATFORM=offscreen
export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for target in "${targets[@]}"; do
  corpus="$build/fuzz-corpus/$target"
  artifacts="$build/fuzz-artifacts/$target"
  mkdir -p "$corpus" "$artifacts"
  echo "=== $target for $seconds s"
  "$build/tests/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=65536 \
    -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 -artifact_prefix="$artifacts/" \
    "$corpus" "$root/tests/fuzz/corpus/$target" 2>&1 |
    grep -E '^(stat::|Done|==|SUMMARY|artifact|#[0-9]+ +DONE)|ERROR|crash' || true
done
