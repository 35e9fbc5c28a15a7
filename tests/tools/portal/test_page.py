"""The page for a person and its forms."""

import unittest
from html.parser import HTMLParser

from support import CHECK_IN_REPORT, POWER, UPDATES, PortalTest

EVIL = "<script>alert('x')</script>\"&"
VOID = {"meta", "link", "input", "br", "img"}


class Balance(HTMLParser):
    """Checks that every element that is opened is closed in turn; collects the ids."""

    def __init__(self, text):
        super().__init__()
        self.open, self.ids, self.faults = [], [], []
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attributes):
        self.ids += [value for name, value in attributes if name == "id"]
        if tag not in VOID:
            self.open.append(tag)

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            self.faults.append(f"{tag} at {self.getpos()}")


class Page(PortalTest):
    def test_is_one_piece_that_loads_nothing(self):
        self.begin_pairing()
        terminal, _ = self.enrol()
        self.enrol()
        self.change(terminal, branding={"displayName": "Tarn", "photos": 16})

        reply = self.send("GET", "/")
        page = Balance(reply.body.decode())

        self.assertEqual((reply.status, reply.headers["Content-Type"]), (200, "text/html; charset=utf-8"))
        self.assertEqual((page.open, page.faults), ([], []))
        self.assertEqual(len(page.ids), len(set(page.ids)))
        self.assertIn("default-src 'none'", reply.headers["Content-Security-Policy"])
        self.assertNotRegex(reply.body.decode(), r"(src|href)=\"(?!data:)")

    def test_shows_waiting_codes_and_the_last_report(self):
        code = self.begin_pairing(hostname="waiting-1")
        terminal, token = self.enrol(hostname="desk-7")
        updates = {"lastRunAt": "2026-10-11T02:00:00Z", "lastResult": "failed", "error": "no mirror"}
        updates.update(pending=3, restartRequired=True)
        self.check_in(token, {**CHECK_IN_REPORT, "powerLocal": POWER, "powerError": "no room", "osUpdates": updates})

        page = self.page()

        for text in (code, "waiting-1", "desk-7", "no room", "asleep 22:00 to 07:00 on Mon, Tue"):
            self.assertIn(text, page)
        self.assertIn("failed at 2026-10-11T02:00:00Z, 3 pending, restart required", page)

    def test_escapes_whatever_comes_from_outside(self):
        self.begin_pairing(hostname=EVIL, osVersion=EVIL)
        terminal, token = self.enrol(hostname=EVIL, osVersion=EVIL, appVersion=EVIL)
        report = {"appVersion": EVIL, "powerLocal": None, "powerError": EVIL, "osUpdates": {EVIL: EVIL}}
        self.check_in(token, report)
        self.terminal_sends("GET", "/api/<script>alert(1)</script>")
        self.fault("answer", body=EVIL, path="/api/" + EVIL)
        everything = "name power powerSource updates updatesSource signIn exitPassword tenantId branding".split()

        for value in (EVIL, {EVIL: EVIL}, [EVIL], 7, None, True):
            self.change(terminal, **dict.fromkeys(everything, value), raw=True)
            page = self.page()
            self.assertNotIn("<script>alert", page)
            self.assertEqual(Balance(page).faults, [])

    def test_shows_no_secret(self):
        terminal, token = self.enrol()
        self.change(terminal, exitPassword="swordfish")
        self.check_in(token)

        page = self.page()

        self.assertNotIn(token, page)
        self.assertNotIn("swordfish", page)
        self.assertIn("A password is set.", page)

    def test_survives_a_text_that_has_no_utf8(self):
        terminal, _ = self.enrol()
        self.send("POST", f"/admin/terminals/{terminal}/settings", b'{"name":"\\ud800"}')

        self.assertEqual(self.send("GET", "/").status, 200)
        self.assertEqual(self.admin_reply("GET", "/admin/state").status, 200)


class Forms(PortalTest):
    def setUp(self):
        super().setUp()
        self.terminal, self.token = self.enrol()

    def save(self, group, **fields):
        reply = self.submit(f"/forms/terminals/{self.terminal}/{group}", **fields)
        self.assertEqual((reply.status, reply.headers["Location"]), (303, f"/#t-{self.terminal}"), reply.body)
        return self.check_in(self.token).json()

    def test_claim_a_code(self):
        code = self.begin_pairing()

        self.assertEqual(self.submit("/forms/claim", code=code.lower()).status, 303)

        self.assertEqual(self.ask_after(code).status, 200)

    def test_tell_why_something_was_not_done(self):
        reply = self.submit("/forms/claim", code="<b>")

        self.assertEqual(reply.status, 404)
        self.assertIn("Not done: no terminal shows this code.", reply.body.decode())

    def test_set_name_and_tenant(self):
        members = self.save("name", name="Lobby é", tenantId="tenant-2")
        self.assertEqual((members["name"], members["tenantId"]), ("Lobby é", "tenant-2"))

    def test_set_sign_in_methods(self):
        members = self.save("sign-in", email="on", extraHosts="a.example\r\n\r\n b.example \r\n")
        hosts = ["a.example", "b.example"]
        self.assertEqual(members["signIn"], {"microsoft": False, "email": True, "extraHosts": hosts})

    def test_set_the_power_policy(self):
        fields = {"screenOffMinutes": 10, "sleepMinutes": 30, "enabled": "on", "sleepAt": "22:00", "wakeAt": "07:00"}
        members = self.save("power", **fields, days=[2, 1], source="device")
        self.assertEqual((members["power"], members["powerSource"]), (POWER, "device"))

    def test_set_the_updates_policy(self):
        members = self.save("updates", automatic="on", start="22:00", end="04:00", days=[0, 6], source="tenant")
        self.assertEqual((members["updates"], members["updatesSource"]), (UPDATES, "tenant"))

    def test_set_change_and_clear_the_exit_password(self):
        for password in ("swordfish", "trout"):
            self.assertEqual(self.save("exit-password", exitPassword=password)["exitPassword"], password)

        reply = self.submit(f"/forms/terminals/{self.terminal}/exit-password", exitPassword="")
        self.assertEqual(reply.status, 400)
        self.assertEqual(self.check_in(self.token).json()["exitPassword"], "trout")

        self.assertEqual(self.save("exit-password", exitPassword="", clear="yes")["exitPassword"], "")

    def test_send_any_json_and_leave_members_out(self):
        self.assertEqual(self.save("raw", member="power", json='{"sleepMinutes":241}')["power"], {"sleepMinutes": 241})
        self.assertIn("The terminal is sent <code>{&quot;sleepMinutes&quot;: 241}</code> now.", self.page())
        self.assertNotIn("power", self.save("raw", member="power", json="", clear="yes"))
        self.assertIn("Left out of the replies now", self.page())

        path = f"/forms/terminals/{self.terminal}/raw"
        for fields in ({"member": "power", "json": "{"}, {"member": "power"}, {"member": "colour", "json": "1"}):
            self.assertEqual(self.submit(path, **fields).status, 400, fields)

    def test_refuse_what_the_rules_refuse(self):
        path = f"/forms/terminals/{self.terminal}"
        fields = {"sleepMinutes": 0, "sleepAt": "22:00", "wakeAt": "22:00", "source": "device"}
        self.assertEqual(self.submit(f"{path}/power", screenOffMinutes=10, **fields).status, 400)
        self.assertEqual(self.submit(f"{path}/power", screenOffMinutes="x", **fields).status, 400)
        self.assertEqual(self.submit(f"{path}/colour").status, 404)
        self.assertEqual(self.submit("/forms/nothing").status, 404)
        self.assertEqual(self.send("GET", "/forms/claim").status, 405)
        self.assertEqual(self.submit("/forms/claim", **{f"f{n}": n for n in range(101)}).status, 400)

    def test_revoke_forget_and_bring_back(self):
        for action, status in (("revoke", "revoked"), ("forget", "unknown"), ("bring-back", "enrolled")):
            self.assertIn(f"/forms/terminals/{self.terminal}/{action}\"", self.page())

            self.assertEqual(self.save(action)["status"], status)

            page = self.page()
            self.assertNotIn(f"/forms/terminals/{self.terminal}/{action}\"", page)
            self.assertIn(f">{status}</span>", page)

    def test_switch_faults_on_and_off(self):
        fields = {"kind": "status", "path": "/api/kiosk/check-in", "bytes": "7", "body": "x"}
        fields.update(dict.fromkeys(("count", "ms", "location"), ""))
        self.assertEqual(self.submit("/forms/faults", **fields, status="503").status, 303)
        self.assertEqual(self.check_in(self.token).status, 503)
        self.assertIn("1 fault on", self.page())
        self.assertEqual(self.submit("/forms/faults/clear").status, 303)
        self.assertEqual(self.check_in(self.token).status, 200)

    def test_offer_faults_for_each_kind_of_request(self):
        for path in ("/api/kiosk/check-in", "/api/kiosk/pair", "/api/kiosk/branding/photos/", "/api/"):
            self.assertIn(f'<option value="{path}">', self.page())
            self.assertEqual(self.submit("/forms/faults", kind="slow", path=path, ms=1).status, 303, path)

    def test_every_kind_of_fault_can_be_switched_on(self):
        for kind in "slow silent cutOff reset status garbage tooLong drip answer".split():
            self.assertEqual(self.submit("/forms/faults", kind=kind, path="/api/", count=1, ms=1).status, 303, kind)
        self.assertEqual(self.submit("/forms/faults", kind="fire", path="/api/").status, 400)

    def test_are_refused_from_another_page(self):
        reply = self.submit(f"/forms/terminals/{self.terminal}/revoke", headers={"Origin": "http://evil.example"})

        self.assertEqual(reply.status, 403)
        self.assertEqual(self.check_in(self.token).status, 200)


if __name__ == "__main__":
    unittest.main()
