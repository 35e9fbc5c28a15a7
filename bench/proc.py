"""What the kernel counts of a process, read from /proc."""

import dataclasses
import pathlib
import re

NANOSECONDS = 1_000_000_000


@dataclasses.dataclass
class Counts:
    """Counted since the process began, over its present threads."""

    wake_ups: int  # how often a thread went on after waiting
    cpu_seconds: float
    written_bytes: int  # what the kernel had to put on a disk

    def __sub__(self, earlier):
        return Counts(self.wake_ups - earlier.wake_ups, self.cpu_seconds - earlier.cpu_seconds,
                      self.written_bytes - earlier.written_bytes)


def counts(pid):
    process = pathlib.Path(f"/proc/{pid}")
    tasks = list((process / "task").iterdir())
    return Counts(
        wake_ups=sum(number(task / "status", "voluntary_ctxt_switches") for task in tasks),
        cpu_seconds=sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / NANOSECONDS,
        written_bytes=number(process / "io", "write_bytes"),
    )


def memory(pid):
    """KiB that this process has written for itself alone, and KiB that it has in memory at all.

    Pages of libraries count for the second only: whether anybody shares them depends on what else runs.
    """
    path = pathlib.Path(f"/proc/{pid}/smaps_rollup")
    return number(path, "Private_Dirty"), number(path, "Rss")


def number(path, name):
    return int(re.search(rf"^{name}:\s*(\d+)", path.read_text(), re.MULTILINE)[1])
