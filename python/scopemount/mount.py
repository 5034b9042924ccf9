"""The connected mount: one at a time, as the library allows."""

from __future__ import annotations

import ctypes
import threading
import time
from types import TracebackType
from typing import Callable, ClassVar, Optional, Sequence, Union

from ._library import lib
from .definitions import (
    AxisStatus,
    Model,
    MountState,
    StarObservation,
    Status,
    TrackingRate,
)
from .errors import AlreadyConnected, InvalidParameter, NotConnected, check
from .sky import (
    DEGREES_PER_RADIAN,
    HOURS_PER_RADIAN,
    positive_degrees,
    positive_hours,
    sidereal_time,
    signed_hours,
)

ALIGNMENT_RECORD_SIZE = 200
# A port number kept for device paths given to connect().
PORT_FOR_PATH = 255
# How often the wait_until_* calls ask for the status.
POLL_INTERVAL_S = 0.05
# A GOTO shows as slewing only once its worker has made its first pass, so
# right after the request an idle status may be the one from before it. A
# wait trusts "idle" once it has seen the motion, or after this long.
MOTION_START_GRACE_S = 0.5

Pair = ctypes.c_double * 2
Observation = ctypes.c_double * 4


def _rad(degrees: float) -> float:
    return degrees / DEGREES_PER_RADIAN


def _hours_to_rad(hours: float) -> float:
    return hours / HOURS_PER_RADIAN


class Mount:
    """A connected mount. Make one with Mount.connect(), preferably in a
    `with` block, which always disconnects."""

    _current: ClassVar[Optional["Mount"]] = None
    _lock: ClassVar[threading.Lock] = threading.Lock()

    def __init__(self, model: Model, longitude_deg: float) -> None:
        self.model = model
        self.longitude_deg = longitude_deg
        self._motion_requested = 0.0  # time.monotonic() of the last GOTO or move

    # Connection -----------------------------------------------------------

    @classmethod
    def connect(
        cls,
        model: Union[Model, int],
        latitude_deg: float,
        elevation_m: float = 0.0,
        port: Union[str, int, None] = None,
        *,
        longitude_deg: float = 0.0,
    ) -> "Mount":
        """Connects a model at a site. `port` is a device path or a port
        number (simulators ignore it); `longitude_deg` (east positive) turns
        right ascension into hour angle."""
        with cls._lock:
            if cls._current is not None:
                raise AlreadyConnected(2)
            if isinstance(port, str):
                check(lib.ScopeSetPortPath(PORT_FOR_PATH, port.encode()))
                lib.ScopeSetComPort(PORT_FOR_PATH)
            elif port is not None:
                if not 0 <= port <= 255:
                    raise InvalidParameter(4)
                lib.ScopeSetComPort(port)
            # Model numbers go to the library as they are: it judges them.
            check(lib.ScopeConnect(int(model), _rad(latitude_deg), elevation_m))
            mount = cls(Model(model), longitude_deg)
            cls._current = mount
            return mount

    def close(self) -> None:
        """Disconnects (stopping whatever runs); closing twice is harmless."""
        with Mount._lock:
            if Mount._current is self:
                lib.ScopeDisconnect()
                Mount._current = None

    @property
    def connected(self) -> bool:
        return Mount._current is self

    def __enter__(self) -> "Mount":
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        value: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()

    def _call(self, function: Callable[..., int], *arguments: object) -> None:
        # A closed object must never drive a mount connected after it.
        if not self.connected:
            raise NotConnected(3)
        check(function(*arguments))

    def _start_motion(self, function: Callable[..., int], *arguments: object) -> None:
        self._call(function, *arguments)
        self._motion_requested = time.monotonic()

    # Settings -------------------------------------------------------------

    def set_site(self, latitude_deg: float, elevation_m: float = 0.0) -> None:
        self._call(lib.ScopeSetSite, _rad(latitude_deg), elevation_m)

    def set_altitude_limits(self, lower_deg: float, upper_deg: float) -> None:
        self._call(lib.ScopeSetAltitudeLimits, _rad(lower_deg), _rad(upper_deg))

    def set_backlash(self, axis: int, backlash_deg: float) -> None:
        self._call(lib.ScopeSetBacklash, axis, _rad(backlash_deg))

    # Motion -----------------------------------------------------------------

    def hour_angle_of(self, ra_hours: float) -> float:
        """The hour angle (hours, signed) of a right ascension of date now."""
        return signed_hours(sidereal_time(longitude_deg=self.longitude_deg) - ra_hours)

    def goto_equatorial(
        self,
        ra_hours: Optional[float] = None,
        dec_deg: float = 0.0,
        *,
        ha_hours: Optional[float] = None,
    ) -> None:
        """Slews to a sky position (right ascension of date or hour angle,
        exactly one of them), then tracks it."""
        hour_angle = self._hour_angle(ra_hours, ha_hours)
        self._start_motion(lib.ScopeGotoEquatorial, _hours_to_rad(hour_angle), _rad(dec_deg))

    def goto_horizontal(self, azimuth_deg: float, altitude_deg: float) -> None:
        """Slews to azimuth (from north through east) and altitude; no tracking."""
        self._start_motion(lib.ScopeGotoHorizontal, _rad(azimuth_deg), _rad(altitude_deg))

    def goto_axes(self, axis0_deg: float, axis1_deg: float) -> None:
        self._start_motion(lib.ScopeGotoAxes, _rad(axis0_deg), _rad(axis1_deg))

    def move(self, axis: int, rate_deg_per_s: float) -> None:
        """Runs an axis at a signed rate; 0 stops it."""
        self._start_motion(lib.ScopeMoveAxis, axis, _rad(rate_deg_per_s))

    def stop(self, axis: Optional[int] = None) -> None:
        """Stops one axis, or both and tracking when no axis is given."""
        if axis is not None:
            self._call(lib.ScopeStopAxis, axis)
            return
        self._call(lib.ScopeSetTracking, 0)
        self._call(lib.ScopeStopAxis, 0)
        self._call(lib.ScopeStopAxis, 1)

    def tracking(self, on: bool = True, rate: TrackingRate = TrackingRate.SIDEREAL) -> None:
        self._call(lib.ScopeSetTrackingRate, int(rate))
        self._call(lib.ScopeSetTracking, 1 if on else 0)

    def wait_until_idle(self, timeout_s: float) -> Status:
        """Waits until no slew or manual motion runs (tracking may); returns
        the status then, or raises TimeoutError."""
        return self._wait(lambda s: not (s.slewing or s.moving), timeout_s, "idle")

    def wait_until_tracking(self, timeout_s: float) -> Status:
        """Waits until the slew has ended and the mount tracks."""
        return self._wait(lambda s: s.tracking and not s.slewing, timeout_s, "tracking")

    def _wait(self, done: Callable[[Status], bool], timeout_s: float, what: str) -> Status:
        deadline = time.monotonic() + timeout_s
        seen_motion = False
        while True:
            status = self.status()
            seen_motion = seen_motion or status.slewing or status.moving
            settled = seen_motion or time.monotonic() - self._motion_requested >= MOTION_START_GRACE_S
            if settled and done(status):
                return status
            if time.monotonic() >= deadline:
                raise TimeoutError(f"the mount was not {what} within {timeout_s} s")
            time.sleep(POLL_INTERVAL_S)

    # Synchronisation and alignment -------------------------------------------

    def sync(
        self,
        ra_hours: Optional[float] = None,
        dec_deg: float = 0.0,
        *,
        ha_hours: Optional[float] = None,
    ) -> None:
        """Declares that the standing mount points at this sky position."""
        hour_angle = self._hour_angle(ra_hours, ha_hours)
        axes = Pair()
        self._call(lib.ScopeSkyToAxes, _hours_to_rad(hour_angle), _rad(dec_deg), axes)
        self._call(lib.ScopeSyncAxis, 0, axes[0])
        self._call(lib.ScopeSyncAxis, 1, axes[1])

    def sync_axes(self, axis0_deg: float, axis1_deg: float) -> None:
        self._call(lib.ScopeSyncAxis, 0, _rad(axis0_deg))
        self._call(lib.ScopeSyncAxis, 1, _rad(axis1_deg))

    def sync_home(self) -> None:
        self._call(lib.ScopeSyncHome)

    def observe(
        self,
        ra_hours: Optional[float] = None,
        dec_deg: float = 0.0,
        *,
        ha_hours: Optional[float] = None,
    ) -> StarObservation:
        """Records a star the mount is centred on now, for align()."""
        hour_angle = self._hour_angle(ra_hours, ha_hours)
        status = self.status()
        return StarObservation(hour_angle, dec_deg, status.axis0_deg, status.axis1_deg)

    def align(self, stars: Sequence[StarObservation]) -> None:
        """Fits the pointing model to one, two or three star observations."""
        observations = [
            Observation(
                _hours_to_rad(s.ha_hours), _rad(s.dec_deg), _rad(s.axis0_deg), _rad(s.axis1_deg)
            )
            for s in stars
        ]
        functions = {
            1: lib.ScopeAlignOneStar,
            2: lib.ScopeAlignTwoStars,
            3: lib.ScopeAlignThreeStars,
        }
        if len(observations) not in functions:
            raise InvalidParameter(4, "align() takes one, two or three stars")
        self._call(functions[len(observations)], *observations)

    def reset_alignment(self, cone_deg: float = 0.0, non_perpendicularity_deg: float = 0.0) -> None:
        self._call(lib.ScopeResetAlignment, _rad(cone_deg), _rad(non_perpendicularity_deg))

    def alignment_record(self) -> bytes:
        """The pointing model as the library saves it (200 bytes)."""
        record = ctypes.create_string_buffer(ALIGNMENT_RECORD_SIZE)
        if not self.connected:
            raise NotConnected(3)
        written = lib.ScopeGetAlignmentData(record)
        if written != ALIGNMENT_RECORD_SIZE:
            check(written)
        return record.raw

    def restore_alignment(self, record: bytes) -> None:
        """Restores a record saved by alignment_record() for the same model."""
        if len(record) != ALIGNMENT_RECORD_SIZE:
            raise InvalidParameter(4, f"an alignment record is {ALIGNMENT_RECORD_SIZE} bytes")
        self._call(lib.ScopeSetAlignmentData, ctypes.create_string_buffer(record, len(record)))

    # Status -----------------------------------------------------------------

    def status(self) -> Status:
        axes = Pair()
        sky = Pair()
        horizon = Pair()
        state = ctypes.c_uint32()
        axis0 = ctypes.c_uint32()
        axis1 = ctypes.c_uint32()
        misalignment = ctypes.c_double()
        cone = ctypes.c_double()
        non_perpendicularity = ctypes.c_double()
        self._call(lib.ScopeGetAxisPositions, axes)
        self._call(lib.ScopeGetSkyPosition, sky)
        self._call(lib.ScopeGetHorizontalPosition, horizon)
        self._call(lib.ScopeGetMountStatus, ctypes.byref(state))
        self._call(lib.ScopeGetAxisStatus, 0, ctypes.byref(axis0))
        self._call(lib.ScopeGetAxisStatus, 1, ctypes.byref(axis1))
        self._call(lib.ScopeGetPointingTerms, ctypes.byref(cone), ctypes.byref(non_perpendicularity))
        quality = lib.ScopeGetAlignmentQuality(ctypes.byref(misalignment))
        ha_hours = signed_hours(sky[0] * HOURS_PER_RADIAN)
        return Status(
            model=self.model,
            equatorial=lib.ScopeIsEquatorial() == 1,
            state=MountState(state.value),
            axis_status=(AxisStatus(axis0.value), AxisStatus(axis1.value)),
            axis0_deg=axes[0] * DEGREES_PER_RADIAN,
            axis1_deg=axes[1] * DEGREES_PER_RADIAN,
            ha_hours=ha_hours,
            ra_hours=positive_hours(sidereal_time(longitude_deg=self.longitude_deg) - ha_hours),
            dec_deg=sky[1] * DEGREES_PER_RADIAN,
            azimuth_deg=positive_degrees(horizon[0] * DEGREES_PER_RADIAN),
            altitude_deg=horizon[1] * DEGREES_PER_RADIAN,
            alignment_quality=quality,
            misalignment_deg=misalignment.value * DEGREES_PER_RADIAN,
            cone_deg=cone.value * DEGREES_PER_RADIAN,
            non_perpendicularity_deg=non_perpendicularity.value * DEGREES_PER_RADIAN,
        )

    def _hour_angle(self, ra_hours: Optional[float], ha_hours: Optional[float]) -> float:
        if (ra_hours is None) == (ha_hours is None):
            raise InvalidParameter(4, "give exactly one of ra_hours and ha_hours")
        if ha_hours is not None:
            return ha_hours
        assert ra_hours is not None
        if not 0.0 <= ra_hours < 24.0:
            raise InvalidParameter(4, f"right ascension {ra_hours} h is outside 0 to 24 h")
        return self.hour_angle_of(ra_hours)
