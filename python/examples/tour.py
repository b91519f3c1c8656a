#!/usr/bin/env python3
"""A tour of the arm from Python: open it, show what it is, watch its pushed
state, and run a short pick-and-place with a streamed swing.

    python tour.py [HOST [PORT]]      default: ka-sim at 127.0.0.1:8080

Moves are small and slow, but real: on hardware keep the workspace clear.
"""

import math
import sys
import threading
import time

import ka_api

READY6 = (0, 30, 60, 0, 60, 0)
READY7 = (0, 30, 0, 60, 0, 60, 0)


def step(what, action):
    try:
        result = action()
        print("%-40s ok" % what)
        return result
    except ka_api.KaError as error:
        print("%-40s failed: %s" % (what, error))
        step.failures += 1
        return None


step.failures = 0


def main():
    host = sys.argv[1] if len(sys.argv) > 1 else "127.0.0.1"
    port = int(sys.argv[2]) if len(sys.argv) > 2 else 8080
    print("ka_api %s: touring the arm at %s:%d" % (ka_api.library_version(), host, port))
    with ka_api.Arm(host, port) as arm:
        info = step("software information", arm.info)
        if info:
            print("  product %s: model %d, %d joints, force sensor type %d" % (info.product, info.model, info.dof, info.force_type))
        limits = step("joint limits", arm.joint_limits)
        if limits:
            for j, (low, high) in enumerate(zip(*limits), 1):
                print("  joint %d: %8.2f .. %7.2f degrees" % (j, low, high))
        step("realtime push on", arm.start_push)
        latest = {}
        unregister = arm.on_state(lambda s: latest.update(state=s, at=time.monotonic()))

        step("joint move to ready (blocking)", lambda: arm.movej(READY7 if arm.dof == 7 else READY6, speed=30))
        above = step("pose read", arm.pose)
        if above:
            start = above.offset(dz=-0.05)
            step("linear move down 5 cm", lambda: arm.movel(start, speed=20))
            step("circle through via to target", lambda: arm.movec(start.offset(0.03, 0.03), start.offset(0.06), speed=20))

        joints = step("joints read", arm.joints)
        if joints:
            def swing():
                due = time.monotonic()
                for i in range(1, 201):  # 2 s at 100 Hz, joint 1 out 10 degrees and back
                    target = list(joints)
                    target[0] += 10.0 * (0.5 - 0.5 * math.cos(2 * math.pi * i / 200))
                    arm.movej_canfd(target)
                    due += 0.01
                    time.sleep(max(0.0, due - time.monotonic()))

            step("2 s joint stream at 100 Hz", swing)
            step("gripper pick (blocking)", lambda: arm.gripper_pick(500, 300))
            step("gripper release (blocking)", lambda: arm.gripper_release(500))
        unregister()
        state = latest.get("state")
        if state:
            print("  last pushed state: joints %s, status %s" % (" ".join("%.2f" % j for j in state.joints), state.status_name))
    print("tour finished with failed steps" if step.failures else "tour finished")
    return 1 if step.failures else 0


if __name__ == "__main__":
    sys.exit(main())
