"""The ``ka`` command: query, move and watch an arm from a shell.

Every subcommand takes ``--host HOST[:PORT]`` (default $KA_HOST, else
127.0.0.1:8080) and ``--json``; exit status 0 on success, 1 on failure with
the library's message on standard error.
"""

from __future__ import annotations

import argparse
import json
import os
import shutil
import subprocess
import sys
import time
from dataclasses import asdict
from typing import Any, List, Optional, Sequence, Tuple

ENV_HOST = "KA_HOST"
ENV_SIM = "KA_SIM"


def parse_address(text: str) -> Tuple[str, int]:
    """"HOST[:PORT]" as (host, port); the port defaults to 8080."""
    host, _, port = text.partition(":")
    try:
        return host or "127.0.0.1", int(port) if port else 8080
    except ValueError:
        raise argparse.ArgumentTypeError("bad address %r: expected HOST[:PORT]" % text) from None


def _emit(args: argparse.Namespace, value: Any, human: str) -> None:
    if args.json:
        print(json.dumps(value))
    else:
        print(human)


def _open(args: argparse.Namespace) -> Any:
    import ka_api

    host, port = args.address
    return ka_api.Arm(host, port)


def cmd_info(args: argparse.Namespace) -> int:
    import ka_api

    if args.target:
        args.address = args.target
    with _open(args) as arm:
        info = arm.info()
        value = dict(asdict(info), host=arm.host, port=arm.port, library=ka_api.library_version())
        _emit(
            args,
            value,
            "%s:%d  %s, %d joints, model %d, force sensor type %d\ncontroller %s, algorithm %s, library %s"
            % (arm.host, arm.port, info.product, info.dof, info.model, info.force_type,
               info.controller_version, info.algorithm_version, value["library"]),
        )  # fmt: skip
    return 0


def cmd_joints(args: argparse.Namespace) -> int:
    with _open(args) as arm:
        joints = arm.joints()
        _emit(args, list(joints), " ".join("%.3f" % j for j in joints))
    return 0


def _pose_dict(pose: Any) -> dict:
    return {"x": pose.x, "y": pose.y, "z": pose.z, "rx": pose.rx, "ry": pose.ry, "rz": pose.rz}


def cmd_pose(args: argparse.Namespace) -> int:
    with _open(args) as arm:
        pose = arm.pose()
        _emit(args, _pose_dict(pose), "%.6f %.6f %.6f m  %.4f %.4f %.4f rad" % tuple(pose))
    return 0


def cmd_errors(args: argparse.Namespace) -> int:
    with _open(args) as arm:
        if args.clear:
            arm.clear_errors()
        errors = arm.errors()
        value = {"arm_err": errors.arm_err, "sys_err": errors.sys_err, "joint_errors": list(errors.joint_errors)}
        _emit(
            args,
            value,
            "arm error %d, system error %d, joint errors %s%s"
            % (errors.arm_err, errors.sys_err, " ".join(str(e) for e in errors.joint_errors),
               "" if errors.any else "  (none)"),
        )  # fmt: skip
    return 0


def cmd_watch(args: argparse.Namespace) -> int:
    redraw = sys.stdout.isatty() and not args.json
    with _open(args) as arm:
        arm.start_push(cycle=args.cycle)
        received = 0
        started = time.monotonic()
        window_start, in_window, rate = started, 0, 0.0
        last_drawn = 0.0
        with arm.states(timeout=args.timeout) as stream:
            for state in stream:
                now = time.monotonic()
                received += 1
                in_window += 1
                if now - window_start >= 1.0:
                    rate, window_start, in_window = in_window / (now - window_start), now, 0
                elif received > 1 and rate == 0.0 and now > started:
                    rate = (received - 1) / (now - started)
                last = args.count is not None and received >= args.count
                last = last or (args.seconds is not None and now - started >= args.seconds)
                if args.json:
                    print(json.dumps({"joints": list(state.joints), "speed": list(state.joint_speed),
                                      "pose": _pose_dict(state.pose), "status": state.status_name,
                                      "arm_err": state.arm_err, "sys_err": state.sys_err,
                                      "rate_hz": round(rate, 1)}), flush=True)  # fmt: skip
                elif last or now - last_drawn >= 0.1:
                    last_drawn = now
                    _draw(state, rate, redraw)
                if last:
                    break
        arm.stop_push()
    return 0


def _draw(state: Any, rate: float, redraw: bool) -> None:
    rows = ["joint   position deg   speed deg/s   current"]
    for i, (p, v, c) in enumerate(zip(state.joints, state.joint_speed, state.joint_current)):
        rows.append("%5d %14.3f %13.3f %9.3f" % (i + 1, p, v, c))
    pose = state.pose
    rows.append("tool  %.4f %.4f %.4f m  %.4f %.4f %.4f rad" % tuple(pose))
    rows.append("status %-12s arm_err %d sys_err %d   push %.0f Hz" % (state.status_name, state.arm_err,
                                                                       state.sys_err, rate))  # fmt: skip
    if redraw:
        sys.stdout.write("\x1b[H\x1b[2J" + "\n".join(rows) + "\n")
    else:
        sys.stdout.write("\n".join(rows) + "\n\n")
    sys.stdout.flush()


def cmd_move_joints(args: argparse.Namespace) -> int:
    with _open(args) as arm:
        arm.movej(args.joints, speed=args.speed, blend=args.blend, block=not args.no_wait)
        joints = arm.joints()
        _emit(args, list(joints), "reached " + " ".join("%.3f" % j for j in joints))
    return 0


def cmd_move_line(args: argparse.Namespace) -> int:
    with _open(args) as arm:
        arm.movel(args.pose, speed=args.speed, blend=args.blend, block=not args.no_wait)
        pose = arm.pose()
        _emit(args, _pose_dict(pose), "reached %.6f %.6f %.6f m  %.4f %.4f %.4f rad" % tuple(pose))
    return 0


def cmd_stop(args: argparse.Namespace) -> int:
    with _open(args) as arm:
        arm.stop()
        _emit(args, {"stopped": True}, "stopped")
    return 0


def cmd_io(args: argparse.Namespace) -> int:
    with _open(args) as arm:
        if args.action == "set":
            if args.number is None or args.level is None:
                raise SystemExit("ka io set: give the output number and 0 or 1")
            arm.set_io_mode(args.number, output=True)
            arm.set_digital_output(args.number, bool(args.level))
        inputs, outputs = arm.digital_inputs(), arm.digital_outputs()
        _emit(
            args,
            {"inputs": list(inputs), "outputs": list(outputs)},
            "inputs  %s\noutputs %s" % (" ".join(map(str, inputs)), " ".join(map(str, outputs))),
        )
    return 0


def find_simulator() -> Optional[str]:
    """ka-sim from $KA_SIM, beside the loaded library, on PATH, or in build/default/sim."""
    name = "ka-sim.exe" if sys.platform == "win32" else "ka-sim"
    places: List[str] = []
    if os.environ.get(ENV_SIM):
        places.append(os.environ[ENV_SIM])
    try:
        from . import _lowlevel

        library_dir = os.path.dirname(os.path.abspath(_lowlevel._lib._name))
        places += [os.path.join(library_dir, name), os.path.join(library_dir, "sim", name)]
    except OSError:
        pass
    on_path = shutil.which(name)
    if on_path:
        places.append(on_path)
    here = os.path.dirname(os.path.abspath(__file__))
    for base in (os.getcwd(), os.path.join(here, "..", "..")):
        places.append(os.path.join(base, "build", "default", "sim", name))
    for place in places:
        if os.path.isfile(place) and os.access(place, os.X_OK):
            return os.path.normpath(place)
    return None


def cmd_sim(args: argparse.Namespace) -> int:
    simulator = find_simulator()
    if simulator is None:
        print("ka: ka-sim not found; set %s to its path or build it (cmake --build --preset default "
              "--target ka-sim)" % ENV_SIM, file=sys.stderr)  # fmt: skip
        return 1
    options = [a for a in args.options if a != "--"]
    process = subprocess.Popen([simulator] + options)
    try:
        return process.wait()
    except KeyboardInterrupt:  # the terminal's Ctrl-C reached ka-sim too; it ends cleanly
        return process.wait()


def build_parser() -> argparse.ArgumentParser:
    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("--host", dest="address", type=parse_address,
                        default=parse_address(os.environ.get(ENV_HOST, "127.0.0.1:8080")),
                        help="controller address HOST[:PORT] (default $%s, else 127.0.0.1:8080)" % ENV_HOST)  # fmt: skip
    common.add_argument("--json", action="store_true", help="print JSON instead of text")
    motion = argparse.ArgumentParser(add_help=False)
    motion.add_argument("--speed", type=int, default=20, help="percent of the maximum speed, 1..100 (default 20)")
    motion.add_argument("--blend", type=int, default=0, help="blend radius passed to the controller (default 0)")
    motion.add_argument("--no-wait", action="store_true", help="return once the controller accepted the move")

    parser = argparse.ArgumentParser(prog="ka", description="Query, move and watch a robot arm.")
    sub = parser.add_subparsers(dest="command", metavar="COMMAND", required=True)

    p = sub.add_parser("info", parents=[common], help="model, joints and versions of the arm")
    p.add_argument("target", nargs="?", type=parse_address, metavar="HOST[:PORT]", help="address (as --host)")
    p.set_defaults(run=cmd_info)
    sub.add_parser("joints", parents=[common], help="joint angles, degrees").set_defaults(run=cmd_joints)
    sub.add_parser("pose", parents=[common], help="tool pose: metres and radians").set_defaults(run=cmd_pose)
    p = sub.add_parser("errors", parents=[common], help="arm, system and joint error codes")
    p.add_argument("--clear", action="store_true", help="clear the system and joint errors first")
    p.set_defaults(run=cmd_errors)
    p = sub.add_parser("watch", parents=[common], help="live pushed state with the push rate")
    p.add_argument("--count", type=int, help="end after N states")
    p.add_argument("--seconds", type=float, help="end after S seconds")
    p.add_argument("--cycle", type=int, default=1, help="push every N control cycles (default 1)")
    p.add_argument("--timeout", type=float, default=3.0, help="fail when no state arrives for S seconds")
    p.set_defaults(run=cmd_watch)
    p = sub.add_parser("move-joints", parents=[common, motion], help="joint move, degrees")
    p.add_argument("joints", type=float, nargs="+", metavar="J", help="target angle of each joint, degrees")
    p.set_defaults(run=cmd_move_joints)
    p = sub.add_parser("move-line", parents=[common, motion], help="straight-line tool move")
    p.add_argument("pose", type=float, nargs=6, metavar="V", help="X Y Z (metres) RX RY RZ (radians)")
    p.set_defaults(run=cmd_move_line)
    sub.add_parser("stop", parents=[common], help="stop the arm at once").set_defaults(run=cmd_stop)
    p = sub.add_parser("io", parents=[common], help="read, or set, the controller's digital outputs")
    p.add_argument("action", nargs="?", choices=["get", "set"], default="get")
    p.add_argument("number", nargs="?", type=int, help="output channel, from 1")
    p.add_argument("level", nargs="?", type=int, choices=[0, 1], help="0 low, 1 high")
    p.set_defaults(run=cmd_io)
    p = sub.add_parser("sim", help="start the simulator (ka-sim); options are passed through",
                       description="Start ka-sim, found via $KA_SIM, beside the library, on PATH or in "
                       "build/default/sim. Give its options after the command, e.g. ka sim --port 8080 "
                       "--model LUNE-B; ka sim -- --help for its own help.")  # fmt: skip
    p.add_argument("options", nargs=argparse.REMAINDER, help="options for ka-sim")
    p.set_defaults(run=cmd_sim)
    return parser


def main(argv: Optional[Sequence[str]] = None) -> int:
    words = list(sys.argv[1:] if argv is None else argv)
    if words[:1] == ["sim"] and words[1:2] not in (["-h"], ["--help"]):
        # Everything after "sim" belongs to ka-sim, options included.
        return cmd_sim(argparse.Namespace(options=words[1:]))
    args = build_parser().parse_args(words)
    try:
        return int(args.run(args))
    except KeyboardInterrupt:
        return 130
    except Exception as error:  # KaError, LibraryNotFound and bad input alike end in one line
        from .errors import KaError

        if not isinstance(error, (KaError, OSError, ValueError)):
            raise
        print("ka: %s" % error, file=sys.stderr)
        return 1
