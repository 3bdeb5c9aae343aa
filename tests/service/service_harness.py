"""Harness of the batch service tests (imported by each test module; a conftest.py here would
clash with the module tests' own when both folders run in one session): a service process on a free loopback port, an HTTP
client speaking the protocol, and models written to MPS by velmorpy.

Every wait here is bounded: a service that never answers fails the test, it does not hang it.
"""

import base64
import gzip
import json
import os
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import time

import pytest

_REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

for _dep in ("starlette", "uvicorn", "sqlalchemy", "httpx"):
    pytest.importorskip(_dep, reason=f"the batch service's optional dependency '{_dep}' is not installed "
                                     "(pip install .[batch])")
velmorpy = pytest.importorskip("velmorpy", reason="velmorpy is not built or installed")
try:
    import velmor_batch  # noqa: F401  (installed with the package)
except ImportError:
    sys.path.insert(0, os.path.join(_REPO, "service"))
    import velmor_batch  # noqa: F401

import httpx  # noqa: E402

SERVICE_PATH = os.path.dirname(os.path.dirname(os.path.abspath(velmor_batch.__file__)))
LOCAL = ("local", "local")


def tls_context(cafile):
    return ssl.create_default_context(cafile=cafile) if cafile else True


def free_port() -> int:
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_until(pred, timeout, what):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        v = pred()
        if v:
            return v
        time.sleep(0.05)
    raise AssertionError(f"timed out after {timeout} s waiting for {what}")


class Service:
    """A `velmor-batch serve` subprocess on 127.0.0.1."""

    def __init__(self, tmp_path, *extra, store=None, port=None, cafile=None):
        self.tmp = str(tmp_path)
        self.cafile = cafile  # set: the service serves HTTPS with a certificate this file verifies
        self.store = store or "sqlite:///" + os.path.join(self.tmp, "batch.sqlite3")
        self.extra = list(extra)
        self.port = port or free_port()
        self.proc = None
        self.log_path = os.path.join(self.tmp, f"service-{self.port}.log")

    @property
    def url(self):
        return f"{'https' if self.cafile else 'http'}://127.0.0.1:{self.port}/api/v1"

    def start(self):
        env = dict(os.environ)
        env["PYTHONPATH"] = SERVICE_PATH + os.pathsep + env.get("PYTHONPATH", "")
        self._log = open(self.log_path, "ab")
        self.proc = subprocess.Popen(
            [sys.executable, "-m", "velmor_batch", "serve", "--port", str(self.port), "--store", self.store,
             *self.extra], stdout=self._log, stderr=subprocess.STDOUT, env=env, cwd=self.tmp)

        def up():
            if self.proc.poll() is not None:
                raise AssertionError(f"service exited with {self.proc.returncode}:\n{self.log()}")
            try:
                return httpx.get(self.url + "/health", timeout=1, verify=tls_context(self.cafile)).status_code == 200
            except httpx.TransportError:
                return False
        wait_until(up, 60, "the service to answer /health")
        return self

    def log(self):
        with open(self.log_path, "rb") as f:
            return f.read().decode(errors="replace")

    def kill9(self):
        os.kill(self.proc.pid, signal.SIGKILL)
        self.proc.wait(10)

    def stop(self):
        if self.proc is not None and self.proc.poll() is None:
            self.proc.terminate()
            try:
                self.proc.wait(15)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait(5)
        if self.proc is not None:
            self._log.close()


class Client:
    """The protocol from the submitting side."""

    def __init__(self, url, key=LOCAL, cafile=None):
        self.http = httpx.Client(base_url=url, timeout=30, verify=tls_context(cafile),
                                 headers={"X-Velmor-Access-Id": key[0], "X-Velmor-Secret": key[1]})

    def submit(self, mps: bytes, prm: str = "", name="m"):
        r = self.http.post("/batches", json={
            "model": base64.b64encode(gzip.compress(mps)).decode(),
            "params": base64.b64encode(gzip.compress(prm.encode())).decode(),
            "model_name": name, "app_name": "tests"})
        assert r.status_code == 201, r.text
        return r.json()["id"]

    def get(self, rid):
        return self.http.get(f"/batches/{rid}")

    def status(self, rid):
        r = self.get(rid)
        assert r.status_code == 200, r.text
        return r.json()["BatchStatus"]

    def wait_done(self, ids, timeout=120):
        """Waits until none of ``ids`` is SUBMITTED; returns {id: attributes}."""
        out = {}

        def done():
            for rid in ids:
                if rid not in out:
                    a = self.get(rid).json()
                    if a["BatchStatus"] != 2:
                        out[rid] = a
            return len(out) == len(ids)
        wait_until(done, timeout, f"{len(ids) - len(out)} request(s) to finish")
        return out

    def solution(self, rid):
        r = self.http.get(f"/batches/{rid}/solution")
        assert r.status_code == 200, r.text
        assert r.headers["content-type"].startswith("application/json")
        return json.loads(r.text)


def mps_bytes(model) -> bytes:
    with tempfile.TemporaryDirectory() as d:
        path = os.path.join(d, "m.mps")
        model.write(path)
        with open(path, "rb") as f:
            return f.read()


def local_solve(mps: bytes, prm: str = "") -> dict:
    """Solves the same bytes in this process, as a user would without the service."""
    with tempfile.TemporaryDirectory() as d:
        with open(os.path.join(d, "model.mps"), "wb") as f:
            f.write(mps)
        with open(os.path.join(d, "params.prm"), "w") as f:
            f.write(prm)
        env = velmorpy.Env(empty=True)
        env.setParam("OutputFlag", 0)
        env.start()
        m = velmorpy.read(os.path.join(d, "model.mps"), env)
        m.read(os.path.join(d, "params.prm"))
        m.setParam("OutputFlag", 0)
        m.optimize()
        sol = json.loads(m.getJSONSolution())
        m.dispose()
        env.dispose()
        return sol


def market_split(m: int, seed: int, name=None):
    """A market split instance: m equal-split rows over 10(m-1) binaries, slacks minimised. With
    m = 4 branch and bound needs far longer than any test waits; m = 3 takes a few seconds."""
    import random
    rnd = random.Random(seed)
    n = 10 * (m - 1)
    mod = velmorpy.Model(name or f"split{m}_{seed}")
    mod.setParam("OutputFlag", 0)
    x = [mod.addVar(vtype="B", name=f"pick{j:04d}") for j in range(n)]
    for i in range(m):
        a = [rnd.randint(0, 99) for _ in range(n)]
        sp = mod.addVar(obj=1, name=f"slackp{i:02d}")
        sm = mod.addVar(obj=1, name=f"slackm{i:02d}")
        mod.addConstr(velmorpy.quicksum(a[j] * x[j] for j in range(n)) + sp - sm == sum(a) // 2, name=f"r{i}")
    mod.update()
    return mod


@pytest.fixture
def service(tmp_path):
    s = Service(tmp_path).start()
    yield s
    s.stop()


@pytest.fixture
def client(service):
    c = Client(service.url)
    yield c
    c.http.close()
