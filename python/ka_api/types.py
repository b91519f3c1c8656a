"""Plain values returned by the Pythonic layer, and their conversion from and to C records."""

from __future__ import annotations

import ctypes
import math
from dataclasses import dataclass, field, replace
from typing import Any, Iterator, Optional, Sequence, Tuple

from . import _lowlevel as ll

Joints = Tuple[float, ...]

STATUS_NAMES = (
    "idle",
    "move_L",
    "move_J",
    "move_C",
    "move_S",
    "move_through_joint",
    "move_through_pose",
    "move_through_force_pose",
    "move_through_current",
    "stop",
    "slow_stop",
    "pause",
    "current_drag",
    "sensor_drag",
    "tech_demonstration",
)


@dataclass(frozen=True)
class Pose:
    """A tool pose: position in metres, Euler angles in radians (R = Rz(rz)·Ry(ry)·Rx(rx)).

    Iterating gives (x, y, z, rx, ry, rz). ``quaternion`` (w, x, y, z) is set on poses read from
    the arm or the kinematics; when set on a streamed pose it is what the controller uses.
    """

    x: float
    y: float
    z: float
    rx: float = 0.0
    ry: float = 0.0
    rz: float = 0.0
    quaternion: Optional[Tuple[float, float, float, float]] = field(default=None, compare=False)

    def __iter__(self) -> Iterator[float]:
        return iter((self.x, self.y, self.z, self.rx, self.ry, self.rz))

    def __len__(self) -> int:
        return 6

    def offset(self, dx: float = 0.0, dy: float = 0.0, dz: float = 0.0) -> "Pose":
        """This pose moved by dx, dy, dz metres, orientation kept."""
        return replace(self, x=self.x + dx, y=self.y + dy, z=self.z + dz)

    def isclose(self, other: Sequence[float], position_tol: float = 1e-4, angle_tol: float = 1e-3) -> bool:
        """Same position within position_tol metres and orientation within angle_tol radians."""
        a, b = list(self), list(other)
        if any(abs(a[i] - b[i]) > position_tol for i in range(3)):
            return False
        # Compare rotations, not angle triples: (rx, ry, rz) has two forms near |ry| = pi/2.
        ma, mb = _rotation(a[3:6]), _rotation(b[3:6])
        return all(abs(ma[i] - mb[i]) <= angle_tol for i in range(9))


def _rotation(euler: Sequence[float]) -> Tuple[float, ...]:
    rx, ry, rz = euler
    cx, sx, cy, sy, cz, sz = math.cos(rx), math.sin(rx), math.cos(ry), math.sin(ry), math.cos(rz), math.sin(rz)
    return (
        cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx,
        sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx,
        -sy, cy * sx, cy * cx,
    )  # fmt: skip


@dataclass(frozen=True)
class ArmInfo:
    dof: int
    model: int  # ka_robot_arm_model_e
    force_type: int  # ka_force_type_e
    product: str
    controller_version: str
    algorithm_version: str


@dataclass(frozen=True)
class ArmState:
    """The arm's state as one query reads it: joints in degrees, the tool pose, error words."""

    joints: Joints
    pose: Pose
    arm_err: int
    sys_err: int


@dataclass(frozen=True)
class Errors:
    arm_err: int
    sys_err: int
    joint_errors: Tuple[int, ...]  # per joint error flags

    @property
    def any(self) -> bool:
        return bool(self.arm_err or self.sys_err or any(self.joint_errors))


@dataclass(frozen=True)
class GripperState:
    enable: int
    status: int
    error: int
    mode: int
    force: int
    temperature: int
    position: int  # stroke 0..1000


@dataclass(frozen=True)
class RealtimeState:
    """One pushed state datagram: joints in degrees, speeds in degrees/s, the flange pose,
    currents, voltages and temperatures in the controller's units / 1000."""

    ok: bool  # False when the datagram did not parse (errCode -3)
    arm_ip: str
    arm_err: int
    sys_err: int
    joints: Joints
    joint_speed: Joints
    joint_current: Joints
    joint_voltage: Joints
    joint_temperature: Joints
    joint_enabled: Tuple[bool, ...]
    joint_errors: Tuple[int, ...]
    pose: Pose
    force: Tuple[float, ...]
    status: int  # ka_arm_current_status_e

    @property
    def status_name(self) -> str:
        return STATUS_NAMES[self.status] if 0 <= self.status < len(STATUS_NAMES) else str(self.status)


def pose_from_c(pose: ll.ka_pose_t) -> Pose:
    p, e, q = pose.position, pose.euler, pose.quaternion
    return Pose(p.x, p.y, p.z, e.rx, e.ry, e.rz, (q.w, q.x, q.y, q.z))


def pose_to_c(pose: Any) -> ll.ka_pose_t:
    """A Pose, or a sequence (x, y, z, rx, ry, rz), as ka_pose_t (quaternion zero unless the Pose has one)."""
    out = ll.ka_pose_t()
    values = [float(v) for v in pose]
    if len(values) != 6:
        raise ValueError("a pose is x, y, z (m), rx, ry, rz (rad): 6 values, got %d" % len(values))
    out.position.x, out.position.y, out.position.z = values[0:3]
    out.euler.rx, out.euler.ry, out.euler.rz = values[3:6]
    quaternion = getattr(pose, "quaternion", None)
    if quaternion is not None:
        out.quaternion.w, out.quaternion.x, out.quaternion.y, out.quaternion.z = quaternion
    return out


def joints_to_c(joints: Any) -> "ctypes.Array[ctypes.c_float]":
    """Up to 7 joint angles (degrees) as the float[7] every joint argument takes."""
    values = [float(v) for v in joints]
    if not 1 <= len(values) <= ll.KA_JOINTS:
        raise ValueError("expected 1 to %d joint angles, got %d" % (ll.KA_JOINTS, len(values)))
    return (ctypes.c_float * ll.KA_JOINTS)(*values)


def text(raw: bytes) -> str:
    """A fixed-width C text field: up to the first NUL, full width when there is none."""
    return raw.split(b"\0", 1)[0].decode("utf-8", "replace")


def realtime_from_c(state: ll.ka_realtime_arm_joint_state_t, dof: int) -> RealtimeState:
    return RealtimeState(
        ok=state.errCode == 0,
        arm_ip=text(bytes(state.arm_ip)),
        arm_err=state.arm_err,
        sys_err=state.sys_err,
        joints=tuple(state.joint_position[:dof]),
        joint_speed=tuple(state.joint_speed[:dof]),
        joint_current=tuple(state.joint_current[:dof]),
        joint_voltage=tuple(state.joint_voltage[:dof]),
        joint_temperature=tuple(state.joint_temperature[:dof]),
        joint_enabled=tuple(state.joint_en_flag[:dof]),
        joint_errors=tuple(state.joint_err_code[:dof]),
        pose=pose_from_c(state.waypoint),
        force=tuple(state.force),
        status=state.arm_current_status,
    )
