"""Models, states and flags as the library numbers them."""

from __future__ import annotations

import enum
from dataclasses import dataclass


class Model(enum.IntEnum):
    MARVANE_ALTAZ = 0
    MARVANE_EQ = 1
    HOLLIN_ALTAZ = 2
    HOLLIN_EQ = 3
    DRAVIC_EQ_B = 4
    DRAVIC_TESSAMO = 5
    EQUATORIAL_SIMULATOR = 6
    ALTAZ_SIMULATOR = 7
    MARVANE_CORVEL_K1 = 8
    MARVANE_CORVEL_K2 = 9
    DRAVIC_QUILLO_1 = 10
    DRAVIC_QUILLO_2 = 11

    @property
    def is_simulator(self) -> bool:
        return self in (Model.EQUATORIAL_SIMULATOR, Model.ALTAZ_SIMULATOR)


class MountState(enum.IntFlag):
    IDLE = 1
    TRACKING = 2
    SLEWING = 4
    MOVING = 8


class AxisStatus(enum.IntFlag):
    STOPPED = 1
    RUNNING = 2
    SLEWING = 4
    POSITIVE = 8
    HIGH_SPEED = 16


class TrackingRate(enum.IntEnum):
    SIDEREAL = 0
    LUNAR = 1
    SOLAR = 2


@dataclass(frozen=True)
class StarObservation:
    """A star's place (hour angle, declination) and where the axes stood on it."""

    ha_hours: float
    dec_deg: float
    axis0_deg: float
    axis1_deg: float


@dataclass(frozen=True)
class Status:
    """Everything the library's getters say about the connected mount."""

    model: Model
    equatorial: bool
    state: MountState
    axis_status: tuple[AxisStatus, AxisStatus]
    axis0_deg: float
    axis1_deg: float
    ha_hours: float  # signed, -12 to +12
    ra_hours: float  # of date, 0 to 24 (local mean sidereal time minus hour angle)
    dec_deg: float
    azimuth_deg: float  # 0 to 360, from north through east
    altitude_deg: float
    alignment_quality: int  # 0 until an alignment succeeded, then 100
    misalignment_deg: float
    cone_deg: float
    non_perpendicularity_deg: float

    @property
    def slewing(self) -> bool:
        return MountState.SLEWING in self.state

    @property
    def moving(self) -> bool:
        return MountState.MOVING in self.state

    @property
    def tracking(self) -> bool:
        return MountState.TRACKING in self.state
