#!/usr/bin/env bash
# wine_run.sh LOADER PROGRAM [ARGS...]: runs a Windows test program under
# Wine. Now and then Wine fails to start a program at all (it exits at once
# and the program prints nothing), for instance when a client races the
# Wine server's start or exit. Such a start is tried once more, and said so
# on stderr. A program that printed anything is never run again, so a
# failing test fails.
#
# The program writes to files, shown when it ends (or when this script is
# stopped): Wine's own background processes, started by the first program of
# a server, inherit its output and keep it open long after the program has
# exited, which would hold a pipe, and so the test, open.
loader=$1
shift
out=$(mktemp)
err=$(mktemp)
child=
trap 'cat "$out"; cat "$err" >&2; rm -f "$out" "$err"' EXIT
trap '[ -n "$child" ] && kill "$child" 2>/dev/null; exit 143' TERM INT
for attempt in 1 2; do
    "$loader" "$@" >"$out" 2>"$err" </dev/null &
    child=$!
    wait "$child"
    status=$?
    child=
    if [ "$status" -eq 0 ] || [ -s "$out" ] || [ -s "$err" ] || [ "$attempt" -eq 2 ]; then
        exit "$status"
    fi
    echo "wine_run: $1 did not start under Wine (status $status, no output); starting it again" >&2
done
