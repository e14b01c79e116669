"""Pictures of forecasts: history, forecasts and limit bands, a panel a series."""

import re

import numpy as np
import pandas as pd

__all__ = ["plot", "from_table"]

_LIMIT = re.compile(r"^(?P<model>.+)-(?P<side>lo|hi)-(?P<level>[0-9.]+)$")
_TABLE_LIMIT = re.compile(r"^(?P<side>[UL])(?P<level>[0-9][0-9_.]*)$")


def from_table(table, model="FORECAST"):
    """The long frame :func:`esforecast.forecast` gives (with ``fitted=True``),
    made from a forecast table of the command line: its time ID (the column
    before ACTUAL, parsed as dates when it holds them), ACTUAL as ``y``,
    FORECAST, and each pair of limits (U95, L95) as ``<model>-hi-95`` and
    ``<model>-lo-95``. Key columns before the time ID of a many-series table
    are joined into ``unique_id``."""
    columns = list(table.columns)
    if "ACTUAL" not in columns or "FORECAST" not in columns:
        raise ValueError("not a forecast table: it needs ACTUAL and FORECAST columns")
    at = columns.index("ACTUAL")
    if at == 0:
        raise ValueError("not a forecast table: no time ID column before ACTUAL")
    time = table[columns[at - 1]]
    if time.dtype.kind not in "Mmiuf":
        time = pd.to_datetime(time)
    frame = {}
    keys = columns[:at - 1]
    if keys:
        frame["unique_id"] = table[keys].astype(str).agg("/".join, axis=1) if len(keys) > 1 else table[keys[0]]
    frame["ds"] = time
    frame["y"] = table["ACTUAL"]
    frame[model] = table["FORECAST"]
    for name in columns:
        m = _TABLE_LIMIT.match(name)
        if m:
            level = m.group("level").replace("_", ".")
            frame[f"{model}-{'hi' if m.group('side') == 'U' else 'lo'}-{level}"] = table[name]
    return pd.DataFrame(frame)


def _models(frame, skip):
    """Point forecast columns and, for each, its (level, lo, hi) columns from
    the widest band to the narrowest."""
    limits = {}
    for name in frame.columns:
        m = _LIMIT.match(str(name))
        if m:
            limits.setdefault(m.group("model"), {}).setdefault(float(m.group("level")), {})[m.group("side")] = name
    models = [c for c in frame.columns if c not in skip and not _LIMIT.match(str(c))
              and pd.api.types.is_numeric_dtype(frame[c])]
    bands = {}
    for model in models:
        pairs = limits.get(model, {})
        bands[model] = [(lv, pairs[lv]["lo"], pairs[lv]["hi"]) for lv in sorted(pairs, reverse=True)
                        if {"lo", "hi"} <= set(pairs[lv])]
    return models, bands


def plot(forecasts, history=None, ids=None, id_col="unique_id", time_col="ds", target_col="y", max_ids=4,
         figsize=None, title=None):
    """Draws history, forecasts and limit bands, one panel a series, and
    returns the matplotlib Figure (``fig.savefig("forecast.png")``).

    ``forecasts`` is a frame of :func:`esforecast.forecast` (the in-sample
    rows of ``fitted=True`` are drawn as the history) or a forecast table of
    the command line. ``history`` is the long frame that was forecast.
    ``ids`` picks the series; by default the first ``max_ids``. ``title``
    heads the panel of a frame without series ids.
    """
    from matplotlib.figure import Figure

    if "FORECAST" in forecasts.columns and "ACTUAL" in forecasts.columns:
        forecasts = from_table(forecasts)
        id_col, time_col, target_col = "unique_id", "ds", "y"
    for col in (time_col,):
        if col not in forecasts.columns:
            raise KeyError(f"the forecasts have no column {col!r} (columns: {', '.join(map(str, forecasts.columns))})")
    has_ids = id_col in forecasts.columns
    if ids is None:
        ids = list(pd.unique(forecasts[id_col]))[:max_ids] if has_ids else [None]
    elif np.isscalar(ids):
        ids = [ids]
    models, bands = _models(forecasts, {id_col, time_col, target_col})
    if not models:
        raise ValueError("the forecasts have no forecast column")

    fig = Figure(figsize=figsize or (9, 2.8 * len(ids) + 0.6), layout="constrained")
    axes = fig.subplots(len(ids), 1, squeeze=False)[:, 0]
    palette = ["tab:blue", "tab:orange", "tab:green", "tab:red", "tab:purple"]
    for ax, sid in zip(axes, ids):
        fc = forecasts[forecasts[id_col] == sid] if has_ids else forecasts
        if fc.empty:
            raise ValueError(f"no forecasts for series {sid!r}")
        past = None
        if history is not None:
            past = history[history[id_col] == sid] if has_ids and id_col in history.columns else history
        elif target_col in fc.columns:
            past = fc[fc[target_col].notna()]
        if past is not None and len(past):
            past = past.sort_values(time_col)
            ax.plot(past[time_col], past[target_col], color="black", linewidth=1.2, label="history")
        ahead = fc[fc[target_col].isna()] if target_col in fc.columns and history is None else fc
        for colour, model in zip(palette * 4, models):
            for k, (level, lo, hi) in enumerate(bands[model]):
                ax.fill_between(ahead[time_col], ahead[lo], ahead[hi], color=colour, alpha=0.18 + 0.12 * k,
                                linewidth=0, label=f"{level:g}% limits")
            ax.plot(ahead[time_col], ahead[model], color=colour, linewidth=1.6, label=str(model))
        ax.set_title(str(sid) if sid is not None else str(title or target_col), loc="left", fontsize=10)
        ax.grid(True, alpha=0.3)
    axes[0].legend(loc="upper left", fontsize=8, frameon=False)
    return fig
