"""Exceptions raised for the library's result codes.

Codes: 1 the controller refused, -1 a failure on this side (unknown handle,
bad argument, send failure, lost connection), -2 no reply in time, -3 an
unparsable reply, -4 and below specific to the command family.
"""

from __future__ import annotations

from typing import Optional


class KaError(Exception):
    """A call returned a non-zero result code.

    Attributes: ``code`` (the int the C function returned), ``function``
    (its C name) and ``log_line`` (the library's last log line on this
    thread, or ``None``).
    """

    def __init__(self, code: int, function: str, log_line: Optional[str] = None) -> None:
        self.code = code
        self.function = function
        self.log_line = log_line
        text = "%s returned %d (%s)" % (function, code, describe(code))
        if log_line:
            text += ": " + log_line
        super().__init__(text)


class Refused(KaError):
    """The controller answered and refused (code 1, or another positive status)."""


class LocalError(KaError):
    """The call could not be carried out on this side (code -1)."""


class Disconnected(LocalError):
    """Code -1 because the arm is not connected: it never connected, was closed, or its connection ended."""


class Timeout(KaError):
    """No matching reply arrived in time (code -2)."""


class ParseError(KaError):
    """A reply arrived but could not be parsed, or lacked a required key (code -3)."""


class FamilyError(KaError):
    """A code of -4 or below, whose meaning the called function documents (for example -4: a
    motion chain ended on another device; -5: a blocking wait in thread mode 0 ran out)."""


class KinematicsError(KaError):
    """The inverse kinematics found no solution (1), had a reference outside the joint limits (-1)
    or a quaternion that is not of unit norm (-2)."""


_MEANINGS = {
    1: "refused by the controller",
    0: "success",
    -1: "local failure",
    -2: "no reply in time",
    -3: "unparsable reply",
    -4: "done, but not as requested",
}

# Log text by which a -1 is told to be a lost or absent connection.
_DISCONNECTED_MARKS = ("disconnected", "send error", "not connected", "connect err")


def describe(code: int) -> str:
    if code in _MEANINGS:
        return _MEANINGS[code]
    return "refused (status %d)" % code if code > 0 else "family-specific failure"


def error_for(code: int, function: str, log_line: Optional[str] = None) -> KaError:
    """The exception that stands for ``code`` returned by C function ``function``."""
    if code > 0:
        return Refused(code, function, log_line)
    if code == -1:
        lowered = (log_line or "").lower()
        if any(mark in lowered for mark in _DISCONNECTED_MARKS):
            return Disconnected(code, function, log_line)
        return LocalError(code, function, log_line)
    if code == -2:
        return Timeout(code, function, log_line)
    if code == -3:
        return ParseError(code, function, log_line)
    return FamilyError(code, function, log_line)
