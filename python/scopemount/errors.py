"""Result codes as exceptions: every non-zero code raises a ScopeError.

Each carries the code and the library's own text for it, in the user's
language (the library reads the locale on every call).
"""

from __future__ import annotations

import ctypes

from ._library import lib

TEXT_BUFFER_UNITS = 69


def text_buffer() -> "ctypes.Array[ctypes.c_uint16]":
    """Room for the library's longest text."""
    return (ctypes.c_uint16 * TEXT_BUFFER_UNITS)()


def decoded(buffer: "ctypes.Array[ctypes.c_uint16]") -> str:
    """A zero-terminated UTF-16 text the library wrote."""
    return bytes(buffer).decode("utf-16-le").split("\0", 1)[0]


def error_text(code: int) -> str:
    """The library's text for a result code."""
    buffer = text_buffer()
    lib.ScopeGetErrorText(code, buffer)
    return decoded(buffer)


class ScopeError(Exception):
    """A result code other than 0 from the library."""

    code: int = -1

    def __init__(self, code: int, text: str | None = None) -> None:
        self.code = code
        self.text = error_text(code) if text is None else text
        super().__init__(f"{self.text} (code {code})")


class InvalidModel(ScopeError):
    code = 1


class AlreadyConnected(ScopeError):
    code = 2


class NotConnected(ScopeError):
    code = 3


class InvalidParameter(ScopeError, ValueError):
    code = 4


class CommunicationError(ScopeError):
    """The mount's controller could not be reached or did not answer."""


class SerialPortBusy(CommunicationError):
    code = 5


class NoResponseAxis1(CommunicationError):
    code = 100


class NoResponseAxis2(CommunicationError):
    code = 101


class AxisBusy(ScopeError):
    code = 102


class TargetOutOfLimits(ScopeError):
    """The target is outside the altitude limits in force."""


class TargetTooHigh(TargetOutOfLimits):
    code = 103


class TargetTooLow(TargetOutOfLimits):
    code = 104


class UserInterrupt(ScopeError):
    code = 105


class AlignFailed(ScopeError):
    code = 200


class ModelNotImplemented(ScopeError):
    code = 300


class InvalidAlignmentData(ScopeError):
    code = 400


_BY_CODE: dict[int, type[ScopeError]] = {
    cls.code: cls
    for cls in (
        InvalidModel,
        AlreadyConnected,
        NotConnected,
        InvalidParameter,
        SerialPortBusy,
        NoResponseAxis1,
        NoResponseAxis2,
        AxisBusy,
        TargetTooHigh,
        TargetTooLow,
        UserInterrupt,
        AlignFailed,
        ModelNotImplemented,
        InvalidAlignmentData,
    )
}


def error_for(code: int) -> ScopeError:
    """The exception for a result code (ScopeError itself for an unknown one)."""
    return _BY_CODE.get(code, ScopeError)(code)


def check(code: int) -> None:
    """Raises the code's exception unless it is 0."""
    if code != 0:
        raise error_for(code)
