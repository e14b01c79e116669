import subprocess
import sys
from pathlib import Path

import matplotlib.image
import numpy as np
import pandas as pd
import pytest

import esforecast

BLUE = np.array([0x1F, 0x77, 0xB4]) / 255  # the first forecast's colour


def drawn(path):
    """Pixels of a picture, and how many are close to the forecast's colour."""
    rgb = matplotlib.image.imread(path)[..., :3]
    return rgb, int((np.abs(rgb - BLUE).max(axis=-1) < 0.05).sum())


def test_one_panel_a_series_with_history_and_bands(air, tmp_path):
    df = pd.concat([air.assign(unique_id=name, value=air["value"] * k) for name, k in [("a", 1.0), ("b", 0.5)]])
    fc = esforecast.forecast(df, 24, model="winters", interval="MONTH", time_col="date", target_col="value")
    fig = esforecast.plot(fc, history=df, time_col="date", target_col="value")
    assert [ax.get_title(loc="left") for ax in fig.axes] == ["a", "b"]
    assert len(fig.axes[0].collections) == 2  # the 80% and 95% bands
    fig.savefig(tmp_path / "two.png")
    rgb, blue = drawn(tmp_path / "two.png")
    assert rgb.std() > 0.05 and blue > 200


def test_command_line_draws_a_table_and_refuses_bad_input(air, cli, tmp_path):
    from conftest import ROOT
    table = cli("forecast", ROOT / "examples" / "AirPassengers.csv", "--model", "winters", "--interval", "MONTH",
                "--lead", 24, "--level", 80, 95)
    (tmp_path / "out.csv").write_text(table)
    run = [sys.executable, "-m", "esforecast", "plot"]
    done = subprocess.run(run + [tmp_path / "out.csv", "-o", tmp_path / "forecast.png"], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    rgb, blue = drawn(tmp_path / "forecast.png")
    assert rgb.std() > 0.05 and blue > 200

    (tmp_path / "bad.csv").write_text("date,value\n2001-01-01,3\n")
    done = subprocess.run(run + [tmp_path / "bad.csv", "-o", tmp_path / "bad.png"], capture_output=True, text=True)
    assert done.returncode != 0 and "not a forecast table" in done.stderr
    assert sorted(p.name for p in tmp_path.iterdir()) == ["bad.csv", "forecast.png", "out.csv"]
