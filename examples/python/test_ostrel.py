"""The ctypes module against an emulator: run through ostrel_capi_emulator_run,
which exports the deployment (OSTREL_SERVICE_DOMAIN, OSTREL_CONNECT_TO,
OSTREL_CA_FILE), a fresh OSTREL_STORAGE_DIR and OSTREL_EMULATOR_URL, and with
OSTREL_LIBRARY naming the shared library. The emulator has the account
user@ostrel.test / secret."""

import json
import os
import ssl
import sys
import urllib.request

import pytest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import ostrel  # noqa: E402

EMAIL, PASSWORD = "user@ostrel.test", "secret"


def received_events():
    """The events the emulator stored, oldest first, through its control API."""
    context = ssl.create_default_context(cafile=os.environ["OSTREL_CA_FILE"])
    url = os.environ["OSTREL_EMULATOR_URL"] + "/_emulator/events"
    with urllib.request.urlopen(url, context=context, timeout=10) as reply:
        return [entry["event"] for entry in reversed(json.load(reply)["events"])]


@pytest.fixture(scope="module")
def client():
    lines = []
    instance = ostrel.Ostrel("demo-secret", environment_deployment=True,
                             app_identity=("io.ostrel.example.python", "1.0", "7"),
                             log=lines.append)
    instance.log_lines = lines
    yield instance
    instance.close()


def test_refusals_raise_the_librarys_error(client):
    cases = [
        (lambda: client.send_event("no spaces allowed"), "EventCreationError", "local"),
        (lambda: client.send_event("nested", {"a": {"b": 1}}), "SimpleObjectCreationError", "local"),
        (lambda: client.login_email(EMAIL, "wrong"), "EMAILLoginWrongPasswordError", "local"),
        (lambda: client.login("email", email=EMAIL), "LoginBuilderError", "local"),
        (lambda: ostrel.parse_push({"aps": {"t": "N"}, "push_id": "x"}), "PushNotificationError",
         "local"),
    ]
    for call, code, kind in cases:
        with pytest.raises(ostrel.OstrelError) as raised:
            call()
        assert (raised.value.code, raised.value.kind) == (code, kind), str(raised.value)
    assert not client.is_logged
    assert any("Initialized Ostrel with Session" in line for line in client.log_lines)


def test_a_logged_user_s_events_reach_the_emulator(client):
    anonymous = client.user_token
    client.login_email(EMAIL, PASSWORD)
    assert client.is_logged
    token = client.user_token
    assert token != anonymous
    client.send_event("py_event", {"language": "python", "n": 3, "ok": True})
    client.flow_begin("py_flow")
    client.flow_succeed("done")
    client.rank_content("article-9", "social", 2.0)
    assert client.wait_until_persisted(5.0)
    client.flush()

    events = received_events()
    sent = [e for e in events if e.get("name") == "py_event"]
    assert len(sent) == 1
    assert sent[0]["custom_data"] == {"language": "python", "n": 3, "ok": True}
    assert sent[0]["user_id"] == token
    assert any(e.get("name") == "py_flow" for e in events)
    client.logout()
    assert not client.is_logged


def test_pushes_and_payments(client):
    pushes = []
    client.set_push_callback(pushes.append)
    client.process_push({"aps": {"t": "N", "alert": "hi"}, "push_id": "py1"})
    assert [p["body"] for p in pushes] == ["hi"]
    client.set_push_callback(None)
    assert client.payment_offer("gold-coins", "googlePlay")
    assert client.is_paying() == {"is_paying": False}
