import importlib.metadata

import velmorpy as vp
from velmorpy import VelmorError

import pytest


def test_version_platform_and_container_flag():
    assert vp.velmor.version() == (10, 0, 3)
    # The package and the library carry one version; the installed distribution says the same.
    assert vp.__version__ == "10.0.3"
    assert importlib.metadata.version("velmorpy") == vp.__version__
    assert vp.velmor.platform() in {"linux64", "armlinux64", "mac64", "armmac64", "win64"}
    assert vp.velmor._iscontainer() in (0, 1)
    assert vp.velmor.interactive is False


def test_read_with_an_unmatched_pattern(tmp_path):
    pattern = str(tmp_path / "no*such")
    with pytest.raises(VelmorError) as info:
        vp.read(pattern)
    assert str(info.value) == f"No file matching '{pattern}' found"


def test_models_without_models(capsys):
    vp.models()
    assert capsys.readouterr().out == "No models currently loaded\n"


def test_shell_help_and_object_help(capsys):
    vp.help()
    out = capsys.readouterr().out
    assert out.startswith("Velmor shell.  Available top-level commands are:\n")
    for cmd in ("read()", "models()", "setParam()", "readParams()", "resetParams()",
                "paramHelp()", "writeParams()", "system()"):
        assert cmd in out
    assert 'system(): Perform a shell command (e.g., system("ls")).' in out
    vp.help(vp.setParam)
    assert capsys.readouterr().out.startswith("setParam(paramname, newvalue)")


def test_system_runs_a_command():
    assert vp.system("exit 3") != 0
    assert vp.system("true") == 0
