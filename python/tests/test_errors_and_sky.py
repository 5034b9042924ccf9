"""Result codes, texts and the pure functions."""

from __future__ import annotations

import os
from datetime import datetime, timezone

import pytest

import scopemount
from scopemount import errors

FAMILY = [
    (1, scopemount.InvalidModel, ()),
    (2, scopemount.AlreadyConnected, ()),
    (3, scopemount.NotConnected, ()),
    (4, scopemount.InvalidParameter, (ValueError,)),
    (5, scopemount.SerialPortBusy, (scopemount.CommunicationError,)),
    (100, scopemount.NoResponseAxis1, (scopemount.CommunicationError,)),
    (101, scopemount.NoResponseAxis2, (scopemount.CommunicationError,)),
    (102, scopemount.AxisBusy, ()),
    (103, scopemount.TargetTooHigh, (scopemount.TargetOutOfLimits,)),
    (104, scopemount.TargetTooLow, (scopemount.TargetOutOfLimits,)),
    (105, scopemount.UserInterrupt, ()),
    (200, scopemount.AlignFailed, ()),
    (300, scopemount.ModelNotImplemented, ()),
    (400, scopemount.InvalidAlignmentData, ()),
]


@pytest.mark.parametrize("code, cls, bases", FAMILY)
def test_every_code_has_its_class_and_the_library_text(code, cls, bases) -> None:  # type: ignore[no-untyped-def]
    error = errors.error_for(code)
    assert type(error) is cls and error.code == code
    assert all(isinstance(error, base) for base in bases)
    assert error.text == scopemount.error_text(code) != ""
    assert str(code) in str(error)


def test_texts_follow_the_language() -> None:
    assert scopemount.model_name(scopemount.Model.ALTAZ_SIMULATOR) == "Alt/Az Mount Simulator"
    with pytest.raises(scopemount.InvalidModel):
        scopemount.model_name(12)
    english = scopemount.error_text(3)
    os.environ["LC_ALL"] = "zh_CN.UTF-8"
    try:
        chinese = scopemount.error_text(3)
    finally:
        os.environ["LC_ALL"] = "C"
    assert chinese != english and any(ord(c) > 0x3000 for c in chinese)


def test_sidereal_time_and_separation() -> None:
    # At 2000-01-01 12:00 UT the mean sidereal time at Greenwich is 18.697375 h.
    epoch = datetime(2000, 1, 1, 12, 0, tzinfo=timezone.utc)
    assert scopemount.sidereal_time(epoch) == pytest.approx(18.697375, abs=2e-5)
    assert scopemount.sidereal_time(epoch, longitude_deg=-75.0) == pytest.approx(13.697375, abs=2e-5)
    with pytest.raises(ValueError):
        scopemount.sidereal_time(datetime(2000, 1, 1))
    assert scopemount.separation(0.0, 0.0, 90.0, 0.0) == pytest.approx(90.0)
    assert scopemount.separation(10.0, 89.0, 190.0, 89.0) == pytest.approx(2.0)
