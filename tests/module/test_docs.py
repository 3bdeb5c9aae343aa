"""The code in the documentation site runs as written and prints what the page says it prints.

Each page's ```python blocks run in order in one namespace, from a scratch directory. A block
followed directly by a ```text block must print exactly that text. A page that starts with
<!-- needs: FEATURE --> is skipped, with the reason, while the installed velmorpy lacks the
feature; its examples run as soon as the feature is there (the batch page against a service
this test starts, or the one VELMOR_BATCH_SERVER names).
"""
import contextlib
import io
import os
import pathlib
import re

import pytest
from conftest import running_batch_service

import velmorpy as vp

SITE = pathlib.Path(__file__).resolve().parents[2] / "docs" / "site"
PAGES = sorted(p for p in SITE.rglob("*.md") if "_build" not in p.parts) if SITE.is_dir() else []

FENCE = re.compile(r"^```(\w*)[^\n]*\n(.*?)^```\s*$", re.M | re.S)
NEEDS = re.compile(r"<!-- needs: ([\w-]+) -->")


def _callbacks():
    with vp.Env(params={"OutputFlag": 0}) as env, vp.Model(env=env) as m:
        m.addVar()
        try:
            m.optimize(_noop_callback)
        except vp.VelmorError as e:
            return f"optimize(callback) refuses: {e}"
    return None


def _noop_callback(model, where):  # a plain function, as optimize(callback) requires
    pass


def _batch():
    if not hasattr(vp, "Batch"):
        return "velmorpy has no Batch class yet"
    if os.environ.get("VELMOR_BATCH_SERVER"):
        return None
    try:
        import velmor_batch  # noqa: F401  (the service, installed with the .[batch] extra)
    except ImportError:
        return "no batch service: install .[batch] or set VELMOR_BATCH_SERVER to a running one"
    return None


@contextlib.contextmanager
def batch_service(tmp_path):
    """A `velmor-batch serve` on a free loopback port, its address in VELMOR_BATCH_SERVER, unless
    that already names a running service."""
    if os.environ.get("VELMOR_BATCH_SERVER"):
        yield
        return
    try:
        with running_batch_service(tmp_path) as url:
            os.environ["VELMOR_BATCH_SERVER"] = url
            yield
    finally:
        os.environ.pop("VELMOR_BATCH_SERVER", None)


def _logging():
    import logging
    seen = []
    handler = logging.Handler()
    handler.emit = seen.append
    log = logging.getLogger("velmorpy")
    old = log.level
    log.setLevel(logging.INFO)
    log.addHandler(handler)
    try:
        with vp.Env(params={"LogToConsole": 0}) as env, vp.Model(env=env) as m:
            m.addVar()
            m.optimize()
    finally:
        log.removeHandler(handler)
        log.setLevel(old)
    return None if seen else "with LogToConsole=0 no record reaches the velmorpy logger yet"


# Each probe returns None when the feature works, else why the page cannot run.
FEATURES = {"callbacks": _callbacks, "batch": _batch, "logging": _logging}


def blocks(text):
    """[(code, expected output or None)] of a page, in order."""
    fences = [(m.group(1), m.group(2), m.start(), m.end()) for m in FENCE.finditer(text)]
    out = []
    for i, (lang, body, _, end) in enumerate(fences):
        if lang != "python":
            continue
        expected = None
        if i + 1 < len(fences) and fences[i + 1][0] == "text" and not text[end:fences[i + 1][2]].strip():
            expected = fences[i + 1][1]
        out.append((body, expected))
    return out


def test_the_guide_has_examples_and_every_page_is_collected():
    # Guards the collection itself: a broken fence pattern would otherwise pass vacuously.
    assert {p.stem for p in PAGES} >= {"getting-started", "building-models", "solving", "callbacks"}
    assert sum(len(blocks(p.read_text())) for p in PAGES) >= 30
    # Pages skipped for a missing feature are still compiled, so they hold no syntax error.
    for page in PAGES:
        for number, (body, _) in enumerate(blocks(page.read_text()), 1):
            compile(body, f"{page.name}, block {number}", "exec")


@pytest.mark.parametrize("page", PAGES, ids=lambda p: str(p.relative_to(SITE)))
def test_page_examples_run_and_print_what_the_page_shows(page, tmp_path, monkeypatch):
    text = page.read_text()
    for feature in NEEDS.findall(text):
        reason = FEATURES[feature]()
        if reason:
            pytest.skip(f"{feature}: {reason}")
    code = blocks(text)
    if not code:
        pytest.skip("no code on this page")
    monkeypatch.chdir(tmp_path)
    service = batch_service(tmp_path) if "batch" in NEEDS.findall(text) else contextlib.nullcontext()
    scope = {"__name__": "__docs__"}
    with service:
        for number, (body, expected) in enumerate(code, 1):
            out = io.StringIO()
            with contextlib.redirect_stdout(out):
                exec(compile(body, f"{page.name}, block {number}", "exec"), scope)
            if expected is not None:
                assert out.getvalue().rstrip() == expected.rstrip(), f"{page.name}, block {number}"
