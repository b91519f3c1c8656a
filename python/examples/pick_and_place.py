#!/usr/bin/env python3
"""Pick-and-place with the gripper: approach, descend, pick, lift, carry,
descend, release, retreat.

    python pick_and_place.py [HOST [PORT]]      default: ka-sim at 127.0.0.1:8080
"""

import sys

import ka_api

APPROACH = 0.08  # metres above the pick and place points
CARRY = (0.10, -0.05)  # dx, dy from pick to place, metres


def main():
    host = sys.argv[1] if len(sys.argv) > 1 else "127.0.0.1"
    port = int(sys.argv[2]) if len(sys.argv) > 2 else 8080
    with ka_api.Arm(host, port) as arm:
        ready = (0, 30, 60, 0, 60, 0) if arm.dof == 6 else (0, 30, 0, 60, 0, 60, 0)
        arm.movej(ready, speed=40)
        pick = arm.pose().offset(dz=-APPROACH)
        place = pick.offset(*CARRY)
        arm.gripper_release(speed=500)

        def visit(target, grip, label):
            above = target.offset(dz=APPROACH)
            arm.movel(above, speed=40)
            arm.movel(target, speed=15)
            grip()
            print("%-7s at %.3f %.3f %.3f m, gripper at %d" % (label, target.x, target.y, target.z,
                                                               arm.gripper_state().position))
            arm.movel(above, speed=40)

        visit(pick, lambda: arm.gripper_pick(speed=500, force=300), "picked")
        visit(place, lambda: arm.gripper_release(speed=500), "placed")
        arm.movej(ready, speed=40)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except ka_api.KaError as error:
        print("failed: %s" % error, file=sys.stderr)
        sys.exit(1)
