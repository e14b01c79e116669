import io
import pickle

import numpy as np
import pandas as pd
import pytest

import esforecast
from conftest import ROOT
from esforecast import EsforecastError, SeriesFailedWarning


def table_of(text):
    # round_trip: pandas' default float reader is not correctly rounded.
    return pd.read_csv(io.StringIO(text), float_precision="round_trip")


def example(name):
    return ROOT / "examples" / name


def stacked(air, n, seed=0):
    """n monthly series shaped like AirPassengers, rows shuffled."""
    rng = np.random.default_rng(seed)
    scale = rng.uniform(0.5, 2.0, (n, 1)) * rng.uniform(0.95, 1.05, (n, len(air)))
    df = pd.DataFrame({
        "unique_id": np.repeat([f"s{i}" for i in range(n)], len(air)),
        "ds": np.tile(air["date"].to_numpy(), n),
        "y": (air["value"].to_numpy()[None, :] * scale).ravel(),
    })
    return df.sample(frac=1.0, random_state=seed).reset_index(drop=True)


def test_frame_equals_the_command_line_table_to_the_bit(air, cli):
    table = table_of(cli("forecast", example("AirPassengers.csv"), "--model", "damped", "--interval", "MONTH",
                         "--lead", 12, "--cl", 0.05, "--level-weight", 0.3, "--trend-bounds", 0.01, 0.5,
                         "--fit-start", "1950-01-01"))
    options = dict(model="damped", time_col="date", target_col="value", level_weight=0.3, trend_bounds=(0.01, 0.5),
                   fit_start=pd.Timestamp("1950-01-01"))
    fc = esforecast.forecast(air, 12, interval="MONTH", level=95, fitted=True, **options)
    assert list(fc.columns) == ["date", "value", "damped", "damped-lo-95", "damped-hi-95"]
    np.testing.assert_array_equal(fc["date"], pd.to_datetime(table["date"]))
    for ours, theirs in [("value", "ACTUAL"), ("damped", "FORECAST"), ("damped-lo-95", "L95"),
                         ("damped-hi-95", "U95")]:
        np.testing.assert_array_equal(fc[ours].to_numpy(), table[theirs].to_numpy())
    # Two levels at once give the same 95% limits, and the future rows only by default.
    two = esforecast.forecast(air, 12, **options)
    assert len(two) == 12 and (two["damped-lo-80"] > two["damped-lo-95"]).all()
    np.testing.assert_array_equal(two["damped-hi-95"], fc["damped-hi-95"].iloc[-12:])


def test_many_series_equal_one_at_a_time(air):
    df = stacked(air, 4)
    fc = esforecast.forecast(df, 6, model="winters", interval="MS", level=90, threads=1)
    assert list(fc["unique_id"].unique()) == list(df["unique_id"].unique())  # first appearance
    pd.testing.assert_frame_equal(fc, esforecast.forecast(df, 6, model="winters", interval="MS", level=90, threads=2))
    for sid, rows in fc.groupby("unique_id", sort=False):
        one = esforecast.forecast(df[df["unique_id"] == sid].drop(columns="unique_id"), 6, model="winters",
                                  interval="MONTH", level=90)
        np.testing.assert_array_equal(rows.drop(columns="unique_id").to_numpy(), one.to_numpy())


def test_missing_values_nan_or_absent_rows_and_dtypes(air):
    df = air.rename(columns={"date": "ds", "value": "y"})
    with_nan = df.assign(y=df["y"].where(df.index != 30))
    without_row = df.drop(index=30)
    a = esforecast.forecast(with_nan, 12, model="seasonal", interval="MONTH")
    b = esforecast.forecast(without_row.sample(frac=1.0, random_state=1), 12, model="seasonal", interval="MONTH")
    pd.testing.assert_frame_equal(a, b)
    # Integer values and dates as text give the same forecasts as floats and datetimes.
    c = esforecast.forecast(df.assign(y=df["y"].astype("int64"), ds=df["ds"].dt.strftime("%Y-%m-%d")), 12,
                            model="seasonal", interval="MONTH")
    np.testing.assert_array_equal(c["seasonal"], esforecast.forecast(df, 12, model="seasonal",
                                                                     interval="MONTH")["seasonal"])


def test_timezones_and_inferred_weekly_interval():
    ds = pd.date_range("2020-01-05", periods=60, freq="W-SAT", tz="America/New_York")
    y = 100 + np.sin(np.arange(60) / 3.0) * 10
    fc = esforecast.forecast(pd.DataFrame({"ds": ds, "y": y}), 3, model="linear", level=95)
    assert str(fc["ds"].dt.tz) == "America/New_York"
    # Saturdays fit weeks that begin on Saturday, WEEK.7, and the forecasts go on from there.
    assert list(fc["ds"].dt.strftime("%Y-%m-%d %H:%M")) == ["2021-03-06 00:00", "2021-03-13 00:00",
                                                            "2021-03-20 00:00"]
    naive = esforecast.forecast(pd.DataFrame({"ds": ds.tz_localize(None), "y": y}), 3, model="linear",
                                interval="WEEK.7", level=95)
    np.testing.assert_array_equal(fc["linear"], naive["linear"])


def test_failed_series_are_listed_not_raised(air):
    df = stacked(air, 3)
    poisoned = pd.concat([
        df,
        pd.DataFrame({"unique_id": "short", "ds": air["date"][:1], "y": 1.0}),
        pd.DataFrame({"unique_id": "negative", "ds": air["date"], "y": air["value"] - 200.0}),
        pd.DataFrame({"unique_id": "twice", "ds": [air["date"][0]] * 2 + list(air["date"][2:40]), "y": 5.0}),
    ], ignore_index=True)
    with pytest.warns(SeriesFailedWarning, match="3 of 6 series"):
        fc = esforecast.forecast(poisoned, 12, model="winters", interval="MONTH")
    assert sorted(fc["unique_id"].unique()) == ["s0", "s1", "s2"]
    status = fc.attrs["status"].set_index("unique_id")
    assert list(status.index) == list(df["unique_id"].unique()) + ["short", "negative", "twice"]
    assert sorted(status.index[status["status"] == "failed"]) == ["negative", "short", "twice"]
    assert "fall in the same period" in status.loc["twice", "message"]
    assert status.loc["twice", "message"].startswith("unique_id 'twice': lines")
    with pytest.raises(EsforecastError):
        esforecast.forecast(poisoned, 12, model="winters", interval="MONTH", errors="raise")


def test_bad_options_raise_the_command_line_message(air):
    with pytest.raises(EsforecastError, match='--model: "holt" is not a model; choose one of') as e:
        esforecast.forecast(air, 12, model="holt", interval="MONTH", time_col="date", target_col="value")
    assert e.value.status == 1
    with pytest.raises(TypeError, match="unknown option"):
        esforecast.forecast(air, 12, model="winters", time_col="date", target_col="value", alpha=0.3)
    with pytest.raises(KeyError, match="no column 'ds'"):
        esforecast.forecast(air, 12, model="winters")


def test_a_fit_reports_how_it_ended(air):
    m = esforecast.fit(air, model="winters", interval="MONTH", time_col="date", target_col="value")
    w = m.weights.set_index("name")
    assert (m.end, m.converged, m.criteria["n"]) == ("converged", True, 144)
    assert w.loc["TREND", "position"] == "on its lower bound" and np.isnan(w.loc["TREND", "t_value"])
    assert m.warnings == ["the winters fit left TREND on its lower bound"]
    auto = esforecast.fit(air, model="auto", interval="MONTH", time_col="date", target_col="value")
    assert auto.model == auto.candidates.sort_values("score")["model"].iloc[0] == "winters"


def test_models_pickle_and_round_trip_through_the_model_file(air, cli, tmp_path):
    df = stacked(air, 2)
    models = esforecast.fit(df, model="winters", interval="MONTH")
    assert sorted(models) == ["s0", "s1"] and list(models.weights["name"][:3]) == ["LEVEL", "TREND", "SEASONAL"]
    direct = esforecast.forecast(df, 12, model="winters", interval="MONTH")
    pd.testing.assert_frame_equal(models.forecast(12), direct)
    m = pickle.loads(pickle.dumps(models["s1"]))
    expected = direct[direct["unique_id"] == "s1"].drop(columns="unique_id").reset_index(drop=True)
    pd.testing.assert_frame_equal(m.forecast(12), expected)
    # The model file: the command line forecasts from it, and load_model reads it back.
    m.save(tmp_path / "s1.json")
    m.history.rename(columns={"ds": "date", "y": "value"}).to_csv(tmp_path / "s1.csv", index=False)
    table = table_of(cli("forecast", tmp_path / "s1.csv", "--model-file", tmp_path / "s1.json", "--interval", "MONTH",
                                        "--lead", 12, "--cl", 0.05))
    np.testing.assert_array_equal(table["FORECAST"].iloc[-12:], expected["winters"])
    back = esforecast.load_model(tmp_path / "s1.json", m.history)
    columns = ["name", "estimate", "std_error"]
    pd.testing.assert_frame_equal(back.weights[columns], m.weights[columns])
    pd.testing.assert_frame_equal(back.forecast(12), expected)
