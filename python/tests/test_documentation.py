"""The README's Python example verbatim, the night-plan example, finding the
library and an installed copy of the package."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import scopemount

SOURCES = Path(__file__).resolve().parent.parent.parent


def run(arguments: list[str], **environment: str) -> subprocess.CompletedProcess[str]:
    env = dict(os.environ, PYTHONPATH=str(SOURCES / "python"), **environment)
    return subprocess.run(arguments, env=env, capture_output=True, text=True, timeout=120)


def test_readme_example_runs_verbatim() -> None:
    readme = (SOURCES / "README.md").read_text()
    section = readme.split("## From Python", 1)[1]
    example = re.search(r"```python\n(.*?)```", section, re.S)
    assert example, "the README has a Python example"
    result = run([sys.executable, "-c", example.group(1)])
    assert result.returncode == 0, result.stderr
    lines = result.stdout.splitlines()
    assert lines[0] == "at az 15.00 deg, alt 10.00 deg"
    assert lines[1].startswith("tracking RA ") and lines[-1] == "disconnected"


def test_night_plan_visits_what_is_up_and_logs_csv() -> None:
    # From 1 deg north Polaris stands a degree or two above the northern
    # horizon all day: a short slew from the Alt/Az simulator's home.
    result = run([sys.executable, str(SOURCES / "python/examples/night_plan.py"), "--lat", "1",
                  "--lowest", "0", "--track-seconds", "0.2", "--interval", "0.1", "Polaris",
                  "Nosuch"])
    assert result.returncode == 0, result.stderr
    rows = result.stdout.splitlines()
    assert rows[0] == "utc,star,ra_hours,dec_deg,azimuth_deg,altitude_deg,state"
    assert len(rows) >= 3 and all(",Polaris," in row for row in rows[1:])
    assert all(row.endswith(",TRACKING") for row in rows[1:])
    assert "unknown star 'Nosuch'" in result.stderr


def test_library_is_found_or_the_failure_says_where_to_look() -> None:
    missing = run([sys.executable, "-c", "import scopemount"],
                  SCOPEMOUNT_LIBRARY="/nonexistent/libscopemount.so.0")
    assert missing.returncode != 0
    assert "LibraryNotFound" in missing.stderr and "/nonexistent/libscopemount.so.0" in missing.stderr


@pytest.mark.skipif("SCOPEMOUNT_BUILD_DIR" not in os.environ, reason="needs a configured build tree")
def test_installed_package_finds_its_own_library(tmp_path: Path) -> None:
    build = os.environ["SCOPEMOUNT_BUILD_DIR"]
    installed = subprocess.run(["cmake", "--install", build, "--prefix", str(tmp_path),
                                "--component", "Unspecified"], capture_output=True, text=True)
    assert installed.returncode == 0, installed.stderr
    packages = list(tmp_path.glob("lib/python3*/dist-packages/scopemount"))
    assert len(packages) == 1, "installed under lib/python3*/dist-packages"
    env = {k: v for k, v in os.environ.items() if k not in ("SCOPEMOUNT_LIBRARY", "PYTHONPATH")}
    env["PYTHONPATH"] = str(packages[0].parent)
    result = subprocess.run([sys.executable, "-c", "import scopemount; print(scopemount.library_path)"],
                            env=env, capture_output=True, text=True, timeout=30, cwd=tmp_path)
    assert result.returncode == 0, result.stderr
    assert result.stdout.strip().startswith(str(tmp_path)), result.stdout
    assert scopemount.library_path != result.stdout.strip()
