"""Process-wide start of the library (once, lazily), log capture and the push dispatcher."""

from __future__ import annotations

import atexit
import ctypes
import logging
import sys
import threading
from typing import Callable, List, Optional

from . import _lowlevel as ll
from .errors import error_for

logger = logging.getLogger("ka_api")
logger.addHandler(logging.NullHandler())

_start_lock = threading.Lock()
_started = False
_log_threshold = 3  # the library's default: errors only
_last_line = threading.local()
_last_line_any: Optional[str] = None
_subscribers: List[Callable[[ll.ka_realtime_arm_joint_state_t], None]] = []
_subscribers_lock = threading.Lock()


def _libc_vsnprintf() -> Callable[..., int]:
    if sys.platform == "win32":
        function = ctypes.cdll.msvcrt._vsnprintf
    else:
        function = ctypes.CDLL(None).vsnprintf
    function.argtypes = [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_char_p, ctypes.c_void_p]
    function.restype = ctypes.c_int
    return function


_vsnprintf = _libc_vsnprintf()


def _on_log(fmt: Optional[bytes], args: Optional[int]) -> None:
    global _last_line_any
    if fmt is None:
        return
    buffer = ctypes.create_string_buffer(1024)
    _vsnprintf(buffer, len(buffer), fmt, args)
    line = buffer.value.decode("utf-8", "replace").rstrip("\r\n")
    _last_line.text = line
    _last_line_any = line
    logger.log(logging.ERROR if _log_threshold >= 3 else logging.DEBUG, "%s", line)


def _on_state(state: ll.ka_realtime_arm_joint_state_t) -> None:
    with _subscribers_lock:
        targets = list(_subscribers)
    for target in targets:
        try:
            target(state)
        except Exception:  # a subscriber's fault must not reach the library's thread
            logger.exception("realtime state subscriber failed")


# Kept at module level: the library holds these pointers for the life of the process.
_log_callback = ll.ka_log_callback_t(_on_log)
_state_callback = ll.ka_realtime_callback_t(_on_state)


def ensure_started() -> None:
    """Runs ka_init(2) once per process, with log capture and the push dispatcher installed."""
    global _started
    if _started:
        return
    with _start_lock:
        if _started:
            return
        ll.ka_set_log_call_back(_log_callback, _log_threshold)
        ll.ka_realtime_arm_state_call_back(_state_callback)
        code = ll.ka_init(ll.KA_THREAD_MODE_TRIPLE)
        if code != 0:
            raise error_for(code, "ka_init", last_log_line())
        atexit.register(ll.ka_destory)
        _started = True


def set_log_level(level: int) -> None:
    """Library log threshold: 0 everything, 1 info, 2 warnings, 3 errors (default), 4 nothing."""
    global _log_threshold
    _log_threshold = level
    ll.ka_set_log_call_back(_log_callback, level)


def last_log_line() -> Optional[str]:
    """The last line the library logged on this thread, else on any thread."""
    return getattr(_last_line, "text", None) or _last_line_any


def take_log_line() -> Optional[str]:
    line = last_log_line()
    _last_line.text = None
    return line


def check(code: int, function: str) -> None:
    """Raises the KaError subclass for a non-zero result code."""
    if code != 0:
        raise error_for(code, function, take_log_line())


def subscribe(target: Callable[[ll.ka_realtime_arm_joint_state_t], None]) -> None:
    with _subscribers_lock:
        _subscribers.append(target)


def unsubscribe(target: Callable[[ll.ka_realtime_arm_joint_state_t], None]) -> None:
    with _subscribers_lock:
        if target in _subscribers:
            _subscribers.remove(target)
