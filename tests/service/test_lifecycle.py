"""Abort, retry, discard and the state errors of each, on a MIP too long to finish by itself."""

import os
import signal
import sqlite3
import time

import pytest

from service_harness import Client, Service, client, market_split, mps_bytes, service, wait_until  # noqa: F401

# Four equal-split rows over 30 binaries: branch and bound runs for minutes, so every state seen
# here was caused by the test, not by the solve ending.
LONG = None


def long_mip():
    global LONG
    if LONG is None:
        LONG = mps_bytes(market_split(4, 1))
    return LONG


def running_ids(service):
    db = sqlite3.connect(os.path.join(service.tmp, "batch.sqlite3"))
    try:
        return {r[0]: r[1] for r in db.execute("SELECT id, attempts FROM batch_requests WHERE running = 1")}
    finally:
        db.close()


@pytest.fixture
def one_worker(tmp_path):
    s = Service(tmp_path, "--workers", "1").start()
    c = Client(s.url)
    yield s, c
    c.http.close()
    s.stop()


def test_abort_stops_the_solve_and_retry_runs_it_again(one_worker):
    service, client = one_worker
    rid = client.submit(long_mip(), "", "long")
    wait_until(lambda: rid in running_ids(service), 30, "the long MIP to start")

    t0 = time.monotonic()
    r = client.http.post(f"/batches/{rid}/abort")
    assert r.status_code == 200, r.text
    body = r.json()
    assert (body["BatchID"], body["BatchStatus"], body["BatchErrorCode"]) == (rid, 3, 0)
    assert body["FinishTime"] != ""
    # The only worker was busy with the long MIP: a quick model finishing now proves it was stopped.
    quick = client.submit(mps_bytes(market_split(2, 3)), "", "quick")
    assert client.wait_done([quick], timeout=30)[quick]["BatchStatus"] == 5
    assert time.monotonic() - t0 < 30
    assert client.status(rid) == 3

    r = client.http.post(f"/batches/{rid}/abort")
    assert r.status_code == 409
    assert r.json() == {"code": 10003,
                        "error": f"Batch request '{rid}' is ABORTED: only a submitted request can be aborted"}
    r = client.http.get(f"/batches/{rid}/solution")
    assert r.status_code == 409
    assert r.json() == {"code": 10003, "error": f"Batch request '{rid}' has no solution: it is ABORTED"}

    r = client.http.post(f"/batches/{rid}/retry")
    assert r.status_code == 200 and r.json()["BatchStatus"] == 2 and r.json()["FinishTime"] == ""
    wait_until(lambda: running_ids(service).get(rid) == 2, 30, "the retried MIP to start its second attempt")
    r = client.http.post(f"/batches/{rid}/retry")
    assert r.status_code == 409
    assert r.json()["error"] == (f"Batch request '{rid}' is SUBMITTED: "
                                 "only a failed or aborted request can be retried")

    # Discarding a running request stops it as well, and everything about it is gone.
    r = client.http.delete(f"/batches/{rid}")
    assert (r.status_code, r.json()) == (200, {})
    gone = {"code": 10005, "error": f"Batch request '{rid}' was discarded: its data is no longer available"}
    for method, path in (("GET", ""), ("GET", "/solution"), ("POST", "/abort"), ("POST", "/retry"),
                         ("DELETE", "")):
        r = client.http.request(method, f"/batches/{rid}{path}")
        assert (r.status_code, r.json()) == (410, gone), (method, path)
    quick2 = client.submit(mps_bytes(market_split(2, 4)), "", "quick2")
    assert client.wait_done([quick2], timeout=30)[quick2]["BatchStatus"] == 5


def test_completed_request_refuses_abort_and_retry_and_discard_removes_data(client, service):
    # Two equal-split rows over 10 binaries: solved in well under a second.
    rid = client.submit(mps_bytes(market_split(2, 5)), "", "small")
    assert client.wait_done([rid], timeout=30)[rid]["BatchStatus"] == 5
    for action, msg in (("abort", "only a submitted request can be aborted"),
                        ("retry", "only a failed or aborted request can be retried")):
        r = client.http.post(f"/batches/{rid}/{action}")
        assert (r.status_code, r.json()) == (409, {"code": 10003,
                                                   "error": f"Batch request '{rid}' is COMPLETED: {msg}"})
    assert client.solution(rid)["SolutionInfo"]["Status"] == 2
    assert client.http.delete(f"/batches/{rid}").status_code == 200
    db = sqlite3.connect(os.path.join(service.tmp, "batch.sqlite3"))
    row = db.execute("SELECT model, params, solution, discarded FROM batch_requests WHERE id = ?", (rid,)).fetchone()
    db.close()
    assert row == (None, None, None, 1)
    assert client.get(rid).status_code == 410


def test_failed_request_can_be_retried(client):
    rid = client.submit(b"NAME broken\nROWS\n N obj\nCOLUMNS\n    xcolumn1 obj 1 nosuchrow 2\nENDATA\n", "", "broken")
    a = client.wait_done([rid], timeout=30)[rid]
    assert (a["BatchStatus"], a["BatchErrorCode"], a["BatchErrorMessage"]) == (
        4, 10012, "File 'model.mps', line 5: unknown row 'nosuchrow'")
    r = client.http.post(f"/batches/{rid}/retry")
    assert r.status_code == 200
    assert (r.json()["BatchStatus"], r.json()["BatchErrorCode"], r.json()["BatchErrorMessage"]) == (2, 0, "")
    again = client.wait_done([rid], timeout=30)[rid]
    assert (again["BatchStatus"], again["BatchErrorMessage"]) == (4, a["BatchErrorMessage"])


def worker_pids(service):
    pids = []
    for task in os.listdir(f"/proc/{service.proc.pid}/task"):
        with open(f"/proc/{service.proc.pid}/task/{task}/children") as f:
            pids += [int(p) for p in f.read().split()]
    out = []
    for pid in pids:
        with open(f"/proc/{pid}/cmdline", "rb") as f:
            cmd = f.read()
            if b"spawn_main" in cmd and b"resource_tracker" not in cmd:
                out.append(pid)
    return out


@pytest.mark.skipif(not os.path.exists("/proc/self/task"), reason="finds worker processes through /proc")
def test_worker_crash_fails_the_request_and_the_pool_recovers(one_worker):
    service, client = one_worker
    rid = client.submit(long_mip(), "", "crash")
    wait_until(lambda: rid in running_ids(service), 30, "the long MIP to start")
    (pid,) = worker_pids(service)
    os.kill(pid, signal.SIGKILL)
    a = client.wait_done([rid], timeout=30)[rid]
    assert (a["BatchStatus"], a["BatchErrorCode"], a["BatchErrorMessage"]) == (
        4, 10028, "The worker process stopped unexpectedly (exit code -9) while solving this request")
    after = client.submit(mps_bytes(market_split(2, 6)), "", "after")
    assert client.wait_done([after], timeout=30)[after]["BatchStatus"] == 5
    assert worker_pids(service) != [pid]
