"""esforecast: exponential-smoothing forecasts of many series, on pandas frames.

    >>> import pandas as pd, esforecast
    >>> df = pd.read_csv("examples/AirPassengers.csv", parse_dates=["date"])
    >>> fc = esforecast.forecast(df, 12, model="winters", time_col="date", target_col="value")
    >>> fig = esforecast.plot(fc, history=df)

Functions:
    forecast(df, h, model=...)   forecasts every series of a long frame
    fit(df, model=...)           fitted models: weights, state, criteria; model.forecast(h)
    load_model(path, history)    a model saved by Model.save or `esforecast fit --save-model`
    plot(frame, history=None)    history, forecasts and limit bands, a panel a series
    set_option(name, value)      host options: INTERVALDS maps custom intervals to tables

Modules:
    esforecast.calendar          calendar arithmetic on arrays of dates
    esforecast.dask              forecasting Dask frames on a cluster
"""

from . import calendar
from ._batch import Model, Models, families, fit, forecast, interval_of_frequency, load_model
from ._errors import EsforecastError, SeriesFailedWarning
from .calendar import set_option
from .plot import plot

__version__ = "0.1.0"
__all__ = ["calendar", "forecast", "fit", "load_model", "Model", "Models", "EsforecastError",
           "SeriesFailedWarning", "interval_of_frequency", "families", "plot", "set_option"]

