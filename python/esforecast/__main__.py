"""python3 -m esforecast plot TABLE.csv -o forecast.png

Draws a forecast table written by `esforecast forecast` (or a long frame of
esforecast.forecast saved as CSV) to a picture: history, forecasts and limit
bands, one panel a series.
"""

import argparse
import os
import sys
import tempfile


def _plot(args):
    import matplotlib

    matplotlib.use("Agg")
    import pandas as pd

    from .plot import plot

    try:
        table = pd.read_csv(args.table)
    except (OSError, ValueError) as e:
        raise SystemExit(f"esforecast plot: {args.table}: {e}")
    if "FORECAST" not in table.columns and "ds" not in table.columns:
        raise SystemExit(f"esforecast plot: {args.table}: not a forecast table: it has neither ACTUAL and FORECAST "
                         "(a table of `esforecast forecast`) nor ds (a frame of esforecast.forecast)")
    try:
        title = os.path.splitext(os.path.basename(args.table))[0]
        fig = plot(table, ids=args.ids, max_ids=args.max_ids, title=title)
    except (KeyError, ValueError) as e:
        raise SystemExit(f"esforecast plot: {args.table}: {e.args[0] if e.args else e}")
    # Written beside the target and renamed into place: a failure leaves no
    # half-written picture.
    out_dir = os.path.dirname(os.path.abspath(args.output))
    suffix = os.path.splitext(args.output)[1] or ".png"
    fd, tmp = tempfile.mkstemp(dir=out_dir, prefix=".esforecast-", suffix=suffix)
    os.close(fd)
    try:
        fig.savefig(tmp, dpi=args.dpi)
        os.chmod(tmp, 0o644)
        os.replace(tmp, args.output)
    except Exception as e:
        os.unlink(tmp)
        raise SystemExit(f"esforecast plot: {args.output}: {e}")


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m esforecast", description=__doc__.split("\n\n")[1])
    sub = parser.add_subparsers(dest="command", required=True)
    p = sub.add_parser("plot", help="draw a forecast table to a picture (PNG, SVG or PDF by its name)")
    p.add_argument("table", help="CSV forecast table of `esforecast forecast`")
    p.add_argument("-o", "--output", required=True, help="picture to write: forecast.png, .svg or .pdf")
    p.add_argument("--ids", nargs="+", help="series to draw (default: the first few)")
    p.add_argument("--max-ids", type=int, default=4, help="series drawn without --ids (default 4)")
    p.add_argument("--dpi", type=int, default=120, help="resolution of a PNG (default 120)")
    args = parser.parse_args(argv)
    if args.command == "plot":
        _plot(args)
    return 0


if __name__ == "__main__":
    sys.exit(main())
