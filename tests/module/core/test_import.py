"""Importing velmorpy: HiGHS is found through the installed highsbox package whatever the
install layout, and a missing or wrong HiGHS gives an ImportError that says what to install."""
import os
import pathlib
import shutil
import subprocess
import sys
import textwrap

import pytest

import velmorpy as vp

PACKAGE_PARENT = str(pathlib.Path(vp.__file__).parent.parent)


def import_velmorpy(tmp_path, prelude="", extra_path=()):
    """Imports velmorpy in a fresh interpreter with `extra_path` ahead of everything; returns
    the completed process."""
    code = prelude + "\nimport velmorpy\nprint('imported', velmorpy.__version__)\n"
    env = dict(os.environ)
    env["PYTHONPATH"] = os.pathsep.join([*map(str, extra_path), PACKAGE_PARENT])
    env.pop("LD_LIBRARY_PATH", None)
    return subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, env=env,
                          cwd=tmp_path, timeout=60)


def fake_highsbox(root, version=None):
    """A highsbox package under `root`; with `version`, its libhighs is a stub library whose
    Highs_version() returns that text."""
    pkg = root / "highsbox"
    lib = pkg / "highs_dist" / "lib"
    lib.mkdir(parents=True)
    (pkg / "__init__.py").write_text("")
    if version is not None:
        src = root / "fake.c"
        src.write_text(f'const char* Highs_version(void) {{ return "{version}"; }}\n')
        cc = shutil.which("cc") or shutil.which("gcc")
        if cc is None:
            pytest.skip("needs a C compiler to build a stand-in HiGHS")
        subprocess.run([cc, "-shared", "-fPIC", "-o", str(lib / "libhighs.so"), str(src)], check=True)
    return root


def test_imports_with_highs_from_highsbox(tmp_path):
    out = import_velmorpy(tmp_path)
    assert out.returncode == 0, out.stderr
    assert out.stdout == f"imported {vp.__version__}\n"
    # The HiGHS the process uses is the one in highsbox, whose version we checked.
    import highsbox
    assert vp._HIGHS_LIB_DIR == highsbox.highs_lib_dir()


def test_missing_highsbox_names_the_package_to_install(tmp_path):
    out = import_velmorpy(tmp_path, prelude="import sys; sys.modules['highsbox'] = None")
    assert out.returncode == 1
    assert ("ImportError: velmorpy needs HiGHS 1.15.1 from the package highsbox, which is not "
            "installed: pip install highsbox==1.15.1") in out.stderr


def test_highsbox_without_its_library(tmp_path):
    root = fake_highsbox(tmp_path / "site")
    out = import_velmorpy(tmp_path, extra_path=[root])
    assert out.returncode == 1
    assert "has no HiGHS library (libhighs.so); reinstall it: pip install highsbox==1.15.1" in out.stderr


def test_wrong_highs_version_is_refused(tmp_path):
    root = fake_highsbox(tmp_path / "site", version="1.7.0")
    out = import_velmorpy(tmp_path, extra_path=[root])
    assert out.returncode == 1
    assert "ImportError: velmorpy needs HiGHS 1.15.1 but highsbox provides 1.7.0" in out.stderr
    assert "pip install highsbox==1.15.1" in out.stderr


def test_version_agrees_with_the_library_and_the_distribution():
    assert vp.__version__ == "%d.%d.%d" % vp.velmor.version()
    assert vp.__version__.count(".") == 2


def test_the_package_is_where_everything_public_lives():
    # Functions and classes name the package as their module (pickling, documentation tools).
    assert vp.quicksum.__module__ == vp.read.__module__ == vp.Model.__module__ == "velmorpy"
    assert set(vp.__all__) >= {"Model", "Env", "VLM", "quicksum", "read", "tupledict"}
    assert vp.__doc__.startswith("velmorpy: the Python interface of the Velmor optimisation library.")
    assert "LogToConsole=0 silences the console only" in vp.__doc__
