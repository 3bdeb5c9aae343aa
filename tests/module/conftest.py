import contextlib
import os
import socket
import subprocess
import sys
import time

import pytest

import velmorpy as vp

# Memory-growth checks read the resident set from /proc; under AddressSanitizer the quarantine
# keeps freed memory resident, so they cannot run there.
needs_rss = pytest.mark.skipif(
    not os.path.exists("/proc/self/statm") or "libasan" in os.environ.get("LD_PRELOAD", ""),
    reason="needs /proc and a run without AddressSanitizer")


def rss_bytes():
    """The process's resident memory in bytes."""
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


@contextlib.contextmanager
def running_batch_service(tmp_path):
    """Starts `velmor-batch serve` on a free loopback port, its store under `tmp_path`, waits
    (at most 60 s) until it accepts connections and yields its URL; stops it afterwards."""
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        port = s.getsockname()[1]
    log_path = tmp_path / "service.log"
    with open(log_path, "wb") as log:
        proc = subprocess.Popen([sys.executable, "-m", "velmor_batch", "serve", "--port", str(port),
                                 "--data-dir", str(tmp_path / "store")], stdout=log, stderr=subprocess.STDOUT)
        try:
            deadline = time.monotonic() + 60
            while True:
                assert proc.poll() is None, log_path.read_text()
                try:
                    socket.create_connection(("127.0.0.1", port), timeout=1).close()
                    break
                except OSError:
                    assert time.monotonic() < deadline, "the batch service did not start in 60 s"
                    time.sleep(0.1)
            yield f"http://127.0.0.1:{port}"
        finally:
            proc.terminate()
            proc.wait(15)


@pytest.fixture
def env():
    """A started environment that keeps quiet unless a test turns output on."""
    e = vp.Env(params={"OutputFlag": 0})
    yield e
    e.dispose()


@pytest.fixture(autouse=True)
def fresh_default_env():
    """Every test starts and ends without a default environment."""
    vp.disposeDefaultEnv()
    yield
    vp.disposeDefaultEnv()
