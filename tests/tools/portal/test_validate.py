"""The rules for what the portal sends, row by row."""

import unittest

from support import POWER, UPDATES

import validate  # found once `support` has been imported

SCHEDULE = POWER["schedule"]
WINDOW = UPDATES["window"]
PHOTO = {"sha256": "0" * 64, "contentType": "image/png", "width": 1, "height": 1, "credit": ""}


def power(**members):
    return {**POWER, **members}


def schedule(**members):
    return power(schedule={**SCHEDULE, **members})


def window(**members):
    return {"automatic": True, "window": {**WINDOW, **members}}


class Rules(unittest.TestCase):
    def accepts(self, name, *values):
        for value in values:
            with self.subTest(name=name, value=value):
                validate.check_settings({name: value})

    def refuses(self, name, *values):
        for value in values:
            with self.subTest(name=name, value=value):
                with self.assertRaises(validate.Invalid) as caught:
                    validate.check_settings({name: value})
                self.assertIn(name, str(caught.exception))

    def test_power(self):
        self.accepts("power", POWER, power(sleepMinutes=0), power(sleepMinutes=240), power(screenOffMinutes=15.0))
        self.accepts("power", schedule(enabled=False, days=[]), schedule(days=[6, 0, 3]), schedule(days=[*range(7)]))
        self.refuses("power", None, 7, {}, power(sleepMinutes=241), power(sleepMinutes=-1))
        self.refuses("power", power(screenOffMinutes="15"), power(screenOffMinutes=True), power(screenOffMinutes=1.5))
        self.refuses("power", power(sleepMinutes=float("inf")))
        self.refuses("power", power(sleepMinutes=float("nan")), power(sleepMinutes=10**400), power(schedule=None))
        self.refuses("power", {n: v for n, v in POWER.items() if n != "schedule"}, power(colour=1))

    def test_schedule(self):
        self.refuses("power", schedule(enabled=1), schedule(days=[]), schedule(days=[1, 1]), schedule(days=[7]))
        self.refuses("power", schedule(days=[2.5]), schedule(days=["1"]), schedule(days=[True]), schedule(days={}))
        self.refuses("power", schedule(days=[-1]), schedule(days=[0, 1, 2, 3, 4, 5, 6, 0]), schedule(sleepAt="07:00"))
        for clock in ("24:00", "7:00", "07:60", "0700", "07:00 ", " 7:00", "٠٧:٠٠", "07-00", "", None, 700):
            self.refuses("power", schedule(sleepAt=clock), schedule(wakeAt=clock))

    def test_updates(self):
        self.accepts("updates", UPDATES, {**UPDATES, "automatic": False}, window(start="00:00", end="23:59", days=[2]))
        self.refuses("updates", None, {"automatic": True}, {"automatic": False}, {**UPDATES, "automatic": 1})
        self.refuses("updates", window(start="04:00"), window(days=[]), window(days=[1, 1]), window(days=[7]))
        self.refuses("updates", window(days=[2.5]), window(end="24:00"), window(extra=1))

    def test_sign_in(self):
        def sign_in(*hosts):
            return {"microsoft": True, "email": False, "extraHosts": list(hosts)}

        self.accepts("signIn", sign_in(), sign_in("a.b", "10.1", "a-b.example.com"), sign_in("x" * 63 + ".y"))
        self.accepts("signIn", sign_in(*(f"h{n}.example" for n in range(10))))
        self.refuses("signIn", sign_in(*(f"h{n}.example" for n in range(11))), sign_in("a.b", "a.b"), {}, None)
        self.refuses("signIn", {"microsoft": "false", "email": False, "extraHosts": []}, sign_in(7))
        bad = ["localhost", "A.example", ".a.b", "a.b.", "a..b", "-a.b", "a-.b", "a_b.c", "", "a.b\n", "x" * 64 + ".y"]
        for host in bad:
            self.refuses("signIn", sign_in(host))
        self.refuses("signIn", sign_in(".".join(["abcdefg"] * 32)))

    def test_names_sources_passwords_and_tenants(self):
        self.accepts("name", "", "Lobby", "é" * 80)
        self.refuses("name", None, 7, "x" * 81, "a\nb", "\x7f")
        for source in ("powerSource", "updatesSource"):
            self.accepts(source, "device", "tenant", "default")
            self.refuses(source, "", "Device", None, [], 1)
        self.accepts("exitPassword", "", "swordfish", "x" * 256)
        self.refuses("exitPassword", None, 1234, "x" * 257)
        self.accepts("tenantId", "", "tenant-1")
        self.refuses("tenantId", None, 1)

    def test_branding(self):
        def branding(**members):
            return {"displayName": "Tarn", "signInSubtitle": "", "photos": [], **members}

        def photos(count):
            return [{**PHOTO, "sha256": f"{number:064x}"} for number in range(count)]

        self.accepts("branding", None, branding(), branding(photos=photos(16)), branding(photos=photos(0)))
        self.refuses("branding", {}, [], branding(displayName=""), branding(photos=photos(17)), branding(photos=[7]))
        self.refuses("branding", branding(photos=[PHOTO, PHOTO]), branding(photos=3), branding(colour=1))
        for digest in ("A" * 64, "a" * 63, "a" * 65, "g" * 64, "", None, 7, "a" * 63 + "\n"):
            self.refuses("branding", branding(photos=[{**PHOTO, "sha256": digest}]))
        for fault in ({"width": "1"}, {"height": -1}, {"credit": None}, {"contentType": 1}, {"extra": 1}):
            self.refuses("branding", branding(photos=[{**PHOTO, **fault}]))

    def test_a_setting_that_does_not_exist(self):
        self.refuses("colour", 1)


if __name__ == "__main__":
    unittest.main()
