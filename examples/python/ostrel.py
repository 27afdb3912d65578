"""Ostrel from Python, through the library's C API and ctypes.

    import ostrel
    client = ostrel.Ostrel("my-app-secret")           # loads libostrel.so
    client.send_event("button_tap", {"screen": "home"})
    client.login_email("user@example.com", "secret")  # blocks until the flow ends
    client.flush()
    client.close()

The shared library is found through the `library` argument, else the
OSTREL_LIBRARY environment variable, else the system's search path.

Failures raise OstrelError with the library's error code ("EventCreationError",
"EMAILLoginWrongPasswordError", "WRONG_PIN"...), message, HTTP status and extra
information. Calls that wait for the service (login, flush, payments) block the
calling thread until the library's callback, which runs on one of its own
threads, has answered. A push callback and a log callback run on the library's
threads too: ctypes takes the interpreter lock for them.
"""

import ctypes
import ctypes.util
import json
import os
import threading

__all__ = ["Ostrel", "OstrelError", "parse_push", "load_library"]

_OK = 0
_RESULT_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p)
_TEXT_FN = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)

_LOGIN_FLOWS = {
    "email": 0, "email_signup": 1, "email_forgot": 2, "email_resend": 3,
    "msisdn_pin": 4, "msisdn_pin_forgot": 5, "msisdn_recognition": 6,
}
_RANKING_SCOPES = {"consumption": 0, "social": 1, "editorial": 2, "unknown": 3}
_ATTACH_TYPES = {"master": 0, "peer": 1, "unknown": 2}
_MARKETPLACES = {"appleStore": 0, "googlePlay": 1}


class OstrelError(Exception):
    """An error of the library, of the service, or of the C layer ("InvalidArgument")."""

    KINDS = ("service", "local", "c_api")

    def __init__(self, code, message, kind="local", status=None, extra=None, description=None):
        super().__init__(description or f"{code}: {message}")
        self.code = code
        self.message = message
        self.kind = kind
        self.status = status
        self.extra = extra


_library = None
_library_lock = threading.Lock()


def _declare(lib):
    c_char_p, c_void_p, c_int, c_size_t = ctypes.c_char_p, ctypes.c_void_p, ctypes.c_int, ctypes.c_size_t
    pp = ctypes.POINTER(c_void_p)
    signatures = {
        "ostrel_c_api_version": (c_int, []),
        "ostrel_version_string": (c_char_p, []),
        "ostrel_string_free": (None, [c_void_p]),
        "ostrel_error_kind": (c_int, [c_void_p]),
        "ostrel_error_code": (c_char_p, [c_void_p]),
        "ostrel_error_message": (c_char_p, [c_void_p]),
        "ostrel_error_status": (c_int, [c_void_p, ctypes.POINTER(ctypes.c_int64)]),
        "ostrel_error_extra_json": (c_char_p, [c_void_p]),
        "ostrel_error_description": (c_char_p, [c_void_p]),
        "ostrel_error_free": (None, [c_void_p]),
        "ostrel_config_new": (c_void_p, []),
        "ostrel_config_free": (None, [c_void_p]),
        "ostrel_config_set_secret": (c_int, [c_void_p, c_char_p, pp]),
        "ostrel_config_set_storage_dir": (c_int, [c_void_p, c_char_p, pp]),
        "ostrel_config_use_environment_deployment": (c_int, [c_void_p, c_int, pp]),
        "ostrel_config_set_service": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_config_set_network": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_config_set_app_identity": (c_int, [c_void_p, c_char_p, c_char_p, c_char_p, pp]),
        "ostrel_config_set_development": (c_int, [c_void_p, c_int, pp]),
        "ostrel_config_set_custom_data_json": (c_int, [c_void_p, c_char_p, pp]),
        "ostrel_config_set_log_callback": (c_int, [c_void_p, _TEXT_FN, c_void_p, pp]),
        "ostrel_start": (c_int, [c_void_p, pp, pp]),
        "ostrel_wait_until_persisted": (c_int, [c_void_p, ctypes.c_uint32]),
        "ostrel_shutdown": (c_int, [c_void_p, ctypes.c_uint32, pp]),
        "ostrel_free": (None, [c_void_p]),
        "ostrel_get_session_id": (c_int, [c_void_p, pp, pp]),
        "ostrel_send_event": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_timed_event_start": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_timed_event_stop": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_flow_begin": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_flow_step": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_flow_succeed": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_flow_fail": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_flow_cancel": (c_int, [c_void_p, c_char_p, c_char_p, pp]),
        "ostrel_rank_content": (c_int, [c_void_p, c_char_p, c_int, ctypes.c_float, pp]),
        "ostrel_attach_session": (c_int, [c_void_p, c_char_p, c_char_p, c_int, c_char_p, pp]),
        "ostrel_flush": (c_int, [c_void_p, _RESULT_FN, c_void_p, pp]),
        "ostrel_get_user_token": (c_int, [c_void_p, pp, pp]),
        "ostrel_is_user_logged": (c_int, [c_void_p, ctypes.POINTER(c_int), pp]),
        "ostrel_user_logout": (c_int, [c_void_p, pp]),
        "ostrel_login_new": (c_int, [c_void_p, pp, pp]),
        "ostrel_login_free": (None, [c_void_p]),
        "ostrel_login_set_email": (c_int, [c_void_p, c_char_p, pp]),
        "ostrel_login_set_password": (c_int, [c_void_p, c_char_p, pp]),
        "ostrel_login_set_msisdn": (c_int, [c_void_p, c_char_p, pp]),
        "ostrel_login_set_pin": (c_int, [c_void_p, c_char_p, pp]),
        "ostrel_login_start": (c_int, [c_void_p, c_int, _RESULT_FN, c_void_p, pp]),
        "ostrel_push_parse": (c_int, [c_char_p, pp, pp]),
        "ostrel_push_process_remote": (c_int, [c_void_p, c_char_p, c_int, pp]),
        "ostrel_push_set_callback": (c_int, [c_void_p, _TEXT_FN, c_void_p, pp]),
        "ostrel_push_set_device_token": (c_int, [c_void_p, c_char_p, c_size_t, pp]),
        "ostrel_payment_get_offer": (c_int, [c_void_p, c_char_p, c_int, _RESULT_FN, c_void_p, pp]),
        "ostrel_payment_add_receipt": (c_int, [c_void_p, c_char_p, c_char_p, _RESULT_FN, c_void_p, pp]),
        "ostrel_payment_is_paying": (c_int, [c_void_p, _RESULT_FN, c_void_p, pp]),
    }
    for name, (restype, argtypes) in signatures.items():
        function = getattr(lib, name)
        function.restype = restype
        function.argtypes = argtypes
    return lib


def load_library(path=None):
    """Loads (once) and answers the shared library."""
    global _library
    with _library_lock:
        if _library is None:
            path = path or os.environ.get("OSTREL_LIBRARY") or ctypes.util.find_library("ostrel")
            if not path:
                raise OSError("libostrel not found: pass library= or set OSTREL_LIBRARY")
            _library = _declare(ctypes.CDLL(path))
        return _library


def _text(value):
    return None if value is None else value.encode("utf-8")


def _json(value):
    return None if value is None else json.dumps(value).encode("utf-8")


def _error_from(lib, error):
    """Reads an error object (borrowed: not freed here)."""
    if not error:
        return OstrelError("OutOfMemory", "memory ran out", "c_api")
    status = ctypes.c_int64()
    has_status = lib.ostrel_error_status(error, ctypes.byref(status))
    extra = lib.ostrel_error_extra_json(error)
    kind = lib.ostrel_error_kind(error)
    return OstrelError(
        lib.ostrel_error_code(error).decode(),
        lib.ostrel_error_message(error).decode(),
        OstrelError.KINDS[kind] if 0 <= kind < len(OstrelError.KINDS) else "c_api",
        status.value if has_status else None,
        json.loads(extra) if extra else None,
        lib.ostrel_error_description(error).decode(),
    )


def _check(lib, call, *args):
    """Runs a call that takes a trailing `ostrel_error_t**`; raises on failure."""
    error = ctypes.c_void_p()
    code = call(*args, ctypes.byref(error))
    if code != _OK:
        try:
            raise _error_from(lib, error)
        finally:
            lib.ostrel_error_free(error)


def _take_text(lib, pointer):
    try:
        return ctypes.string_at(pointer).decode("utf-8")
    finally:
        lib.ostrel_string_free(pointer)


def parse_push(payload, library=None):
    """A push payload (a dict or JSON text) as the push object the library reads from it."""
    lib = load_library(library)
    text = payload if isinstance(payload, str) else json.dumps(payload)
    out = ctypes.c_void_p()
    _check(lib, lib.ostrel_push_parse, text.encode("utf-8"), ctypes.byref(out))
    return json.loads(_take_text(lib, out))


class Ostrel:
    """The process-wide library instance: one per process, as in every language."""

    def __init__(self, secret, *, storage_dir=None, environment_deployment=False, domain=None,
                 scheme=None, connect_to=None, ca_file=None, app_identity=None, development=None,
                 custom_data=None, log=None, library=None):
        self._lib = lib = load_library(library)
        self._keep = {}  # C callbacks the library may still call, by id
        self._keep_lock = threading.Lock()
        self._push_callback = None
        config = lib.ostrel_config_new()
        if not config:
            raise MemoryError("ostrel_config_new")
        try:
            _check(lib, lib.ostrel_config_set_secret, config, _text(secret))
            if storage_dir:
                _check(lib, lib.ostrel_config_set_storage_dir, config, _text(storage_dir))
            _check(lib, lib.ostrel_config_use_environment_deployment, config,
                   1 if environment_deployment else 0)
            if domain or scheme:
                _check(lib, lib.ostrel_config_set_service, config, _text(domain), _text(scheme))
            if connect_to or ca_file:
                _check(lib, lib.ostrel_config_set_network, config, _text(connect_to), _text(ca_file))
            if app_identity:
                _check(lib, lib.ostrel_config_set_app_identity, config,
                       *[_text(part) for part in app_identity])
            if development is not None:
                _check(lib, lib.ostrel_config_set_development, config, 1 if development else 0)
            if custom_data is not None:
                _check(lib, lib.ostrel_config_set_custom_data_json, config, _json(custom_data))
            if log is not None:
                # Kept for the life of the process: the library logs until exit.
                self._log = _TEXT_FN(lambda line, _: log(line.decode("utf-8", "replace")))
                _check(lib, lib.ostrel_config_set_log_callback, config, self._log, None)
            handle = ctypes.c_void_p()
            _check(lib, lib.ostrel_start, config, ctypes.byref(handle))
            self._handle = handle
        finally:
            lib.ostrel_config_free(config)

    # -- plumbing -------------------------------------------------------------

    def _call(self, name, *args):
        _check(self._lib, getattr(self._lib, name), self._handle, *args)

    def _wait(self, name, *args, timeout=30.0):
        """Runs an asynchronous call and waits for its callback; answers its result text."""
        done = threading.Event()
        outcome = {}

        def on_result(error, result, _):
            if error:
                outcome["error"] = _error_from(self._lib, error)
            outcome["result"] = result.decode("utf-8") if result is not None else None
            done.set()

        callback = _RESULT_FN(on_result)
        with self._keep_lock:
            self._keep[id(callback)] = callback
        try:
            self._call(name, *args, callback, None)
        except BaseException:
            with self._keep_lock:
                self._keep.pop(id(callback), None)
            raise
        if not done.wait(timeout):
            raise TimeoutError(f"{name} did not answer within {timeout} s")
        with self._keep_lock:
            self._keep.pop(id(callback), None)
        if "error" in outcome:
            raise outcome["error"]
        return outcome["result"]

    def _text_out(self, name):
        out = ctypes.c_void_p()
        self._call(name, ctypes.byref(out))
        return _take_text(self._lib, out)

    # -- analytics ------------------------------------------------------------

    def send_event(self, name, data=None):
        self._call("ostrel_send_event", _text(name), _json(data))

    def timed_event_start(self, name, data=None):
        self._call("ostrel_timed_event_start", _text(name), _json(data))

    def timed_event_stop(self, name, data=None):
        self._call("ostrel_timed_event_stop", _text(name), _json(data))

    def flow_begin(self, name, data=None):
        self._call("ostrel_flow_begin", _text(name), _json(data))

    def flow_step(self, name, data=None):
        self._call("ostrel_flow_step", _text(name), _json(data))

    def flow_succeed(self, reason, data=None):
        self._call("ostrel_flow_succeed", _text(reason), _json(data))

    def flow_fail(self, reason, data=None):
        self._call("ostrel_flow_fail", _text(reason), _json(data))

    def flow_cancel(self, reason, data=None):
        self._call("ostrel_flow_cancel", _text(reason), _json(data))

    def rank_content(self, content_id, scope="consumption", multiplier=1.0):
        self._call("ostrel_rank_content", _text(content_id), _RANKING_SCOPES[scope], multiplier)

    def attach_session(self, session_id, user_id=None, attach_type="peer", data=None):
        self._call("ostrel_attach_session", _text(session_id), _text(user_id),
                   _ATTACH_TYPES[attach_type], _json(data))

    def flush(self, timeout=30.0):
        """Sends everything queued; answers the last reply (a dict) or None."""
        result = self._wait("ostrel_flush", timeout=timeout)
        return json.loads(result) if result else None

    def wait_until_persisted(self, timeout=1.0):
        return bool(self._lib.ostrel_wait_until_persisted(self._handle, int(timeout * 1000)))

    @property
    def session_id(self):
        return self._text_out("ostrel_get_session_id")

    # -- the user -------------------------------------------------------------

    @property
    def user_token(self):
        return self._text_out("ostrel_get_user_token")

    @property
    def is_logged(self):
        logged = ctypes.c_int()
        self._call("ostrel_is_user_logged", ctypes.byref(logged))
        return bool(logged.value)

    def logout(self):
        self._call("ostrel_user_logout")

    def login(self, flow, *, email=None, password=None, msisdn=None, pin=None, timeout=30.0):
        """Runs one login flow ("email", "email_signup", "msisdn_pin", ...) to its end."""
        lib = self._lib
        builder = ctypes.c_void_p()
        self._call("ostrel_login_new", ctypes.byref(builder))
        try:
            for setter, value in (("email", email), ("password", password),
                                  ("msisdn", msisdn), ("pin", pin)):
                if value is not None:
                    _check(lib, getattr(lib, f"ostrel_login_set_{setter}"), builder, _text(value))
            done = threading.Event()
            outcome = {}

            def on_end(error, _result, _):
                if error:
                    outcome["error"] = _error_from(lib, error)
                done.set()

            callback = _RESULT_FN(on_end)
            _check(lib, lib.ostrel_login_start, builder, _LOGIN_FLOWS[flow], callback, None)
        finally:
            lib.ostrel_login_free(builder)  # the flow keeps what it needs
        if not done.wait(timeout):
            with self._keep_lock:
                self._keep[id(callback)] = callback  # it may still be called
            raise TimeoutError(f"login flow {flow} did not end within {timeout} s")
        if "error" in outcome:
            raise outcome["error"]

    def login_email(self, email, password, **kwargs):
        self.login("email", email=email, password=password, **kwargs)

    def login_msisdn(self, msisdn, pin, **kwargs):
        self.login("msisdn_pin", msisdn=msisdn, pin=pin, **kwargs)

    # -- push -----------------------------------------------------------------

    def set_push_callback(self, callback):
        """`callback(push_dict)` for every push received, on the thread that hands it over."""
        c_callback = _TEXT_FN(lambda text, _: callback(json.loads(text))) if callback else _TEXT_FN()
        self._call("ostrel_push_set_callback", c_callback, None)
        self._push_callback = c_callback  # replaced only once the library let go of the old one

    def process_push(self, payload, opened=False):
        text = payload if isinstance(payload, str) else json.dumps(payload)
        self._call("ostrel_push_process_remote", text.encode("utf-8"), 1 if opened else 0)

    def set_device_token(self, token_bytes):
        self._call("ostrel_push_set_device_token", token_bytes, len(token_bytes))

    # -- payments -------------------------------------------------------------

    def payment_offer(self, native_item, marketplace="appleStore"):
        return self._wait("ostrel_payment_get_offer", _text(native_item), _MARKETPLACES[marketplace])

    def add_receipt(self, offer_id, receipt_path=None):
        self._wait("ostrel_payment_add_receipt", _text(offer_id), _text(receipt_path))

    def is_paying(self):
        return json.loads(self._wait("ostrel_payment_is_paying"))

    # -- the end --------------------------------------------------------------

    def shutdown(self, timeout=1.0):
        self._call("ostrel_shutdown", int(timeout * 1000))

    def close(self):
        """Shuts down (when not done) and frees the handle. The instance stays spent."""
        if self._handle:
            self._lib.ostrel_free(self._handle)
            self._handle = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
