"""Finding and loading the shared library, and binding its functions."""

from __future__ import annotations

import ctypes
import ctypes.util
import glob
import os
import sys
from typing import Any, Callable, List, Tuple

ENV_LIBRARY = "KA_API_LIBRARY"


class LibraryNotFound(OSError):
    """The shared library could not be loaded from any of the places tried."""


def _beside_package() -> List[str]:
    here = os.path.dirname(os.path.abspath(__file__))
    if sys.platform == "win32":
        return [os.path.join(here, "ka_api.dll")]
    return sorted(glob.glob(os.path.join(here, "libka_api.so*"))) or [os.path.join(here, "libka_api.so")]


def candidates() -> List[str]:
    """Every place tried, in order: beside the package, $KA_API_LIBRARY, the system search path."""
    places = _beside_package()
    from_env = os.environ.get(ENV_LIBRARY)
    if from_env:
        places.append(from_env)
    found = ctypes.util.find_library("ka_api")
    if found:
        places.append(found)
    places.extend(["ka_api.dll"] if sys.platform == "win32" else ["libka_api.so.1", "libka_api.so"])
    return places


def load() -> ctypes.CDLL:
    tried: List[str] = []
    for place in candidates():
        # Paths must exist; bare names go to the system loader's search.
        if os.sep in place or (os.altsep and os.altsep in place):
            if not os.path.exists(place):
                tried.append("%s (no such file)" % place)
                continue
        try:
            return ctypes.CDLL(place)
        except OSError as error:
            tried.append("%s (%s)" % (place, error))
    raise LibraryNotFound(
        "cannot load the ka_api shared library; set %s to its path. Tried:\n  %s"
        % (ENV_LIBRARY, "\n  ".join(tried))
    )


def bind(lib: ctypes.CDLL, name: str, signature: Tuple[Any, List[Tuple[str, Any]], bool, str]) -> Callable[..., Any]:
    restype, params, _variadic, _header = signature
    try:
        function = getattr(lib, name)
    except AttributeError:

        def missing(*_args: Any) -> Any:
            raise LibraryNotFound("%s is not exported by %s" % (name, lib._name))

        missing.__name__ = name
        return missing
    function.restype = restype
    # A variadic function takes its fixed parameters typed and the rest as given.
    function.argtypes = [argtype for _, argtype in params]
    return function
