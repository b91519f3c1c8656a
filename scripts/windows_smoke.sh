#!/usr/bin/env bash
# Smoke test of the Windows build: the tour example (examples/tour.c), built
# as ka_tour.exe by the windows preset and run under Wine, against the Linux
# ka-sim started here on a free port. ka-sim is stopped by its pid when the
# tour ends; the exit status is the tour's (non-zero on any failure).
#
#   scripts/windows_smoke.sh
#
# Builds what is missing first: ka-sim (default preset) and ka_tour.exe with
# ka_api.dll (windows preset; scripts/setup.sh must have run once).
set -euo pipefail
cd "$(dirname "$0")/.."

linux_dir=build/default
windows_dir=build/windows
sim="$linux_dir/sim/ka-sim"
tour="$windows_dir/bin/ka_tour.exe"
wine_loader=/usr/lib/wine/wine64
# How long the tour may take under Wine before it counts as hung.
tour_limit=300

[[ -x "$wine_loader" ]] || { echo "$0: Wine's loader $wine_loader is missing" >&2; exit 1; }
[[ -f "$linux_dir/CMakeCache.txt" ]] || cmake --preset default >/dev/null
[[ -f "$windows_dir/CMakeCache.txt" ]] || cmake --preset windows >/dev/null
cmake --build "$linux_dir" -j2 --target ka-sim >/dev/null
cmake --build "$windows_dir" -j2 --target ka_tour >/dev/null

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

# ka-sim prints "ka-sim: arm 1 listening on 127.0.0.1:PORT (...)" first.
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
cat <&"$sim_out" &
echo_pid=$!
echo "ka-sim (pid $sim_pid) listening on 127.0.0.1:$port"

# ka_api.dll sits beside ka_tour.exe; the Wine prefix is the test runs' one.
status=0
WINEPREFIX="$PWD/$windows_dir/wineprefix" WINEDEBUG=-all \
    timeout "$tour_limit" "$wine_loader" "$tour" 127.0.0.1 "$port" || status=$?
if [[ $status -eq 124 ]]; then
    echo "$0: ka_tour.exe did not finish within ${tour_limit} s" >&2
elif [[ $status -ne 0 ]]; then
    echo "$0: ka_tour.exe exited with status $status" >&2
else
    echo "$0: ka_tour.exe finished with status 0"
fi
exit "$status"
