"""The request store: every batch request, its input, state and output, in SQLite or PostgreSQL.

Nothing about a request lives only in memory: the queue is the set of rows in SUBMITTED state that
no worker holds, so a restart finds the same queue. Each state change is one conditional UPDATE
(``WHERE status = ...``) whose row count says whether it happened, so an abort racing a finishing
solve, or two service instances on one PostgreSQL store, cannot both win.
"""

from __future__ import annotations

import datetime as _dt
import hashlib
import hmac
import os
import secrets
import time
import uuid
from dataclasses import dataclass

from sqlalchemy import (Boolean, Column, Float, Integer, LargeBinary, MetaData, String, Table, Text,
                        create_engine, event, func, select, update)

from . import codes

_STATUS_NAMES = {codes.CREATED: "CREATED", codes.SUBMITTED: "SUBMITTED", codes.ABORTED: "ABORTED",
                 codes.FAILED: "FAILED", codes.COMPLETED: "COMPLETED"}

metadata = MetaData()

access_keys = Table(
    "access_keys", metadata,
    Column("access_id", String(200), primary_key=True),
    Column("salt", String(64), nullable=False),
    Column("secret_hash", String(128), nullable=False),
)

requests = Table(
    "batch_requests", metadata,
    Column("id", String(36), primary_key=True),
    Column("owner", String(200), nullable=False, index=True),
    Column("status", Integer, nullable=False, index=True),
    # True while a worker holds the request (status SUBMITTED); a restart clears it.
    Column("running", Boolean, nullable=False, default=False),
    Column("attempts", Integer, nullable=False, default=0),
    Column("queued_at", Float, nullable=False, index=True),  # queue order
    Column("error_code", Integer, nullable=False, default=0),
    Column("error_message", Text, nullable=False, default=""),
    Column("model_name", Text, nullable=False, default=""),
    Column("app_name", Text, nullable=False, default=""),
    Column("submit_time", String(40), nullable=False),
    Column("finish_time", String(40), nullable=False, default=""),
    Column("discarded", Boolean, nullable=False, default=False),
    Column("model", LargeBinary, nullable=True),   # gzip-compressed MPS text
    Column("params", LargeBinary, nullable=True),  # .prm text, already filtered
    Column("solution", Text, nullable=True),       # the JSON solution text
)


class ServiceError(Exception):
    """A failure the HTTP layer reports as {"error": message, "code": code} with an HTTP status."""

    def __init__(self, http_status: int, code: int, message: str):
        super().__init__(message)
        self.http_status = http_status
        self.code = code
        self.message = message


def status_name(status: int) -> str:
    return _STATUS_NAMES.get(status, str(status))


def utc_now() -> str:
    return _dt.datetime.now(_dt.timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")


def _hash_secret(salt: str, secret: str) -> str:
    # A salted slow hash: the table alone must not give the secrets away.
    return hashlib.pbkdf2_hmac("sha256", secret.encode(), bytes.fromhex(salt), 20000).hex()


@dataclass
class Job:
    """A request a worker has claimed: what to solve, and which attempt this is."""
    id: str
    attempt: int
    model: bytes
    params: bytes


class Store:
    """The database of access keys and requests. Thread-safe: every call opens its own transaction.

    ``url`` is an SQLAlchemy URL (``sqlite:///path`` or ``postgresql://...``); the tables are
    created when missing. Raises SQLAlchemy errors when the database cannot be reached.
    """

    def __init__(self, url: str):
        if url.startswith("postgresql://"):
            url = "postgresql+psycopg://" + url[len("postgresql://"):]
        kwargs = {}
        if url.startswith("sqlite"):
            kwargs["connect_args"] = {"check_same_thread": False, "timeout": 30}
        else:
            kwargs["pool_pre_ping"] = True
        self.url = url
        self.engine = create_engine(url, **kwargs)
        if url.startswith("sqlite"):
            @event.listens_for(self.engine, "connect")
            def _sqlite_pragmas(dbapi_conn, _record):
                cur = dbapi_conn.cursor()
                cur.execute("PRAGMA journal_mode=WAL")
                cur.execute("PRAGMA synchronous=NORMAL")
                cur.close()
        metadata.create_all(self.engine)
        # Verified (id, secret) pairs and the stored hash they matched: the slow hash is paid once.
        self._verified: dict[tuple[str, str], str] = {}

    def dispose(self) -> None:
        self.engine.dispose()

    # ---- access keys -------------------------------------------------------------------------

    def add_key(self, access_id: str, secret: str) -> None:
        """Adds an access id or replaces its secret. Raises ServiceError on an empty id or secret."""
        if not access_id or not secret:
            raise ServiceError(400, codes.ERROR_INVALID_ARGUMENT, "An access id and a secret are both required")
        salt = secrets.token_hex(16)
        row = {"access_id": access_id, "salt": salt, "secret_hash": _hash_secret(salt, secret)}
        with self.engine.begin() as conn:
            conn.execute(access_keys.delete().where(access_keys.c.access_id == access_id))
            conn.execute(access_keys.insert().values(**row))

    def count_keys(self) -> int:
        with self.engine.connect() as conn:
            return conn.execute(select(func.count()).select_from(access_keys)).scalar_one()

    def check_key(self, access_id: str, secret: str) -> bool:
        """Whether ``secret`` is the access id's. Cost: one indexed read; the slow hash only the first
        time a pair is seen with the stored hash (so a replaced secret takes effect at once)."""
        with self.engine.connect() as conn:
            row = conn.execute(select(access_keys).where(access_keys.c.access_id == access_id)).first()
        if row is None:
            return False
        if self._verified.get((access_id, secret)) == row.secret_hash:
            return True
        ok = hmac.compare_digest(row.secret_hash, _hash_secret(row.salt, secret))
        if ok:
            self._verified[(access_id, secret)] = row.secret_hash
        return ok

    # ---- requests as the HTTP layer sees them ------------------------------------------------

    def submit(self, owner: str, model_gz: bytes, params: bytes, model_name: str, app_name: str) -> str:
        rid = str(uuid.uuid4())
        with self.engine.begin() as conn:
            conn.execute(requests.insert().values(
                id=rid, owner=owner, status=codes.SUBMITTED, running=False, attempts=0,
                queued_at=time.time(), error_code=0, error_message="", model_name=model_name,
                app_name=app_name, submit_time=utc_now(), finish_time="", discarded=False,
                model=model_gz, params=params, solution=None))
        return rid

    def _row(self, conn, owner: str, rid: str, columns=None):
        cols = columns or [requests.c.id, requests.c.owner, requests.c.status, requests.c.running,
                           requests.c.attempts, requests.c.error_code, requests.c.error_message,
                           requests.c.model_name, requests.c.submit_time, requests.c.finish_time,
                           requests.c.discarded]
        row = conn.execute(select(*cols).where(requests.c.id == rid)).first()
        # Another owner's request answers exactly as an unknown one: its existence is not disclosed.
        if row is None or row.owner != owner:
            raise ServiceError(404, codes.ERROR_INVALID_ARGUMENT, f"Unknown batch request '{rid}'")
        if row.discarded:
            raise ServiceError(410, codes.ERROR_DATA_NOT_AVAILABLE,
                               f"Batch request '{rid}' was discarded: its data is no longer available")
        return row

    @staticmethod
    def describe(row) -> dict:
        """The request's attributes as the protocol's JSON object."""
        return {"BatchID": row.id, "BatchStatus": row.status, "BatchErrorCode": row.error_code,
                "BatchErrorMessage": row.error_message, "ModelName": row.model_name,
                "SubmitTime": row.submit_time, "FinishTime": row.finish_time}

    def get(self, owner: str, rid: str):
        with self.engine.connect() as conn:
            return self._row(conn, owner, rid)

    def abort(self, owner: str, rid: str) -> tuple[object, bool]:
        """Marks a queued or running request ABORTED; returns (row, whether a worker held it)."""
        with self.engine.begin() as conn:
            row = self._row(conn, owner, rid)
            if row.status != codes.SUBMITTED:
                raise ServiceError(409, codes.ERROR_INVALID_ARGUMENT,
                                   f"Batch request '{rid}' is {status_name(row.status)}: "
                                   "only a submitted request can be aborted")
            n = conn.execute(update(requests).where(requests.c.id == rid, requests.c.status == codes.SUBMITTED)
                             .values(status=codes.ABORTED, running=False, finish_time=utc_now())).rowcount
            if n != 1:
                raise ServiceError(409, codes.ERROR_INVALID_ARGUMENT,
                                   f"Batch request '{rid}' finished before it could be aborted")
            return self._row(conn, owner, rid), bool(row.running)

    def retry(self, owner: str, rid: str):
        with self.engine.begin() as conn:
            row = self._row(conn, owner, rid)
            if row.status not in (codes.FAILED, codes.ABORTED):
                raise ServiceError(409, codes.ERROR_INVALID_ARGUMENT,
                                   f"Batch request '{rid}' is {status_name(row.status)}: "
                                   "only a failed or aborted request can be retried")
            conn.execute(update(requests).where(requests.c.id == rid)
                         .values(status=codes.SUBMITTED, running=False, queued_at=time.time(),
                                 error_code=0, error_message="", finish_time="", solution=None))
            return self._row(conn, owner, rid)

    def discard(self, owner: str, rid: str) -> bool:
        """Deletes input and output and leaves a tombstone; returns whether a worker held it."""
        with self.engine.begin() as conn:
            row = self._row(conn, owner, rid)
            was_running = row.status == codes.SUBMITTED and bool(row.running)
            status = codes.ABORTED if row.status == codes.SUBMITTED else row.status
            conn.execute(update(requests).where(requests.c.id == rid)
                         .values(discarded=True, status=status, running=False,
                                 model=None, params=None, solution=None))
            return was_running

    def solution(self, owner: str, rid: str) -> str:
        with self.engine.connect() as conn:
            row = self._row(conn, owner, rid, [requests.c.owner, requests.c.discarded, requests.c.status,
                                               requests.c.solution])
        if row.status != codes.COMPLETED or row.solution is None:
            raise ServiceError(409, codes.ERROR_INVALID_ARGUMENT,
                               f"Batch request '{rid}' has no solution: it is {status_name(row.status)}")
        return row.solution

    # ---- requests as the workers see them ----------------------------------------------------

    def claim_next(self) -> Job | None:
        """Takes the oldest queued request for a worker and counts the attempt; None when idle."""
        for _ in range(5):
            with self.engine.begin() as conn:
                row = conn.execute(
                    select(requests.c.id, requests.c.attempts)
                    .where(requests.c.status == codes.SUBMITTED, requests.c.running == False)  # noqa: E712
                    .order_by(requests.c.queued_at).limit(1)).first()
                if row is None:
                    return None
                attempt = row.attempts + 1
                n = conn.execute(update(requests).where(
                    requests.c.id == row.id, requests.c.status == codes.SUBMITTED,
                    requests.c.running == False, requests.c.attempts == row.attempts)  # noqa: E712
                    .values(running=True, attempts=attempt)).rowcount
                if n != 1:
                    continue  # taken by another claimer in between: look again
                data = conn.execute(select(requests.c.model, requests.c.params)
                                    .where(requests.c.id == row.id)).first()
                return Job(row.id, attempt, data.model, data.params)
        return None

    def still_running(self, rid: str, attempt: int) -> bool:
        with self.engine.connect() as conn:
            row = conn.execute(select(requests.c.status, requests.c.running, requests.c.attempts)
                               .where(requests.c.id == rid)).first()
        return (row is not None and row.status == codes.SUBMITTED and bool(row.running)
                and row.attempts == attempt)

    def finish(self, rid: str, attempt: int, status: int, solution: str | None,
               error_code: int = 0, error_message: str = "") -> bool:
        """Records a solve's outcome unless the request was aborted, discarded or re-queued since
        this attempt began (then the outcome is dropped and False returned)."""
        with self.engine.begin() as conn:
            n = conn.execute(update(requests).where(
                requests.c.id == rid, requests.c.status == codes.SUBMITTED, requests.c.running == True,  # noqa: E712
                requests.c.attempts == attempt)
                .values(status=status, running=False, solution=solution, error_code=error_code,
                        error_message=error_message, finish_time=utc_now())).rowcount
        return n == 1

    def requeue_interrupted(self) -> int:
        """Puts back in the queue every request a worker held when the service stopped."""
        with self.engine.begin() as conn:
            return conn.execute(update(requests).where(requests.c.status == codes.SUBMITTED,
                                                       requests.c.running == True)  # noqa: E712
                                .values(running=False)).rowcount

    def attempts(self, rid: str) -> int:
        with self.engine.connect() as conn:
            return conn.execute(select(requests.c.attempts).where(requests.c.id == rid)).scalar_one()


def default_data_dir() -> str:
    base = os.environ.get("XDG_DATA_HOME") or os.path.join(os.path.expanduser("~"), ".local", "share")
    return os.path.join(base, "velmor-batch")
