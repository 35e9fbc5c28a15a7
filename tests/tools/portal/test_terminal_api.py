"""The portal as a terminal sees it."""

import threading
import unittest

import support
from support import CHECK_IN_REPORT, PAIRING_REPORT, POWER, PortalTest


class Pairing(PortalTest):
    def test_gives_a_code_that_can_be_read_from_a_screen(self):
        reply = self.terminal_sends("POST", "/api/kiosk/pair", PAIRING_REPORT)

        self.assertEqual(reply.status, 201)
        self.assertRegex(reply.json()["pairingCode"], r"\A[A-HJKMNP-Z2-9]{8}\Z")
        self.assertEqual(reply.json()["expiresInSeconds"], 900)

    def test_waits_until_somebody_claims_the_code(self):
        reply = self.ask_after(self.begin_pairing())

        self.assertEqual((reply.status, reply.json()), (202, {"status": "waiting"}))

    def test_hands_the_token_out_once(self):
        code = self.begin_pairing()
        self.admin("POST", "/admin/claim", {"code": code})

        first, second = self.ask_after(code), self.ask_after(code)

        self.assertEqual(first.status, 200)
        self.assertEqual(list(first.json()), ["deviceToken"])
        self.assertEqual(second.status, 409)
        self.assertNotIn(first.json()["deviceToken"], second.body.decode())

    def test_hands_the_token_to_exactly_one_of_many_that_ask_together(self):
        code = self.begin_pairing()
        self.admin("POST", "/admin/claim", {"code": code})
        together, statuses = threading.Barrier(8), []

        def ask():
            together.wait(10)
            statuses.append(self.ask_after(code).status)

        askers = [threading.Thread(target=ask) for _ in range(8)]
        for asker in askers:
            asker.start()
        for asker in askers:
            asker.join(10)

        self.assertEqual(sorted(statuses), [200] + [409] * 7)

    def test_tells_an_expired_code(self):
        code = self.begin_pairing()

        self.clock.seconds += 899
        self.assertEqual(self.ask_after(code).status, 202)
        self.clock.seconds += 1
        self.assertEqual(self.ask_after(code).status, 410)

    def test_tells_an_unknown_code(self):
        for code in ("ABCDEFGH", "", "%00", "a/b", "x" * 500):
            self.assertEqual(self.ask_after(code).status, 404, code)

    def test_keeps_a_claimed_code_past_its_time(self):
        code = self.begin_pairing()
        self.admin("POST", "/admin/claim", {"code": code})
        self.clock.seconds += 5000

        self.assertEqual(self.ask_after(code).status, 200)

    def test_pushes_the_oldest_code_out_at_the_limit(self):
        codes = [self.portal.make_code(PAIRING_REPORT) for _ in range(201)]

        self.assertEqual(self.ask_after(codes[0]).status, 404)
        self.assertEqual(self.ask_after(codes[1]).status, 202)

    def test_refuses_a_report_that_is_not_right(self):
        rows = [
            (b"", "not JSON"),
            (b"[]", "must be an object"),
            (b"{", ""),
            (b'{"a":1,"a":1}', "twice"),
            (b"[" * 100000, "deeply"),
            ({**PAIRING_REPORT, "hostname": 7}, "hostname"),
            ({**PAIRING_REPORT, "screenCount": "1"}, "screenCount"),
            ({**PAIRING_REPORT, "screenCount": True}, "screenCount"),
            ({**PAIRING_REPORT, "screenCount": -1}, "screenCount"),
            ({**PAIRING_REPORT, "screenCount": 10**400}, "screenCount"),
            ({name: value for name, value in PAIRING_REPORT.items() if name != "appVersion"}, "lacks appVersion"),
        ]
        for report, word in rows:
            with self.subTest(report=str(report)[:80]):
                reply = self.terminal_sends("POST", "/api/kiosk/pair", report)
                self.assertEqual(reply.status, 400)
                if word and word != "not JSON":
                    self.assertIn(word, reply.json()["error"])

    def test_claims_by_itself_after_the_time_that_was_asked_for(self):
        self.start(support.model.Portal(auto_claim_seconds=3, clock=self.clock))
        code = self.begin_pairing()

        self.assertEqual(self.ask_after(code).status, 202)
        self.clock.seconds += 3
        self.assertEqual(self.ask_after(code).status, 200)


class CheckIn(PortalTest):
    def test_replies_with_every_member(self):
        terminal, token = self.enrol(hostname="desk-7")

        reply = self.check_in(token)

        self.assertEqual(reply.status, 200)
        self.assertEqual(reply.headers["Content-Type"], "application/json")
        members = reply.json()
        names = "status signIn name power powerSource updates updatesSource exitPassword tenantId"
        self.assertEqual(list(members), names.split())
        self.assertEqual((members["status"], members["name"]), ("enrolled", "desk-7"))
        self.assertEqual(members["signIn"], {"microsoft": True, "email": False, "extraHosts": []})

    def test_replies_with_what_was_set(self):
        terminal, token = self.enrol()
        branding = {"displayName": "Tarn", "signInSubtitle": "", "photos": []}
        self.change(terminal, power=POWER, powerSource="device", exitPassword="swordfish", branding=branding)

        members = self.check_in(token).json()

        self.assertEqual((members["power"], members["powerSource"]), (POWER, "device"))
        self.assertEqual((members["exitPassword"], members["branding"]), ("swordfish", branding))

    def test_tells_a_revoked_terminal(self):
        terminal, token = self.enrol()
        self.admin("POST", f"/admin/terminals/{terminal}/revoke")

        reply = self.check_in(token)

        self.assertEqual((reply.status, reply.json()), (401, {"status": "revoked"}))

    def test_tells_a_forgotten_terminal_and_a_token_of_nobody_the_same(self):
        terminal, token = self.enrol()
        self.admin("POST", f"/admin/terminals/{terminal}/forget")

        for unknown in (token, "nobody"):
            reply = self.check_in(unknown)
            self.assertEqual((reply.status, reply.json()), (401, {"status": "unknown"}))

    def test_gives_no_status_without_a_token(self):
        for header in (None, "", "Basic abc", "Bearer", "Bearer  "):
            headers = dict(support.TERMINAL_HEADERS)
            if header is not None:
                headers["Authorization"] = header
            reply = self.send("POST", "/api/kiosk/check-in", b"{}", headers)
            self.assertEqual(reply.status, 401, header)
            self.assertNotIn("status", reply.json(), header)

    def test_counts_and_keeps_what_came_last(self):
        terminal, token = self.enrol()
        self.check_in(token)
        body = b'{"powerError": "no room", "powerLocal": null, "appVersion": "2"}'
        self.check_in(token, body)

        seen = self.admin("GET", f"/admin/terminals/{terminal}")

        self.assertEqual((seen["checkIns"], seen["lastCheckInAtMs"]), (2, int(self.clock.seconds * 1000)))
        self.assertEqual(seen["lastReport"]["powerError"], "no room")
        self.assertEqual(seen["lastBody"], body.decode())

    def test_refuses_a_report_that_is_not_right(self):
        terminal, token = self.enrol()
        rows = [
            ({}, "lacks appVersion"),
            ({**CHECK_IN_REPORT, "appVersion": None}, "appVersion"),
            ({**CHECK_IN_REPORT, "powerLocal": {"sleepMinutes": 1}}, "powerLocal lacks"),
            ({**CHECK_IN_REPORT, "powerLocal": {**POWER, "sleepMinutes": 241}}, "powerLocal.sleepMinutes"),
            ({**CHECK_IN_REPORT, "powerError": 1}, "powerError"),
            ({**CHECK_IN_REPORT, "osUpdates": None}, "osUpdates"),
        ]
        for report, word in rows:
            with self.subTest(report=report):
                reply = self.check_in(token, report)
                self.assertEqual(reply.status, 400)
                self.assertIn(word, reply.json()["error"])
        self.assertEqual(self.admin("GET", f"/admin/terminals/{terminal}")["checkIns"], 0)


class Records(PortalTest):
    def test_keep_headers_and_body_as_they_came(self):
        self.begin_pairing()

        (entry,) = self.requests()

        self.assertEqual((entry["method"], entry["path"], entry["status"]), ("POST", "/api/kiosk/pair", 201))
        self.assertIn(["User-Agent", "TarnvaleKiosk/2026-10-11-2304"], entry["headers"])
        self.assertIn('"screenCount": 1', entry["body"])
        self.assertEqual(entry["doubts"], [])

    def test_hide_the_token_unless_asked_for_it(self):
        terminal, token = self.enrol()
        self.check_in(token)

        self.assertIn(["Authorization", "Bearer (hidden)"], self.requests()[-1]["headers"])
        self.assertIn(["Authorization", f"Bearer {token}"], self.requests("?secrets=1")[-1]["headers"])
        self.assertEqual(self.requests()[-1]["terminal"], terminal)

    def test_tell_the_answers_with_the_secrets_and_leave_photos_out(self):
        terminal, token = self.enrol()
        branding = self.change(terminal, branding={"displayName": "Tarn", "photos": 1})["settings"]["branding"]
        answered = self.check_in(token)
        self.fetch_photo(branding["photos"][0]["sha256"], token)

        check_in, photo = self.requests("?secrets=1")[-2:]

        self.assertNotIn("answer", self.requests()[-1])
        self.assertEqual(check_in["answer"], {"contentType": "application/json", "body": answered.body.decode()})
        self.assertEqual(photo["answer"], {"contentType": "image/png", "body": None})

    def test_keep_no_answer_that_a_fault_makes_up(self):
        self.fault("status", status=503, count=1)
        self.terminal_sends("POST", "/api/kiosk/pair", PAIRING_REPORT)

        self.assertIsNone(self.requests("?secrets=1")[-1]["answer"])

    def test_doubt_what_a_terminal_should_not_send(self):
        report = support.json.dumps({**PAIRING_REPORT, "colour": "red", "platform": "Plan 9"}).encode()
        self.send("POST", "/api/kiosk/pair", report, {"Authorization": "Bearer x"})

        doubts = " ".join(self.requests()[-1]["doubts"])

        for word in ("Content-Type", "Accept", "User-Agent", "Authorization", "colour", "platform"):
            self.assertIn(word, doubts)

    def test_doubt_an_updates_report_and_keep_it(self):
        terminal, token = self.enrol()
        good = {"lastRunAt": None, "lastResult": None, "error": None, "pending": 0, "restartRequired": False}

        self.assertEqual(self.check_in(token, {**CHECK_IN_REPORT, "osUpdates": good}).status, 200)
        self.assertEqual(self.requests()[-1]["doubts"], [])
        self.assertEqual(self.check_in(token, {**CHECK_IN_REPORT, "osUpdates": {"x": 1}}).status, 200)
        self.assertIn("osUpdates lacks", self.requests()[-1]["doubts"][0])
        self.assertEqual(self.admin("GET", f"/admin/terminals/{terminal}")["lastReport"]["osUpdates"], {"x": 1})

    def test_keep_a_body_that_is_not_utf8_in_base64_too(self):
        terminal, token = self.enrol()
        body = b'{"appVersion":"1","powerLocal":null,"powerError":"caf\xc3"}'

        reply = self.check_in(token, body)

        self.assertEqual(reply.status, 200)
        self.assertEqual(self.requests()[-1]["bodyBase64"], support.base64_of(body))
        self.assertIn("the body is not UTF-8", self.requests()[-1]["doubts"])

    def test_are_at_most_200_and_can_be_read_on(self):
        for number in range(205):
            self.portal.record({"path": "/api/x", "headers": []})

        self.assertEqual([entry["number"] for entry in self.requests()], list(range(6, 206)))
        self.assertEqual([entry["number"] for entry in self.requests("?after=203")], [204, 205])


class Limits(PortalTest):
    def test_other_methods_and_paths_are_refused(self):
        rows = [
            ("GET", "/api/kiosk/check-in", 405),
            ("GET", "/api/kiosk/pair", 405),
            ("POST", "/api/kiosk/pair/ABCDEFGH", 405),
            ("PUT", "/api/kiosk/pair", 405),
            ("GET", "/api/kiosk", 404),
            ("GET", "/nothing", 404),
        ]
        for method, path, status in rows:
            self.assertEqual(self.send(method, path).status, status, path)

    def test_a_body_over_the_limit_is_refused_unread(self):
        for length, status in ((1024 * 1024 + 1, 413), (10**30, 400), ("-1", 400), ("x", 400)):
            reply = self.send("POST", "/api/kiosk/pair", headers={"Content-Length": str(length)})
            self.assertEqual(reply.status, status, length)

    def test_a_body_of_the_limit_is_taken(self):
        reply = self.terminal_sends("POST", "/api/kiosk/pair", b" " * (1024 * 1024))
        self.assertEqual(reply.status, 400)

    def test_a_body_in_chunks_is_refused(self):
        self.assertEqual(self.send("POST", "/api/kiosk/pair", headers={"Transfer-Encoding": "chunked"}).status, 411)


if __name__ == "__main__":
    unittest.main()
