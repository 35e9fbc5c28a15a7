"""The interface for tests and scripts."""

import threading
import unittest

from support import POWER, UPDATES, PortalTest

import model  # found once `support` has been imported


class Claim(PortalTest):
    def test_takes_a_code_as_a_person_types_it(self):
        code = self.begin_pairing()

        self.admin("POST", "/admin/claim", {"code": f" {code[:4].lower()}-{code[4:]} "})

        self.assertEqual(self.ask_after(code).status, 200)

    def test_makes_a_terminal_with_a_tenant_and_the_name_of_its_host(self):
        terminal, _ = self.enrol(hostname="desk-7")

        settings = self.admin("GET", f"/admin/terminals/{terminal}")["settings"]

        self.assertEqual((settings["name"], settings["tenantId"]), ("desk-7", "tenant-1"))

    def test_cuts_a_host_name_to_a_name_that_it_would_accept(self):
        terminal, _ = self.enrol(hostname="\n" + "h" * 300)

        self.assertEqual(self.admin("GET", f"/admin/terminals/{terminal}")["settings"]["name"], "h" * 80)

    def test_is_refused_for_unknown_claimed_and_expired_codes(self):
        claimed, expired = self.begin_pairing(), self.begin_pairing()
        self.admin("POST", "/admin/claim", {"code": claimed})
        self.admin("POST", f"/admin/codes/{expired}/expire")

        for code, status in (("ABCDEFGH", 404), (claimed, 409), (expired, 410), (7, 400)):
            self.assertEqual(self.admin_reply("POST", "/admin/claim", {"code": code}).status, status)
        self.assertEqual(self.admin_reply("POST", f"/admin/codes/{claimed}/expire").status, 409)

    def test_of_one_code_works_for_one_of_many(self):
        code, statuses = self.begin_pairing(), []

        def claim():
            statuses.append(self.admin_reply("POST", "/admin/claim", {"code": code}).status)

        claimers = [threading.Thread(target=claim) for _ in range(8)]
        for claimer in claimers:
            claimer.start()
        for claimer in claimers:
            claimer.join(10)

        self.assertEqual(sorted(statuses), [200] + [409] * 7)


class State(PortalTest):
    def test_shows_codes_and_terminals(self):
        code = self.begin_pairing(hostname="waiting-1")
        terminal, token = self.enrol()
        self.check_in(token)

        state = self.state()

        self.assertEqual([(c["code"], c["state"]) for c in state["codes"]][0], (code, "waiting"))
        self.assertEqual([t["id"] for t in state["terminals"]], [terminal])
        self.assertEqual((state["codesMade"], state["checkIns"], state["faults"]), (2, 1, []))

    def test_holds_secrets_only_on_request(self):
        terminal, token = self.enrol()
        self.change(terminal, exitPassword="swordfish")

        plain, full = str(self.state()), str(self.state("?secrets=1"))

        for secret in (token, "swordfish"):
            self.assertNotIn(secret, plain)
            self.assertIn(secret, full)
        self.assertTrue(self.state()["terminals"][0]["exitPasswordSet"])


class Settings(PortalTest):
    def test_change_only_what_is_named(self):
        terminal, token = self.enrol()

        self.change(terminal, name="Lobby", updates=UPDATES)

        members = self.check_in(token).json()
        self.assertEqual((members["name"], members["updates"], members["updatesSource"]), ("Lobby", UPDATES, "default"))

    def test_fill_in_sign_in_methods_left_out(self):
        terminal, token = self.enrol()

        self.change(terminal, signIn={"email": True})

        self.assertEqual(self.check_in(token).json()["signIn"], {"microsoft": True, "email": True, "extraHosts": []})

    def test_refuse_what_a_terminal_would_refuse_and_change_nothing(self):
        terminal, token = self.enrol()

        reply = self.admin_reply(
            "POST", f"/admin/terminals/{terminal}/settings", {"name": "New", "power": {**POWER, "sleepMinutes": 241}}
        )

        self.assertEqual(reply.status, 400)
        self.assertEqual(reply.json()["error"], "power.sleepMinutes must be a whole number from 0 to 240")
        self.assertEqual(self.check_in(token).json()["name"], "lobby-01")

    def test_take_anything_when_raw(self):
        terminal, token = self.enrol()

        self.change(terminal, power={"sleepMinutes": 241}, name=None, signIn=[1], exitPassword=7, raw=True)

        members = self.check_in(token).json()
        self.assertEqual(members["power"], {"sleepMinutes": 241})
        self.assertEqual((members["name"], members["signIn"], members["exitPassword"]), (None, [1], 7))

    def test_can_be_left_out_of_the_replies(self):
        terminal, token = self.enrol()
        everything = "signIn name power powerSource updates updatesSource exitPassword tenantId".split()

        self.change(terminal, omit=everything)
        self.assertEqual(self.check_in(token).json(), {"status": "enrolled"})
        self.change(terminal, name="Back")
        self.assertEqual(self.check_in(token).json(), {"status": "enrolled", "name": "Back"})

    def test_refuse_names_and_bodies_that_are_not_theirs(self):
        terminal, _ = self.enrol()
        path = f"/admin/terminals/{terminal}/settings"

        for body in ({"colour": 1}, {"colour": 1, "raw": True}, {"omit": ["colour"]}, {"omit": 1}, {"omit": [[]]}, []):
            self.assertEqual(self.admin_reply("POST", path, body).status, 400, body)
        self.assertEqual(self.send("POST", path, b"{").status, 400)
        self.assertEqual(self.admin_reply("POST", "/admin/terminals/nobody/settings", {}).status, 404)


class ExitPassword(PortalTest):
    def test_can_be_set_changed_and_cleared(self):
        terminal, token = self.enrol()

        for password in ("swordfish", "Trout 7", ""):
            self.change(terminal, exitPassword=password)

            self.assertEqual(self.check_in(token).json()["exitPassword"], password)
            self.assertEqual(self.admin("GET", f"/admin/terminals/{terminal}")["exitPasswordSet"], bool(password))

    def test_belongs_to_one_terminal(self):
        (terminal, _), (_, other_token) = self.enrol(), self.enrol()

        self.change(terminal, exitPassword="swordfish")

        self.assertEqual(self.check_in(other_token).json()["exitPassword"], "")


class RevokeForgetAndBringBack(PortalTest):
    def act(self, terminal, action):
        return self.admin("POST", f"/admin/terminals/{terminal}/{action}")["status"]

    def test_lead_from_each_status_to_each_other(self):
        terminal, token = self.enrol()
        self.change(terminal, name="Lobby")
        told = {"revoke": {"status": "revoked"}, "forget": {"status": "unknown"}}

        for action in "revoke forget revoke bring-back forget bring-back bring-back".split():
            status = self.act(terminal, action)
            reply = self.check_in(token)

            with self.subTest(action=action):
                self.assertEqual(reply.json()["status"], status)
                self.assertEqual(reply.json() if action in told else reply.json()["name"], told.get(action, "Lobby"))
                self.assertEqual(reply.status, 401 if action in told else 200)

    def test_do_not_count_check_ins_that_were_refused(self):
        terminal, token = self.enrol()

        for action in ("revoke", "forget"):
            self.act(terminal, action)
            self.check_in(token)

        self.assertEqual(self.admin("GET", f"/admin/terminals/{terminal}")["checkIns"], 0)
        self.assertEqual(self.requests()[-1]["terminal"], terminal)

    def test_make_room_for_a_new_terminal_by_dropping_the_forgotten(self):
        model.MAX_TERMINALS, before = 2, model.MAX_TERMINALS
        self.addCleanup(setattr, model, "MAX_TERMINALS", before)
        (first, _), (second, _) = self.enrol(), self.enrol()
        code = self.begin_pairing()

        self.assertEqual(self.admin_reply("POST", "/admin/claim", {"code": code}).status, 409)
        self.act(second, "forget")
        third = self.admin("POST", "/admin/claim", {"code": code})["terminal"]

        self.assertEqual([terminal["id"] for terminal in self.state()["terminals"]], [first, third])

    def test_are_refused_for_a_terminal_that_is_not_there(self):
        for action in ("revoke", "forget", "bring-back"):
            self.assertEqual(self.admin_reply("POST", f"/admin/terminals/nobody/{action}").status, 404)

    def test_reach_a_terminal_that_has_not_collected_its_token(self):
        revoked, forgotten = self.begin_pairing(), self.begin_pairing()
        for code, action in ((revoked, "revoke"), (forgotten, "forget")):
            terminal = self.admin("POST", "/admin/claim", {"code": code})["terminal"]
            self.admin("POST", f"/admin/terminals/{terminal}/{action}")

        token = self.ask_after(revoked).json()["deviceToken"]
        self.assertEqual(self.check_in(token).json(), {"status": "revoked"})
        self.assertEqual(self.ask_after(forgotten).status, 404)

    def test_reset_forgets_everything(self):
        _, token = self.enrol()
        self.fault("silent")

        self.admin("POST", "/admin/reset")

        state = self.state()
        self.assertEqual((state["codes"], state["terminals"], state["faults"]), ([], [], []))
        self.assertEqual(self.check_in(token).json(), {"status": "unknown"})


class Wait(PortalTest):
    def test_answers_at_once_when_it_has_happened(self):
        terminal, token = self.enrol()
        self.check_in(token)

        wishes = [{"afterCheckIns": 0}, {"afterCodes": 0}, {"afterRevision": 0}]
        for wish in [{"afterCheckIns": 0, "terminal": terminal}, *wishes]:
            self.assertTrue(self.admin("POST", "/admin/wait", wish)["reached"], wish)
        last = self.admin("POST", "/admin/wait", {"afterRequests": 0, "path": "/api/kiosk/pair/"})
        self.assertEqual(last["value"], 2)

    def test_answers_when_it_happens(self):
        terminal, token = self.enrol()
        replies = []
        wish = {"afterCheckIns": 0, "terminal": terminal, "timeoutSeconds": 10}
        waiter = threading.Thread(target=lambda: replies.append(self.admin("POST", "/admin/wait", wish)))
        waiter.start()

        self.check_in(token)
        waiter.join(10)

        self.assertEqual((replies[0]["reached"], replies[0]["value"]), (True, 1))

    def test_ends_with_its_time(self):
        self.assertFalse(self.admin("POST", "/admin/wait", {"afterCodes": 0, "timeoutSeconds": 0.01})["reached"])

    def test_ends_when_the_portal_stops(self):
        replies = []
        waiter = threading.Thread(target=lambda: replies.append(self.portal.wait_for(lambda: False, 60)))
        waiter.start()

        self.portal.stop()
        waiter.join(10)

        self.assertEqual(replies, [False])

    def test_refuses_what_it_cannot_wait_for(self):
        rows = [
            {},
            {"afterCodes": 0, "afterRevision": 0},
            {"afterCodes": "0"},
            {"afterCodes": 0, "timeoutSeconds": 301},
            {"afterCodes": 0, "timeoutSeconds": True},
            {"afterRequests": 0, "path": 1},
        ]
        for wish in rows:
            self.assertEqual(self.admin_reply("POST", "/admin/wait", wish).status, 400, wish)
        wish = {"afterCheckIns": 0, "terminal": "nobody"}
        self.assertEqual(self.admin_reply("POST", "/admin/wait", wish).status, 404)


class OtherPages(PortalTest):
    def test_cannot_drive_the_portal(self):
        rows = [
            ({"Origin": "http://evil.example"}, 403),
            ({"Origin": "null"}, 403),
            ({"Origin": f"https://{self.address}"}, 403),
            ({"Host": "evil.example"}, 403),
            ({"Host": "evil.example", "Origin": "http://evil.example"}, 403),
            ({"Origin": f"http://{self.address}"}, 200),
            ({"Host": "localhost:1", "Origin": "http://localhost:1"}, 200),
            ({"Host": "[::1]:8480"}, 200),
            ({}, 200),
        ]
        for headers, status in rows:
            for method, path in (("POST", "/admin/reset"), ("GET", "/admin/state"), ("GET", "/")):
                with self.subTest(headers=headers, path=path):
                    self.assertEqual(self.send(method, path, headers=headers).status, status)

    def test_leave_the_terminals_interface_open_under_any_name(self):
        self.assertEqual(self.send("GET", "/api/kiosk/pair/ABCDEFGH", headers={"Host": "portal.example"}).status, 404)


class Paths(PortalTest):
    def test_that_do_not_exist_or_take_another_method_are_refused(self):
        rows = [("GET", "/admin/x", 404), ("GET", "/admin/claim", 405), ("DELETE", "/admin/state", 405)]
        for method, path, status in rows:
            self.assertEqual(self.send(method, path).status, status, path)
        self.assertEqual(self.send("GET", "/admin/requests?after=x").status, 400)


if __name__ == "__main__":
    unittest.main()
