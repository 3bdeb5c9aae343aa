"""One solve: MPS bytes and .prm text in, JSON solution or an error out.

This runs inside a worker process (local pool) or a Dask worker, so it imports velmorpy itself
and returns plain data. A solve is deterministic for a given model and parameter set, which is why
a request interrupted by a restart can simply be run again.
"""

from __future__ import annotations

import gzip
import os
import tempfile
import threading

from . import codes

# Parameters that are never taken from a submission: they name files on the service's machine,
# hold credentials, or configure the submitting side's connection to this service. Matched
# case-insensitively, as .prm files are; a prefix ending in '*' matches a family.
_DROPPED = ("cs*", "cloud*", "wls*", "server*", "worker*", "token*", "licenseid", "logfile",
            "inputfile", "resultfile", "nodefiledir", "solfiles", "tuneresults", "tunebasesettings",
            "outputflag", "logtoconsole", "jobid")


def _dropped(name: str) -> bool:
    n = name.lower()
    return any(n.startswith(p[:-1]) if p.endswith("*") else n == p for p in _DROPPED)


def filter_params(text: str) -> str:
    """The .prm text with the lines of parameters a service must not take from a client (see
    _DROPPED) blanked. Other lines pass unchanged and keep their line numbers, so a wrong name or
    value still fails the solve with the library's own message pointing at the client's line."""
    out = []
    for line in text.splitlines():
        s = line.strip()
        if s and not s.startswith("#") and _dropped(s.split()[0]):
            line = ""
        out.append(line + "\n")
    return "".join(out)


def solve(model_gz: bytes, params: bytes, terminate: threading.Event | None = None) -> dict:
    """Solves one request. Returns {"ok": True, "solution": json text} or
    {"ok": False, "code": library error code, "message": text}. A set ``terminate`` event stops
    the solve early (the outcome is then whatever the library reports for an interrupted solve)."""
    import velmorpy

    try:
        model_text = gzip.decompress(model_gz)
    except (OSError, EOFError) as e:
        return {"ok": False, "code": codes.ERROR_FILE_READ, "message": f"Model data is not gzip data: {e}"}
    with tempfile.TemporaryDirectory(prefix="velmor-batch-") as tmp:
        mps = os.path.join(tmp, "model.mps")
        prm = os.path.join(tmp, "params.prm")
        with open(mps, "wb") as f:
            f.write(model_text)
        with open(prm, "wb") as f:
            f.write(params)
        env = model = None
        try:
            env = velmorpy.Env(empty=True)
            env.setParam("OutputFlag", 0)
            env.start()
            model = velmorpy.read(mps, env)
            model.read(prm)
            model.setParam("OutputFlag", 0)
            watcher = None
            if terminate is not None:
                watcher = threading.Thread(target=_watch, args=(terminate, model), daemon=True)
                watcher.start()
            try:
                model.optimize()
            finally:
                if watcher is not None:
                    terminate.set()  # releases the watcher
                    watcher.join()
            return {"ok": True, "solution": model.getJSONSolution()}
        except velmorpy.VelmorError as e:
            # Messages name the temporary files; show the file names the user would recognise.
            message = str(e).replace(tmp + os.sep, "")
            return {"ok": False, "code": int(e.errno), "message": message}
        finally:
            if model is not None:
                model.dispose()
            if env is not None:
                env.dispose()


def _watch(event: threading.Event, model) -> None:
    event.wait()
    model.terminate()
