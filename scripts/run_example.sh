#!/usr/bin/env bash
# Runs the tour example (examples/tour.c).
#
#   scripts/run_example.sh            against ka-sim, started here on a free
#                                     port and stopped when the tour ends
#   scripts/run_example.sh IP PORT    against the arm at IP:PORT
#
# Builds what is missing first (default preset, only the targets needed).
# The exit status is the tour's.
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=build/default
tour="$build_dir/examples/ka_tour"
sim="$build_dir/sim/ka-sim"

if [[ $# -ne 0 && $# -ne 2 ]]; then
    echo "usage: $0 [IP PORT]" >&2
    exit 2
fi

targets=(ka_tour)
[[ $# -eq 0 ]] && targets+=(ka-sim)
[[ -f "$build_dir/CMakeCache.txt" ]] || cmake --preset default >/dev/null
cmake --build "$build_dir" -j "$(nproc)" --target "${targets[@]}" >/dev/null

if [[ $# -eq 2 ]]; then
    exec "$tour" "$1" "$2"
fi

source scripts/sim_session.sh
start_sim "$sim"

status=0
"$tour" 127.0.0.1 "$sim_port" || status=$?
exit "$status"
