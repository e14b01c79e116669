"""Forecasting Dask frames: more series than one machine holds, on a cluster.

    >>> from distributed import Client
    >>> import dask.dataframe as dd, esforecast.dask
    >>> client = Client("tcp://scheduler:8786")           # or a LocalCluster
    >>> ddf = dd.read_parquet("s3://bucket/series/")      # unique_id, ds, y
    >>> fc = esforecast.dask.forecast(ddf, 12, model="winters", interval="MONTH")
    >>> fc.to_parquet("s3://bucket/forecasts/")

The rows are shuffled so that every series lands whole in one partition;
each partition is then forecast by :func:`esforecast.forecast` on the worker
that holds it, so the package must be installed on the workers.
"""

import numpy as np
import pandas as pd

from . import _batch

__all__ = ["forecast"]


def _meta(ddf, model, level, id_col, time_col, target_col, fitted):
    """The empty frame the forecasts of a partition look like."""
    columns = {}
    if id_col in ddf.columns:
        columns[id_col] = ddf._meta[id_col].dtype
    t = ddf._meta[time_col].dtype
    if t.kind == "M" or isinstance(t, pd.DatetimeTZDtype):
        if not isinstance(t, pd.DatetimeTZDtype):
            unit = np.datetime_data(t)[0]
            t = np.dtype(f"datetime64[{unit if unit in ('s', 'ms', 'us', 'ns') else 'ns'}]")
    else:
        t = np.dtype(np.float64)
    columns[time_col] = t
    if fitted:
        columns[target_col] = np.float64
    columns[model] = np.float64
    for lv in _batch._levels(level):
        name = _batch._level_name(lv)
        columns[f"{model}-lo-{name}"] = np.float64
        columns[f"{model}-hi-{name}"] = np.float64
    return pd.DataFrame({c: pd.Series(dtype=d) for c, d in columns.items()})


def forecast(ddf, h, model="auto", interval=None, level=(80, 95), id_col="unique_id", time_col="ds",
             target_col="y", threads=1, fitted=False, errors="status", **options):
    """Forecasts every series of a long Dask frame; the arguments and the
    columns of the result are those of :func:`esforecast.forecast`, and so
    are the values, series by series (the rows come in the order of the
    partitions). ``threads`` applies within each partition, where the
    cluster's workers already run partitions side by side.

    Without ``interval`` each partition infers it from its first series; give
    it when the series may disagree. A series that cannot be forecast is left
    out (``errors="raise"`` raises on the worker instead).
    """
    meta = _meta(ddf, model, level, id_col, time_col, target_col, fitted)
    if id_col in ddf.columns:
        ddf = ddf.shuffle(on=id_col)

    def one_partition(part):
        if len(part) == 0:
            return meta
        fc = _batch.forecast(part, h, model=model, interval=interval, level=level, id_col=id_col, time_col=time_col,
                             target_col=target_col, threads=threads, fitted=fitted, errors=errors, **options)
        fc.attrs = {}
        return fc.astype({c: meta[c].dtype for c in meta.columns if c != id_col}, copy=False)

    return ddf.map_partitions(one_partition, meta=meta)
