import numpy as np
import pandas as pd
import pytest

import esforecast.calendar as cal
from esforecast import interval_of_frequency
from esforecast.calendar import parse

RNG = np.random.default_rng(20011)
# Random days from 1750 to 2200: 40 years either way stays inside pandas' nanosecond range.
DAYS = np.datetime64("1750-01-01") + RNG.integers(0, 164_000, 3000).astype("timedelta64[D]")
STEPS = RNG.integers(-40, 40, DAYS.size)

# Intervals whose periods are the same sets of days as a pandas Period frequency.
PERIODS = [
    ("DAY", "D"),
    ("WEEK", "W-SAT"),
    ("WEEK.2", "W-SUN"),
    ("MONTH", "M"),
    ("QTR", "Q-DEC"),
    ("QTR.2", "Q-JAN"),
    ("YEAR", "A-DEC"),
    ("YEAR.7", "A-JUN"),
    ("HOUR", "H"),
    ("MINUTE", "T"),
]


def stamps(days):
    # Datetimes with a random time of day, for the datetime intervals.
    return days.astype("datetime64[ns]") + RNG.integers(0, 86_400_000_000_000, days.size).astype("timedelta64[ns]")


@pytest.mark.parametrize("interval,freq", PERIODS)
def test_count_and_advance_agree_with_pandas_periods(interval, freq):
    assert interval_of_frequency(freq) == interval
    x1, x2 = stamps(DAYS), stamps(DAYS[::-1])
    p1 = pd.DatetimeIndex(x1).to_period(freq)
    p2 = pd.DatetimeIndex(x2).to_period(freq)
    np.testing.assert_array_equal(cal.count(interval, x1, x2), p2.asi8 - p1.asi8)

    moved = p1 + STEPS
    np.testing.assert_array_equal(cal.advance(interval, x1, STEPS), moved.start_time.to_numpy())
    ends = moved.end_time.to_numpy()
    if parse(interval).units == "s":  # the last second of the period
        ends = ends.astype("datetime64[s]").astype("datetime64[ns]")
    else:
        ends = ends.astype("datetime64[D]").astype("datetime64[ns]")
    np.testing.assert_array_equal(cal.advance(interval, x1, STEPS, align="E"), ends)


@pytest.mark.parametrize(
    "interval,expected",
    [
        ("MONTH", lambda i: i.month - 1),
        ("QTR", lambda i: i.quarter - 1),
        ("DAY", lambda i: (i.dayofweek + 1) % 7),  # weeks begin on Sunday
        ("HOUR", lambda i: i.hour),
    ],
)
def test_season_agrees_with_pandas_fields(interval, expected):
    x = stamps(DAYS)
    np.testing.assert_array_equal(cal.season(interval, x), expected(pd.DatetimeIndex(x)))


def test_frequencies_anchored_at_a_start():
    # The periods of QS-FEB begin in February, those of Q-JAN end in January: both are QTR.2.
    assert [interval_of_frequency(f) for f in ["MS", "QS-FEB", "AS-JUL", "2MS", "15min", "B", "W"]] == [
        "MONTH", "QTR.2", "YEAR.7", "MONTH2", "MINUTE15", "WEEKDAY", "WEEK.2"]


@pytest.mark.parametrize("interval", ["DAY", "WEEK", "MONTH", "QTR", "YEAR", "DTHOUR"])
def test_fit_finds_an_interval_that_carries_x1_onto_x2(interval):
    x1 = stamps(DAYS[:500]) if interval.startswith("DT") else DAYS[:500]
    x2 = cal.advance(interval, x1, 1, align="S")
    names = cal.fit(x1, x2)
    assert not any(n is None for n in names)
    for name in set(names):
        at = names == name
        np.testing.assert_array_equal(cal.advance(name, x1[at], 1, align="S"), x2[at])
    assert cal.fit("2001-01-01", "2001-04-01") == "QTR" and cal.fit("2001-05-07", "2001-05-14") == "WEEK.2"
    assert cal.fit("2001-05-07", "2001-05-07") is None


def test_units_shapes_and_missing_values():
    d = np.array([["2001-01-31", "NaT"], ["2004-02-29", "1999-12-31"]], dtype="datetime64[D]")
    out = cal.advance("MONTH", d, [[1], [12]], align="S")
    assert out.dtype == np.dtype("datetime64[D]")
    np.testing.assert_array_equal(
        out, np.array([["2001-02-28", "NaT"], ["2005-02-28", "2000-12-31"]], dtype="datetime64[D]")
    )
    counts = cal.count("YEAR", d, "2010-06-01")
    assert counts.dtype == np.float64 and np.isnan(counts[0, 1])
    np.testing.assert_array_equal(counts[~np.isnan(counts)], [9, 6, 11])
    # Scalars in, scalars out; plain numbers are the library's day numbers.
    assert cal.advance("MONTH", np.datetime64("2001-01-31"), 1) == np.datetime64("2001-02-01")
    assert cal.advance("MONTH", 14976.0, 1) == 15007.0  # 2001-01-01 -> 2001-02-01
    assert cal.count("OBS", 3, 10) == 7
    # A datetime interval keeps the second of a day-unit input.
    assert cal.advance("DTHOUR", np.datetime64("2001-01-31"), 3).dtype == np.dtype("datetime64[s]")


def test_pandas_inputs_keep_their_index_and_timezone():
    idx = pd.date_range("2021-03-27 22:30", periods=4, freq="H", tz="Europe/Paris")
    s = pd.Series(idx, index=list("abcd"))
    out = cal.advance("DTDAY", s, 1)
    assert list(out.index) == list("abcd")
    assert str(out.dt.tz) == "Europe/Paris"
    # Wall-clock days: the next midnight in Paris, across the change to summer time.
    assert list(out.dt.strftime("%Y-%m-%d %H:%M%z")) == [
        "2021-03-28 00:00+0100", "2021-03-28 00:00+0100", "2021-03-29 00:00+0200", "2021-03-29 00:00+0200",
    ]
    assert isinstance(cal.advance("MONTH", idx, 1), pd.DatetimeIndex)
    np.testing.assert_array_equal(cal.count("DAY", idx[0], idx), [0, 0, 1, 1])


def test_errors_name_the_cause():
    with pytest.raises(ValueError, match='"MONHT": not a known interval name'):
        cal.count("MONHT", "2001-01-01", "2001-02-01")
    with pytest.raises(TypeError, match="counts observation numbers"):
        cal.advance("OBS", np.datetime64("2001-01-01"), 1)
    with pytest.raises(OverflowError, match="coarser unit"):
        cal.advance("YEAR", np.datetime64("2200-01-01", "ns"), 100)


def test_custom_interval_from_a_table(tmp_path, monkeypatch):
    (tmp_path / "fiscal.csv").write_text("BEGIN,SEASON\n2020-01-06,1\n2020-02-03,2\n2020-03-02,3\n2020-04-06,4\n")
    monkeypatch.chdir(tmp_path)
    cal.set_option("INTERVALDS", "(fiscal=fiscal)")
    d = np.array(["2020-01-15", "2020-02-10"], dtype="datetime64[D]")
    np.testing.assert_array_equal(cal.count("FISCAL", "2020-01-15", d), [0, 1])
    np.testing.assert_array_equal(cal.advance("FISCAL", d, 1), np.array(["2020-02-03", "2020-03-02"], "M8[D]"))
    np.testing.assert_array_equal(cal.season("FISCAL", d), [0, 1])
    cal.set_option("INTERVALDS", None)
    with pytest.raises(ValueError, match='"FISCAL": not a known interval name'):
        cal.count("FISCAL", d, d)


def test_parse_and_format():
    iv = cal.parse("month3.2")
    assert (iv.name, iv.intcode, iv.units, iv.multiplier, iv.shift, iv.cycle, iv.nseasons) == (
        "MONTH3.2", 45, "d", 3, 2, "YEAR", 4)
    assert cal.parse("WEEKDAY17W").weekend == (1, 7)
    assert cal.parse("MONTH5").cycle is None
    assert cal.format("DTMONTH").format == "DTMONYY"
