"""Callers of the control socket that are processes of their own: another uid, session or image."""

import json
import os
import subprocess

from kioskd import DEADLINE, compact

PEER = os.environ.get("KIOSK_PEER", "build/tests/service/peer")

# No account anywhere has this uid, so it is simply "somebody else".
STRANGER = 47110


def call_as(service, request, uid=STRANGER, session=None, image=PEER):
    """Sends a request from a process of that uid, in that logind session; answers the reply. Bytes are sent as
    they are."""
    is_raw = isinstance(request, bytes)
    process = launch_peer(service, "-" if is_raw else request, uid=uid, session=session, image=image)
    output, _ = process.communicate(request if is_raw else None, timeout=DEADLINE)
    assert process.returncode == 0, "the peer could not connect"
    return json.loads(output)


def launch_peer(service, request, uid=STRANGER, session=None, image=PEER, waits=False):
    """The same, left running. With `waits` it has connected and sends when it gets a line of input."""
    # An ordinary user cannot become somebody else, and need not: it is not root either.
    user = {"user": uid, "group": uid, "extra_groups": []} if os.geteuid() == 0 else {}
    environment = {"XDG_SESSION_ID": session} if session else {}
    text = request if isinstance(request, str) else compact(request)
    process = subprocess.Popen(
        [str(image), *(["--wait"] if waits else []), str(service.socket_path), text],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=environment, **user)
    if waits:
        assert process.stdout.readline() == b"connected\n"
    return process
