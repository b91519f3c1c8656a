#!/usr/bin/env python3
"""Records the arm's pushed state into a CSV file while it moves.

    python push_to_csv.py OUT.csv [HOST [PORT]] [--seconds S]
"""

import argparse
import csv
import time

import ka_api


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("output")
    parser.add_argument("host", nargs="?", default="127.0.0.1")
    parser.add_argument("port", nargs="?", type=int, default=8080)
    parser.add_argument("--seconds", type=float, default=3.0)
    args = parser.parse_args()
    with ka_api.Arm(args.host, args.port) as arm, open(args.output, "w", newline="") as out:
        writer = csv.writer(out)
        joints = ["j%d_deg" % (i + 1) for i in range(arm.dof)]
        speeds = ["v%d_deg_s" % (i + 1) for i in range(arm.dof)]
        writer.writerow(["t_s", *joints, *speeds, "x_m", "y_m", "z_m", "rx_rad", "ry_rad", "rz_rad", "status"])
        arm.start_push()
        start = arm.joints()
        arm.movej([start[0] + 20, *start[1:]], speed=20, block=False)  # something to record
        began = time.monotonic()
        rows = 0
        with arm.states(timeout=2.0) as states:
            for state in states:
                now = time.monotonic() - began
                writer.writerow(["%.4f" % now, *state.joints, *state.joint_speed, *list(state.pose), state.status_name])
                rows += 1
                if now >= args.seconds:
                    break
        arm.stop_push()
    print("%d states written to %s" % (rows, args.output))
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
