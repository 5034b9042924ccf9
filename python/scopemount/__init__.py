"""scopemount: drive a motorised telescope mount from Python.

    from scopemount import Mount, Model
    with Mount.connect(Model.ALTAZ_SIMULATOR, latitude_deg=50.0) as mount:
        mount.goto_horizontal(azimuth_deg=120.0, altitude_deg=40.0)
        print(mount.wait_until_idle(timeout_s=30.0))

Degrees for declination, altitude, azimuth and axis angles; hours for right
ascension and hour angle; the unit is in every name.
"""

from . import _library
from . import errors as _errors
from ._library import LOADED_FROM as library_path
from ._library import LibraryNotFound
from .definitions import AxisStatus, Model, MountState, StarObservation, Status, TrackingRate
from .errors import (
    AlignFailed,
    AlreadyConnected,
    AxisBusy,
    CommunicationError,
    InvalidAlignmentData,
    InvalidModel,
    InvalidParameter,
    ModelNotImplemented,
    NoResponseAxis1,
    NoResponseAxis2,
    NotConnected,
    ScopeError,
    SerialPortBusy,
    TargetOutOfLimits,
    TargetTooHigh,
    TargetTooLow,
    UserInterrupt,
    error_text,
)
from .mount import ALIGNMENT_RECORD_SIZE, Mount
from .sky import separation, sidereal_time

__all__ = [
    "ALIGNMENT_RECORD_SIZE",
    "AlignFailed",
    "AlreadyConnected",
    "AxisBusy",
    "AxisStatus",
    "CommunicationError",
    "InvalidAlignmentData",
    "InvalidModel",
    "InvalidParameter",
    "LibraryNotFound",
    "Model",
    "ModelNotImplemented",
    "Mount",
    "MountState",
    "NoResponseAxis1",
    "NoResponseAxis2",
    "NotConnected",
    "ScopeError",
    "SerialPortBusy",
    "StarObservation",
    "Status",
    "TargetOutOfLimits",
    "TargetTooHigh",
    "TargetTooLow",
    "TrackingRate",
    "UserInterrupt",
    "error_text",
    "library_path",
    "model_name",
    "separation",
    "sidereal_time",
]


def model_name(model: "Model | int") -> str:
    """The library's display name of a model, in the user's language."""
    buffer = _errors.text_buffer()
    _errors.check(_library.lib.ScopeGetModelName(int(model), buffer))
    return _errors.decoded(buffer)
