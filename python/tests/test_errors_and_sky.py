"""Result codes, texts, the pure functions and finding the library."""

from __future__ import annotations

import os
import subprocess
import sys
from datetime import datetime, timezone
from pathlib import Path

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


def run_python(code: str, **environment: str) -> subprocess.CompletedProcess[str]:
    package_root = Path(scopemount.__file__).resolve().parent.parent
    env = dict(os.environ, PYTHONPATH=str(package_root), **environment)
    return subprocess.run(
        [sys.executable, "-c", code], env=env, capture_output=True, text=True, timeout=30
    )


def test_library_is_found_or_the_failure_says_where_to_look() -> None:
    named = run_python("import scopemount; print(scopemount.library_path)",
                       SCOPEMOUNT_LIBRARY=scopemount.library_path)
    assert named.returncode == 0 and named.stdout.strip() == scopemount.library_path
    missing = run_python("import scopemount", SCOPEMOUNT_LIBRARY="/nonexistent/libscopemount.so.0")
    assert missing.returncode != 0
    assert "LibraryNotFound" in missing.stderr and "/nonexistent/libscopemount.so.0" in missing.stderr

