"""Finding the shared library and declaring the C functions it exports.

The search order: the path in SCOPEMOUNT_LIBRARY (and nothing else when it
is set), the library beside an installed prefix, a build tree next to the
sources, then the system's loader.
"""

from __future__ import annotations

import ctypes
import os
from pathlib import Path
from typing import Optional

LIBRARY_FILE = "libscopemount.so.0"
ENVIRONMENT_VARIABLE = "SCOPEMOUNT_LIBRARY"

# Build trees next to the sources, most usual first.
BUILD_TREES = ("build", "build-check/plain", "build-release", "build-debug")


class LibraryNotFound(ImportError):
    """No loadable libscopemount was found (the message lists where we looked)."""


def _installed_candidates(package_dir: Path) -> list[Path]:
    # <prefix>/lib/python3/dist-packages/scopemount: the library sits in
    # <prefix>/lib or a multiarch directory below it.
    found: list[Path] = []
    for ancestor in list(package_dir.parents)[:5]:
        if ancestor.name not in ("lib", "lib64"):
            continue
        found.append(ancestor / LIBRARY_FILE)
        found.extend(sorted(ancestor.glob("*/" + LIBRARY_FILE)))
    return found


def _build_tree_candidates(package_dir: Path) -> list[Path]:
    source_root = package_dir.parent.parent  # python/scopemount -> the sources
    return [source_root / tree / "src" / LIBRARY_FILE for tree in BUILD_TREES]


def candidate_paths(package_dir: Optional[Path] = None) -> list[Path]:
    """Where the library is looked for, in order (SCOPEMOUNT_LIBRARY aside)."""
    here = package_dir or Path(__file__).resolve().parent
    return _installed_candidates(here) + _build_tree_candidates(here)


def load() -> tuple[ctypes.CDLL, str]:
    """Loads the library; returns it and a description of where it came from."""
    explicit = os.environ.get(ENVIRONMENT_VARIABLE)
    if explicit:
        try:
            return ctypes.CDLL(explicit), explicit
        except OSError as error:
            raise LibraryNotFound(
                f"{ENVIRONMENT_VARIABLE}={explicit} cannot be loaded: {error}"
            ) from error
    tried = candidate_paths()
    for path in tried:
        if path.is_file():
            return ctypes.CDLL(str(path)), str(path)
    try:
        return ctypes.CDLL(LIBRARY_FILE), f"{LIBRARY_FILE} (system loader)"
    except OSError:
        pass
    places = "\n  ".join(str(p) for p in tried)
    raise LibraryNotFound(
        f"{LIBRARY_FILE} not found. Build it (cmake -S . -B build && cmake --build build),"
        f" install it, or set {ENVIRONMENT_VARIABLE} to its path. Looked in:\n  {places}\n"
        "  and the system loader's paths"
    )


class SystemTime(ctypes.Structure):
    """Civil time as the library takes it: eight 16-bit fields."""

    _fields_ = [
        ("year", ctypes.c_uint16),
        ("month", ctypes.c_uint16),
        ("day_of_week", ctypes.c_uint16),
        ("day", ctypes.c_uint16),
        ("hour", ctypes.c_uint16),
        ("minute", ctypes.c_uint16),
        ("second", ctypes.c_uint16),
        ("milliseconds", ctypes.c_uint16),
    ]


_i32 = ctypes.c_int32
_u32 = ctypes.c_uint32
_dbl = ctypes.c_double
_pdbl = ctypes.POINTER(ctypes.c_double)
_pu32 = ctypes.POINTER(ctypes.c_uint32)
_pu16 = ctypes.POINTER(ctypes.c_uint16)
_pvoid = ctypes.c_void_p

# name: (result type, argument types), as include/scopemount.h declares them.
PROTOTYPES: dict[str, tuple[object, list[object]]] = {
    "ScopeGetErrorText": (None, [_i32, _pu16]),
    "ScopeGetModelName": (_i32, [_i32, _pu16]),
    "ScopeConnect": (_i32, [_i32, _dbl, _dbl]),
    "ScopeDisconnect": (_i32, []),
    "ScopeSetSite": (_i32, [_dbl, _dbl]),
    "ScopeIsEquatorial": (_i32, []),
    "ScopeSetComPort": (None, [_i32]),
    "ScopeSetPortPath": (_i32, [_i32, ctypes.c_char_p]),
    "ScopeResetAlignment": (_i32, [_dbl, _dbl]),
    "ScopeAlignOneStar": (_i32, [_pdbl]),
    "ScopeAlignTwoStars": (_i32, [_pdbl, _pdbl]),
    "ScopeAlignThreeStars": (_i32, [_pdbl, _pdbl, _pdbl]),
    "ScopeGetAlignmentQuality": (_i32, [_pdbl]),
    "ScopeGetPointingTerms": (_i32, [_pdbl, _pdbl]),
    "ScopeGetAlignmentData": (_i32, [_pvoid]),
    "ScopeSetAlignmentData": (_i32, [_pvoid]),
    "ScopeMoveAxis": (_i32, [_u32, _dbl]),
    "ScopeStopAxis": (_i32, [_u32]),
    "ScopeSetAltitudeLimits": (_i32, [_dbl, _dbl]),
    "ScopeSyncAxis": (_i32, [_u32, _dbl]),
    "ScopeSetBacklash": (_i32, [_u32, _dbl]),
    "ScopeGotoEquatorial": (_i32, [_dbl, _dbl]),
    "ScopeSetTracking": (_i32, [_u32]),
    "ScopeSetTrackingRate": (_i32, [_i32]),
    "ScopeGotoAxes": (_i32, [_dbl, _dbl]),
    "ScopeGotoHorizontal": (_i32, [_dbl, _dbl]),
    "ScopeSkyToAxes": (_i32, [_dbl, _dbl, _pdbl]),
    "ScopeSyncHome": (_i32, []),
    "ScopeGetAxisPositions": (_i32, [_pdbl]),
    "ScopeGetSkyPosition": (_i32, [_pdbl]),
    "ScopeGetHorizontalPosition": (_i32, [_pdbl]),
    "ScopeGetAxisStatus": (_i32, [_u32, _pu32]),
    "ScopeGetMountStatus": (_i32, [_pu32]),
    "ScopeGetSiderealTime": (_dbl, [SystemTime, _dbl, _i32]),
    "ScopeAngularSeparation": (_dbl, [_dbl, _dbl, _dbl, _dbl]),
}


def declare(library: ctypes.CDLL) -> None:
    for name, (result, arguments) in PROTOTYPES.items():
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments


_library, LOADED_FROM = load()
declare(_library)
lib = _library
