"""The settings of a simulated terminal, as the kiosk session changes them and as the terminal then is."""

from programs import SIMULATOR, run, wait_until
from simulated import OK

SCHEDULE = '{"enabled":true,"sleepAt":"22:00","wakeAt":"07:00","days":[0,1,2,3,4,5,6]}'


def adapter_of(kiosk, name):
    return next(adapter for adapter in kiosk.terminal()["adapters"] if adapter["name"] == name)


def test_gives_an_adapter_a_fixed_address(kiosk):
    reply = kiosk.send_as_kiosk(
        "net.set", kiosk.unlock(), "adapter=eth0", "mode=static", "ip=192.0.2.5", "prefix:=24", "gateway=192.0.2.1"
    )

    assert reply == {"ok": True}
    eth0 = adapter_of(kiosk, "eth0")
    assert (eth0["method"], eth0["address"], eth0["gateway"]) == ("manual", "192.0.2.5/24", "192.0.2.1")


def test_refuses_adapters_as_a_real_terminal_does(kiosk):
    unlocked = kiosk.unlock()

    errors = [kiosk.send_as_kiosk("net.set", unlocked, f"adapter={name}", "mode=dhcp")["error"] for name in ("wlan0", "eth9")]

    assert errors == ["failed", "unknown_adapter"]


def test_sets_the_clock_right(kiosk):
    unlocked = kiosk.unlock()
    kiosk.change_terminal(ntp={"server": "time.example", "offsetMs": 90000})

    first, second = (kiosk.send_as_kiosk("time.sync", unlocked) for _ in range(2))

    assert (first["ok"], first["server"], first["offsetMs"]) == (True, "time.example", 90000)
    assert second["offsetMs"] == 0


def test_tells_that_the_clock_cannot_be_set(kiosk):
    unlocked = kiosk.unlock()
    errors = []

    for answers in (True, False):
        kiosk.change_terminal(ntp={"answers": answers, "syncs": False})
        errors.append(kiosk.send_as_kiosk("time.sync", unlocked)["error"])

    assert errors == ["sync_failed", "unreachable"]


def test_writes_the_proxy_down(kiosk):
    reply = kiosk.send_as_kiosk("proxy.set", kiosk.unlock(), "mode=manual", "server=Proxy.Example:3128", "bypass=a;b")

    assert reply["ok"], reply
    assert kiosk.terminal()["proxy"]["server"] == "proxy.example:3128"
    assert "http_proxy=http://proxy.example:3128\n" in (kiosk.directory / "etc" / "proxy.env").read_text()


def test_keeps_the_settings_across_a_restart(kiosk):
    kiosk.send_as_kiosk("proxy.set", kiosk.unlock(), "mode=auto", "pacUrl=http://pac.example/")

    kiosk.restart_at_console()

    assert kiosk.terminal()["proxy"]["pacUrl"] == "http://pac.example/"


def test_applies_a_power_policy(kiosk):
    reply = kiosk.send_as_kiosk("power.set", kiosk.unlock(), "screenOffMinutes:=5", "sleepMinutes:=10")

    assert (reply["ok"], reply["error"]) == (True, None)
    assert kiosk.terminal()["power"]["sleepMinutes"] == 10
    assert (kiosk.directory / "etc" / "power.env").read_text() == "SCREEN_OFF_SECONDS=300\nSLEEP_SECONDS=600\n"


def test_tells_that_a_terminal_cannot_wake_by_itself(kiosk):
    kiosk.change_terminal(hasWakeAlarm=False)

    reply = kiosk.send_as_kiosk(
        "power.set", kiosk.unlock(), "screenOffMinutes:=5", "sleepMinutes:=0", f"schedule:={SCHEDULE}"
    )

    assert reply["error"] == "wake_unavailable"


def test_sleeps_when_the_timer_says_so(kiosk):
    kiosk.send_as_kiosk("power.set", kiosk.unlock(), "screenOffMinutes:=5", "sleepMinutes:=0", f"schedule:={SCHEDULE}")

    result = run(SIMULATOR, "--dir", kiosk.directory, "--sleep-now")

    assert result.returncode == OK
    assert "simulator: the terminal sleeps and wakes at " in result.stderr
    assert kiosk.send("status")["ok"]


def test_does_not_sleep_without_a_schedule(switch_on):
    simulator = switch_on()

    result = run(SIMULATOR, "--dir", simulator.directory, "--sleep-now")

    assert result.returncode == OK
    assert "power: scheduled sleep with no schedule in force; skipped" in result.stderr


def wait_for_updates(kiosk, unlocked):
    """The status document of the first moment at which nothing runs."""

    def ended():
        reply = kiosk.send_as_kiosk("os.updates", unlocked)
        return None if reply["checking"] or reply["installing"] else reply

    return wait_until(ended, "the end of the update run")


def test_finds_installs_and_restarts(kiosk):
    unlocked = kiosk.unlock()
    pending = [{"id": "vim"}, {"id": "linux-image-simulated", "restartRequired": True}]
    kiosk.change_terminal(packages={"pending": pending, "checkSeconds": 0, "installSeconds": 0})

    assert kiosk.send_as_kiosk("os.updates", unlocked, "check:=true")["ok"]
    found = wait_for_updates(kiosk, unlocked)
    assert [update["id"] for update in found["updates"]] == ["vim", "linux-image-simulated"]

    wait_until(lambda: kiosk.send_as_kiosk("os.install", unlocked).get("ok"), "the run before to be over")
    installed = wait_for_updates(kiosk, unlocked)
    assert (installed["updates"], installed["restartRequired"], installed["error"]) == ([], True, None)

    kiosk.restart_at_console()
    assert kiosk.terminal()["packages"]["restartRequired"] is False


def test_tells_why_a_run_failed(kiosk):
    unlocked = kiosk.unlock()
    kiosk.change_terminal(packages={"checkSeconds": 0, "failure": "search_failed"})

    assert kiosk.send_as_kiosk("os.install", unlocked)["ok"]

    assert wait_for_updates(kiosk, unlocked)["error"] == "search_failed"
