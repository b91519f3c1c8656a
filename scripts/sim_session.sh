# Sourced by the scripts that run a program against a simulator of their
# own: start_sim PROGRAM starts ka-sim on a free port, sets sim_port to the
# port it reports and echoes its later lines; it is stopped by its pid when
# the calling script exits or is interrupted.

sim_pid=""
echo_pid=""
sim_port=""

stop_sim() {
    if [[ -n "$sim_pid" ]]; then
        kill "$sim_pid" 2>/dev/null || true
        wait "$sim_pid" 2>/dev/null || true
    fi
    # The echo ends at the end of ka-sim's output.
    if [[ -n "$echo_pid" ]]; then wait "$echo_pid" 2>/dev/null || true; fi
}

start_sim() {
    trap stop_sim EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    # ka-sim prints "ka-sim: arm 1 listening on 127.0.0.1:PORT (...)" first;
    # that line, read from its output pipe, gives the port.
    coproc SIM { exec "$1" --port 0 2>&1; }
    sim_pid=$SIM_PID
    exec {sim_out}<&"${SIM[0]}" # a copy that outlives the coprocess
    local first=""
    read -r -t 10 -u "$sim_out" first || true
    sim_port=$(sed -n 's/^ka-sim: arm 1 listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' <<<"$first")
    if [[ -z "$sim_port" ]]; then
        echo "$0: ka-sim did not report its port: ${first:-nothing}" >&2
        exit 1
    fi
    # Its later lines (client connects and disconnects) go to our output.
    cat <&"$sim_out" &
    echo_pid=$!
    echo "ka-sim (pid $sim_pid) listening on 127.0.0.1:$sim_port"
}
