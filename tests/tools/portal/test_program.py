"""The program itself: its one line, its log, its exit, and what it keeps across restarts."""

import json
import os
import signal
import stat
import subprocess
import tempfile
import unittest
from pathlib import Path
from urllib.parse import urlsplit

import support
from support import PortalTest

DEADLINE_SECONDS = 20


class Program(PortalTest):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.state_file = Path(folder.name) / "state.json"
        self.process = None

    def run_portal(self, *options):
        command = [str(support.PORTAL_DIR / "portal"), "--port", "0", *options]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(self.end, self.process)
        line = self.process.stdout.readline()
        self.assertRegex(line, r"\Alistening on http://127\.0\.0\.1:\d+\n\Z")
        self.address = urlsplit(line.split()[-1]).netloc

    def end(self, process, number=signal.SIGTERM):
        """Ends the process and returns its status and its log; harmless when it has ended."""
        if process.poll() is None:
            process.send_signal(number)
        output, log = process.communicate(timeout=DEADLINE_SECONDS) if not process.stdout.closed else ("", "")
        self.assertEqual(output, "")
        return process.returncode, log

    def test_ends_cleanly_on_either_signal(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            self.run_portal()
            self.assertEqual(self.end(self.process, number), (0, ""))

    def test_logs_a_line_for_each_request_and_no_secret(self):
        self.run_portal()
        terminal, token = self.enrol()
        self.change(terminal, exitPassword="swordfish")
        self.check_in(token)
        self.send("GET", "/admin/state?secrets=1")
        self.send("GET", "/api/%0anot-a-line")

        status, log = self.end(self.process)

        self.assertIn("POST /api/kiosk/check-in 200\n", log)
        self.assertIn(f"POST /admin/terminals/{terminal}/settings 200\n", log)
        self.assertIn("GET /admin/state 200\n", log)
        self.assertEqual(len(log.splitlines()), 7)
        for secret in (token, "swordfish", "secrets"):
            self.assertNotIn(secret, log)

    def test_is_quiet_when_told_to(self):
        self.run_portal("--quiet")
        self.begin_pairing()

        self.assertEqual(self.end(self.process), (0, ""))

    def test_claims_by_itself_when_told_to(self):
        self.run_portal("--auto-claim", "0")

        self.assertEqual(self.ask_after(self.begin_pairing()).status, 200)

    def test_keeps_terminals_and_codes_across_a_restart(self):
        self.run_portal("--state", str(self.state_file))
        terminal, token = self.enrol()
        self.change(terminal, name="Lobby", branding={"displayName": "Tarn", "photos": 1})
        photo = self.check_in(token).json()["branding"]["photos"][0]["sha256"]
        forgotten, _ = self.enrol()
        self.admin("POST", f"/admin/terminals/{forgotten}/forget")
        claimed = self.begin_pairing()
        self.admin("POST", "/admin/claim", {"code": claimed})
        self.end(self.process)
        self.run_portal("--state", str(self.state_file))

        self.assertEqual(self.check_in(token).json()["name"], "Lobby")
        self.assertEqual(self.admin("GET", f"/admin/terminals/{terminal}")["checkIns"], 2)
        self.assertEqual(self.ask_after(claimed).status, 200)
        self.assertEqual(self.fetch_photo(photo, token).status, 200)
        self.assertEqual(self.admin("GET", f"/admin/terminals/{forgotten}")["status"], "unknown")
        self.assertEqual(stat.S_IMODE(self.state_file.stat().st_mode), 0o600)
        self.assertEqual(os.listdir(self.state_file.parent), ["state.json"])

    def test_will_not_start_on_a_state_file_that_it_cannot_read(self):
        for text in ("", "{", "[]", '{"codes":[],"terminals":[{}]}', json.dumps({"codes": 1, "terminals": []})):
            with self.subTest(text=text):
                self.state_file.write_text(text)
                self.assertEqual(self.exit_of("--state", str(self.state_file))[0], 1)
                self.assertEqual(self.state_file.read_text(), text)

    def test_tells_that_its_port_is_taken(self):
        self.run_portal()

        status, log = self.exit_of("--port", self.address.rsplit(":", 1)[1])

        self.assertEqual(status, 1)
        self.assertIn("in use", log)

    def test_refuses_arguments_that_it_does_not_take(self):
        for options in (["--port", "65536"], ["--port", "x"], ["--auto-claim", "-1"], ["--colour"]):
            self.assertEqual(self.exit_of(*options)[0], 2, options)

    def exit_of(self, *options):
        command = [str(support.PORTAL_DIR / "portal"), "--port", "0", *options]
        done = subprocess.run(command, capture_output=True, text=True, timeout=DEADLINE_SECONDS)
        return done.returncode, done.stderr


if __name__ == "__main__":
    unittest.main()
