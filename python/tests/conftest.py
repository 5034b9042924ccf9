"""Shared fixtures: a simulator connection that is always closed."""

from __future__ import annotations

import os
import sys
from pathlib import Path
from typing import Iterator

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
# The library's texts are English unless a test asks for another language.
os.environ["LC_ALL"] = "C"

import scopemount  # noqa: E402

LATITUDE_DEG = 50.0


@pytest.fixture
def altaz() -> Iterator[scopemount.Mount]:
    with scopemount.Mount.connect(scopemount.Model.ALTAZ_SIMULATOR, LATITUDE_DEG) as mount:
        yield mount


@pytest.fixture
def equatorial() -> Iterator[scopemount.Mount]:
    with scopemount.Mount.connect(scopemount.Model.EQUATORIAL_SIMULATOR, LATITUDE_DEG) as mount:
        yield mount
