"""What the batch service adds to a solve: 200 small MIPs through the embedded service (SQLite
store, 2 local worker processes) against solving the same MPS bytes in a loop in one process.
Target: under 50 ms of overhead per request.

Three runs over the same 200 models (two-row knapsacks over 12 binaries):
  loop      read the MPS file, apply the parameters, optimize, getJSONSolution: what a worker does
  serial    one request at a time through HTTP: submit, poll every 2 ms until done, fetch the
            solution; (serial - loop) / 200 is the latency the service adds to one request
  batch     all 200 submitted, then polled until done and fetched: the throughput view, where the
            two workers may win back the overhead

Run:  python benchmarks/batch_overhead.py [--models 200]   (needs pip install .[batch])
"""
import argparse
import base64
import gzip
import os
import random
import shutil
import socket
import subprocess
import sys
import tempfile
import time

import httpx
import velmorpy as vp

HERE = os.path.dirname(os.path.abspath(__file__))
HEADERS = {"X-Velmor-Access-Id": "local", "X-Velmor-Secret": "local"}


def knapsack_mps(seed, d):
    rnd = random.Random(seed)
    n, k = 12, 2
    m = vp.Model(f"knap{seed:04d}", env=vp.Env(params={"OutputFlag": 0}))
    x = [m.addVar(vtype="B", obj=rnd.randint(5, 40), name=f"item{j:04d}") for j in range(n)]
    m.ModelSense = vp.VLM.MAXIMIZE
    for i in range(k):
        w = [rnd.randint(1, 30) for _ in range(n)]
        m.addConstr(vp.quicksum(w[j] * x[j] for j in range(n)) <= sum(w) // 3, name=f"cap{i}")
    path = os.path.join(d, f"m{seed}.mps")
    m.write(path)
    with open(path, "rb") as f:
        return f.read()


def loop_solve(models, d):
    env = vp.Env(params={"OutputFlag": 0})
    t0 = time.perf_counter()
    objs = []
    for i, data in enumerate(models):
        path = os.path.join(d, "loop.mps")
        with open(path, "wb") as f:
            f.write(data)
        m = vp.read(path, env)
        m.optimize()
        m.getJSONSolution()
        objs.append(m.ObjVal)
        m.dispose()
    return time.perf_counter() - t0, objs


def start_service(d, workers):
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        port = s.getsockname()[1]
    env = dict(os.environ)
    service_dir = os.path.join(os.path.dirname(HERE), "service")
    env["PYTHONPATH"] = service_dir + os.pathsep + env.get("PYTHONPATH", "")
    proc = subprocess.Popen([sys.executable, "-m", "velmor_batch", "serve", "--port", str(port),
                             "--data-dir", os.path.join(d, "store"), "--workers", str(workers),
                             "--log-level", "warning"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=env)
    url = f"http://127.0.0.1:{port}/api/v1"
    end = time.monotonic() + 60
    while time.monotonic() < end:
        try:
            if httpx.get(url + "/health", timeout=1).status_code == 200:
                return proc, url
        except httpx.TransportError:
            time.sleep(0.1)
    proc.kill()
    raise SystemExit("the service did not start within 60 s")


def body(data, name):
    return {"model": base64.b64encode(gzip.compress(data)).decode(),
            "params": base64.b64encode(gzip.compress(b"")).decode(), "model_name": name, "app_name": "bench"}


def serial(client, models):
    t0 = time.perf_counter()
    objs = []
    for i, data in enumerate(models):
        rid = client.post("/batches", json=body(data, f"s{i}")).json()["id"]
        end = time.monotonic() + 60
        while client.get(f"/batches/{rid}").json()["BatchStatus"] == 2:
            if time.monotonic() > end:
                raise SystemExit(f"request {rid} did not finish within 60 s")
            time.sleep(0.002)
        objs.append(client.get(f"/batches/{rid}/solution").json()["SolutionInfo"]["ObjVal"])
    return time.perf_counter() - t0, objs


def batch(client, models):
    t0 = time.perf_counter()
    ids = [client.post("/batches", json=body(data, f"b{i}")).json()["id"] for i, data in enumerate(models)]
    pending = list(ids)
    end = time.monotonic() + 300
    while pending:
        if time.monotonic() > end:
            raise SystemExit(f"{len(pending)} requests did not finish within 300 s")
        pending = [rid for rid in pending if client.get(f"/batches/{rid}").json()["BatchStatus"] == 2]
        if pending:
            time.sleep(0.01)
    objs = [client.get(f"/batches/{rid}/solution").json()["SolutionInfo"]["ObjVal"] for rid in ids]
    return time.perf_counter() - t0, objs


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--models", type=int, default=200)
    ap.add_argument("--workers", type=int, default=2)
    a = ap.parse_args()
    d = tempfile.mkdtemp(prefix="velmor-batch-bench-")
    proc = None
    try:
        models = [knapsack_mps(s, d) for s in range(a.models)]
        t_loop, objs = loop_solve(models, d)
        proc, url = start_service(d, a.workers)
        with httpx.Client(base_url=url, headers=HEADERS, timeout=30) as client:
            t_serial, objs_s = serial(client, models)
            t_batch, objs_b = batch(client, models)
        assert objs_s == objs and objs_b == objs, "the service's objective values differ from the loop's"
        n = a.models
        print(f"{n} MIPs, {a.workers} workers, objective values identical in all three runs")
        print(f"  loop in one process  {t_loop:7.2f} s   {1000 * t_loop / n:6.1f} ms per model")
        print(f"  serial via service   {t_serial:7.2f} s   {1000 * t_serial / n:6.1f} ms per request; "
              f"overhead {1000 * (t_serial - t_loop) / n:6.1f} ms per request")
        print(f"  batch via service    {t_batch:7.2f} s   {1000 * t_batch / n:6.1f} ms per request; "
              f"overhead {1000 * (t_batch - t_loop) / n:6.1f} ms per request")
    finally:
        if proc is not None:
            proc.terminate()
            proc.wait(15)
        shutil.rmtree(d, ignore_errors=True)


if __name__ == "__main__":
    main()
