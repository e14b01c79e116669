import os
import subprocess
from pathlib import Path

import matplotlib
import pandas as pd
import pytest

import esforecast

matplotlib.use("Agg")

ROOT = Path(__file__).resolve().parents[2]


@pytest.fixture(scope="session")
def air():
    return pd.read_csv(ROOT / "examples" / "AirPassengers.csv", parse_dates=["date"])


@pytest.fixture(scope="session")
def cli():
    """Runs the command line built beside the package (the build tree), and
    returns its standard output; skips when the package is an installed one."""
    exe = Path(esforecast.__file__).resolve().parents[2] / "esforecast"
    if not exe.is_file():
        pytest.skip("the command line is not beside the package (not a build tree)")

    def run(*args, cwd=None):
        done = subprocess.run([str(exe), *map(str, args)], capture_output=True, text=True, cwd=cwd,
                              env=dict(os.environ))
        assert done.returncode == 0, done.stderr
        return done.stdout

    return run
