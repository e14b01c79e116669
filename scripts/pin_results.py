#!/usr/bin/env python3
"""Pins the results of every smoothing family by their raw bits.

Runs the command line over the example series, the shared real series and a
few hundred random series (fixed seed), for every family: the fit with its
trace (iteration counts) and its estimates as JSON (weights, standard errors,
error variance, smoothed state, all printed in their shortest exact form),
then the forecast table (forecasts, limits, residuals and the states of
every row). The outputs go into one dump whose SHA-256 is the digest.

  scripts/pin_results.py BUILD_DIR                 print the digest
  scripts/pin_results.py BUILD_DIR --check FILE    compare with a stored digest
  scripts/pin_results.py BUILD_DIR --dump FILE     also keep the whole dump
  scripts/pin_results.py BUILD_DIR --count 3000 --check FILE
                                                   the same over 3000 random series
A line of the digest file is "DIGEST" (the default count) or "DIGEST COUNT".
Two dumps from two builds show where results differ (diff them).
"""
import argparse
import hashlib
import os
import random
import subprocess
import sys
import tempfile

FAMILIES = ["simple", "double", "linear", "damped", "seasonal", "winters", "winters-additive"]
DEFAULT_COUNT = 300
ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def real_series():
    for d in (os.path.join(ROOT, "examples"), os.path.join(ROOT, "..", "shared", "data")):
        if not os.path.isdir(d):
            continue
        for name in sorted(os.listdir(d)):
            if not name.endswith(".csv"):
                continue
            path = os.path.join(d, name)
            with open(path) as f:
                lines = f.read().split("\n")
            # quarterly when consecutive dates are three months apart
            a, b = lines[1].split(",")[0], lines[2].split(",")[0]
            months = (int(b[:4]) - int(a[:4])) * 12 + int(b[5:7]) - int(a[5:7])
            yield path, {1: "MONTH", 3: "QTR", 12: "YEAR"}[months], [], []


def random_series(tmp, count):
    rng = random.Random(20261124)
    for k in range(count):
        n = rng.randint(8, 120)
        season = rng.choice([4, 12])
        level = rng.uniform(5, 500)
        trend = rng.uniform(-2, 2) * rng.choice([0, 1])
        amp = rng.uniform(0, 0.4) * rng.choice([0, 1, 1])
        noise = rng.uniform(0.001, 0.3)
        rows = []
        for t in range(n):
            y = (level + trend * t) * (1 + amp * ((t % season) / season - 0.5))
            y *= 1 + rng.gauss(0, noise)
            y = max(y, 0.5)
            v = "" if rng.random() < 0.03 and 2 < t < n - 2 else repr(round(y, 4))
            rows.append(f"{1990 + (t * (12 // season) // 12)}-{1 + (t * (12 // season)) % 12:02d}-01,{v}")
        path = os.path.join(tmp, f"r{k:03d}.csv")
        with open(path, "w") as f:
            f.write("date,value\n" + "\n".join(rows) + "\n")
        extra = []
        choice = rng.random()
        if choice < 0.15:
            extra = ["--no-stability"]
        elif choice < 0.25:
            extra = ["--no-bounds"]
        elif choice < 0.35 and n > 20:
            extra = ["--fit-start", rows[3].split(",")[0]]
        lead = ["--lead", str(rng.randint(0, 30))]
        yield path, ("QTR" if season == 4 else "MONTH"), extra, lead


def run(cmd, env):
    p = subprocess.run(cmd, capture_output=True, text=True, env=env)
    return f"$ {' '.join(os.path.basename(c) if c.startswith('/') else c for c in cmd)}\n" \
           f"rc={p.returncode}\n{p.stdout}{p.stderr}"


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("build")
    ap.add_argument("--check")
    ap.add_argument("--dump")
    ap.add_argument("--count", type=int, default=DEFAULT_COUNT)
    a = ap.parse_args()
    build = os.path.abspath(a.build)
    cli = os.path.join(build, "esforecast")
    env = dict(os.environ, LD_LIBRARY_PATH=build, ESF_MODULE=os.path.join(build, "libqorfmsm.so"))
    out = []
    with tempfile.TemporaryDirectory() as tmp:
        series = list(real_series()) + list(random_series(tmp, a.count))
        for path, interval, extra, lead in series:
            for fam in FAMILIES:
                out.append(run([cli, "fit", "--model", fam, "--interval", interval, "--trace", "--json",
                                *extra, path], env))
                out.append(run([cli, "forecast", "--model", fam, "--interval", interval, *extra, *lead,
                                path], env))
    dump = "".join(out)
    digest = hashlib.sha256(dump.encode()).hexdigest()
    if a.dump:
        with open(a.dump, "w") as f:
            f.write(dump)
    if a.check:
        with open(a.check) as f:
            pinned = {int(w[1]) if len(w) > 1 else DEFAULT_COUNT: w[0]
                      for w in (line.split() for line in f) if w}
        want = pinned.get(a.count)
        if want is None:
            print(f"no digest pinned for {a.count} random series in {a.check}", file=sys.stderr)
            return 1
        if want != digest:
            print(f"results differ: {digest} != {want}", file=sys.stderr)
            return 1
        print("results identical:", digest)
        return 0
    print(digest)
    return 0


if __name__ == "__main__":
    sys.exit(main())
