"""A service killed with SIGKILL in the middle of a batch loses nothing when restarted on its store."""

import pytest

from service_harness import Client, Service, local_solve, market_split, mps_bytes, wait_until
import sqlalchemy  # noqa: E402  (after the harness, which skips these tests when it is missing)


def store_rows(service):
    url = service.store.replace("postgresql://", "postgresql+psycopg://")
    engine = sqlalchemy.create_engine(url)
    try:
        with engine.connect() as conn:
            return {r[0]: (r[1], int(r[2]), r[3]) for r in conn.execute(
                sqlalchemy.text("SELECT id, status, running, attempts FROM batch_requests"))}
    finally:
        engine.dispose()


def test_kill_and_restart_mid_batch(tmp_path):
    kill_and_restart_mid_batch(tmp_path, None)


def kill_and_restart_mid_batch(tmp_path, store):
    # Three equal-split rows over 20 binaries take the engine a few seconds each: long enough to be
    # caught running. The two-row ones queue behind them.
    medium = [mps_bytes(market_split(3, s)) for s in (1, 2)]
    quick = [mps_bytes(market_split(2, s)) for s in range(10, 18)]
    service = Service(tmp_path, "--workers", "2", store=store).start()
    try:
        client = Client(service.url)
        med_ids = [client.submit(m, "", f"medium{i}") for i, m in enumerate(medium)]
        quick_ids = [client.submit(m, "", f"quick{i}") for i, m in enumerate(quick)]
        wait_until(lambda: all(store_rows(service)[i][1] == 1 for i in med_ids), 30,
                   "both medium MIPs to be running")
        service.kill9()
    finally:
        service.stop()
    rows = store_rows(service)
    assert all(rows[i] == (2, 1, 1) for i in med_ids)  # SUBMITTED, held by a worker, first attempt

    restarted = Service(tmp_path, "--workers", "2", port=service.port, store=store).start()
    try:
        assert "2 interrupted request(s) queued again" in restarted.log()
        client = Client(restarted.url)
        done = client.wait_done(med_ids + quick_ids, timeout=120)
        assert all(a["BatchStatus"] == 5 for a in done.values()), done
        rows = store_rows(restarted)
        assert [rows[i][2] for i in med_ids] == [2, 2]  # run once more after the restart
        assert all(rows[i][2] in (1, 2) for i in quick_ids)
        for rid, data in zip(med_ids + quick_ids, medium + quick):
            got = client.solution(rid)["SolutionInfo"]
            want = local_solve(data)["SolutionInfo"]
            assert (got["Status"], got["ObjVal"]) == (want["Status"], pytest.approx(want["ObjVal"], abs=1e-6))
    finally:
        restarted.stop()
