"""Batch requests from Python against a small service in a thread speaking the batch protocol:
submission, polling, attributes, the JSON solution, abort/retry/discard, and the fixed messages
of lookup failures and attribute assignment. The last test runs the same steps against the real
service (`velmor-batch serve`) where it is installed."""
import base64
import gzip
import json
import shutil
import socket
import ssl
import subprocess
import threading
import time
import uuid
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

import pytest
from conftest import running_batch_service

import velmorpy as vp
from velmorpy import VLM, Batch, VelmorError

# max 3x + 2y  s.t.  c1: x + y <= 4,  c2: x + 3y <= 6,  x <= 3.
# Vertices: (3, 1) gives 11, (3, 0) gives 9, (0, 2) gives 4: optimum 11 at x = 3, y = 1.
PRODUCTION = """Maximize
 obj: 3 x + 2 y
Subject To
 c1: x + y <= 4
 c2: x + 3 y <= 6
Bounds
 x <= 3
End
"""


class FakeService:
    """The service's side: requests stay SUBMITTED until polled twice, then are COMPLETED with
    the JSON solution of a real solve of the submitted MPS text."""

    def __init__(self, workdir):
        self.workdir = workdir
        self.requests = {}
        self.submissions = []
        self.lock = threading.Lock()

    def solve(self, mps_text):
        path = self.workdir / f"{uuid.uuid4()}.mps"
        path.write_text(mps_text)
        with vp.Env(params={"OutputFlag": 0}) as env, vp.read(str(path), env) as m:
            m.optimize()
            return m.getJSONSolution()

    def info(self, rid):
        r = self.requests[rid]
        return {"BatchID": rid, "BatchStatus": r["status"], "BatchErrorCode": 0, "BatchErrorMessage": "",
                "ModelName": r["name"], "SubmitTime": "2026-11-25T15:00:00Z",
                "FinishTime": "2026-11-25T15:00:02Z" if r["status"] == VLM.BATCH_COMPLETED else ""}

    def handle(self, method, path, headers, body):
        if headers.get("X-Velmor-Access-Id") != "alice" or headers.get("X-Velmor-Secret") != "s3cret":
            return 401, {"error": "Unknown access id or wrong secret", "code": VLM.ERROR_SECURITY}
        base = "/api/v1/batches"
        if method == "POST" and path == base:
            sub = json.loads(body)
            mps = gzip.decompress(base64.b64decode(sub["model"])).decode()
            params = gzip.decompress(base64.b64decode(sub["params"])).decode()
            self.submissions.append({"mps": mps, "params": params, "app": sub["app_name"]})
            rid = str(uuid.uuid4())
            self.requests[rid] = {"status": VLM.BATCH_SUBMITTED, "name": sub["model_name"], "polls": 0,
                                  "solution": self.solve(mps), "gone": False}
            return 201, {"id": rid}
        rid, _, op = path[len(base) + 1:].partition("/")
        r = self.requests.get(rid)
        if r is None:
            return 404, {"error": f"Unknown batch request '{rid}'", "code": VLM.ERROR_INVALID_ARGUMENT}
        if r["gone"]:
            return 410, {"error": f"Batch request '{rid}' was discarded", "code": VLM.ERROR_DATA_NOT_AVAILABLE}
        if method == "GET" and op == "":
            r["polls"] += 1
            if r["status"] == VLM.BATCH_SUBMITTED and r["polls"] > 2:
                r["status"] = VLM.BATCH_COMPLETED
            return 200, self.info(rid)
        if method == "DELETE" and op == "":
            r["gone"] = True
            return 200, {}
        if method == "POST" and op == "abort":
            if r["status"] != VLM.BATCH_SUBMITTED:
                return 409, {"error": "Only an open request can be aborted", "code": VLM.ERROR_INVALID_ARGUMENT}
            r["status"] = VLM.BATCH_ABORTED
            return 200, self.info(rid)
        if method == "POST" and op == "retry":
            if r["status"] not in (VLM.BATCH_ABORTED, VLM.BATCH_FAILED):
                return 409, {"error": "Only a failed or aborted request can be retried",
                             "code": VLM.ERROR_INVALID_ARGUMENT}
            r["status"], r["polls"] = VLM.BATCH_SUBMITTED, 0
            return 200, self.info(rid)
        if method == "GET" and op == "solution":
            if r["status"] != VLM.BATCH_COMPLETED:
                return 409, {"error": f"Batch request '{rid}' is not completed", "code": VLM.ERROR_INVALID_ARGUMENT}
            return 200, r["solution"]
        return 500, {"error": "No such operation", "code": VLM.ERROR_CLOUD}


def serve(svc, tmp_path, tls=False):
    """Runs `svc` on a free loopback port (https with a fresh self-signed certificate when
    `tls`); yields it with its URL set."""

    class Handler(BaseHTTPRequestHandler):
        def answer(self):
            length = int(self.headers.get("Content-Length") or 0)
            body = self.rfile.read(length) if length else b""
            with svc.lock:
                code, payload = svc.handle(self.command, self.path, self.headers, body)
            data = payload.encode() if isinstance(payload, str) else json.dumps(payload).encode()
            self.send_response(code)
            self.send_header("Content-Type", "application/json")
            self.send_header("Content-Length", str(len(data)))
            self.end_headers()
            self.wfile.write(data)

        do_GET = do_POST = do_DELETE = answer

        def log_message(self, *args):
            pass

    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    if tls:
        key, cert = tmp_path / "key.pem", tmp_path / "cert.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1",
                        "-subj", "/CN=127.0.0.1", "-keyout", str(key), "-out", str(cert)],
                       check=True, capture_output=True, timeout=60)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(cert, key)
        server.socket = context.wrap_socket(server.socket, server_side=True)
    thread = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True)
    thread.start()
    svc.url = f"{'https' if tls else 'http'}://127.0.0.1:{server.server_address[1]}"
    yield svc
    server.shutdown()
    server.server_close()
    thread.join(timeout=5)


@pytest.fixture
def service(tmp_path):
    yield from serve(FakeService(tmp_path), tmp_path)


@pytest.fixture
def benv(service):
    e = vp.Env(params={"OutputFlag": 0, "CSManager": service.url, "CSAPIAccessID": "alice",
                       "CSAPISecret": "s3cret", "ServerTimeout": 10})
    yield e
    e.dispose()


def production(tmp_path, env):
    path = tmp_path / "prod.lp"
    path.write_text(PRODUCTION)
    m = vp.read(str(path), env)
    m.ModelName = "prod"
    return m


def poll(batch, limit=10):
    for _ in range(limit):
        batch.update()
        if batch.BatchStatus != VLM.BATCH_SUBMITTED:
            break
    return batch.BatchStatus


def test_submit_poll_and_solution(service, benv, tmp_path):
    m = production(tmp_path, benv)
    m.Params.TimeLimit = 7
    bid = m.optimizeBatch()
    assert str(uuid.UUID(bid)) == bid
    sub = service.submissions[-1]
    assert "c2" in sub["mps"] and "TimeLimit  7" in sub["params"]
    assert "s3cret" not in sub["params"] and "CSManager" not in sub["params"]

    with Batch(bid, benv) as b:
        assert b.BatchID == bid and b.ModelName == "prod"
        assert b.BatchStatus == VLM.BATCH_SUBMITTED and b.FinishTime == ""
        with pytest.raises(VelmorError) as info:
            b.getJSONSolution()
        assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT
        assert str(info.value) == f"Batch request '{bid}' is not completed"
        assert poll(b) == VLM.BATCH_COMPLETED
        assert b.FinishTime == "2026-11-25T15:00:02Z" and b.BatchErrorCode == 0
        text = b.getJSONSolution()
        assert text == service.requests[bid]["solution"]
        b.writeJSONSolution(str(tmp_path / "sol.json"))
        assert (tmp_path / "sol.json").read_text() == text

    sol = json.loads(text)
    assert sol["SolutionInfo"]["Status"] == VLM.OPTIMAL
    assert sol["SolutionInfo"]["ObjVal"] == pytest.approx(11.0)
    assert {v["VarName"]: v["X"] for v in sol["Vars"]} == pytest.approx({"x": 3.0, "y": 1.0})
    # The same model solved here gives the same values.
    m.optimize()
    local = json.loads(m.getJSONSolution())
    assert local["Vars"] == sol["Vars"] and local["Constrs"] == sol["Constrs"]


def test_abort_retry_discard(service, benv, tmp_path):
    b = Batch(production(tmp_path, benv).optimizeBatch(), benv)
    b.abort()
    assert b.BatchStatus == VLM.BATCH_ABORTED
    with pytest.raises(VelmorError) as info:
        b.abort()
    assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT
    assert str(info.value) == "Only an open request can be aborted"
    b.retry()
    assert b.BatchStatus == VLM.BATCH_SUBMITTED
    assert poll(b) == VLM.BATCH_COMPLETED
    with pytest.raises(VelmorError) as info:
        b.retry()
    assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT

    b.discard()
    for query in (b.update, b.getJSONSolution, lambda: b.BatchStatus):
        with pytest.raises(VelmorError) as info:
            query()
        assert info.value.errno == VLM.ERROR_DATA_NOT_AVAILABLE
    with pytest.raises(VelmorError) as info:
        Batch(b.BatchID, benv)
    assert info.value.errno == VLM.ERROR_DATA_NOT_AVAILABLE
    assert str(info.value) == "Failed to create batch request"


def test_lookup_failures(service, benv, tmp_path):
    with pytest.raises(VelmorError) as info:
        Batch(str(uuid.uuid4()), benv)
    assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT
    assert str(info.value) == "Failed to create batch request"

    bid = production(tmp_path, benv).optimizeBatch()
    benv.setParam("CSAPISecret", "wrong")
    with pytest.raises(VelmorError) as info:
        Batch(bid, benv)
    assert info.value.errno == VLM.ERROR_SECURITY
    with pytest.raises(TypeError):
        Batch(42, benv)

    # Nothing listening: the network error names the address.
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        closed = f"http://127.0.0.1:{s.getsockname()[1]}"
    m = production(tmp_path, benv)
    m.Params.CSManager = closed
    with pytest.raises(VelmorError) as info:
        m.optimizeBatch()
    assert info.value.errno == VLM.ERROR_NETWORK
    assert str(info.value).startswith(f"Unable to reach the batch service at '{closed}/api/v1/batches': ")


def test_attributes_are_read_only(service, benv, tmp_path):
    b = Batch(production(tmp_path, benv).optimizeBatch(), benv)
    with pytest.raises(AttributeError) as info:
        b.BatchStatus = VLM.BATCH_ABORTED
    assert str(info.value) == "Attribute 'BatchStatus' cannot be set"
    with pytest.raises(AttributeError) as info:
        b.Colour = "red"
    assert str(info.value) == "Unknown batch attribute 'Colour'"
    with pytest.raises(VelmorError) as info:
        b.Colour
    assert info.value.errno == VLM.ERROR_UNKNOWN_ATTRIBUTE
    b._note = "mine"
    assert b._note == "mine"
    names = dir(b)
    assert {"BatchID", "BatchStatus", "BatchErrorCode", "BatchErrorMessage", "ModelName", "SubmitTime",
            "FinishTime", "_note", "_cbatch", "_cenv", "_uenv"} <= set(names)
    assert b._uenv is benv


def test_equality_repr_and_dispose(service, benv, tmp_path):
    m = production(tmp_path, benv)
    first, second = m.optimizeBatch(), m.optimizeBatch()
    a, a2, c = Batch(first, benv), Batch(first, benv), Batch(second, benv)
    assert a == a2 and not (a != a2)
    assert a != c and a != first
    assert repr(a) == f"<velmorpy.Batch, ID {first}>"
    a.dispose()
    a.dispose()
    assert repr(a) == "<velmorpy.Batch, invalid or closed state>"
    assert a._cbatch is None and a._cenv is None and a._uenv is None
    with pytest.raises(VelmorError) as info:
        a.BatchStatus
    assert str(info.value) == "Batch has been disposed"
    with pytest.raises(VelmorError) as info:
        a.update()
    assert str(info.value) == "Failed to create batch request"
    with c:
        assert c.BatchID == second
    assert repr(c) == "<velmorpy.Batch, invalid or closed state>"


@pytest.mark.skipif(shutil.which("openssl") is None, reason="needs the openssl command to make a certificate")
def test_https_checks_the_certificate_unless_told_not_to(tmp_path):
    for svc in serve(FakeService(tmp_path), tmp_path, tls=True):
        with vp.Env(params={"OutputFlag": 0, "CSManager": svc.url, "CSAPIAccessID": "alice",
                            "CSAPISecret": "s3cret", "ServerTimeout": 10}) as env:
            m = production(tmp_path, env)
            # A self-signed certificate is no one's word for the service.
            with pytest.raises(VelmorError) as info:
                m.optimizeBatch()
            assert info.value.errno == VLM.ERROR_NETWORK and "certificate" in str(info.value).lower()
            assert svc.submissions == []
            m.Params.CSTLSInsecure = 1
            bid = m.optimizeBatch()
            assert svc.requests[bid]["name"] == "prod"


def _real_service_missing():
    try:
        import velmor_batch  # noqa: F401  (installed with the .[batch] extra)
    except ImportError:
        return True
    return False


@pytest.mark.skipif(_real_service_missing(), reason="the batch service is not installed (.[batch])")
def test_against_the_real_service(tmp_path):
    with running_batch_service(tmp_path) as url:
        with vp.Env(params={"OutputFlag": 0, "CSManager": url,
                            "CSAPIAccessID": "local", "CSAPISecret": "local"}) as env:
            m = production(tmp_path, env)
            with Batch(m.optimizeBatch(), env) as b:
                assert b.ModelName == "prod"
                deadline = time.monotonic() + 60
                while b.BatchStatus == VLM.BATCH_SUBMITTED and time.monotonic() < deadline:
                    time.sleep(0.1)
                    b.update()
                assert b.BatchStatus == VLM.BATCH_COMPLETED, b.BatchErrorMessage
                sol = json.loads(b.getJSONSolution())
                with pytest.raises(VelmorError) as info:
                    b.abort()
                assert info.value.errno == VLM.ERROR_INVALID_ARGUMENT
                b.discard()
                with pytest.raises(VelmorError) as info:
                    b.update()
                assert info.value.errno == VLM.ERROR_DATA_NOT_AVAILABLE
            # Optimum 11 at (3, 1), as solved here.
            assert sol["SolutionInfo"]["ObjVal"] == pytest.approx(11.0)
            m.optimize()
            assert json.loads(m.getJSONSolution())["Vars"] == sol["Vars"]
            with pytest.raises(VelmorError) as info:
                Batch(str(uuid.uuid4()), env)
            assert str(info.value) == "Failed to create batch request"
