#!/usr/bin/env bash
# Builds the fuzz targets (the fuzz preset: clang, libFuzzer, ASan and UBSan)
# and runs each for SECONDS (default 60) on a copy of its seed corpus.
# Installs nothing (scripts/setup.sh does). Fails on any finding: a crash, a
# failed invariant, a leak, a time-out or running out of memory. The input
# that caused it is kept in build/fuzz/runs/<target>/findings/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j 2
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
status=0
for source in fuzz/*_fuzz.cpp; do
    target=$(basename "$source" .cpp)
    run=build/fuzz/runs/$target
    rm -rf "$run"
    mkdir -p "$run/corpus" "$run/findings"
    cp fuzz/corpus/"$target"/* "$run/corpus/"
    if build/fuzz/fuzz/"$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -dict=fuzz/ka.dict -print_final_stats=1 -artifact_prefix="$run/findings/" \
        "$run/corpus" >"$run/log" 2>&1; then
        echo "$target: $(grep -E '^#[0-9]+.*DONE' "$run/log" | tail -1)"
    else
        status=1
        echo "$target: FINDING (inputs in $run/findings/)" >&2
        tail -n 60 "$run/log" >&2
    fi
done
exit $status
