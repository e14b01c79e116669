"""Calendar arithmetic on arrays of dates.

Every function takes an interval name (``"MONTH"``, ``"QTR.2"``,
``"WEEKDAY17W"``, ``"DTHOUR4"``, ``"R445YR"``, or a custom interval) and
dates as numpy ``datetime64`` arrays, pandas ``DatetimeIndex`` or
``Series``, lists, strings or scalars. Operands broadcast against each other
as numpy's ufuncs do, and the loop over the elements runs in compiled code::

    >>> import numpy as np, esforecast.calendar as cal
    >>> d = np.array(["2001-01-31", "2001-05-15"], dtype="datetime64[D]")
    >>> cal.advance("MONTH", d, 1)
    array(['2001-02-01', '2001-06-01'], dtype='datetime64[D]')
    >>> cal.advance("MONTH", d, [1, 2], align="E")
    array(['2001-02-28', '2001-07-31'], dtype='datetime64[D]')
    >>> cal.count("QTR", "2001-01-31", d)
    array([0, 1])
    >>> cal.season("MONTH", d)
    array([0, 4])

A date interval looks at the day of each value and a datetime interval
(``DTMONTH``, ``HOUR``) at the second. Results keep the input's
``datetime64`` unit (at least seconds for a datetime interval); ``NaT`` in
gives ``NaT`` out, and a count or season that has no value comes back as
``NaN`` in a float array. Timezone-aware pandas values are counted on their
wall clock and come back in their timezone. Plain numbers are taken as the
library's own values: days (or seconds) since 1 January 1960, or
observation numbers for ``OBS``. Custom intervals are mapped to their tables
by :func:`set_option` (or ``ESF_OPTION_INTERVALDS`` in the environment).
"""

from collections import namedtuple

import numpy as np
import pandas as pd

from . import _core

__all__ = ["count", "advance", "fit", "season", "parse", "format", "set_option", "Interval", "Format"]

Interval = namedtuple("Interval", "name intcode units multiplier shift nweekday weekend cycle nseasons")
Interval.__doc__ = """A parsed interval name.

name: the name as the library prints it; intcode: the interval's code;
units: 'd' dates, 's' datetimes, 'o' observation numbers, 'u' none;
multiplier, shift: the numbers of "MONTH3.2" (3 and 2, shift 1 when none);
nweekday, weekend: working days in a week and the weekend days (1 Sunday to
7 Saturday) of a WEEKDAY interval; cycle, nseasons: the standard seasonal
cycle ("YEAR", 12 for MONTH), or None and 0 when the interval has none."""

Format = namedtuple(
    "Format", "format width short_width duration_format duration_width duration_short_width"
)
Format.__doc__ = """The default format of an interval's values and of a duration of one
interval, with its width and a smaller width that still shows a value."""

_UNITS = {"D", "h", "m", "s", "ms", "us", "ns"}
_FINER_THAN_SECOND = {"ms", "us", "ns"}


class _Operand:
    """One time operand: its values flattened for the compiled loop, and
    what the result needs to look like the input (shape, pandas index,
    timezone)."""

    def __init__(self, x, name):
        self.name = name
        self.index = None  # pandas index of a Series input
        self.is_index = False
        self.tz = None
        if isinstance(x, pd.Series):
            self.index = x.index
            x = x.array if isinstance(x.dtype, pd.DatetimeTZDtype) else x.to_numpy()
        if isinstance(x, (pd.DatetimeIndex, pd.arrays.DatetimeArray)):
            self.is_index = isinstance(x, pd.DatetimeIndex)
            self.tz = x.tz
            if x.tz is not None:
                x = x.tz_localize(None)
            x = np.asarray(x)
        elif isinstance(x, pd.Timestamp):
            self.tz = x.tz
            x = (x.tz_localize(None) if x.tz is not None else x).to_datetime64()
        arr = np.asarray(x)
        if arr.dtype.kind in "OUS":
            try:
                arr = arr.astype("datetime64")
            except (TypeError, ValueError) as e:
                raise TypeError(f"{name}: expected dates, datetimes or numbers; {e}") from None
        if arr.dtype.kind == "M":
            unit = np.datetime_data(arr.dtype)[0]
            if unit not in _UNITS:
                arr = arr.astype("datetime64[D]" if unit in ("Y", "M", "W", "generic") else "datetime64[ns]")
                unit = np.datetime_data(arr.dtype)[0]
            self.unit = unit
            self.values = arr.view(np.int64)
        elif arr.dtype.kind in "iuf":
            self.unit = "raw"
            self.values = arr.astype(np.float64, copy=False)
        else:
            raise TypeError(f"{name}: expected dates, datetimes or numbers, not {arr.dtype}")
        self.shape = arr.shape


def _numbers(x, name):
    arr = np.asarray(x.to_numpy() if isinstance(x, (pd.Series, pd.Index)) else x)
    if arr.dtype.kind not in "iuf":
        raise TypeError(f"{name}: expected numbers, not {arr.dtype}")
    return arr.astype(np.float64, copy=False)


def _flatten(arrays):
    """The broadcast shape and each array as a contiguous 1-D array of that
    many elements, or of one element to be repeated."""
    shape = np.broadcast_shapes(*(a.shape for a in arrays))
    flat = []
    for a in arrays:
        if a.size == 1:
            flat.append(np.ascontiguousarray(a).reshape(1))
        elif a.shape == shape:
            flat.append(np.ascontiguousarray(a).reshape(-1))
        else:
            flat.append(np.ascontiguousarray(np.broadcast_to(a, shape)).reshape(-1))
    return shape, flat


def _shape_result(result, shape, operands):
    """Gives a flat result the shape of the inputs, a scalar for scalars and
    a Series for a Series input."""
    result = result.reshape(shape)
    for op in operands:
        if op.index is not None and op.shape == shape:
            return pd.Series(result, index=op.index)
    if shape == ():
        return result[()]
    return result


def _integers(values):
    """int64 when every value is present, else float64 with NaN."""
    missing = np.isnan(values)
    if missing.any():
        values[missing] = np.nan  # the library's missing kinds become plain NaN
        return values
    return values.astype(np.int64)


def _units(interval):
    return _core.describe(interval)["units"]


def count(interval, x1, x2):
    """Interval boundaries passed going from ``x1`` to ``x2``.

    ``count("MONTH", "2001-01-31", "2001-02-01")`` is 1: one month begins
    between the two days. The count is negative when ``x2`` lies before
    ``x1``. Returns int64 values, or float64 with NaN where a count has no
    value (NaT, a date outside 1582 to about 20,000 AD)."""
    a, b = _Operand(x1, "x1"), _Operand(x2, "x2")
    shape, (va, vb) = _flatten([a.values, b.values])
    result = _core.count(interval, va, a.unit, vb, b.unit)
    return _shape_result(_integers(result), shape, [a, b])


def advance(interval, x, n=1, align="B"):
    """The interval ``n`` intervals after the one that holds ``x``.

    ``align`` places the result in that interval: "B" (beginning, the
    default), "M" (middle), "E" (end) or "S" (the same place as ``x``: the
    31st of a month gives the last day of a shorter one). ``n`` may be an
    array and broadcasts against ``x``. Results keep the type of ``x``:
    datetime64 in the input's unit, a DatetimeIndex or Series for pandas
    input, numbers for numbers."""
    words = {"B": "B", "BEGIN": "B", "BEGINNING": "B", "M": "M", "MIDDLE": "M", "E": "E", "END": "E",
             "S": "S", "SAME": "S"}
    key = str(align).upper()
    if key not in words:
        raise ValueError(f"align: {align!r} is not an alignment: B, M, E or S")
    op = _Operand(x, "x")
    steps = _numbers(n, "n")
    shape, (vx, vn) = _flatten([op.values, steps])
    if op.unit == "raw":
        out_unit = "raw"
    elif _units(interval) == "s" and op.unit not in _FINER_THAN_SECOND:
        out_unit = "s"
    else:
        out_unit = op.unit
    result = _core.advance(interval, vx, op.unit, vn, words[key], out_unit)
    if out_unit != "raw":
        result = result.view(f"datetime64[{out_unit}]")
    if op.tz is not None or op.is_index:
        idx = pd.DatetimeIndex(result.reshape(-1))
        if op.tz is not None:
            idx = idx.tz_localize(op.tz, ambiguous="NaT", nonexistent="shift_forward")
        if op.index is not None and op.shape == shape:
            return pd.Series(idx, index=op.index)
        if op.is_index and op.shape == shape:
            return idx
        if shape == ():
            return idx[0]
        result = np.asarray(idx.tz_convert(None) if idx.tz is not None else idx).reshape(shape)
    return _shape_result(result, shape, [op])


def fit(x1, x2):
    """The interval that carries each ``x1`` onto its ``x2`` in a whole number
    of periods, with as few periods as possible: ``fit("2001-01-01",
    "2001-04-01")`` is "QTR", Monday to Monday a WEEK that begins on Monday
    ("WEEK.2"). Datetimes with a time of day give datetime intervals, numbers
    OBS. Returns interval names (an object array), None where no interval
    fits (a missing value, ``x2`` not after ``x1``)."""
    a, b = _Operand(x1, "x1"), _Operand(x2, "x2")
    if (a.unit == "raw") != (b.unit == "raw"):
        raise TypeError("fit: x1 and x2 must both be dates or both be numbers")
    shape, (va, vb) = _flatten([a.values, b.values])
    units = "o" if a.unit == "raw" else "s" if _has_time(va, a.unit) or _has_time(vb, b.unit) else "d"
    names = np.empty(len(va) if len(va) > 1 else len(vb), dtype=object)
    names[:] = _core.fit(va, a.unit, vb, b.unit, units)
    return _shape_result(names, shape, [a, b])


def _has_time(ticks, unit):
    per_day = np.timedelta64(1, "D") // np.timedelta64(1, unit)
    return bool((ticks[ticks != np.iinfo(np.int64).min] % per_day != 0).any())


def season(interval, x):
    """Season of each value in the interval's standard cycle, counted from 0:
    the month of the year for MONTH (0 for January), the day of the week for
    DAY (0 for Sunday), the hour of the day for HOUR. int64, or float64 with
    NaN where there is none."""
    op = _Operand(x, "x")
    shape, (vx,) = _flatten([op.values])
    codes = _core.season(interval, vx, op.unit).astype(np.float64)
    codes[codes < 0] = np.nan
    return _shape_result(_integers(codes), shape, [op])


def set_option(name, value):
    """Sets an option of the host, as ``ESF_OPTION_<NAME>`` does for the
    command line, or clears it with None. INTERVALDS maps custom interval
    names to their tables (CSV files with BEGIN, and END and SEASON if
    wanted, found in the current directory or an assigned library)::

        set_option("INTERVALDS", "(fiscal=fiscal)")    # ./fiscal.csv
        count("FISCAL", "2020-01-15", "2020-03-10")

    The environment's ``ESF_OPTION_INTERVALDS`` is read when a custom name is
    first looked up; ``set_option`` takes effect from the next call on."""
    _core.set_option(str(name), None if value is None else str(value))


def parse(interval):
    """The fields of an interval name as an :class:`Interval`; ValueError
    names what is wrong with a name that doesn't parse."""
    return Interval(**_core.describe(interval))


def format(interval):
    """The default format of an interval's values as a :class:`Format`."""
    return Format(**_core.default_format(interval))
