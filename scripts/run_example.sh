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

# ka-sim prints "ka-sim: arm 1 listening on 127.0.0.1:PORT (...)" first;
# that line, read from its output pipe, gives the port.
sim_pid=""
echo_pid=""
stop_sim() {
    if [[ -n "$sim_pid" ]]; then
        kill "$sim_pid" 2>/dev/null || true
        wait "$sim_pid" 2>/dev/null || true
    fi
    # The echo ends at the end of ka-sim's output.
    if [[ -n "$echo_pid" ]]; then wait "$echo_pid" 2>/dev/null || true; fi
}
trap stop_sim EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

coproc SIM { exec "$sim" --port 0 2>&1; }
sim_pid=$SIM_PID
exec {sim_out}<&"${SIM[0]}" # a copy that outlives the coprocess

first=""
read -r -t 10 -u "$sim_out" first || true
port=$(sed -n 's/^ka-sim: arm 1 listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' <<<"$first")
if [[ -z "$port" ]]; then
    echo "$0: ka-sim did not report its port: ${first:-nothing}" >&2
    exit 1
fi
# Its later lines (client connects and disconnects) go to our output.
cat <&"$sim_out" &
echo_pid=$!
echo "ka-sim (pid $sim_pid) listening on 127.0.0.1:$port"

status=0
"$tour" 127.0.0.1 "$port" || status=$?
exit "$status"
