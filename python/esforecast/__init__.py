"""esforecast: exponential-smoothing forecasts of many series, on pandas frames.

Modules:
    esforecast.calendar   calendar arithmetic on arrays of dates
"""

from . import calendar

__version__ = "0.1.0"
__all__ = ["calendar"]
