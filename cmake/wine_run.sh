#!/usr/bin/env bash
# wine_run.sh LOADER PROGRAM [ARGS...]: runs a Windows test program under
# Wine. Now and then Wine fails to start a program at all (it exits at once
# and the program prints nothing), for instance when a client races the
# Wine server's start or exit. Such a start is tried once more, and said so
# on stderr. A program that printed anything is never run again, so a
# failing test fails.
loader=$1
shift
out=$(mktemp)
trap 'rm -f "$out"' EXIT
for attempt in 1 2; do
    "$loader" "$@" > >(tee "$out") 2> >(tee -a "$out" >&2)
    status=$?
    wait # for the two tee processes
    if [ "$status" -eq 0 ] || [ -s "$out" ] || [ "$attempt" -eq 2 ]; then exit "$status"; fi
    echo "wine_run: $1 did not start under Wine (status $status, no output); starting it again" >&2
done
