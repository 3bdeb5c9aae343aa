"""The service on a PostgreSQL store: a throw-away server on loopback, started here when the
machine has PostgreSQL's programs (Debian's postgresql package); skipped otherwise."""

import glob
import os
import shutil
import subprocess
import tempfile

import pytest

pytest.importorskip("psycopg", reason="the batch service's optional dependency 'psycopg' is not installed")

from service_harness import Client, Service, free_port, market_split, mps_bytes  # noqa: E402
from test_durability import kill_and_restart_mid_batch  # noqa: E402


def _pg_bin(name):
    found = sorted(glob.glob(f"/usr/lib/postgresql/*/bin/{name}"))
    return found[-1] if found else shutil.which(name)


@pytest.fixture(scope="module")
def postgres():
    initdb, pg_ctl = _pg_bin("initdb"), _pg_bin("pg_ctl")
    if not initdb or not pg_ctl:
        pytest.skip("PostgreSQL's initdb/pg_ctl are not installed (Debian package postgresql)")
    # The server refuses to run as root: run it as the postgres account then.
    as_user = []
    if os.geteuid() == 0:
        if shutil.which("runuser") is None:
            pytest.skip("running as root without runuser: cannot start PostgreSQL as another user")
        try:
            import pwd
            pw = pwd.getpwnam("postgres")
        except KeyError:
            pytest.skip("running as root and there is no 'postgres' account to start PostgreSQL as")
        as_user = ["runuser", "-u", "postgres", "--"]
    base = tempfile.mkdtemp(prefix="velmor-batch-pg-")
    data = os.path.join(base, "data")
    if as_user:
        os.chown(base, pw.pw_uid, pw.pw_gid)
    port = free_port()
    r = subprocess.run(as_user + [initdb, "-D", data, "-A", "trust", "-U", "postgres", "--no-sync"],
                       capture_output=True, text=True, timeout=120)
    if r.returncode != 0:
        shutil.rmtree(base, ignore_errors=True)
        pytest.skip(f"initdb failed: {r.stderr.strip()[-300:]}")
    opts = f"-c listen_addresses=127.0.0.1 -p {port} -k {base} -c fsync=off"
    r = subprocess.run(as_user + [pg_ctl, "-D", data, "-o", opts, "-l", os.path.join(base, "log"), "-w",
                                  "-t", "60", "start"], capture_output=True, text=True, timeout=90)
    if r.returncode != 0:
        shutil.rmtree(base, ignore_errors=True)
        pytest.skip(f"PostgreSQL did not start: {r.stderr.strip()[-300:]}")
    try:
        yield f"postgresql://postgres@127.0.0.1:{port}/postgres"
    finally:
        subprocess.run(as_user + [pg_ctl, "-D", data, "-m", "immediate", "-w", "stop"], capture_output=True,
                       timeout=60)
        shutil.rmtree(base, ignore_errors=True)


def test_postgres_store_survives_kill(postgres, tmp_path):
    kill_and_restart_mid_batch(tmp_path, postgres)


def test_postgres_store_isolates_ids_and_discards(postgres, tmp_path):
    s = Service(tmp_path, "--key", "dora:d-secret", "--key", "emil:e-secret", store=postgres).start()
    try:
        dora, emil = Client(s.url, ("dora", "d-secret")), Client(s.url, ("emil", "e-secret"))
        rid = dora.submit(mps_bytes(market_split(2, 40)), "TimeLimit 100\n", "pg")
        assert dora.wait_done([rid], timeout=30)[rid]["BatchStatus"] == 5
        assert emil.get(rid).status_code == 404
        assert dora.http.delete(f"/batches/{rid}").status_code == 200
        r = dora.get(rid)
        assert (r.status_code, r.json()["code"]) == (410, 10005)
    finally:
        s.stop()
