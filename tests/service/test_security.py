"""Credentials, isolation between access ids, malformed submissions, and HTTPS."""

import base64
import gzip
import os
import shutil
import subprocess
import sys

import pytest

from service_harness import SERVICE_PATH, Client, Service, client, market_split, mps_bytes, service  # noqa: F401
import httpx  # noqa: E402  (after the harness, which skips these tests when it is missing)

ALICE = ("alice", "alice-secret")
BOB = ("bob", "bob-secret")


@pytest.fixture
def keyed(tmp_path):
    s = Service(tmp_path, "--key", "alice:alice-secret", "--key", "bob:bob-secret").start()
    yield s
    s.stop()


def test_credentials_are_checked_and_ids_are_isolated(keyed):
    alice, bob = Client(keyed.url, ALICE), Client(keyed.url, BOB)
    rid = alice.submit(mps_bytes(market_split(2, 1)), "", "alices")
    assert alice.wait_done([rid], timeout=30)[rid]["BatchStatus"] == 5

    unknown = {"code": 10003, "error": f"Unknown batch request '{rid}'"}
    for method, path in (("GET", ""), ("GET", "/solution"), ("POST", "/abort"), ("POST", "/retry"),
                         ("DELETE", "")):
        r = bob.http.request(method, f"/batches/{rid}{path}")
        assert (r.status_code, r.json()) == (404, unknown), (method, path)
    # Bob's failed delete left Alice's request whole.
    assert alice.solution(rid)["SolutionInfo"]["Status"] == 2

    anon = httpx.Client(base_url=keyed.url)
    r = anon.get(f"/batches/{rid}")
    assert (r.status_code, r.json()) == (401, {"code": 10032, "error": "Missing credentials: set the access id "
                                                                      "and secret parameters"})
    wrong = Client(keyed.url, ("alice", "bob-secret"))
    r = wrong.get(rid)
    assert (r.status_code, r.json()) == (401, {"code": 10032, "error": "Access id 'alice' or its secret is wrong"})
    # With keys configured the built-in 'local' id is not accepted.
    assert Client(keyed.url).get(rid).status_code == 401
    assert anon.get("/health").json() == {"status": "ok"}
    assert Client(keyed.url, ALICE).http.get("/batches/not-a-request").json() == {
        "code": 10003, "error": "Unknown batch request 'not-a-request'"}


def test_malformed_submissions_are_refused(client):
    def post(body):
        r = client.http.post("/batches", content=body if isinstance(body, bytes) else None,
                             json=None if isinstance(body, bytes) else body)
        return r.status_code, r.json()

    good = base64.b64encode(gzip.compress(b"NAME x\nENDATA\n")).decode()
    assert post(b"{not json") == (400, {"code": 10003, "error": "Submission body is not JSON"})
    assert post([1, 2]) == (400, {"code": 10003, "error": "Submission body is not a JSON object"})
    assert post({"params": good}) == (400, {"code": 10003,
                                           "error": "Submission field 'model' is missing or not a string"})
    assert post({"model": "@@@"}) == (400, {"code": 10012, "error": "Submission field 'model' is not valid base64"})
    status, body = post({"model": base64.b64encode(b"plain text").decode()})
    assert status == 400 and body["code"] == 10012
    assert body["error"].startswith("Submission field 'model' is not gzip data")
    assert post({"model": good, "model_name": 7}) == (
        400, {"code": 10003, "error": "Submission field 'model_name' is not a string"})
    # 2 MiB of comment lines compress to a few KiB: the limit is on what they inflate to.
    bomb = base64.b64encode(gzip.compress(b"#" * (2 << 20))).decode()
    assert post({"model": good, "params": bomb}) == (
        400, {"code": 10012, "error": "Submission field 'params' is larger than 1048576 bytes"})
    r = httpx.post(client.http.base_url.join("batches"), json={"model": good})
    assert (r.status_code, r.json()["code"]) == (401, 10032)
    bad_utf8 = base64.b64encode(gzip.compress(b"\xff\xfe")).decode()
    assert post({"model": good, "params": bad_utf8}) == (
        400, {"code": 10012, "error": "Submission field 'params' is not UTF-8 text"})


def test_add_key_and_https(tmp_path):
    if shutil.which("openssl") is None:
        pytest.skip("openssl is not installed: no certificate for the HTTPS test")
    cert, key = str(tmp_path / "cert.pem"), str(tmp_path / "key.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", cert,
                    "-days", "1", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"],
                   check=True, capture_output=True)
    store = "sqlite:///" + str(tmp_path / "batch.sqlite3")
    env = dict(os.environ, PYTHONPATH=SERVICE_PATH + os.pathsep + os.environ.get("PYTHONPATH", ""))
    out = subprocess.run([sys.executable, "-m", "velmor_batch", "add-key", "carol", "--store", store],
                         input="carol-secret\n", capture_output=True, text=True, env=env, timeout=60)
    assert (out.returncode, out.stdout) == (0, "velmor-batch: access id 'carol' added\n")

    s = Service(tmp_path, "--certfile", cert, "--keyfile", key, store=store, cafile=cert).start()
    try:
        carol = Client(s.url, ("carol", "carol-secret"), cafile=cert)
        rid = carol.submit(mps_bytes(market_split(2, 2)), "", "tls")
        assert carol.wait_done([rid], timeout=30)[rid]["BatchStatus"] == 5
        assert carol.solution(rid)["SolutionInfo"]["Status"] == 2
        # A secret replaced while the service runs: the old one is refused from the next request.
        out = subprocess.run([sys.executable, "-m", "velmor_batch", "add-key", "carol", "new-secret",
                              "--store", store], capture_output=True, text=True, env=env, timeout=60)
        assert out.returncode == 0, out.stderr
        assert carol.get(rid).status_code == 401
        assert Client(s.url, ("carol", "new-secret"), cafile=cert).status(rid) == 5
        # Only TLS is spoken on that port.
        with pytest.raises(httpx.TransportError):
            httpx.get(f"http://127.0.0.1:{s.port}/api/v1/health", timeout=5)
    finally:
        s.stop()
