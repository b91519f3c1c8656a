"""Python interface to the ka_api robot arm client library.

    >>> import ka_api
    >>> with ka_api.Arm("127.0.0.1", 8080) as arm:
    ...     arm.joints()

``ka_api.lowlevel`` holds the raw ctypes bindings of every C function and
record; ``Arm.handle`` is the ``ka_robot_handle*`` they take.
"""

from __future__ import annotations

from . import _lowlevel as lowlevel
from . import kinematics
from ._runtime import last_log_line, set_log_level
from .arm import DEFAULT_HOST, DEFAULT_PORT, Arm, StateStream
from .errors import (
    Disconnected,
    FamilyError,
    KaError,
    KinematicsError,
    LocalError,
    ParseError,
    Refused,
    Timeout,
    error_for,
)
from .types import ArmInfo, ArmState, Errors, GripperState, Pose, RealtimeState

__version__ = "1.0.3"


def library_version() -> str:
    """The loaded C library's version text."""
    return str(lowlevel.ka_api_version().decode())


__all__ = [
    "Arm",
    "ArmInfo",
    "ArmState",
    "DEFAULT_HOST",
    "DEFAULT_PORT",
    "Disconnected",
    "Errors",
    "FamilyError",
    "GripperState",
    "KaError",
    "KinematicsError",
    "LocalError",
    "ParseError",
    "Pose",
    "RealtimeState",
    "Refused",
    "StateStream",
    "Timeout",
    "error_for",
    "kinematics",
    "last_log_line",
    "library_version",
    "lowlevel",
    "set_log_level",
]
