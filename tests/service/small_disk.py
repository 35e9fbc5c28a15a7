"""A disk that a test can fill. For the sandbox."""

import subprocess


class SmallDisk:
    """A directory on a disk of its own, of 64 KiB."""

    def __init__(self, path):
        self.path = path
        path.mkdir(parents=True, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", path], check=True)

    def fill(self, name="filler"):
        """Puts a file there that takes all the room."""
        with open(self.path / name, "wb", buffering=0) as filler:
            try:
                while True:
                    filler.write(b"x" * 4096)
            except OSError:
                return

    def clear(self):
        (self.path / "filler").unlink()

    def remount(self, options):
        subprocess.run(["mount", "-o", f"remount,{options}", self.path], check=True)

    def unmount(self):
        """Also while the service still has a file open there."""
        subprocess.run(["umount", "--lazy", self.path], check=True)
