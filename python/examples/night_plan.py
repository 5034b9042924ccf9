#!/usr/bin/env python3
"""A night's plan: slew to each listed star that is up, nearest first, track
it for a while and log where the mount was as CSV.

    python3 night_plan.py Vega Arcturus Capella --track-seconds 30 > log.csv

Runs on the Alt/Az simulator unless told otherwise (--model, --port).
Places are J2000 catalogue positions precessed to the date (IAU 1976); the
arcminute or so that nutation and aberration add does not matter for a plan.
"""

from __future__ import annotations

import argparse
import csv
import math
import sys
import time
from datetime import datetime, timezone
from pathlib import Path
from typing import Any, NamedTuple, Optional, TextIO

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))  # run from the sources

import scopemount  # noqa: E402
from scopemount import Model, Mount  # noqa: E402


class Star(NamedTuple):
    name: str
    ra_hours: float  # J2000
    dec_deg: float  # J2000


def hms(h: float, m: float, s: float) -> float:
    return h + m / 60 + s / 3600


def dms(d: float, m: float, s: float) -> float:
    return math.copysign(abs(d) + m / 60 + s / 3600, d)


# J2000 (ICRS) places from the bright-star table of the scopemount program
# (tools/scopemount/sky.cpp); Polaris from the Hipparcos catalogue.
STARS = [
    Star("Sirius", hms(6, 45, 8.917), dms(-16, 42, 58.02)),
    Star("Arcturus", hms(14, 15, 39.672), dms(19, 10, 56.67)),
    Star("Vega", hms(18, 36, 56.336), dms(38, 47, 1.28)),
    Star("Capella", hms(5, 16, 41.359), dms(45, 59, 52.77)),
    Star("Rigel", hms(5, 14, 32.272), dms(-8, 12, 5.90)),
    Star("Procyon", hms(7, 39, 18.118), dms(5, 13, 29.96)),
    Star("Betelgeuse", hms(5, 55, 10.305), dms(7, 24, 25.43)),
    Star("Altair", hms(19, 50, 46.999), dms(8, 52, 5.96)),
    Star("Aldebaran", hms(4, 35, 55.239), dms(16, 30, 33.49)),
    Star("Antares", hms(16, 29, 24.459), dms(-26, 25, 55.21)),
    Star("Spica", hms(13, 25, 11.579), dms(-11, 9, 40.75)),
    Star("Pollux", hms(7, 45, 18.950), dms(28, 1, 34.32)),
    Star("Deneb", hms(20, 41, 25.915), dms(45, 16, 49.22)),
    Star("Regulus", hms(10, 8, 22.311), dms(11, 58, 1.95)),
    Star("Polaris", hms(2, 31, 49.09), dms(89, 15, 50.8)),
]


def precessed(star: Star, when: datetime) -> tuple[float, float]:
    """(RA hours, Dec degrees) of date, from J2000 by the IAU 1976 angles."""
    julian_centuries = (when.timestamp() / 86400.0 + 2440587.5 - 2451545.0) / 36525.0
    t = julian_centuries
    arcsec = math.pi / (180 * 3600)
    zeta = (2306.2181 * t + 0.30188 * t**2 + 0.017998 * t**3) * arcsec
    z = (2306.2181 * t + 1.09468 * t**2 + 0.018203 * t**3) * arcsec
    theta = (2004.3109 * t - 0.42665 * t**2 - 0.041833 * t**3) * arcsec
    ra0, dec0 = math.radians(star.ra_hours * 15), math.radians(star.dec_deg)
    a = math.cos(dec0) * math.sin(ra0 + zeta)
    b = math.cos(theta) * math.cos(dec0) * math.cos(ra0 + zeta) - math.sin(theta) * math.sin(dec0)
    c = math.sin(theta) * math.cos(dec0) * math.cos(ra0 + zeta) + math.cos(theta) * math.sin(dec0)
    ra = (math.degrees(math.atan2(a, b) + z) / 15) % 24
    return ra, math.degrees(math.asin(max(-1.0, min(1.0, c))))


def horizontal(ha_hours: float, dec_deg: float, latitude_deg: float) -> tuple[float, float]:
    """(azimuth from north through east, altitude), degrees."""
    ha, dec, lat = math.radians(ha_hours * 15), math.radians(dec_deg), math.radians(latitude_deg)
    altitude = math.asin(math.sin(dec) * math.sin(lat) + math.cos(dec) * math.cos(lat) * math.cos(ha))
    azimuth = math.atan2(
        -math.cos(dec) * math.sin(ha),
        math.sin(dec) * math.cos(lat) - math.cos(dec) * math.sin(lat) * math.cos(ha),
    )
    return math.degrees(azimuth) % 360, math.degrees(altitude)


class Target(NamedTuple):
    star: Star
    ra_hours: float  # of date
    dec_deg: float
    azimuth_deg: float
    altitude_deg: float


def targets_up(names: list[str], mount: Mount, latitude_deg: float, lowest_deg: float) -> list[Target]:
    now = datetime.now(timezone.utc)
    by_name = {s.name.lower(): s for s in STARS}
    up = []
    for name in names:
        star = by_name.get(name.lower())
        if star is None:
            print(f"night_plan: unknown star {name!r}; known: "
                  + ", ".join(s.name for s in STARS), file=sys.stderr)
            continue
        ra, dec = precessed(star, now)
        azimuth, altitude = horizontal(mount.hour_angle_of(ra), dec, latitude_deg)
        if altitude < lowest_deg:
            print(f"night_plan: {star.name} is down (altitude {altitude:.1f} deg)", file=sys.stderr)
            continue
        up.append(Target(star, ra, dec, azimuth, altitude))
    return up


def nearest_first(targets: list[Target], azimuth_deg: float, altitude_deg: float) -> list[Target]:
    """Each next target the one closest to where the mount will be."""
    order, left = [], list(targets)
    while left:
        here = (azimuth_deg, altitude_deg)
        nearest = min(left, key=lambda t: scopemount.separation(*here, t.azimuth_deg, t.altitude_deg))
        left.remove(nearest)
        order.append(nearest)
        azimuth_deg, altitude_deg = nearest.azimuth_deg, nearest.altitude_deg
    return order


def log(writer: Any, target: Target, mount: Mount) -> None:
    status = mount.status()
    writer.writerow([
        datetime.now(timezone.utc).isoformat(timespec="milliseconds"), target.star.name,
        f"{status.ra_hours:.5f}", f"{status.dec_deg:.4f}", f"{status.azimuth_deg:.4f}",
        f"{status.altitude_deg:.4f}", status.state.name or str(int(status.state)),
    ])


def run(arguments: argparse.Namespace, output: TextIO) -> int:
    writer = csv.writer(output)
    writer.writerow(["utc", "star", "ra_hours", "dec_deg", "azimuth_deg", "altitude_deg", "state"])
    port: Optional[str] = arguments.port
    with Mount.connect(arguments.model, arguments.lat, port=port, longitude_deg=arguments.lon) as mount:
        start = mount.status()
        plan = nearest_first(targets_up(arguments.stars, mount, arguments.lat, arguments.lowest),
                             start.azimuth_deg, start.altitude_deg)
        for target in plan:
            try:
                mount.goto_equatorial(ra_hours=target.ra_hours, dec_deg=target.dec_deg)
                mount.wait_until_tracking(arguments.slew_timeout)
            except (scopemount.ScopeError, TimeoutError) as error:
                print(f"night_plan: {target.star.name}: {error}", file=sys.stderr)
                continue
            end = time.monotonic() + arguments.track_seconds
            while True:
                log(writer, target, mount)
                if time.monotonic() >= end:
                    break
                time.sleep(min(arguments.interval, max(0.0, end - time.monotonic())))
    return 0 if plan else 1


def main(argv: Optional[list[str]] = None) -> int:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("stars", nargs="+", help="star names, e.g. Vega Arcturus")
    parser.add_argument("--model", type=int, default=int(Model.ALTAZ_SIMULATOR))
    parser.add_argument("--port", help="serial device of a hardware mount")
    parser.add_argument("--lat", type=float, default=50.0, help="site latitude, degrees north")
    parser.add_argument("--lon", type=float, default=10.0, help="site longitude, degrees east")
    parser.add_argument("--lowest", type=float, default=15.0, help="lowest altitude to visit, degrees")
    parser.add_argument("--track-seconds", type=float, default=60.0)
    parser.add_argument("--interval", type=float, default=1.0, help="seconds between log lines")
    parser.add_argument("--slew-timeout", type=float, default=120.0)
    return run(parser.parse_args(argv), sys.stdout)


if __name__ == "__main__":
    sys.exit(main())
