"""What one enrolled terminal costs that nobody uses. Runs in tests/support/sandbox; script/bench calls it.

The service is the real executable, installed, with a private system bus, a stand-in for logind that knows one kiosk
session, and the portal stand-in behind HTTPS. The terminal has a name, policies and three photos of 512 KiB. Numbers
are measured over the check-ins that come by themselves, and stretched to a day.
"""

import argparse
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/service"))

import json_text  # noqa: E402
import proc  # noqa: E402
from kioskd import Service, wait_until  # noqa: E402
from logind import Bus, Session  # noqa: E402
from peers import call_as  # noqa: E402
from stand_in import StandIn  # noqa: E402
from terminal import CLIENT, KIOSK, KIOSK_UID, PERSON_UID, Terminal  # noqa: E402
from tls_front import TlsFront  # noqa: E402

DAY_SECONDS = 24 * 60 * 60
PASS_SECONDS = 30
CURL_RUNS = 50
STATUS_REQUESTS = 1000
CHECK_IN = "/api/kiosk/check-in"
POLICIES = {
    "name": "Lobby", "exitPassword": "swordfish",
    "branding": {"displayName": "Tarn Valley Hotel", "photos": {"count": 3, "size": 512 * 1024}},
    "power": {"screenOffMinutes": 5, "sleepMinutes": 30,
              "schedule": {"enabled": False, "sleepAt": "22:30", "wakeAt": "06:45", "days": [1, 2, 3, 4, 5]}},
}
PYTHON_DAEMON = "import json, ssl, time, urllib.request, gi.repository.Gio; print(flush=True); time.sleep(600)"


def show(what, value, comparison=""):
    print(f"{what:<58} {value:>12}   {comparison}".rstrip(), flush=True)


def kib(pair):
    return "{:,} / {:,} KiB".format(*pair)


def per_day(number, seconds):
    return f"{number * DAY_SECONDS / seconds:,.0f}"


class Bench:
    def __init__(self, place):
        self.place = place
        self.bus = Bus(place)
        self.bus.logind.begin()
        self.portal = StandIn()
        self.front = TlsFront(place, int(self.portal.url.rsplit(":", 1)[1]))
        terminal = Terminal(place)
        terminal.tool(place / "setup", "exit 0")
        terminal.add_account()
        self.service = Service(place, "--client", str(CLIENT), "--auth-base", self.front.url,
                               executable=terminal.install(), bus=self.bus.address)

    def enrol(self):
        """As a person does it. The service is started anew afterwards, as by the restart of a terminal."""
        self.bus.logind.add(Session("c1", PERSON_UID, "ann"))
        self.service.start()
        ann = {"uid": PERSON_UID, "session": "c1", "image": CLIENT}
        code = call_as(self.service, {"cmd": "pair.begin"}, **ann)["code"]
        number = self.portal.post("/admin/claim", {"code": code})["terminal"]
        self.portal.post(f"/admin/terminals/{number}/settings", POLICIES)
        assert call_as(self.service, {"cmd": "pair.check", "code": code}, **ann)["restarting"]
        self.service.log.wait_for("<6>branding: ")
        assert self.service.stop() == 0
        self.bus.logind.remove("c1")
        self.bus.logind.add(Session("k1", KIOSK_UID, KIOSK))

    def start(self):
        """Until the first check-in is over and the service idle."""
        begun = self.front.total.exchanges
        self.service.start()
        self.front.wait_for(begun + 1)
        self.wait_until_idle()

    def wait_until_idle(self):
        """What follows a check-in takes far less than the two seconds between two looks at logind."""
        looks = self.bus.logind.calls_of("ListSessions")
        self.bus.logind.wait_for_call("ListSessions", looks + 2)

    def close(self):
        self.service.kill()
        self.portal.close()
        self.bus.close()


def measure_idle(bench, minutes):
    pid, bus = bench.service.pid, bench.bus.pid
    show("memory after the start, its own / resident", kib(proc.memory(pid)))
    traffic, counted, of_bus, begin = bench.front.total, proc.counts(pid), proc.counts(bus), time.monotonic()
    bench.front.wait_for(traffic.exchanges + minutes * 60 // PASS_SECONDS, deadline=minutes * 60 + 60)
    bench.wait_until_idle()
    seconds = time.monotonic() - begin
    traffic, counted, of_bus = bench.front.total - traffic, proc.counts(pid) - counted, proc.counts(bus) - of_bus

    show(f"memory after {traffic.exchanges} check-ins", kib(proc.memory(pid)))
    show("wake-ups a day", per_day(counted.wake_ups, seconds), f"{counted.wake_ups / seconds:.1f} a second")
    show("CPU seconds a day", per_day(counted.cpu_seconds, seconds),
         f"the bus daemon's own for it: {per_day(of_bus.cpu_seconds, seconds)}")
    show("bytes written to disk a day", per_day(counted.written_bytes, seconds))
    show("requests a day", per_day(traffic.exchanges, seconds))
    show("bytes a day, sent", per_day(traffic.sent, seconds), f"{traffic.sent // traffic.exchanges:,} a check-in")
    show("bytes a day, received", per_day(traffic.received, seconds),
         f"{traffic.received // traffic.exchanges:,} a check-in")
    show("TCP segments a day, both ways, on the loopback", per_day(traffic.segments, seconds))
    return counted.cpu_seconds / traffic.exchanges


def measure_burst(bench):
    for _ in range(STATUS_REQUESTS):
        assert bench.service.send({"cmd": "status"})["ok"]
    show(f"memory after {STATUS_REQUESTS:,} requests on the socket", kib(proc.memory(bench.service.pid)))


def last_check_in(portal):
    requests = portal.get("/admin/requests?secrets=1")["requests"]
    return next(request for request in reversed(requests) if request["path"] == CHECK_IN)


def curl_command(bench, request):
    headers = [word for name, value in request["headers"] if name.lower() not in ("host", "content-length")
               for word in ("--header", f"{name}: {value}")]
    return ["curl", "--silent", "--show-error", "--fail", "--output", bench.place / "answer", *headers,
            "--data-binary", request["body"], bench.front.url + CHECK_IN]


def run_to_end(command):
    """Its use of resources."""
    process = subprocess.Popen(command, env=os.environ | {"no_proxy": "*"})
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    assert process.returncode == 0, command
    return usage


def compare_with_curl(bench, cpu_seconds):
    """The same check-in, byte for byte the same headers and body, by the program that every shell script would use."""
    command = curl_command(bench, last_check_in(bench.portal))
    before = bench.front.total
    usages = [run_to_end(command) for _ in range(CURL_RUNS)]
    traffic = bench.front.wait_for(before.exchanges + CURL_RUNS) - before
    curl_seconds = sum(usage.ru_utime + usage.ru_stime for usage in usages) / CURL_RUNS
    show("CPU ms a check-in, with all that 30 seconds bring", f"{cpu_seconds * 1000:.1f}",
         f"curl, the exchange alone: {curl_seconds * 1000:.1f}")
    show("bytes of curl's check-in, sent / received",
         f"{traffic.sent // CURL_RUNS:,} / {traffic.received // CURL_RUNS:,}")


def compare_with_python():
    process = subprocess.Popen([sys.executable, "-c", PYTHON_DAEMON], stdout=subprocess.PIPE)
    process.stdout.readline()
    show("memory of python3 with json, ssl, urllib and gi, idle", kib(proc.memory(process.pid)))
    process.kill()
    process.wait()


def compare_with_logind(bench):
    """systemd's own, of the machine's systemd, on the private bus with no session and no seat."""
    bench.bus.logind.leave()
    process = subprocess.Popen(["/lib/systemd/systemd-logind"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               env=os.environ | {"DBUS_SYSTEM_BUS_ADDRESS": bench.bus.address})
    wait_until(lambda: bench.bus.logind.is_on_the_bus() or process.poll() is not None, "systemd-logind")
    show("memory of systemd-logind, idle", kib(proc.memory(process.pid)) if process.poll() is None else "did not start")
    process.kill()
    process.wait()


def compare_json(bench, program):
    ours, pythons = json_text.compare(program, bench.place, json.loads((bench.place / "answer").read_text()))
    show("JSON read, MiB a second", f"{ours:.0f}", f"python3's json: {pythons:.0f}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build-dir", type=pathlib.Path, required=True)
    parser.add_argument("--minutes", type=int, default=10)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="kioskd-") as directory:
        place = pathlib.Path(directory)
        place.chmod(0o755)
        bench = Bench(place)
        try:
            bench.enrol()
            bench.start()
            cpu_seconds = measure_idle(bench, options.minutes)
            measure_burst(bench)
            compare_with_curl(bench, cpu_seconds)
            compare_with_python()
            compare_with_logind(bench)
            compare_json(bench, options.build_dir / "bench/bench_json_parse")
        finally:
            bench.close()


if __name__ == "__main__":
    main()
