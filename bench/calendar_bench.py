"""Per-element cost of esforecast.calendar on a million dates, beside numpy's
own vectorised datetime64 arithmetic for the same answers, in one run.

    PYTHONPATH=build/python python3 bench/calendar_bench.py [N]

Each figure is the best of five runs, in nanoseconds of CPU time per element
(CPU time, so that other work on the machine does not count).
"""

import sys
import time

import numpy as np

import esforecast.calendar as cal


def best_ns(fn, n, repeat=5):
    best = float("inf")
    for _ in range(repeat):
        t0 = time.process_time()
        fn()
        best = min(best, time.process_time() - t0)
    return best / n * 1e9


def main():
    n = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
    rng = np.random.default_rng(1)
    days = np.datetime64("1990-01-01") + rng.integers(0, 20000, n).astype("timedelta64[D]")
    later = days + rng.integers(0, 400, n).astype("timedelta64[D]")
    stamps = days.astype("datetime64[ns]")
    # WEEKDAY counts the working days that begin in (x1, x2]; busday_count
    # counts those in [x1, x2).
    busday_from, busday_to = days + 1, later + 1

    # The same answers both ways, checked before timing.
    np_month = lambda: (days.astype("datetime64[M]") + 1).astype("datetime64[D]")
    assert (cal.advance("MONTH", days, 1) == np_month()).all()
    np_count = lambda: later.astype("datetime64[M]").astype(np.int64) - days.astype("datetime64[M]").astype(np.int64)
    assert (cal.count("MONTH", days, later) == np_count()).all()
    assert (cal.count("WEEKDAY", days, later) == np.busday_count(busday_from, busday_to)).all()

    rows = [
        ("advance MONTH by 1, datetime64[D]", lambda: cal.advance("MONTH", days, 1), "numpy M8[M] + 1", np_month),
        ("advance MONTH by 1, datetime64[ns]", lambda: cal.advance("MONTH", stamps, 1), "numpy M8[M] + 1",
         lambda: (stamps.astype("datetime64[M]") + 1).astype("datetime64[ns]")),
        ("count MONTH", lambda: cal.count("MONTH", days, later), "numpy M8[M] difference", np_count),
        ("count WEEKDAY", lambda: cal.count("WEEKDAY", days, later), "numpy busday_count",
         lambda: np.busday_count(busday_from, busday_to)),
        ("advance QTR.2 by 3, end", lambda: cal.advance("QTR.2", days, 3, align="E"), None, None),
        ("advance WEEKDAY by 5", lambda: cal.advance("WEEKDAY", days, 5), None, None),
        ("advance R445MON by 1", lambda: cal.advance("R445MON", days, 1), None, None),
        ("advance YEARV by 1", lambda: cal.advance("YEARV", days, 1), None, None),
        ("advance DTHOUR4 by 1, datetime64[ns]", lambda: cal.advance("DTHOUR4", stamps, 1), None, None),
        ("season MONTH", lambda: cal.season("MONTH", days), None, None),
    ]
    print(f"{n:,} dates, ns of CPU time per element (best of 5)")
    print(f"{'esforecast.calendar':40} {'ns':>7}   {'numpy':28} {'ns':>7}")
    for name, fn, np_name, np_fn in rows:
        ours = best_ns(fn, n)
        theirs = f"{np_name:28} {best_ns(np_fn, n):7.1f}" if np_fn else ""
        print(f"{name:40} {ours:7.1f}   {theirs}")


if __name__ == "__main__":
    main()
