"""The Arm class: one connected arm, with values returned instead of out-parameters."""

from __future__ import annotations

import ctypes
import queue
import socket
import threading
from typing import Any, Callable, Iterator, Optional, Sequence, Tuple

from . import _lowlevel as ll
from ._runtime import check, ensure_started, subscribe, take_log_line, unsubscribe
from .errors import Disconnected, LocalError, Timeout
from .types import (
    ArmInfo,
    ArmState,
    Errors,
    GripperState,
    Joints,
    Pose,
    RealtimeState,
    joints_to_c,
    pose_from_c,
    pose_to_c,
    realtime_from_c,
    text,
)

DEFAULT_HOST = "127.0.0.1"
DEFAULT_PORT = 8080


class Arm:
    """One arm, opened at ``host``:``port`` (the controller's TCP port).

    Use as a context manager; the arm is closed on exit. Every method raises a
    :class:`ka_api.KaError` subclass carrying the C function's result code.
    ``handle`` is the raw ``ka_robot_handle*`` for the functions of ``ka_api.lowlevel``.
    """

    def __init__(self, host: str = DEFAULT_HOST, port: int = DEFAULT_PORT) -> None:
        ensure_started()
        self.host = host
        self.port = port
        handle = ll.ka_create_robot_arm(host.encode(), port)
        if not handle:
            raise LocalError(-1, "ka_create_robot_arm", take_log_line() or "all arm slots are taken")
        if handle.contents.id < 1:
            line = take_log_line()
            ll.ka_delete_robot_arm(handle)  # a failed arm keeps its slot until deleted
            raise Disconnected(-1, "ka_create_robot_arm", line or "cannot connect to %s:%d" % (host, port))
        self.handle: Any = handle
        self._closed = False

    # ---- lifecycle
    def close(self) -> None:
        """Closes the connection and frees the arm's slot; further calls raise Disconnected."""
        if not self._closed:
            self._closed = True
            ll.ka_delete_robot_arm(self.handle)

    @property
    def closed(self) -> bool:
        return self._closed

    def __enter__(self) -> "Arm":
        return self

    def __exit__(self, *_exc: Any) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed" if self._closed else "%d joints" % self.dof
        return "Arm(%r, %d) <%s>" % (self.host, self.port, state)

    def _check(self, code: int, function: str) -> None:
        if code != 0:
            if self._closed and code == -1:
                raise Disconnected(code, function, "the arm was closed")
            check(code, function)

    # ---- what the arm is
    @property
    def dof(self) -> int:
        """Number of joints, 6 or 7."""
        return int(self.handle.contents.arm_dof)

    @property
    def model(self) -> int:
        """The arm model (ka_robot_arm_model_e)."""
        return int(self.handle.contents.arm_model)

    @property
    def force_type(self) -> int:
        """0 no sensor, 1 one-axis, 2 six-axis (ka_force_type_e)."""
        return int(self.handle.contents.force_type)

    def info(self) -> ArmInfo:
        """Model, joint count, sensor and software versions, read from the controller."""
        version = ll.ka_arm_software_version_t()
        self._check(ll.ka_get_arm_software_info(self.handle, ctypes.byref(version)), "ka_get_arm_software_info")
        return ArmInfo(
            dof=self.dof,
            model=self.model,
            force_type=self.force_type,
            product=text(bytes(version.product_version)),
            controller_version=text(bytes(version.ctrl_version)),
            algorithm_version=text(bytes(version.algorithm_version)),
        )

    # ---- queries
    def joints(self) -> Joints:
        """Joint angles in degrees, one per joint."""
        values = (ctypes.c_float * ll.KA_JOINTS)()
        self._check(ll.ka_get_joint_degree(self.handle, values), "ka_get_joint_degree")
        return tuple(values[: self.dof])

    def state(self) -> ArmState:
        """Joints (degrees), tool pose (m, rad) and error words, from one query."""
        raw = ll.ka_current_arm_state_t()
        self._check(ll.ka_get_current_arm_state(self.handle, ctypes.byref(raw)), "ka_get_current_arm_state")
        return ArmState(tuple(raw.joint[: self.dof]), pose_from_c(raw.pose), raw.arm_err, raw.sys_err)

    def pose(self) -> Pose:
        """The tool pose in the current work frame: metres and radians."""
        return self.state().pose

    def errors(self) -> Errors:
        """The arm and system error words and each joint's error flags."""
        state = self.state()
        flags = (ctypes.c_uint16 * ll.KA_JOINTS)()
        brakes = (ctypes.c_uint16 * ll.KA_JOINTS)()
        self._check(ll.ka_get_joint_err_flag(self.handle, flags, brakes), "ka_get_joint_err_flag")
        return Errors(state.arm_err, state.sys_err, tuple(flags[: self.dof]))

    def clear_errors(self) -> None:
        """Clears the system error and every joint's error."""
        self._check(ll.ka_clear_system_err(self.handle), "ka_clear_system_err")
        for joint in range(1, self.dof + 1):
            self._check(ll.ka_set_joint_clear_err(self.handle, joint), "ka_set_joint_clear_err")

    def joint_limits(self) -> Tuple[Joints, Joints]:
        """(minimum, maximum) joint positions, degrees."""
        low = (ctypes.c_float * ll.KA_JOINTS)()
        high = (ctypes.c_float * ll.KA_JOINTS)()
        self._check(ll.ka_get_joint_min_pos(self.handle, low), "ka_get_joint_min_pos")
        self._check(ll.ka_get_joint_max_pos(self.handle, high), "ka_get_joint_max_pos")
        return tuple(low[: self.dof]), tuple(high[: self.dof])

    def current_trajectory(self) -> Tuple[int, Tuple[float, ...]]:
        """(kind, data) of the running trajectory: kind 0 none, 1 movej, 2 movel, 3 movec,
        4 moves, 5 replay; data are joints (degrees) or x, y, z (m), rx, ry, rz (rad)."""
        kind = ctypes.c_int()
        data = (ctypes.c_float * ll.KA_JOINTS)()
        self._check(
            ll.ka_get_arm_current_trajectory(self.handle, ctypes.byref(kind), data), "ka_get_arm_current_trajectory"
        )
        return kind.value, tuple(data[: self.dof])

    # ---- planned motion
    def movej(
        self, joints: Sequence[float], speed: int = 20, blend: int = 0, connect: bool = False, block: bool = True
    ) -> None:
        """Joint-space move to ``joints`` (degrees, one per joint).

        speed: percent of the arm's maximum, 1..100. blend: blend radius passed to the controller
        (0 stops at the target). connect: plan together with the next motion (never waits).
        block: wait until the motion has finished (else return once it is accepted).
        """
        self._check(
            ll.ka_movej(self.handle, joints_to_c(joints), int(speed), int(blend), int(connect), int(block)),
            "ka_movej",
        )

    def movel(
        self, pose: Sequence[float], speed: int = 20, blend: int = 0, connect: bool = False, block: bool = True
    ) -> None:
        """Straight-line move of the tool to ``pose`` (x, y, z metres, rx, ry, rz radians, work frame).

        speed in percent 1..100; blend, connect and block as for :meth:`movej`.
        """
        self._check(
            ll.ka_movel(self.handle, pose_to_c(pose), int(speed), int(blend), int(connect), int(block)), "ka_movel"
        )

    def moves(
        self, pose: Sequence[float], speed: int = 20, blend: int = 0, connect: bool = False, block: bool = True
    ) -> None:
        """Spline move through ``pose``; connect all but the last point to get one curve."""
        self._check(
            ll.ka_moves(self.handle, pose_to_c(pose), int(speed), int(blend), int(connect), int(block)), "ka_moves"
        )

    def movec(
        self,
        via: Sequence[float],
        to: Sequence[float],
        speed: int = 20,
        blend: float = 0,
        loops: int = 0,
        connect: bool = False,
        block: bool = True,
    ) -> None:
        """Circular arc through ``via`` to ``to`` (poses in metres and radians).

        speed in percent 1..100; loops: extra full circles; blend, connect, block as for :meth:`movej`.
        """
        self._check(
            ll.ka_movec(
                self.handle,
                pose_to_c(via),
                pose_to_c(to),
                int(speed),
                int(blend),
                int(loops),
                int(connect),
                int(block),
            ),
            "ka_movec",
        )

    def movej_p(
        self, pose: Sequence[float], speed: int = 20, blend: int = 0, connect: bool = False, block: bool = True
    ) -> None:
        """Joint-space move to a Cartesian ``pose`` (metres, radians); the controller solves the joints."""
        self._check(
            ll.ka_movej_p(self.handle, pose_to_c(pose), int(speed), int(blend), int(connect), int(block)),
            "ka_movej_p",
        )

    def stop(self) -> None:
        """Stops at once and discards the trajectory."""
        self._check(ll.ka_set_arm_stop(self.handle), "ka_set_arm_stop")

    def slow_stop(self) -> None:
        """Ramps to rest along the path and ends the trajectory."""
        self._check(ll.ka_set_arm_slow_stop(self.handle), "ka_set_arm_slow_stop")

    def pause(self) -> None:
        """Ramps to rest and holds; :meth:`resume` continues."""
        self._check(ll.ka_set_arm_pause(self.handle), "ka_set_arm_pause")

    def resume(self) -> None:
        """Continues a paused trajectory."""
        self._check(ll.ka_set_arm_continue(self.handle), "ka_set_arm_continue")

    # ---- streaming (no reply; the caller keeps the rate)
    def movej_canfd(self, joints: Sequence[float], follow: bool = False, expand: float = 0.0) -> None:
        """Sends one joint target (degrees) straight to the drives; returns once it is sent.

        follow: the controller's smoothed following mode. expand: expansion axis position.
        """
        self._check(ll.ka_movej_canfd(self.handle, joints_to_c(joints), follow, expand), "ka_movej_canfd")

    def movep_canfd(self, pose: Sequence[float], follow: bool = False) -> None:
        """Sends one tool pose target (metres, radians; a Pose's unit quaternion wins when set)."""
        self._check(ll.ka_movep_canfd(self.handle, pose_to_c(pose), follow), "ka_movep_canfd")

    # ---- I/O
    def digital_inputs(self) -> Tuple[int, ...]:
        """The controller's 4 digital inputs (1 high, 0 low)."""
        values = (ctypes.c_int * 4)()
        self._check(ll.ka_get_IO_input(self.handle, values), "ka_get_IO_input")
        return tuple(values)

    def digital_outputs(self) -> Tuple[int, ...]:
        """The controller's 4 digital outputs (1 high, 0 low)."""
        values = (ctypes.c_int * 4)()
        self._check(ll.ka_get_IO_output(self.handle, values), "ka_get_IO_output")
        return tuple(values)

    def set_io_mode(self, number: int, output: bool) -> None:
        """Makes controller I/O channel ``number`` an output (True) or an input (False)."""
        self._check(ll.ka_set_IO_mode(self.handle, int(number), int(bool(output))), "ka_set_IO_mode")

    def set_digital_output(self, number: int, high: bool) -> None:
        """Drives controller channel ``number`` (from 1) high or low; the channel must be an
        output (:meth:`set_io_mode`), else the controller refuses."""
        self._check(ll.ka_set_DO_state(self.handle, int(number), int(bool(high))), "ka_set_DO_state")

    def set_tool_digital_output(self, number: int, high: bool) -> None:
        """Sets tool digital output ``number`` high or low."""
        self._check(ll.ka_set_tool_DO_state(self.handle, int(number), int(bool(high))), "ka_set_tool_DO_state")

    # ---- gripper (stroke 0..1000; timeout in seconds)
    def gripper_pick(self, speed: int = 500, force: int = 200, block: bool = True, timeout: int = 10) -> None:
        """Closes the gripper at ``speed`` (1..1000) until ``force`` (1..1000) is reached."""
        self._check(ll.ka_set_gripper_pick(self.handle, speed, force, block, timeout), "ka_set_gripper_pick")

    def gripper_release(self, speed: int = 500, block: bool = True, timeout: int = 10) -> None:
        """Opens the gripper at ``speed`` (1..1000)."""
        self._check(ll.ka_set_gripper_release(self.handle, speed, block, timeout), "ka_set_gripper_release")

    def gripper_move(self, position: int, block: bool = True, timeout: int = 10) -> None:
        """Moves the gripper to ``position`` (stroke 0..1000)."""
        self._check(ll.ka_set_gripper_position(self.handle, position, block, timeout), "ka_set_gripper_position")

    def gripper_state(self) -> GripperState:
        raw = ll.ka_gripper_state_t()
        self._check(ll.ka_get_gripper_state(self.handle, ctypes.byref(raw)), "ka_get_gripper_state")
        return GripperState(
            raw.enable, raw.status, raw.error, raw.mode, raw.current_force, raw.temperature, raw.actpos
        )

    # ---- realtime push
    def start_push(self, port: Optional[int] = None, cycle: int = 1, host: Optional[str] = None) -> int:
        """Asks the controller to push its state every ``cycle`` control cycles (5 ms each on the
        simulator) to ``host``:``port`` (default: this machine and a free UDP port) and starts
        listening on it. Returns the port."""
        config = ll.ka_realtime_push_config_t()
        self._check(ll.ka_get_realtime_push(self.handle, ctypes.byref(config)), "ka_get_realtime_push")
        config.enable = True
        config.cycle = cycle
        config.port = port or _free_udp_port()
        config.ip = (host or _local_address_towards(self.host)).encode()
        config.force_coordinate = 0
        config.custom.joint_speed = 1
        config.custom.lift_state = -1
        config.custom.expand_state = -1
        config.custom.arm_current_status = 1
        self._check(ll.ka_set_realtime_push(self.handle, config), "ka_set_realtime_push")
        # The library starts listening on the push port when it re-reads the arm.
        self._check(ll.ka_sync_robot_info(self.handle), "ka_sync_robot_info")
        return int(config.port)

    def stop_push(self) -> None:
        config = ll.ka_realtime_push_config_t()
        self._check(ll.ka_get_realtime_push(self.handle, ctypes.byref(config)), "ka_get_realtime_push")
        config.enable = False
        config.custom.joint_speed = config.custom.lift_state = -1
        config.custom.expand_state = config.custom.arm_current_status = -1
        self._check(ll.ka_set_realtime_push(self.handle, config), "ka_set_realtime_push")

    def on_state(self, callback: Callable[[RealtimeState], None]) -> Callable[[], None]:
        """Calls ``callback`` with every pushed state of this arm, on the library's UDP thread
        (keep it short). Returns a function that unregisters it."""
        dof = self.dof
        host = self.host

        def relay(raw: ll.ka_realtime_arm_joint_state_t) -> None:
            if _from_host(raw, host):
                callback(realtime_from_c(raw, dof))

        subscribe(relay)
        return lambda: unsubscribe(relay)

    def states(self, timeout: Optional[float] = 2.0, maxsize: int = 1000) -> "StateStream":
        """An iterator over pushed states (call :meth:`start_push` first). Each ``next`` waits up to
        ``timeout`` seconds and raises :class:`ka_api.Timeout` when none came. Close it (or use
        ``with``) to stop receiving. When the consumer falls behind by ``maxsize`` states, the oldest
        are dropped and counted in ``dropped``."""
        return StateStream(self, timeout, maxsize)


class StateStream:
    """Pushed states through a thread-safe queue fed by the library's callback."""

    def __init__(self, arm: Arm, timeout: Optional[float], maxsize: int) -> None:
        self.timeout = timeout
        self.dropped = 0
        self._queue: "queue.Queue[RealtimeState]" = queue.Queue(maxsize)
        self._lock = threading.Lock()
        self._unsubscribe = arm.on_state(self._put)

    def _put(self, state: RealtimeState) -> None:
        with self._lock:
            while True:
                try:
                    self._queue.put_nowait(state)
                    return
                except queue.Full:
                    try:
                        self._queue.get_nowait()
                        self.dropped += 1
                    except queue.Empty:
                        pass

    def get(self, timeout: Optional[float] = None) -> RealtimeState:
        wait = self.timeout if timeout is None else timeout
        try:
            return self._queue.get(timeout=wait)
        except queue.Empty:
            raise Timeout(-2, "realtime push", "no state pushed within %.3g s" % (wait or 0)) from None

    def __iter__(self) -> Iterator[RealtimeState]:
        return self

    def __next__(self) -> RealtimeState:
        return self.get()

    def close(self) -> None:
        self._unsubscribe()

    def __enter__(self) -> "StateStream":
        return self

    def __exit__(self, *_exc: Any) -> None:
        self.close()


def _from_host(raw: ll.ka_realtime_arm_joint_state_t, host: str) -> bool:
    sender = bytes(raw.arm_ip).split(b"\0", 1)[0].decode("ascii", "replace")
    return not sender or sender == host or host.startswith("127.") or host == "localhost"


def _free_udp_port() -> int:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("", 0))
        return int(probe.getsockname()[1])


def _local_address_towards(host: str) -> str:
    """This machine's IPv4 address on the route to ``host`` (no packet is sent)."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        try:
            probe.connect((host, 9))
            return str(probe.getsockname()[0])
        except OSError:
            return "127.0.0.1"

