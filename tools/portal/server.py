"""The HTTP server: takes connections, reads one request from each, routes it and sends the answer.

One thread for each connection and one exchange on it, as the terminals do it. PortalServer is started by the program
`portal` and by the tests; listen() returns at once and stop() ends everything, faults and waits included.

Limits: 128 connections at once (more are closed unanswered), 1 MiB for a request's body, 30 seconds for a peer to send
or take anything.
"""

import socketserver
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.parse import parse_qsl, urlsplit

import admin_api
import fault_play
import forms
import origin
import page
import terminal_api
from exchange import Refused, Request, refusal_answer
from faults import KINDS_THAT_HANDLE, FaultList

MAX_BODY_BYTES = 1024 * 1024
MAX_CONNECTIONS = 128
PEER_TIMEOUT_SECONDS = 30


class PortalServer:
    """A portal that listens. `port` 0 takes a free one; `url` tells which. Raises OSError when it cannot listen."""

    def __init__(self, portal, host="127.0.0.1", port=0, quiet=True):
        self.portal = portal
        self.faults = FaultList(on_change=portal.touch)
        self._http = _Server(host, port, self, quiet)
        shown_host = f"[{host}]" if ":" in host else host
        self.url = f"http://{shown_host}:{self._http.server_address[1]}"
        self._thread = threading.Thread(target=self._http.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True)

    def listen(self):
        self._thread.start()

    def stop(self):
        self.portal.stop()
        self.faults.clear()
        self._http.shutdown()
        self._http.server_close()
        self._thread.join()


class _Server(ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 64

    def __init__(self, host, port, owner, quiet):
        self.address_family = socketserver.socket.AF_INET6 if ":" in host else socketserver.socket.AF_INET
        self.host = host
        self.owner = owner
        self.quiet = quiet
        self._places = threading.BoundedSemaphore(MAX_CONNECTIONS)
        super().__init__((host, port), _Handler)

    def server_bind(self):
        # HTTPServer's own looks the host's name up, which can ask a name server on the network.
        socketserver.TCPServer.server_bind(self)
        self.server_name, self.server_port = self.server_address[:2]

    def process_request(self, request, client_address):
        if self._places.acquire(blocking=False):
            super().process_request(request, client_address)
        else:
            self.shutdown_request(request)

    def process_request_thread(self, request, client_address):
        try:
            super().process_request_thread(request, client_address)
        finally:
            self._places.release()

    def handle_error(self, request, client_address):
        # A peer that goes away in the middle is everyday life here; anything else is a mistake in this program.
        if not isinstance(sys.exc_info()[1], OSError):
            super().handle_error(request, client_address)


class _Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "portal-stand-in"
    sys_version = ""
    timeout = PEER_TIMEOUT_SECONDS

    def do_GET(self):
        self._serve()

    do_POST = do_PUT = do_PATCH = do_DELETE = do_GET

    def _serve(self):
        self.close_connection = True
        try:
            request = self._read_request()
            if request.path.startswith(terminal_api.PREFIX):
                self._serve_terminal(request)
            else:
                self._send(self._answer_person_or_script(request))
        except Refused as refused:
            self._send(refusal_answer(refused))

    def _read_request(self):
        url = urlsplit(self.path)
        return Request(
            method=self.command,
            path=url.path,
            query=dict(parse_qsl(url.query, max_num_fields=20)),
            headers=[[name, value] for name, value in self.headers.items()],
            body=self._read_body(),
        )

    def _read_body(self):
        if self.headers.get("Transfer-Encoding") is not None:
            raise Refused(411, "a body needs a Content-Length")
        length = self.headers.get("Content-Length", "0")
        if not (length.isascii() and length.isdigit()) or len(length) > 18:
            raise Refused(400, "the Content-Length is not a number")
        if int(length) > MAX_BODY_BYTES:
            raise Refused(413, f"a body may have {MAX_BODY_BYTES} bytes")
        body = self.rfile.read(int(length))
        if len(body) < int(length):
            raise ConnectionAbortedError("the peer closed within the body")
        return body

    def _answer_person_or_script(self, request):
        owner = self.server.owner
        origin.refuse_other_pages(request, self.server.host)
        if request.path == "/":
            return page.answer(owner.portal, owner.faults, request)
        if request.path.startswith(admin_api.PREFIX):
            return admin_api.handle(owner.portal, owner.faults, request)
        if request.path.startswith(forms.PREFIX):
            return forms.handle(owner.portal, owner.faults, request)
        raise Refused(404, "the portal has nothing here")

    def _serve_terminal(self, request):
        fault = self.server.owner.faults.take(request.method, request.path)
        if fault is None:
            self._send(self._carry_out(request, None))
            return
        try:
            self._play(fault, request)
        finally:
            self.server.owner.faults.done(fault)

    def _play(self, fault, request):
        if fault.kind not in KINDS_THAT_HANDLE:
            self.server.owner.portal.record(terminal_api.entry_of(request, None, fault))
            if fault.made_up_status() is None:
                self._log(f"({fault.kind})")
        fault_play.play(fault, self.connection, self._send, lambda: self._carry_out(request, fault))

    def _carry_out(self, request, fault):
        """The usual answer. The request is on record before the answer leaves: whoever saw the one finds the other."""
        portal = self.server.owner.portal
        handled = terminal_api.handle(portal, request)
        portal.record(terminal_api.entry_of(request, handled, fault))
        return handled.answer

    def _send(self, answer, declared_length=None, pieces=None):
        """Sends the answer; `declared_length` lies about the body's length, `pieces` replaces it with parts of it."""
        self._log(str(answer.status))
        self.send_response_only(answer.status)
        length = len(answer.body) if declared_length is None else declared_length
        headers = {"Content-Length": str(length), **answer.headers}
        for name, value in {**headers, "Connection": "close", "Cache-Control": "no-store"}.items():
            self.send_header(name, value)
        self.end_headers()
        for piece in [answer.body] if pieces is None else pieces:
            self.wfile.write(piece)

    def _log(self, outcome):
        if not self.server.quiet:
            # The query stays out of the log, and control characters of a path are shown rather than written.
            path = urlsplit(self.path).path.encode("unicode_escape").decode("ascii")
            # One write for each line: print() writes the line end by itself, and another thread can come between.
            sys.stderr.write(f"{self.command} {path:.200} {outcome}\n")

    def log_message(self, format, *args):
        """Lines of the library's own, told only of requests that could not even be read."""
        if not self.server.quiet:
            sys.stderr.write("unreadable request\n")
