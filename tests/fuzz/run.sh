#!/usr/bin/env bash
# Fuzzes every target (or the ones named) for SECONDS each, two at a time, over a
# scratch copy of its corpus under build/fuzz/scratch (the repository's corpus is only
# read). Builds the `fuzz` preset first. Exits non-zero when any target found a crash,
# a leak or a timeout, naming the input that reproduces it (in build/fuzz/artifacts).
#
#   tests/fuzz/run.sh 45                      # every target, 45 s each
#   tests/fuzz/run.sh 600 stream_read         # one target for ten minutes
set -uo pipefail
cd "$(dirname "$0")/../.."

seconds=${1:?usage: tests/fuzz/run.sh SECONDS [TARGET...]}
if ! [[ "$seconds" =~ ^[0-9]+$ ]]; then
    sed -n '2,8p' "$0" | sed 's/^# \{0,1\}//'
    [ "$seconds" = "-h" ] || [ "$seconds" = "--help" ] && exit 0
    exit 2
fi
shift
build=build/fuzz

if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake --preset fuzz >/dev/null || exit 1
fi
cmake --build --preset fuzz >"$build/fuzz-build.log" 2>&1 || { cat "$build/fuzz-build.log"; exit 1; }

if [ "$#" -gt 0 ]; then
    targets=("$@")
else
    targets=()
    for source in tests/fuzz/*_fuzz.cpp; do
        name=$(basename "$source" _fuzz.cpp)
        targets+=("$name")
    done
fi

# Inputs beyond these lengths add nothing to what a target can reach.
max_len() {
    case "$1" in
        number_parse|date_text) echo 256 ;;
        *) echo 1024 ;;
    esac
}

mkdir -p "$build/artifacts" "$build/logs"
export ASAN_OPTIONS="alloc_dealloc_mismatch=0:detect_leaks=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"

fuzz_one() {
    local name=$1
    local scratch="$build/scratch/$name"
    local log="$build/logs/$name.log"
    mkdir -p "$scratch"
    if [ -d "tests/fuzz/corpus/$name" ]; then
        cp -n "tests/fuzz/corpus/$name"/* "$scratch"/ 2>/dev/null
    fi
    nice -n 10 "$build/tests/fuzz/${name}_fuzz" "$scratch" -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=2048 -max_len="$(max_len "$name")" -print_final_stats=1 \
        -artifact_prefix="$build/artifacts/$name-" >"$log" 2>&1
    local rc=$?
    local runs
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    if [ "$rc" -eq 0 ]; then
        echo "fuzz $name: ${runs:-?} runs in ${seconds}s, corpus $(ls "$scratch" | wc -l) inputs, ok"
    else
        echo "fuzz $name: FAILED (exit $rc) after ${runs:-?} runs; log $log"
        grep -E "^(==[0-9]+==ERROR|SUMMARY|.*check failed)" "$log" | head -5
        sed -n 's/.*Test unit written to /reproducer: /p' "$log"
        echo "  replay: $build/tests/fuzz/${name}_fuzz <reproducer>"
    fi
    return "$rc"
}

status=0
pids=()
names=()
wait_first() {
    wait "${pids[0]}" || status=1
    pids=("${pids[@]:1}")
    names=("${names[@]:1}")
}
for name in "${targets[@]}"; do
    if [ ! -x "$build/tests/fuzz/${name}_fuzz" ]; then
        echo "fuzz $name: no such target"
        status=1
        continue
    fi
    fuzz_one "$name" &
    pids+=($!)
    names+=("$name")
    if [ "${#pids[@]}" -ge 2 ]; then
        wait_first
    fi
done
while [ "${#pids[@]}" -gt 0 ]; do
    wait_first
done
exit "$status"
