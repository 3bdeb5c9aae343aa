"""Where solves run: a pool of local worker processes, or a Dask cluster.

Both backends offer ``run(job, should_stop)``: it blocks until the solve ends and returns solve()'s
outcome, or returns None once ``should_stop()`` turns true (the request was aborted or discarded).
A local worker that must stop is killed and replaced, so an abort takes effect at once whatever
the engine is doing; on Dask the running task is told to terminate through a cluster Event.
"""

from __future__ import annotations

import multiprocessing as mp
import os
import threading
import time

from . import codes
from .solve import solve

_POLL = 0.02  # seconds between looks at the result pipe and at the stop condition


def _worker_main(conn, parent_pid: int) -> None:
    # An orphaned worker (the service was killed) must not go on solving a long model for nobody.
    def watch_parent():
        while True:
            time.sleep(0.5)
            if os.getppid() != parent_pid:
                os._exit(0)
    threading.Thread(target=watch_parent, daemon=True).start()
    import velmorpy  # noqa: F401  (imported once here rather than in the first request's time)
    while True:
        try:
            model, params = conn.recv()
        except (EOFError, OSError):
            return
        try:
            result = solve(model, params)
        except Exception as e:  # a bug of ours must fail the request, not hang the service
            result = {"ok": False, "code": codes.ERROR_CLOUD, "message": f"Worker error: {e!r}"}
        conn.send(result)


class LocalWorker:
    """One worker process and the pipe to it. Not thread-safe: each dispatcher slot owns one."""

    _ctx = mp.get_context("spawn")  # the service has threads; fork would copy their locks

    def __init__(self):
        self._proc = None
        self._conn = None
        self._start()

    def _start(self) -> None:
        parent, child = self._ctx.Pipe()
        self._proc = self._ctx.Process(target=_worker_main, args=(child, os.getpid()),
                                       name="velmor-batch-worker", daemon=True)
        self._proc.start()
        child.close()
        self._conn = parent

    def _restart(self) -> None:
        self.close()
        self._start()

    def close(self) -> None:
        if self._proc is not None and self._proc.is_alive():
            self._proc.kill()
        if self._proc is not None:
            self._proc.join(5)
        if self._conn is not None:
            self._conn.close()
        self._proc = self._conn = None

    def run(self, job, should_stop):
        """Solves ``job`` in the worker process: solve()'s outcome, a FAILED outcome (code 10028)
        when the process dies meanwhile, or None when ``should_stop()`` turned true (the process is
        then killed and replaced). Cost: the solve, plus a pipe round trip of the model bytes."""
        try:
            self._conn.send((job.model, job.params))
        except (OSError, ValueError):
            self._restart()
            self._conn.send((job.model, job.params))
        while True:
            if self._conn.poll(_POLL):
                try:
                    return self._conn.recv()
                except (EOFError, OSError):
                    pass  # died while answering: reported below
            if not self._proc.is_alive():
                code = self._proc.exitcode
                self._restart()
                return {"ok": False, "code": codes.ERROR_CLOUD,
                        "message": f"The worker process stopped unexpectedly (exit code {code}) "
                                   "while solving this request"}
            if should_stop():
                self._restart()
                return None


class LocalBackend:
    """A pool of ``size`` worker processes, one per dispatcher slot."""

    def __init__(self, size: int):
        self.size = size
        self._workers = [LocalWorker() for _ in range(size)]

    def slot(self, i: int):
        return self._workers[i]

    def close(self) -> None:
        for w in self._workers:
            w.close()


def dask_solve(model: bytes, params: bytes, event_name: str) -> dict:
    """The task sent to Dask workers: solve() with a cluster-wide terminate flag."""
    from distributed import Event, get_client

    # Bound to the worker's client explicitly: the watcher thread is outside the task's context.
    flag = Event(event_name, client=get_client())
    local = threading.Event()

    def watch():
        while not local.is_set():
            try:
                if flag.wait(timeout=0.25):
                    local.set()
            except Exception:  # a slow scheduler must not end the watch: look again
                time.sleep(0.25)

    t = threading.Thread(target=watch, daemon=True)
    t.start()
    try:
        return solve(model, params, terminate=local)
    finally:
        local.set()
        t.join(2)


class _DaskSlot:
    """One solve in flight on the cluster at a time; ``run`` as LocalWorker.run."""

    def __init__(self, client):
        self._client = client

    def run(self, job, should_stop):
        from distributed import Event

        event_name = f"velmor-batch-stop-{job.id}-{job.attempt}"
        fut = self._client.submit(dask_solve, job.model, job.params, event_name,
                                  key=f"velmor-batch-{job.id}-{job.attempt}", pure=False)
        try:
            while not fut.done():
                if should_stop():
                    Event(event_name, client=self._client).set()
                    fut.cancel()
                    return None
                time.sleep(_POLL)
            try:
                return fut.result()
            except Exception as e:
                return {"ok": False, "code": codes.ERROR_CLOUD,
                        "message": f"The cluster failed to solve this request: {e!r}"}
        finally:
            fut.release()

    def close(self) -> None:
        pass


class DaskBackend:
    """Solves on a Dask cluster at ``address`` (or on a given Client). ``size`` solves are in flight
    at once; the cluster's workers need velmorpy and this package installed."""

    def __init__(self, address, size: int):
        from distributed import Client

        self._own = not hasattr(address, "submit")
        self.client = Client(address, set_as_default=False) if self._own else address
        self.size = size
        self._slots = [_DaskSlot(self.client) for _ in range(size)]

    def slot(self, i: int):
        return self._slots[i]

    def close(self) -> None:
        if self._own:
            self.client.close()
