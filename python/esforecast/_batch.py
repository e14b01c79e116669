"""Forecasting long pandas frames: one call of the runner for all series."""

import json
import os
import re
import warnings

import numpy as np
import pandas as pd

from . import _core
from ._errors import EsforecastError, SeriesFailedWarning
from .calendar import _Operand, parse

# Keyword options, named as the command line names them in snake case.
_WEIGHT_WORDS = ("level", "trend", "damping", "seasonal")
_OPTIONS = (
    {f"{w}_weight" for w in _WEIGHT_WORDS}
    | {f"{w}_bounds" for w in _WEIGHT_WORDS}
    | {"nseasons", "no_bounds", "no_stability", "start_level", "start_trend", "start_factors",
       "backcast_level", "backcast_trend", "backcast_factors", "fit_start", "fit_end", "eval_start", "eval_end",
       "holdout", "limits", "search", "select"}
)
_TIME_OPTIONS = ("fit_start", "fit_end", "eval_start", "eval_end")

def families():
    """The model families, as ``model=`` names them."""
    return list(_core.families())


def interval_of_frequency(freq):
    """The interval whose periods are those of a pandas frequency ("MS",
    "W-SUN", "Q-JAN", "15min", a DateOffset), as the command line maps
    them; None when there is none."""
    text = freq.freqstr if isinstance(freq, pd.DateOffset) else str(freq)
    m = re.fullmatch(r"(\d*)(.+)", text.strip())
    if m is None:
        return None
    count, alias = int(m.group(1) or 1), m.group(2)
    name = _core.interval_of_alias(alias)
    if not name or count < 1:
        return None
    if count == 1:
        return name
    # A multiple of an anchored interval would count its shift in whole
    # periods of the multiple; only the plain ones take one.
    return None if "." in name else f"{name}{count}"


def _interval_name(interval):
    """An interval name as given, or the interval of a pandas frequency."""
    if isinstance(interval, pd.DateOffset):
        interval = interval.freqstr
    try:
        parse(interval)
        return interval
    except ValueError as e:
        mapped = interval_of_frequency(interval)
        if mapped is None:
            raise EsforecastError(f"--interval: {e}") from None
        return mapped


def _time_text(value):
    if isinstance(value, str):
        return value
    if isinstance(value, (int, float, np.integer, np.floating)):
        return repr(float(value))
    ts = pd.Timestamp(value)
    if ts.tz is not None:
        ts = ts.tz_localize(None)
    return ts.strftime("%Y-%m-%dT%H:%M:%S") if (ts.hour or ts.minute or ts.second) else ts.strftime("%Y-%m-%d")


def _options(model, interval, kwargs):
    unknown = sorted(set(kwargs) - _OPTIONS)
    if unknown:
        raise TypeError(f"unknown option(s) {', '.join(unknown)}; options are {', '.join(sorted(_OPTIONS))}")
    o = {"model": model, "interval": interval}
    for key, value in kwargs.items():
        if value is None:
            continue
        if key in _TIME_OPTIONS:
            value = _time_text(value)
        elif key.endswith("_bounds") or key.endswith("_factors"):
            value = [float(v) for v in value]
        o[key] = value
    return o


def _level_name(level):
    return f"{level:g}"


def _levels(level):
    """The confidence levels in percent, each once, in the order given."""
    levels = [level] if np.isscalar(level) else list(level)
    unique = []
    for lv in levels:
        lv = float(lv)
        if lv not in unique:
            unique.append(lv)
    return unique


class _Series:
    """The rows of a long frame grouped by series: what the runner reads."""

    def __init__(self, df, id_col, time_col, target_col):
        for col in (time_col, target_col):
            if col not in df.columns:
                raise KeyError(f"the frame has no column {col!r} (columns: {', '.join(map(str, df.columns))})")
        self.single = id_col is None or id_col not in df.columns
        if self.single:
            codes = np.zeros(len(df), dtype=np.int64)
            self.ids = pd.Index([target_col])
        else:
            codes, self.ids = pd.factorize(df[id_col], sort=False)
            if (codes < 0).any():
                row = int(np.flatnonzero(codes < 0)[0])
                raise EsforecastError(f"column '{id_col}': row {row + 1} has no series id")
        self.id_col, self.time_col, self.target_col = id_col, time_col, target_col
        order = np.argsort(codes, kind="stable")
        self.offsets = np.concatenate([[0], np.cumsum(np.bincount(codes, minlength=len(self.ids)))]).astype(np.int64)
        self.rows = order.astype(np.int64)
        y = df[target_col]
        if not (pd.api.types.is_numeric_dtype(y) or pd.api.types.is_bool_dtype(y)):
            raise EsforecastError(f"column '{target_col}' holds {y.dtype}, not numbers")
        self.values = y.to_numpy(dtype=np.float64, na_value=np.nan)[order]
        op = _Operand(df[time_col], time_col)
        self.tz = op.tz
        self.unit = op.unit
        self.times = op.values.reshape(-1)[order]
        self.time_dtype = df[time_col].dtype

    def out_unit(self, interval_units):
        if self.unit == "raw":
            return "raw"
        if interval_units == "s" and self.unit not in ("ms", "us", "ns"):
            return "s"
        return self.unit

    def data_units(self):
        """What the time column holds: "o" numbers, "s" datetimes (some value
        has a time of day), else "d" dates."""
        if self.unit == "raw":
            return "o"
        per_day = np.timedelta64(1, "D") // np.timedelta64(1, self.unit)
        present = self.times[self.times != np.iinfo(np.int64).min]
        return "s" if (present % per_day != 0).any() else "d"


def _threads(threads):
    if threads is None:
        return os.cpu_count() or 1
    if int(threads) < 1:
        raise ValueError(f"threads: {threads} is below 1")
    return int(threads)


def _run(series, options, h, levels, keep_models, forecast, saved=None, threads=None):
    if options.get("interval") is None:
        # Found from the first series by the runner, in the units of the data.
        options["interval"] = ""
        units = series.data_units()
    else:
        options["interval"] = _interval_name(options["interval"])
        units = parse(options["interval"]).units
        if series.unit != "raw" and units not in ("d", "s"):
            raise EsforecastError(f"--interval: {options['interval']} counts plain numbers, but column "
                                  f"'{series.time_col}' holds dates")
        if series.unit == "raw" and units in ("d", "s"):
            raise EsforecastError(f"--interval: {options['interval']} counts dates, but column "
                                  f"'{series.time_col}' holds numbers")
    out_unit = series.out_unit(units)
    names = [str(i) for i in series.ids]
    result = _core.run(options, series.offsets.tolist(), series.times, series.unit, series.values, series.rows,
                       names, series.id_col or "series", series.time_col, series.target_col, int(h), levels,
                       keep_models, forecast, saved or [], out_unit, _threads(threads), units)
    options["interval"] = result["interval"]
    return result, out_unit


def _status_frame(series, reports):
    """One row a series: "ok" or "failed", the reason or the remarks, and the
    exit status the command line would give for it."""
    rows = [(series.ids[s], "failed" if r["error"] else "ok", r["error"] or "; ".join(r["warnings"]),
             r["exit_status"]) for s, r in enumerate(reports)]
    return pd.DataFrame(rows, columns=[series.id_col or "series", "status", "message", "exit_status"])


def _handle_failures(series, result, errors):
    reports = result["reports"]
    failed = [r for r in reports if r["error"]]
    if failed and errors == "raise":
        raise EsforecastError(failed[0]["error"], failed[0]["exit_status"])
    if failed:
        warnings.warn(f"{len(failed)} of {len(series.ids)} series could not be forecast (first: "
                      f"{failed[0]['error']}); see the result's attrs['status']", SeriesFailedWarning, stacklevel=3)
    return _status_frame(series, reports)


def _holdout_frame(series, reports):
    rows = []
    for s, r in enumerate(reports):
        if r["holdout"] > 0:
            row = {series.id_col or "series": series.ids[s], **r["holdout_accuracy"]}
            row.update({f"coverage-{name[1:]}": share for name, share in r["holdout_coverage"]})
            rows.append(row)
    return pd.DataFrame(rows)


def _forecast_frame(series, result, out_unit, model, levels, fitted):
    keep = np.ones(len(result["series"]), dtype=bool) if fitted else result["lead"] > 0
    idx = result["series"][keep]
    times = result["time"][keep]
    if out_unit != "raw":
        times = pd.DatetimeIndex(times.view(f"datetime64[{out_unit}]"))
        if series.tz is not None:
            times = times.tz_localize(series.tz, ambiguous="NaT", nonexistent="shift_forward")
    else:
        times = times.astype(series.time_dtype) if series.time_dtype.kind in "iu" and not np.isnan(times).any() else times
    columns = dict(result["columns"])
    frame = {}
    if not series.single:
        frame[series.id_col] = series.ids.take(idx)
    frame[series.time_col] = times
    if fitted:
        frame[series.target_col] = columns["ACTUAL"][keep]
    frame[model] = columns["FORECAST"][keep]
    if len(result["limits"]) != len(levels):
        raise EsforecastError(f"level: the levels {', '.join(map(_level_name, levels))} do not give one pair of "
                              "limits each (two of them name the same limit columns)")
    for lv, (_, hi, lo) in zip(levels, result["limits"]):
        frame[f"{model}-lo-{_level_name(lv)}"] = lo[keep]
        frame[f"{model}-hi-{_level_name(lv)}"] = hi[keep]
    return pd.DataFrame(frame)


def forecast(df, h, model="auto", interval=None, level=(80, 95), id_col="unique_id", time_col="ds", target_col="y",
             threads=None, fitted=False, errors="status", **options):
    """Forecasts every series of a long frame ``h`` periods ahead.

    ``df`` has one row per series and period: the series id in ``id_col``
    (without that column the frame is one series), the time in ``time_col``
    (datetime64, timezone-aware or not, or numbers for ``interval="OBS"``)
    and the value in ``target_col`` (NaN or a missing row is a missing
    value). Rows need not be sorted.

    ``model`` names a family: simple, double, linear, damped, seasonal,
    winters, winters-additive. ``interval`` is an interval name ("MONTH",
    "QTR", "WEEK.2", "DTHOUR") or a pandas frequency ("MS", "W-SUN",
    "Q-JAN"); by default it is inferred from the dates of the first series.
    ``level`` gives the confidence levels of the limits in percent.
    ``fitted=True`` adds the in-sample rows with the one-step predictions and
    the actual values in ``target_col``. The options of the command line are
    keyword arguments with the same names in snake case: ``level_weight``,
    ``trend_bounds=(0.001, 0.5)``, ``nseasons``, ``no_bounds``,
    ``start_level``, ``fit_start`` and ``eval_end`` (a date), and so on.

    Returns a long frame: ``id_col``, ``time_col``, the point forecast in a
    column named for the model, and ``<model>-lo-<level>`` and
    ``<model>-hi-<level>`` for each level; the values are those of the
    command line's forecast table (FORECAST, L95, U95) to the bit.

    Bad options raise :class:`EsforecastError` with the command line's
    message. A series that cannot be forecast (too short, a non-positive
    value under a multiplicative model, two rows in one period) is left out
    and listed in ``result.attrs["status"]`` with its reason, and a
    :class:`SeriesFailedWarning` says so; ``errors="raise"`` raises for the
    first such series instead. Messages name a row by its position in the
    frame, counted from 1, as "line".

    ``threads`` series run at once (default: one a core), with the
    interpreter's lock released; the result does not depend on it.

    >>> import pandas as pd, esforecast
    >>> df = pd.read_csv("examples/AirPassengers.csv", parse_dates=["date"])
    >>> fc = esforecast.forecast(df, 12, model="winters", time_col="date", target_col="value", level=95)
    >>> list(fc.columns)
    ['date', 'winters', 'winters-lo-95', 'winters-hi-95']
    """
    if errors not in ("status", "raise"):
        raise ValueError(f"errors: {errors!r} is neither 'status' nor 'raise'")
    if int(h) < 0:
        raise ValueError(f"h: {h} is negative")
    series = _Series(df, id_col, time_col, target_col)
    levels = _levels(level)
    result, out_unit = _run(series, _options(model, interval, options), h, levels, False, True, threads=threads)
    status = _handle_failures(series, result, errors)
    frame = _forecast_frame(series, result, out_unit, model, levels, fitted)
    frame.attrs["status"] = status
    if options.get("holdout"):
        frame.attrs["holdout"] = _holdout_frame(series, result["reports"])
    return frame


class Model:
    """The fitted model of one series.

    Attributes:
        id, model, interval: the series, the family (the one chosen for
            ``model="auto"``) and the interval.
        weights: a frame of the weights: name, label, estimate, std_error,
            t_value (NaN for a weight on a bound or fixed), position ("inside",
            "on its lower bound", ..., "without bounds" when the fit ran
            without them), and the bounds the fit honoured (NaN when none).
        end, converged, iterations: how the estimation ended.
        error_variance, state: the error variance, and the smoothed level,
            trend and seasonal factors at the end of the fit range.
        criteria: loglik, aic, aicc, bic of the one-step errors (n errors, k
            parameters); accuracy: me, rmse, mae, mape, smape, mase of the
            one-step errors over the fit range.
        candidates: for ``model="auto"``, the families tried, with their
            scores or why each was refused.
        warnings: remarks of the fit (a weight on a bound, no convergence).
        nobs, history: the number of periods, and the series fitted.

    ``forecast(h)`` forecasts from the model without fitting again;
    ``to_json()`` and ``save(path)`` give the command line's model file
    (``esforecast forecast --model-file``), and :func:`load_model` reads one
    back. Models pickle.
    """

    _WEIGHT_COLUMNS = ["name", "label", "estimate", "std_error", "t_value", "position", "lower", "upper"]

    def __init__(self, id, options, fit, history, time_col, target_col):
        self.id = id
        self.model = fit.get("model") or options["model"]
        self.interval = options["interval"]
        self.options = dict(options, model=self.model)
        self.weights = pd.DataFrame(fit["weights"], columns=self._WEIGHT_COLUMNS[:len(fit["weights"][0])]
                                    if fit["weights"] else self._WEIGHT_COLUMNS)
        self.end = fit.get("end")
        self.converged = fit.get("converged")
        self.iterations = fit.get("iterations")
        self.error_variance = fit["error_variance"]
        self.state = {"level": fit["level"], "trend": fit["trend"], "factors": list(fit["factors"])}
        self.statistics = dict(fit["statistics"])
        self.criteria = fit.get("criteria", {})
        self.accuracy = fit.get("accuracy", {})
        self.candidates = (pd.DataFrame([(m, why or None, score, c.get("aicc")) for m, why, score, c in
                                         fit["candidates"]], columns=["model", "refused", "score", "aicc"])
                           if "candidates" in fit else None)
        self.warnings = list(fit.get("warnings", []))
        self.nobs = fit["nobs"]
        self.model_file = fit["model_file"]
        self.history = history
        self.time_col, self.target_col = time_col, target_col

    def __repr__(self):
        w = ", ".join(f"{n}={v:.6g}" for n, v in zip(self.weights["name"], self.weights["estimate"]))
        return f"<esforecast.Model {self.id!r}: {self.model} on {self.interval}, {self.nobs} periods; {w}>"

    def forecast(self, h, level=(80, 95), fitted=False, errors="raise"):
        """Forecasts ``h`` periods past the history from this model; the
        same frame as :func:`forecast`."""
        return _forecast_models([self], h, level, fitted, errors)

    def to_json(self):
        """The model file's text: the family, the interval and the model list."""
        return self.model_file

    def save(self, path):
        """Writes the model file that ``esforecast forecast --model-file`` reads."""
        with open(path, "w") as f:
            f.write(self.model_file)


def _forecast_models(models, h, level, fitted, errors):
    first = models[0]
    frames = []
    for m in models:
        hist = m.history[[m.time_col, m.target_col]].copy()
        hist.insert(0, "__id", [m.id] * len(hist))
        frames.append(hist)
    df = pd.concat(frames, ignore_index=True)
    series = _Series(df, "__id", first.time_col, first.target_col)
    series.ids = pd.Index([m.id for m in models])
    levels = _levels(level)
    options = dict(first.options)
    result, out_unit = _run(series, options, h, levels, False, True, saved=[m.model_file for m in models])
    status = _handle_failures(series, result, errors)
    frame = _forecast_frame(series, result, out_unit, first.model, levels, fitted)
    if len(models) == 1:
        frame = frame.drop(columns="__id")
    else:
        frame = frame.rename(columns={"__id": first.options.get("_id_col", "unique_id")})
    frame.attrs["status"] = status
    return frame


class Models(dict):
    """Fitted models of a batch, by series id, with the batch's tables:
    ``weights`` (one row a series and weight), ``status`` (the series that
    could not be fitted, with their reasons); ``forecast(h)`` forecasts every
    model."""

    def __init__(self, models, status, id_col):
        super().__init__((m.id, m) for m in models)
        self.status = status
        self.id_col = id_col

    @property
    def weights(self):
        parts = [m.weights.assign(**{self.id_col: m.id}) for m in self.values()]
        if not parts:
            return pd.DataFrame(columns=[self.id_col, "name", "label", "estimate", "std_error", "t_value"])
        w = pd.concat(parts, ignore_index=True)
        return w[[self.id_col] + [c for c in w.columns if c != self.id_col]]

    def forecast(self, h, level=(80, 95), fitted=False, errors="status"):
        """Forecasts every model ``h`` periods ahead; the frame of :func:`forecast`."""
        return _forecast_models(list(self.values()), h, level, fitted, errors)


def fit(df, model="auto", interval=None, id_col="unique_id", time_col="ds", target_col="y", threads=None,
        errors="status", **options):
    """Fits a model to every series of a long frame; the arguments are those
    of :func:`forecast`. Returns a :class:`Models` dictionary of
    :class:`Model` objects by series id (its ``status`` frame lists the
    series that could not be fitted); for a frame without ``id_col``, the
    one :class:`Model`."""
    if errors not in ("status", "raise"):
        raise ValueError(f"errors: {errors!r} is neither 'status' nor 'raise'")
    series = _Series(df, id_col, time_col, target_col)
    opts = _options(model, interval, options)
    result, _ = _run(series, opts, 0, [], True, False, threads=threads)
    status = _handle_failures(series, result, errors)
    opts["_id_col"] = id_col if not series.single else "unique_id"
    models = []
    for s, f in enumerate(result["fits"]):
        if f is None:
            continue
        rows = series.rows[series.offsets[s]:series.offsets[s + 1]]
        history = df.iloc[np.sort(rows)][[time_col, target_col]].reset_index(drop=True)
        models.append(Model(series.ids[s], opts, f, history, time_col, target_col))
    if series.single:
        if not models:
            raise EsforecastError(status["message"].iloc[0], int(status["exit_status"].iloc[0]))
        return models[0]
    return Models(models, status, id_col)


def _fit_of_model_list(model_list):
    """The estimates a model list holds, as the runner's fit gives them."""

    def number(v):
        return np.nan if v is None or isinstance(v, dict) else float(v)

    est = model_list.get("ESTIMATES", {}) if isinstance(model_list, dict) else {}
    names = est.get("NAMES", [])
    columns = [est.get(k, []) for k in ("LABELS", "VALUES", "STDERRS", "TVALS")]
    weights = [(n,) + tuple(c[i] if i < len(c) and k == 0 else number(c[i] if i < len(c) else None)
                            for k, c in enumerate(columns)) for i, n in enumerate(names)]
    state = est.get("SMOOTHED_STATE", {})
    return {"weights": weights, "error_variance": number(est.get("SIGMA")), "level": number(state.get("LEVEL")),
            "trend": number(state["TREND"]) if "TREND" in state else None,
            "factors": [number(v) for v in state.get("SFACTORS", [])], "statistics": []}


def load_model(source, history, time_col="ds", target_col="y", id=None):
    """A :class:`Model` from a model file (a path, or the text ``to_json()``
    gave) and the series it is to forecast (a frame with ``time_col`` and
    ``target_col``)."""
    text = source
    if not str(source).lstrip().startswith("{"):
        with open(source) as f:
            text = f.read()
    try:
        saved = json.loads(text)
        options = {"model": saved["model"], "interval": saved["interval"]}
        saved["model_list"]
    except (ValueError, KeyError, TypeError) as e:
        raise EsforecastError(f"{source if text is not source else 'model text'}: not a model file: {e}") from None
    fit = _fit_of_model_list(saved["model_list"])
    fit["model_file"] = text
    fit["nobs"] = len(history)
    return Model(target_col if id is None else id, options, fit,
                 history[[time_col, target_col]].reset_index(drop=True), time_col, target_col)
