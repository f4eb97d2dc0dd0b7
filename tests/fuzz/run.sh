#!/usr/bin/env bash
# Fuzzes every target (or the ones named) for SECONDS each, two at a time, over a
# scratch copy of its corpus (build/fuzz/scratch); exits non-zero when any target found
# a crash, a leak or a timeout, naming the reproducer (in build/fuzz/artifacts).
#   tests/fuzz/run.sh 45 [stream_read ...]
set -uo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-}
[[ "$seconds" =~ ^[0-9]+$ ]] || { sed -n '2,5p' "$0"; exit 2; }
shift
build=build/fuzz
[ -f "$build/CMakeCache.txt" ] || cmake --preset fuzz >/dev/null || exit 1
cmake --build --preset fuzz >"$build/fuzz-build.log" 2>&1 || { cat "$build/fuzz-build.log"; exit 1; }
[ "$#" -gt 0 ] && targets=("$@") || targets=($(ls tests/fuzz/*_fuzz.cpp | xargs -n1 basename | sed 's/_fuzz.cpp$//'))
mkdir -p "$build/artifacts" "$build/logs"
export ASAN_OPTIONS="alloc_dealloc_mismatch=0:detect_leaks=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
fuzz_one() {
    local name=$1 scratch="$build/scratch/$1" log="$build/logs/$1.log" program="$build/tests/fuzz/$1_fuzz"
    [ -x "$program" ] || { echo "fuzz $name: no such target"; return 1; }
    mkdir -p "$scratch" && cp -n "tests/fuzz/corpus/$name"/* "$scratch"/ 2>/dev/null
    local max_len=1024; [[ "$name" == number_parse || "$name" == date_text ]] && max_len=256
    nice -n 10 "$program" "$scratch" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=$max_len \
        -print_final_stats=1 -artifact_prefix="$build/artifacts/$name-" >"$log" 2>&1
    local rc=$? runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    [ "$rc" -eq 0 ] && { echo "fuzz $name: ${runs:-?} runs in ${seconds}s, corpus $(ls "$scratch" | wc -l) inputs, ok"; return 0; }
    echo "fuzz $name: FAILED (exit $rc) after ${runs:-?} runs; log $log"
    grep -E "^(==[0-9]+==ERROR|SUMMARY|.*check failed)" "$log" | head -5
    sed -n 's/.*Test unit written to /reproducer: /p' "$log"
    return "$rc"
}
status=0 running=0
for name in "${targets[@]}"; do
    if [ "$running" -ge 2 ]; then wait -n || status=1; running=$((running - 1)); fi
    fuzz_one "$name" & running=$((running + 1))
done
for ((; running > 0; running--)); do wait -n || status=1; done
exit "$status"
