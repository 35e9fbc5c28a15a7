"""How fast the service's JSON parser is, beside that of Python's standard library, which is written in C."""

import json
import subprocess
import time

MEASURED_SECONDS = 2
MIB = 1024 * 1024
COPIES = 20


def compare(program, place, answer):
    """Mebibytes a second of both, over a text of many check-in answers."""
    text = json.dumps([answer] * COPIES, separators=(",", ":"))
    path = place / "text.json"
    path.write_text(text)
    ours = float(subprocess.run([program, path], check=True, capture_output=True, text=True).stdout)
    return ours, speed_of_python(text)


def speed_of_python(text):
    begin = time.process_time()
    parsed = passed = 0
    while passed < MEASURED_SECONDS:
        json.loads(text)
        parsed += len(text)
        passed = time.process_time() - begin
    return parsed / MIB / passed
