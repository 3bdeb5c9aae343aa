"""Moves queued requests from the store to the workers and their outcomes back.

One thread per slot: claim the oldest queued request, run it on the slot's worker, record the
outcome. The store is the queue, so this holds no request state of its own beyond which request
each slot is running (needed to stop it on abort).
"""

from __future__ import annotations

import logging
import threading
import time

from . import codes

log = logging.getLogger("velmor_batch")

_IDLE_WAIT = 1.0     # seconds an idle slot sleeps before looking at the store again
_RECHECK = 1.0       # seconds between store checks that a running request was not aborted elsewhere


class Dispatcher:
    def __init__(self, store, backend):
        self.store = store
        self.backend = backend
        self._cond = threading.Condition()
        self._stop_ids: set[str] = set()
        self._closing = False
        self._generation = 0  # counts wake() calls, so a wake between a claim and a wait is not lost
        self._threads: list[threading.Thread] = []

    def start(self) -> int:
        """Re-queues what a previous run left unfinished and starts the slots; returns that count."""
        n = self.store.requeue_interrupted()
        if n:
            log.info("re-queued %d request(s) interrupted by the last shutdown", n)
        for i in range(self.backend.size):
            t = threading.Thread(target=self._slot, args=(i,), name=f"velmor-batch-slot-{i}", daemon=True)
            t.start()
            self._threads.append(t)
        return n

    def wake(self) -> None:
        """New work is queued."""
        with self._cond:
            self._generation += 1
            self._cond.notify_all()

    def stop_request(self, rid: str) -> None:
        """The request was aborted or discarded: the slot running it stops it."""
        with self._cond:
            self._stop_ids.add(rid)
            self._cond.notify_all()

    def close(self) -> None:
        with self._cond:
            self._closing = True
            self._cond.notify_all()
        for t in self._threads:
            t.join(10)
        self.backend.close()

    def _slot(self, i: int) -> None:
        worker = self.backend.slot(i)
        while not self._closing:
            with self._cond:
                seen = self._generation
            try:
                job = self.store.claim_next()
            except Exception:
                log.exception("cannot read the queue")
                job = None
            if job is None:
                with self._cond:
                    if not self._closing and self._generation == seen:
                        self._cond.wait(_IDLE_WAIT)
                continue
            with self._cond:
                self._stop_ids.discard(job.id)
            last_check = [time.monotonic()]

            def should_stop(job=job, last_check=last_check):
                if self._closing or job.id in self._stop_ids:
                    return True
                now = time.monotonic()
                if now - last_check[0] >= _RECHECK:
                    last_check[0] = now
                    return not self.store.still_running(job.id, job.attempt)
                return False

            try:
                result = worker.run(job, should_stop)
            except Exception as e:
                log.exception("worker failure on %s", job.id)
                result = {"ok": False, "code": codes.ERROR_CLOUD, "message": f"Service error: {e!r}"}
            with self._cond:
                self._stop_ids.discard(job.id)
            if result is None:
                continue  # stopped: the abort or discard already set the state (or we are closing)
            if result["ok"]:
                self.store.finish(job.id, job.attempt, codes.COMPLETED, result["solution"])
            else:
                self.store.finish(job.id, job.attempt, codes.FAILED, None, result["code"], result["message"])
