import os

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
