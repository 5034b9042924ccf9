"""The simulators end to end through the package."""

from __future__ import annotations

import time

import pytest

import scopemount
from scopemount import Model, Mount, MountState, StarObservation

SLEW_TIMEOUT_S = 20.0


def test_horizontal_goto_arrives_and_stands(altaz: Mount) -> None:
    altaz.goto_horizontal(azimuth_deg=10.0, altitude_deg=5.0)
    status = altaz.wait_until_idle(SLEW_TIMEOUT_S)
    assert status.state == MountState.IDLE, "a horizontal GOTO does not track"
    assert scopemount.separation(status.azimuth_deg, status.altitude_deg, 10.0, 5.0) < 0.01
    assert not status.equatorial and status.model is Model.ALTAZ_SIMULATOR


def test_equatorial_goto_tracks_its_target(equatorial: Mount) -> None:
    # Near the pole the mount's home (pointing at it) is a short slew away.
    equatorial.goto_equatorial(ha_hours=-6.0, dec_deg=85.0)
    status = equatorial.wait_until_tracking(SLEW_TIMEOUT_S)
    assert status.equatorial
    assert scopemount.separation(status.ha_hours * 15, status.dec_deg, -90.0, 85.0) < 0.05
    ra = status.ra_hours
    assert abs(equatorial.hour_angle_of(ra) - status.ha_hours) < 1e-3, "RA and HA agree"
    equatorial.stop()
    assert equatorial.wait_until_idle(5.0).state == MountState.IDLE


def test_stop_ends_a_slew_midway(altaz: Mount) -> None:
    altaz.goto_axes(170.0, 60.0)
    altaz.stop()
    status = altaz.wait_until_idle(5.0)
    assert status.state == MountState.IDLE
    assert status.axis0_deg < 160.0, "stopped well before the target"


def test_manual_motion_runs_then_stops(altaz: Mount) -> None:
    altaz.move(0, 2.0)
    deadline = time.monotonic() + 5.0
    while MountState.MOVING not in altaz.status().state:
        assert time.monotonic() < deadline, "the axis never ran"
        time.sleep(0.01)
    with pytest.raises(TimeoutError):
        altaz.wait_until_idle(0.2)
    altaz.stop(0)
    assert altaz.wait_until_idle(5.0).axis_status[0] & scopemount.AxisStatus.STOPPED


def test_alignment_and_its_record_round_trip(equatorial: Mount) -> None:
    star = StarObservation(ha_hours=1.0, dec_deg=20.0, axis0_deg=15.3, axis1_deg=20.2)
    nominal = equatorial.alignment_record()
    equatorial.align([star])
    assert equatorial.status().alignment_quality == 100
    record = equatorial.alignment_record()
    assert len(record) == scopemount.ALIGNMENT_RECORD_SIZE and record != nominal
    equatorial.reset_alignment()
    assert equatorial.alignment_record() != record
    equatorial.restore_alignment(record)
    assert equatorial.alignment_record() == record


def test_refused_connections_and_closed_mount_raise() -> None:
    with pytest.raises(scopemount.InvalidModel):
        Mount.connect(12, 50.0)  # the library's verdict, not the package's
    with pytest.raises(scopemount.InvalidParameter):
        Mount.connect(Model.ALTAZ_SIMULATOR, 50.0, port=300)
    with Mount.connect(Model.ALTAZ_SIMULATOR, 50.0) as mount:
        with pytest.raises(scopemount.AlreadyConnected):
            Mount.connect(Model.EQUATORIAL_SIMULATOR, 50.0)
    assert not mount.connected
    with pytest.raises(scopemount.NotConnected) as raised:
        mount.status()
    assert raised.value.code == 3 and raised.value.text == scopemount.error_text(3)
    with Mount.connect(Model.EQUATORIAL_SIMULATOR, 50.0):
        with pytest.raises(scopemount.NotConnected):
            mount.goto_axes(1.0, 1.0)  # a stale object never drives the new mount


@pytest.mark.parametrize(
    "call, error",
    [
        (lambda m: m.goto_horizontal(10.0, -20.0), scopemount.TargetTooLow),
        (lambda m: m.set_backlash(0, 5.0), scopemount.InvalidParameter),
        (lambda m: m.goto_equatorial(ra_hours=25.0, dec_deg=0.0), scopemount.InvalidParameter),
        (lambda m: m.goto_equatorial(dec_deg=0.0), scopemount.InvalidParameter),
        (lambda m: m.restore_alignment(b"\0" * 200), scopemount.InvalidAlignmentData),
        (lambda m: m.restore_alignment(b"short"), scopemount.InvalidParameter),
        (lambda m: m.align([]), scopemount.InvalidParameter),
        (
            lambda m: m.align(
                [StarObservation(0.0, 0.0, 0.0, 0.0), StarObservation(0.0, 30.0, 0.0, 60.0)]
            ),
            scopemount.AlignFailed,
        ),
    ],
)
def test_refusals_raise_their_class(altaz: Mount, call, error) -> None:  # type: ignore[no-untyped-def]
    altaz.set_altitude_limits(0.0, 80.0)
    with pytest.raises(error) as raised:
        call(altaz)
    assert isinstance(raised.value, scopemount.ScopeError) and raised.value.text
    assert altaz.status().state == MountState.IDLE, "a refusal starts nothing"
