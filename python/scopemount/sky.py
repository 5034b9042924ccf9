"""Pure functions of the library: sidereal time and angular separation,
in the units the package uses (hours and degrees)."""

from __future__ import annotations

import math
from datetime import datetime, timezone
from typing import Optional

from ._library import SystemTime, lib

HOURS_PER_RADIAN = 12.0 / math.pi
DEGREES_PER_RADIAN = 180.0 / math.pi


def signed_hours(hours: float) -> float:
    """An hour angle reduced to -12 h .. +12 h."""
    reduced = math.fmod(hours, 24.0)
    if reduced >= 12.0:
        reduced -= 24.0
    elif reduced < -12.0:
        reduced += 24.0
    return reduced


def positive_hours(hours: float) -> float:
    return hours % 24.0


def positive_degrees(degrees: float) -> float:
    return degrees % 360.0


def _utc(when: Optional[datetime]) -> datetime:
    if when is None:
        return datetime.now(timezone.utc)
    if when.tzinfo is None:
        raise ValueError("give an aware datetime (with tzinfo), or None for now")
    return when.astimezone(timezone.utc)


def sidereal_time(when: Optional[datetime] = None, longitude_deg: float = 0.0) -> float:
    """Mean sidereal time in hours, 0 to 24: at Greenwich, or at the given
    east longitude. `when` is an aware datetime (default: now)."""
    utc = _utc(when)
    civil = SystemTime(
        year=utc.year,
        month=utc.month,
        day_of_week=0,
        day=utc.day,
        hour=utc.hour,
        minute=utc.minute,
        second=utc.second,
        milliseconds=utc.microsecond // 1000,
    )
    gmst = lib.ScopeGetSiderealTime(civil, 0.0, 0)
    return positive_hours(gmst * HOURS_PER_RADIAN + longitude_deg / 15.0)


def separation(lon1_deg: float, lat1_deg: float, lon2_deg: float, lat2_deg: float) -> float:
    """Great-circle angle in degrees between two positions given as
    (longitude-like, latitude-like) pairs in degrees, 0 to 180."""
    radians = lib.ScopeAngularSeparation(
        lon1_deg / DEGREES_PER_RADIAN,
        lat1_deg / DEGREES_PER_RADIAN,
        lon2_deg / DEGREES_PER_RADIAN,
        lat2_deg / DEGREES_PER_RADIAN,
    )
    return float(radians) * DEGREES_PER_RADIAN
