import numpy as np
import pandas as pd
import pytest

import esforecast

dd = pytest.importorskip("dask.dataframe")
distributed = pytest.importorskip("distributed")
import esforecast.dask  # noqa: E402  (after the skip when Dask is missing)


def synthetic(n, periods=36, seed=7):
    """n monthly series with a trend and a season, stacked in random order."""
    rng = np.random.default_rng(seed)
    t = np.arange(periods)
    level = rng.uniform(50, 500, (n, 1))
    y = level * (1 + 0.01 * t) * (1 + 0.2 * np.sin(2 * np.pi * t / 12)) + rng.normal(0, 5, (n, periods))
    df = pd.DataFrame({
        "unique_id": np.repeat([f"id{i:05d}" for i in range(n)], periods),
        "ds": np.tile(pd.date_range("2015-01-01", periods=periods, freq="MS").to_numpy(), n),
        "y": y.ravel(),
    })
    return df.sample(frac=1.0, random_state=seed).reset_index(drop=True)


def test_local_cluster_equals_pandas():
    df = synthetic(3000)
    ddf = dd.from_pandas(df, npartitions=6)
    expected = esforecast.forecast(df, 6, model="linear", level=(80, 95))
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                                  dashboard_address=None) as cluster, distributed.Client(cluster):
        result = esforecast.dask.forecast(ddf, 6, model="linear", level=(80, 95))
        assert list(result.columns) == list(expected.columns)
        got = result.compute()
    key = ["unique_id", "ds"]
    got = got.sort_values(key).reset_index(drop=True)
    expected = expected.sort_values(key).reset_index(drop=True)
    pd.testing.assert_frame_equal(got, expected, check_exact=True)
