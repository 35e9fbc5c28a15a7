"""The portal's own photos: PNG files of two colours, small as they are or filled up to any size with noise.

A photo is told by its number and its size, and the same two always give the same bytes (as long as zlib compresses the
same way), so the portal keeps these two and makes the bytes anew for each request. Pure functions.

Limits: 32 MiB, which leaves room for photos that a terminal must refuse; the numbers 1 to 1000.
"""

import colorsys
import functools
import hashlib
import random
import struct
import zlib
from dataclasses import dataclass

CONTENT_TYPE = "image/png"
WIDTH, HEIGHT = 960, 540
MIN_SIZE = 16 * 1024  # more than any photo has before it is filled up
MAX_SIZE = 32 * 1024 * 1024
MAX_NUMBER = 1000

_SIGNATURE = b"\x89PNG\r\n\x1a\n"
_EIGHT_BIT_RGB = (8, 2, 0, 0, 0)  # depth, colours, and the only compression, filter set and order without interlace
_TURN = 0.381966  # of the colour wheel from one number to the next: neighbours differ, and none come back soon


@dataclass(frozen=True)
class Photo:
    sha256: str
    number: int
    size: int  # of the file in bytes; 0: as it comes


@functools.lru_cache(maxsize=1000)
def photo(number, size=0):
    """The photo of that number and size, which are within their limits. Up to a quarter of a second for a large one."""
    return Photo(hashlib.sha256(_file(number, size)).hexdigest(), number, size)


def file_of(photo):
    """The bytes of the file."""
    return _file(photo.number, photo.size)


def entry_of(photo):
    """The photo as it stands in a branding."""
    return {
        "sha256": photo.sha256,
        "contentType": CONTENT_TYPE,
        "width": WIDTH,
        "height": HEIGHT,
        "credit": f"Photo {photo.number} of the stand-in",
    }


@functools.lru_cache(maxsize=1000)
def thumbnail_of(photo):
    """A smaller file of the same colours, for the page."""
    return gradient(photo.number, WIDTH // 10, HEIGHT // 10)


def gradient(number, width=WIDTH, height=HEIGHT):
    """A small PNG file that runs from one colour at the top to another at the bottom."""
    rows = b"".join(b"\0" + bytes(_colour(number, y / height)) * width for y in range(height))
    header = struct.pack(">II5B", width, height, *_EIGHT_BIT_RGB)
    return _SIGNATURE + _chunk(b"IHDR", header) + _chunk(b"IDAT", zlib.compress(rows, 9)) + _chunk(b"IEND", b"")


def _file(number, size):
    file = gradient(number)
    if size == 0:
        return file
    # A chunk that no reader has to know keeps the picture what it was, at any size.
    end = _chunk(b"IEND", b"")
    empty_chunk_bytes = len(_chunk(b"noIs", b""))
    noise = random.Random(number).randbytes(size - len(file) - empty_chunk_bytes)
    return file[: -len(end)] + _chunk(b"noIs", noise) + end


def _chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(data, zlib.crc32(kind)))


def _colour(number, share):
    hue = (number * _TURN + 0.15 * share) % 1
    return (round(255 * part) for part in colorsys.hsv_to_rgb(hue, 0.55 + 0.25 * share, 0.95 - 0.5 * share))
