#!/bin/sh
# Builds the shared library and the simulator, then runs the Python tests.
#   scripts/test_python.sh [pytest options]
set -eu
cd "$(dirname "$0")/.."
PYTHON=${PYTHON:-/usr/bin/python3}
cmake --preset default >/dev/null
cmake --build --preset default --target ka_api ka-sim -j2
KA_API_LIBRARY="$PWD/build/default/libka_api.so" KA_SIM="$PWD/build/default/sim/ka-sim" \
    exec "$PYTHON" -m pytest python/tests "$@"
