"""The HTTP/JSON interface (Starlette): routes, authentication and error bodies.

Endpoints are plain functions, which Starlette runs in its thread pool, so the blocking database
calls never stall the event loop. Every error body is {"error": message, "code": library code}.
"""

from __future__ import annotations

import base64
import binascii
import gzip
import io
import json
import logging

from starlette.applications import Starlette
from starlette.concurrency import run_in_threadpool
from starlette.exceptions import HTTPException
from starlette.requests import Request
from starlette.responses import JSONResponse, Response
from starlette.routing import Route

from . import codes
from .solve import filter_params
from .store import ServiceError, Store

log = logging.getLogger("velmor_batch")

# Largest accepted model after decompression: a guard against a small body that inflates without end.
MAX_MODEL_BYTES = 1 << 30
# Largest accepted submission body (base64 of the compressed model and parameters).
MAX_BODY_BYTES = 512 << 20


def _error(status: int, code: int, message: str) -> JSONResponse:
    return JSONResponse({"error": message, "code": code}, status_code=status)


def _decode(body: dict, field: str, limit: int, keep: bool) -> tuple[bytes, bytes]:
    """(compressed bytes, decompressed bytes or b"" unless ``keep``) of a base64(gzip(...)) field,
    checked whole; ServiceError if it is not one or inflates past ``limit`` bytes. Memory: the
    compressed bytes plus one 1 MiB chunk (plus the result when kept)."""
    value = body.get(field)
    if not isinstance(value, str):
        raise ServiceError(400, codes.ERROR_INVALID_ARGUMENT,
                           f"Submission field '{field}' is missing or not a string")
    try:
        raw = base64.b64decode(value, validate=True)
    except (binascii.Error, ValueError):
        raise ServiceError(400, codes.ERROR_FILE_READ, f"Submission field '{field}' is not valid base64")
    kept, total = [], 0
    try:
        stream = gzip.GzipFile(fileobj=io.BytesIO(raw))
        while chunk := stream.read(1 << 20):
            total += len(chunk)
            if total > limit:
                raise ServiceError(400, codes.ERROR_FILE_READ,
                                   f"Submission field '{field}' is larger than {limit} bytes")
            if keep:
                kept.append(chunk)
    except (OSError, EOFError) as e:
        raise ServiceError(400, codes.ERROR_FILE_READ, f"Submission field '{field}' is not gzip data ({e})")
    return raw, b"".join(kept)


def create_app(store: Store, dispatcher, default_key: tuple[str, str] | None = None) -> Starlette:
    """The service's ASGI application over ``store``. With ``default_key`` set, that (id, secret)
    pair is the only one accepted (the service was started with no key configured)."""

    def owner_of(request: Request) -> str:
        access_id = request.headers.get("x-velmor-access-id", "")
        secret = request.headers.get("x-velmor-secret", "")
        if not access_id or not secret:
            raise ServiceError(401, codes.ERROR_SECURITY,
                               "Missing credentials: set the access id and secret parameters")
        if default_key is not None:
            ok = (access_id, secret) == default_key
        else:
            ok = store.check_key(access_id, secret)
        if not ok:
            raise ServiceError(401, codes.ERROR_SECURITY, f"Access id '{access_id}' or its secret is wrong")
        return access_id

    def health(request: Request):
        return JSONResponse({"status": "ok"})

    async def submit(request: Request):
        # Credentials first: nobody unknown gets to send a large body.
        owner = await run_in_threadpool(owner_of, request)
        chunks, size = [], 0
        async for chunk in request.stream():
            size += len(chunk)
            if size > MAX_BODY_BYTES:
                raise ServiceError(400, codes.ERROR_FILE_READ,
                                   f"Submission body is larger than {MAX_BODY_BYTES} bytes")
            chunks.append(chunk)
        return await run_in_threadpool(submit_body, owner, b"".join(chunks))

    def submit_body(owner: str, raw: bytes):
        try:
            body = json.loads(raw)
        except (ValueError, UnicodeDecodeError):
            raise ServiceError(400, codes.ERROR_INVALID_ARGUMENT, "Submission body is not JSON")
        if not isinstance(body, dict):
            raise ServiceError(400, codes.ERROR_INVALID_ARGUMENT, "Submission body is not a JSON object")
        model_gz, _ = _decode(body, "model", MAX_MODEL_BYTES, keep=False)
        params = _decode(body, "params", 1 << 20, keep=True)[1] if "params" in body else b""
        try:
            params_text = params.decode("utf-8")
        except UnicodeDecodeError:
            raise ServiceError(400, codes.ERROR_FILE_READ, "Submission field 'params' is not UTF-8 text")
        names = {}
        for field in ("model_name", "app_name"):
            v = body.get(field, "")
            if not isinstance(v, str):
                raise ServiceError(400, codes.ERROR_INVALID_ARGUMENT, f"Submission field '{field}' is not a string")
            names[field] = v
        # The model is stored compressed, as it came; parameters that concern the submitting side
        # only (its credentials among them) are dropped before anything is stored.
        rid = store.submit(owner, model_gz, filter_params(params_text).encode(), names["model_name"],
                           names["app_name"])
        dispatcher.wake()
        return JSONResponse({"id": rid}, status_code=201)

    def get(request: Request):
        owner = owner_of(request)
        return JSONResponse(Store.describe(store.get(owner, request.path_params["rid"])))

    def abort(request: Request):
        owner = owner_of(request)
        rid = request.path_params["rid"]
        row, was_running = store.abort(owner, rid)
        if was_running:
            dispatcher.stop_request(rid)
        return JSONResponse(Store.describe(row))

    def retry(request: Request):
        owner = owner_of(request)
        row = store.retry(owner, request.path_params["rid"])
        dispatcher.wake()
        return JSONResponse(Store.describe(row))

    def discard(request: Request):
        owner = owner_of(request)
        rid = request.path_params["rid"]
        if store.discard(owner, rid):
            dispatcher.stop_request(rid)
        return JSONResponse({})

    def solution(request: Request):
        owner = owner_of(request)
        text = store.solution(owner, request.path_params["rid"])
        return Response(text, media_type="application/json")

    async def service_error(request: Request, exc: ServiceError):
        return _error(exc.http_status, exc.code, exc.message)

    async def http_error(request: Request, exc: HTTPException):
        code = codes.ERROR_INVALID_ARGUMENT if exc.status_code < 500 else codes.ERROR_CLOUD
        return _error(exc.status_code, code, f"{exc.detail}: {request.method} {request.url.path}")

    async def internal_error(request: Request, exc: Exception):
        log.exception("request failed: %s %s", request.method, request.url.path)
        return _error(500, codes.ERROR_CLOUD, f"Batch service failure: {type(exc).__name__}: {exc}")

    base = "/api/v1"
    routes = [
        Route(base + "/health", health, methods=["GET"]),
        Route(base + "/batches", submit, methods=["POST"]),
        Route(base + "/batches/{rid}", get, methods=["GET"]),
        Route(base + "/batches/{rid}", discard, methods=["DELETE"]),
        Route(base + "/batches/{rid}/abort", abort, methods=["POST"]),
        Route(base + "/batches/{rid}/retry", retry, methods=["POST"]),
        Route(base + "/batches/{rid}/solution", solution, methods=["GET"]),
    ]
    return Starlette(routes=routes, exception_handlers={ServiceError: service_error,
                                                        HTTPException: http_error,
                                                        Exception: internal_error})
