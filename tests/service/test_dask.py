"""The same service solving on a Dask cluster (a LocalCluster on loopback) gives the same results."""

import os
import time

import pytest

pytest.importorskip("distributed", reason="the batch service's optional dependency 'distributed' is not installed")

from service_harness import SERVICE_PATH, Client, Service, local_solve, market_split, mps_bytes  # noqa: E402


@pytest.fixture(scope="module")
def cluster():
    from distributed import LocalCluster

    # Worker processes must import this package and velmorpy as the service does.
    os.environ["PYTHONPATH"] = SERVICE_PATH + os.pathsep + os.environ.get("PYTHONPATH", "")
    c = LocalCluster(n_workers=1, threads_per_worker=1, processes=True, host="127.0.0.1",
                     dashboard_address="127.0.0.1:0", silence_logs=40)
    yield c
    c.close()


def test_dask_cluster_results_match_local_and_abort_terminates(cluster, tmp_path):
    service = Service(tmp_path, "--dask", cluster.scheduler_address, "--workers", "1").start()
    try:
        client = Client(service.url)
        models = [mps_bytes(market_split(2, s)) for s in range(20, 25)]
        models.append(mps_bytes(market_split(3, 1)))
        prms = [""] * len(models)
        # The four-row split with a time limit: TIME_LIMIT (9) proves the parameters reached the cluster.
        models.append(mps_bytes(market_split(4, 7)))
        prms.append("TimeLimit 0.5\n")
        ids = [client.submit(m, p, f"d{i}") for i, (m, p) in enumerate(zip(models, prms))]
        done = client.wait_done(ids, timeout=120)
        assert all(a["BatchStatus"] == 5 for a in done.values()), done
        for rid, m, p in zip(ids, models, prms):
            got = client.solution(rid)["SolutionInfo"]
            want = local_solve(m, p)["SolutionInfo"]
            assert got["Status"] == want["Status"]
            if want["Status"] == 2:  # an incumbent at a time limit depends on the machine's speed
                assert got["ObjVal"] == pytest.approx(want["ObjVal"], abs=1e-6)
        assert client.solution(ids[-1])["SolutionInfo"]["Status"] == 9

        # One worker thread on the cluster: a quick model can only run once the long one was
        # told to terminate.
        long_id = client.submit(mps_bytes(market_split(4, 1)), "", "long")
        time.sleep(1.0)
        r = client.http.post(f"/batches/{long_id}/abort")
        assert r.status_code == 200 and r.json()["BatchStatus"] == 3
        t0 = time.monotonic()
        quick = client.submit(mps_bytes(market_split(2, 30)), "", "after")
        assert client.wait_done([quick], timeout=60)[quick]["BatchStatus"] == 5
        assert time.monotonic() - t0 < 30
        assert client.status(long_id) == 3
    finally:
        service.stop()
