"""Faults on request, as a terminal meets them."""

import http.client
import json
import socket
import threading
import time
import unittest

import support
from fault_play import padded
from support import PortalTest


class FaultTest(PortalTest):
    def setUp(self):
        super().setUp()
        self.terminal, self.token = self.enrol()

    def check_ins(self):
        return self.admin("GET", f"/admin/terminals/{self.terminal}")["checkIns"]


class List(FaultTest):
    def test_a_fault_ends_with_its_count(self):
        self.fault("status", count=2)

        self.assertEqual([self.check_in(self.token).status for _ in range(3)], [500, 500, 200])

    def test_a_fault_without_a_count_stays_until_cleared(self):
        self.fault("status")
        self.assertEqual([self.check_in(self.token).status for _ in range(3)], [500] * 3)

        self.admin("DELETE", "/admin/faults")

        self.assertEqual(self.check_in(self.token).status, 200)
        self.assertEqual(self.admin("GET", "/admin/faults"), {"faults": []})

    def test_a_fault_keeps_to_its_path_and_method(self):
        self.fault("status", path="/api/kiosk/pair", method="GET")

        self.assertEqual(self.check_in(self.token).status, 200)
        code = self.begin_pairing()
        self.assertEqual(self.ask_after(code).status, 500)

    def test_the_oldest_that_fits_is_taken(self):
        self.fault("status", status=503, count=1)
        self.fault("status", status=429, count=1)

        self.assertEqual([self.check_in(self.token).status for _ in range(3)], [503, 429, 200])

    def test_the_page_and_the_scripts_never_meet_one(self):
        self.fault("status")

        self.assertEqual(self.send("GET", "/").status, 200)
        self.assertEqual(self.admin_reply("POST", "/admin/faults", {"kind": "reset", "path": "/admin/"}).status, 400)

    def test_what_is_not_a_fault_is_refused(self):
        rows = [
            {},
            {"kind": "fire"},
            {"kind": []},
            {"kind": "slow", "delayMs": -1},
            {"kind": "slow", "delayMs": 600001},
            {"kind": "slow", "status": 500},
            {"kind": "status", "status": 199},
            {"kind": "status", "status": "500"},
            {"kind": "status", "count": 0},
            {"kind": "status", "count": True},
            {"kind": "status", "method": "PUT"},
            {"kind": "status", "path": 7},
            {"kind": "garbage", "bytes": 64 * 1024 * 1024 + 1},
            {"kind": "answer", "headers": {"X": "a\r\nY: b"}},
            {"kind": "answer", "headers": {"": "a"}},
            {"kind": "answer", "headers": []},
            {"kind": "answer", "body": 7},
            {"kind": "answer", "bodyBase64": "§"},
            {"kind": "status", "location": "a\r\nSet-Cookie: b"},
        ]
        for wish in rows:
            with self.subTest(wish=wish):
                self.assertEqual(self.admin_reply("POST", "/admin/faults", wish).status, 400)

    def test_there_are_at_most_100(self):
        for _ in range(100):
            self.server.faults.add({"kind": "status"})

        self.assertEqual(self.admin_reply("POST", "/admin/faults", {"kind": "status"}).status, 409)


class Kinds(FaultTest):
    def test_slow_answers_late_with_what_held_when_the_request_came(self):
        self.fault("slow", delayMs=60000, path="/api/kiosk/check-in")
        replies = []
        asker = threading.Thread(target=lambda: replies.append(self.check_in(self.token)))
        asker.start()
        self.admin("POST", "/admin/wait", {"afterCheckIns": 0, "terminal": self.terminal})

        self.change(self.terminal, name="Later")
        self.assertEqual(replies, [])
        self.admin("DELETE", "/admin/faults")
        asker.join(10)

        self.assertEqual(replies[0].json()["name"], "lobby-01")

    def test_slow_waits_its_time(self):
        self.fault("slow", delayMs=60)
        before = time.monotonic()

        self.assertEqual(self.check_in(self.token).status, 200)

        self.assertGreaterEqual(time.monotonic() - before, 0.06)

    def test_silent_never_answers(self):
        self.fault("silent", forMs=50)

        with self.assertRaises(http.client.RemoteDisconnected):
            self.check_in(self.token)
        self.assertEqual(self.check_ins(), 0)

    def test_silent_ends_when_the_terminal_goes(self):
        self.fault("silent", forMs=600000, count=1)
        host, port = self.address.rsplit(":", 1)
        with socket.create_connection((host, int(port)), timeout=90) as terminal:
            terminal.sendall(b"POST /api/kiosk/check-in HTTP/1.1\r\nHost: p\r\n\r\n")
            self.admin("POST", "/admin/wait", {"afterRequests": 0, "path": "/api/kiosk/check-in"})
            self.assertEqual(len(self.server.faults._playing), 1)

        until = time.monotonic() + 10
        while self.server.faults._playing and time.monotonic() < until:
            threading.Event().wait(0.005)
        self.assertEqual(self.server.faults._playing, [])

    def test_silent_ends_when_the_faults_are_cleared(self):
        self.fault("silent", forMs=600000)
        ends = []

        def ask():
            try:
                self.check_in(self.token)
            except http.client.RemoteDisconnected:
                ends.append("closed")

        asker = threading.Thread(target=ask)
        asker.start()
        self.admin("POST", "/admin/wait", {"afterRequests": 0, "path": "/api/kiosk/check-in"})
        self.admin("DELETE", "/admin/faults")
        asker.join(10)

        self.assertEqual(ends, ["closed"])

    def test_cut_off_sends_half_and_promises_more(self):
        self.fault("cutOff")

        with self.assertRaises(http.client.IncompleteRead) as caught:
            self.check_in(self.token)

        self.assertTrue(caught.exception.partial.startswith(b'{"status":"enrolled"'))
        self.assertRaises(ValueError, json.loads, caught.exception.partial)
        self.assertEqual(self.check_ins(), 1)

    def test_reset_drops_the_connection(self):
        self.fault("reset")

        with self.assertRaises(ConnectionResetError):
            self.check_in(self.token)
        self.assertEqual(self.check_ins(), 0)

    def test_status_answers_any_status(self):
        self.fault("status", status=302, location="http://127.0.0.1:1/elsewhere")

        reply = self.check_in(self.token)

        self.assertEqual((reply.status, reply.headers["Location"]), (302, "http://127.0.0.1:1/elsewhere"))
        self.assertEqual(self.check_ins(), 0)

    def test_garbage_is_random_bytes_of_a_length(self):
        self.fault("garbage", bytes=3000)

        first, second = self.check_in(self.token), self.check_in(self.token)

        self.assertEqual((first.status, len(first.body)), (200, 3000))
        self.assertNotEqual(first.body, second.body)

    def test_too_long_is_the_usual_answer_at_exactly_that_length(self):
        for size in (65536, 65537, 1024 * 1024):
            self.fault("tooLong", bytes=size, count=1)
            reply = self.check_in(self.token)
            self.assertEqual(len(reply.body), size)
            self.assertEqual((reply.json()["status"], reply.json()["name"]), ("enrolled", "lobby-01"))

    def test_drip_sends_the_usual_answer_slowly(self):
        self.fault("drip", everyMs=0)

        self.assertEqual(self.check_in(self.token).json()["status"], "enrolled")

    def test_drip_comes_a_byte_at_a_time(self):
        self.fault("drip", everyMs=600000, path="/api/kiosk/check-in")
        host, port = self.address.rsplit(":", 1)
        with socket.create_connection((host, int(port)), timeout=90) as terminal:
            terminal.sendall(b"POST /api/kiosk/check-in HTTP/1.1\r\nHost: p\r\n\r\n")
            head = b""
            while not head.endswith(b"\r\n\r\n"):
                head += terminal.recv(1)
            self.admin("DELETE", "/admin/faults")
            body = b"".join(iter(lambda: terminal.recv(100), b""))

        self.assertIn(b"401", head)
        self.assertEqual(json.loads(body), {"error": "a bearer token is needed"})

    def test_answer_is_what_was_given(self):
        headers = {"X-A": "b", "Content-Type": "text/plain"}
        self.fault("answer", status=401, headers=headers, body='{"status":"odd"}', count=1)
        self.fault("answer", bodyBase64=support.base64_of(b"\xff\x00"), count=1)

        first, second = self.check_in(self.token), self.check_in(self.token)

        self.assertEqual((first.status, first.headers["X-A"], first.json()), (401, "b", {"status": "odd"}))
        self.assertEqual(first.headers.get_all("Content-Type"), ["text/plain"])
        self.assertEqual((second.status, second.body), (200, b"\xff\x00"))

    def test_each_is_named_in_the_record(self):
        self.fault("garbage", count=1)
        self.check_in(self.token)
        self.fault("tooLong", count=1)
        self.check_in(self.token)

        last = [(entry["fault"], entry["status"]) for entry in self.requests()[-2:]]
        self.assertEqual(last, [("garbage", 200), ("tooLong", 200)])


class Padding(unittest.TestCase):
    def test_makes_an_object_as_long_as_asked(self):
        rows = [
            (b'{"a":1}', 24, b'{"a":1,"padding":"xxxx"}'),
            (b"{}", 15, b'{"padding":"x"}'),
            (b'{"a":1}', 20, b'{"a":1,"padding":""}'),
            (b'{"a":1}', 19, b'{"a":1}'),
        ]
        for body, size, expected in rows:
            self.assertEqual(padded(body, size), expected)


if __name__ == "__main__":
    unittest.main()
