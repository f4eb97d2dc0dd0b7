#!/usr/bin/env bash
# Fuzzes every target (or the ones named) for SECONDS each, two at a time, over a scratch
# copy of its corpus; exits non-zero when any target found a crash, a leak or a timeout.
#   tests/fuzz/run.sh 45 [stream_read ...]
set -uo pipefail
cd "$(dirname "$0")/../.."
[[ "${1:-}" =~ ^[0-9]+$ ]] || { sed -n '2,4p' "$0"; exit 2; }
export seconds=$1 build=build/fuzz
shift
[ -f "$build/CMakeCache.txt" ] || cmake --preset fuzz >/dev/null || exit 1
cmake --build --preset fuzz >"$build/fuzz-build.log" 2>&1 || { cat "$build/fuzz-build.log"; exit 1; }
[ "$#" -gt 0 ] && targets=("$@") || targets=($(ls tests/fuzz/*_fuzz.cpp | xargs -n1 basename | sed 's/_fuzz.cpp$//'))
mkdir -p "$build/artifacts" "$build/logs"
export ASAN_OPTIONS="alloc_dealloc_mismatch=0:detect_leaks=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
fuzz_one() {
    local scratch="$build/scratch/$1" log="$build/logs/$1.log"
    mkdir -p "$scratch" && cp -n "tests/fuzz/corpus/$1"/* "$scratch"/ 2>/dev/null
    nice -n 10 "$build/tests/fuzz/$1_fuzz" "$scratch" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -max_len=1024 -artifact_prefix="$build/artifacts/$1-" >"$log" 2>&1 && { echo "fuzz $1: ok"; return 0; }
    echo "fuzz $1: FAILED; log $log"
    grep -E "^(==[0-9]+==ERROR|SUMMARY|.*check failed)|Test unit written" "$log" | head -6
    return 1
}
export -f fuzz_one
printf '%s\n' "${targets[@]}" | xargs -P 2 -I {} bash -c 'fuzz_one {}'
