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

source scripts/sim_session.sh
start_sim "$sim"

# ka_api.dll sits beside ka_tour.exe; the Wine prefix is the test runs' one.
status=0
WINEPREFIX="$PWD/$windows_dir/wineprefix" WINEDEBUG=-all \
    timeout "$tour_limit" "$wine_loader" "$tour" 127.0.0.1 "$sim_port" || status=$?
if [[ $status -eq 124 ]]; then
    echo "$0: ka_tour.exe did not finish within ${tour_limit} s" >&2
elif [[ $status -ne 0 ]]; then
    echo "$0: ka_tour.exe exited with status $status" >&2
else
    echo "$0: ka_tour.exe finished with status 0"
fi
exit "$status"
