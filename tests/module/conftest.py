import pytest

import velmorpy as vp


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
