"""Kinematics of the supported arm models, without a connection.

Joints in degrees, positions in metres, Euler angles in radians
(R = Rz(rz)·Ry(ry)·Rx(rx)), quaternions (w, x, y, z). Sequences go in
(lists, tuples, NumPy arrays); tuples and :class:`ka_api.Pose` come out.

The library's kinematics context is process-wide: these functions load the
model's defaults on each call and hold a lock against each other, but they
must not be mixed with threads that use the context through ``ka_api.lowlevel``.
"""

from __future__ import annotations

import ctypes
import threading
from typing import Any, Sequence, Tuple, Union

from . import _lowlevel as ll
from .errors import KinematicsError
from .types import Joints, Pose, joints_to_c, pose_from_c, pose_to_c

MODELS = {
    "KIVO": ll.KA_ARM_MODEL_KIVO,
    "LUNE": ll.KA_ARM_MODEL_LUNE,
    "MARO_II": ll.KA_ARM_MODEL_MARO_II,
    "TQ": ll.KA_ARM_MODEL_MARO_II,
    "MARO_III": ll.KA_ARM_MODEL_MARO_III,
    "NEPAX": ll.KA_ARM_MODEL_NEPAX,
    "NEPAZ": ll.KA_ARM_MODEL_NEPAZ,
    "QUIL": ll.KA_ARM_MODEL_QUIL,
    "NEPATQ": ll.KA_ARM_MODEL_NEPATQ,
}
SEVEN_AXIS = {ll.KA_ARM_MODEL_LUNE, ll.KA_ARM_MODEL_QUIL}

Model = Union[int, str]
_lock = threading.Lock()


def model_number(model: Model) -> int:
    """A model as ka_robot_arm_model_e: an int, or a name such as "KIVO" or "KIVO-B"."""
    if isinstance(model, int):
        return model
    name = model.upper().split("-", 1)[0]
    if name not in MODELS:
        raise ValueError("unknown arm model %r; known: %s" % (model, ", ".join(sorted(MODELS))))
    return MODELS[name]


def dof_of(model: Model) -> int:
    return 7 if model_number(model) in SEVEN_AXIS else 6


def _load(model: Model, force_type: int) -> int:
    number = model_number(model)
    code = ll.ka_algo_init_sys_data(number, force_type)
    if code != 0:
        raise KinematicsError(code, "ka_algo_init_sys_data", "model %r has no parameters" % (model,))
    return number


def forward(model: Model, joints: Sequence[float], force_type: int = 0) -> Pose:
    """Tool pose (base frame, default tool) of ``model`` at ``joints`` (degrees)."""
    with _lock:
        _load(model, force_type)
        return pose_from_c(ll.ka_algo_forward_kinematics(None, joints_to_c(_floats(joints))))


def inverse(
    model: Model, pose: Sequence[float], reference: Sequence[float], force_type: int = 0
) -> Joints:
    """Joint angles (degrees) reaching ``pose`` (x, y, z m, rx, ry, rz rad, or a Pose) nearest to
    ``reference`` (degrees). Raises KinematicsError: 1 no solution within the limits, -1 the
    reference is outside the limits."""
    params = ll.ka_inverse_kinematics_params_t()
    params.q_in = joints_to_c(_floats(reference))
    params.q_pose = pose_to_c(_floats(pose) if not isinstance(pose, Pose) else pose)
    params.q_flag = 1  # orientation from the Euler angles
    out = (ctypes.c_float * ll.KA_JOINTS)()
    with _lock:
        number = _load(model, force_type)
        code = ll.ka_algo_inverse_kinematics(None, params, out)
    if code != 0:
        raise KinematicsError(code, "ka_algo_inverse_kinematics", None)
    return tuple(out[: 7 if number in SEVEN_AXIS else 6])


def euler_to_quaternion(rx: float, ry: float, rz: float) -> Tuple[float, float, float, float]:
    q = ll.ka_algo_euler2quaternion(ll.ka_euler_t(rx, ry, rz))
    return (q.w, q.x, q.y, q.z)


def quaternion_to_euler(w: float, x: float, y: float, z: float) -> Tuple[float, float, float]:
    e = ll.ka_algo_quaternion2euler(ll.ka_quat_t(w, x, y, z))
    return (e.rx, e.ry, e.rz)


def pose_to_matrix(pose: Sequence[float]) -> Tuple[Tuple[float, ...], ...]:
    """4x4 homogeneous transform (rows) of a pose's position and Euler angles."""
    m = ll.ka_algo_pos2matrix(pose_to_c(_floats(pose) if not isinstance(pose, Pose) else pose))
    return tuple(tuple(m.data[r][c] for c in range(m.columns)) for r in range(m.rows))


def matrix_to_pose(matrix: Sequence[Sequence[float]]) -> Pose:
    """Pose of a 4x4 homogeneous transform (rows)."""
    m = ll.ka_matrix_t()
    m.rows = m.columns = 4
    for r in range(4):
        for c in range(4):
            m.data[r][c] = float(matrix[r][c])
    return pose_from_c(ll.ka_algo_matrix2pos(m))


def _floats(values: Any) -> Sequence[float]:
    # NumPy arrays (any shape that flattens to the values) and plain sequences alike.
    if hasattr(values, "tolist"):
        values = values.tolist()
    return [float(v) for v in values]
