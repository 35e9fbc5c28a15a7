"""The portal's own photos: what their files are, and how a terminal gets them."""

import hashlib
import http.client
import struct
import threading
import unittest
import zlib

from support import TERMINAL_HEADERS, PortalTest

import photos  # found once `support` has been imported

MIB = 1024 * 1024


def chunks_of(file):
    """The chunks of a PNG file as (kind, data) pairs; fails on whatever a strict reader would not take."""
    assert file[:8] == b"\x89PNG\r\n\x1a\n"
    chunks, position = [], 8
    while position < len(file):
        (length,) = struct.unpack_from(">I", file, position)
        body = file[position + 4 : position + 8 + length]
        assert struct.unpack_from(">I", file, position + 8 + length)[0] == zlib.crc32(body)
        chunks.append((body[:4], body[4:]))
        position += 12 + length
    return chunks


class File(unittest.TestCase):
    def test_is_a_png_with_every_row_there(self):
        for number, size in ((1, 0), (1000, 0), (7, photos.MIN_SIZE), (7, 100_001)):
            with self.subTest(number=number, size=size):
                chunks = chunks_of(photos.file_of(photos.photo(number, size)))

                width, height, *kind = struct.unpack(">II5B", chunks[0][1])
                self.assertEqual((width, height, kind), (photos.WIDTH, photos.HEIGHT, [8, 2, 0, 0, 0]))
                self.assertEqual(len(zlib.decompress(chunks[1][1])), height * (1 + 3 * width))
                noise = [b"noIs"] if size else []
                self.assertEqual([kind for kind, _ in chunks], [b"IHDR", b"IDAT", *noise, b"IEND"])

    def test_has_exactly_the_size_that_was_asked_for(self):
        for size in (photos.MIN_SIZE, 16 * MIB, 16 * MIB + 1):
            self.assertEqual(len(photos.file_of(photos.photo(3, size))), size)

    def test_is_the_same_each_time_and_another_for_each_number_and_size(self):
        wanted = [(number, size) for number in range(1, 51) for size in (0, photos.MIN_SIZE)]
        made = [photos.photo(*each) for each in wanted]

        self.assertEqual(len({photo.sha256 for photo in made}), len(wanted))
        for photo in made:
            self.assertEqual(hashlib.sha256(photos.file_of(photo)).hexdigest(), photo.sha256)

    def test_is_below_the_least_size_that_it_can_be_filled_up_to(self):
        largest = max(len(photos.gradient(number)) for number in range(1, photos.MAX_NUMBER + 1, 37))
        self.assertLess(largest + 12, photos.MIN_SIZE)


class PhotoTest(PortalTest):
    def setUp(self):
        super().setUp()
        self.terminal, self.token = self.enrol()

    def brand(self, wish):
        """Gives the terminal photos and returns their digests."""
        self.change(self.terminal, branding={"displayName": "Tarn", "photos": wish})
        return [photo["sha256"] for photo in self.check_in(self.token).json()["branding"]["photos"]]


class Fetch(PhotoTest):
    def test_gives_the_bytes_that_belong_to_the_digest(self):
        for digest in self.brand(3):
            reply = self.fetch_photo(digest, self.token)

            self.assertEqual((reply.status, reply.headers["Content-Type"]), (200, "image/png"))
            self.assertEqual(hashlib.sha256(reply.body).hexdigest(), digest)
            self.assertEqual(self.requests()[-1]["doubts"], [])

    def test_takes_a_full_load(self):
        digests = self.brand({"count": 16, "size": 16 * MIB})

        reply = self.fetch_photo(digests[15], self.token)

        self.assertEqual(len(set(digests)), 16)
        self.assertEqual((len(reply.body), hashlib.sha256(reply.body).hexdigest()), (16 * MIB, digests[15]))

    def test_needs_the_token_of_an_enrolled_terminal(self):
        (digest,) = self.brand(1)

        for token, told in ((None, None), ("nobody", "unknown")):
            reply = self.fetch_photo(digest, token)
            self.assertEqual((reply.status, reply.json().get("status")), (401, told))
        for action, told in (("revoke", "revoked"), ("forget", "unknown")):
            self.admin("POST", f"/admin/terminals/{self.terminal}/{action}")
            reply = self.fetch_photo(digest, self.token)
            self.assertEqual((reply.status, reply.json()["status"]), (401, told))

    def test_finds_nothing_under_any_other_name(self):
        (digest,) = self.brand(1)

        for name in (digest.upper(), digest[:-1], digest + "0", "0" * 64, "", "..", digest + "/"):
            self.assertEqual(self.fetch_photo(name, self.token).status, 404, name)
        self.assertEqual(self.send("POST", f"/api/kiosk/branding/photos/{digest}").status, 405)

    def test_doubts_what_a_terminal_should_not_ask_for(self):
        (digest,) = self.brand(1)
        self.change(self.terminal, branding=None)
        headers = {**TERMINAL_HEADERS, "Authorization": f"Bearer {self.token}"}

        reply = self.send("GET", f"/api/kiosk/branding/photos/{digest}", b"x", headers)

        self.assertEqual(reply.status, 200)
        doubts = ["Accept is not image/*", "a GET came with a body", "the photo is not in the terminal's branding"]
        self.assertEqual(self.requests()[-1]["doubts"], doubts)

    def test_does_not_mind_a_branding_that_is_none(self):
        (digest,) = self.brand(1)

        for value in (None, 7, [digest], {"photos": 7}, {"photos": [7, {}, {"sha256": 7}, {"sha256": [digest]}]}):
            self.change(self.terminal, branding=value, raw=True)
            self.assertEqual(self.fetch_photo(digest, self.token).status, 200, value)

    def test_loses_the_oldest_of_too_many_photos(self):
        made = [photos.Photo(f"{number:064x}", 1, 0) for number in range(501)]
        self.portal.keep_photos(made)
        self.portal.keep_photos(made[1:2])

        self.assertEqual(self.fetch_photo(made[0].sha256, self.token).status, 404)
        self.assertEqual(self.fetch_photo(made[1].sha256, self.token).status, 200)
        self.portal.keep_photos(made[:1])
        self.assertEqual(self.fetch_photo(made[1].sha256, self.token).status, 200)
        self.assertEqual(self.fetch_photo(made[2].sha256, self.token).status, 404)


class Faults(PhotoTest):
    def setUp(self):
        super().setUp()
        (self.digest,) = self.brand(1)
        self.file = photos.file_of(photos.photo(1))

    def test_reach_the_photos_and_leave_the_check_in_alone(self):
        self.fault("status", status=503, path="/api/kiosk/branding/photos/")

        self.assertEqual(self.fetch_photo(self.digest, self.token).status, 503)
        self.assertEqual(self.check_in(self.token).status, 200)

    def test_a_slow_portal_is_slow_with_photos_too(self):
        self.fault("slow", delayMs=600000)
        replies = []
        asker = threading.Thread(target=lambda: replies.append(self.fetch_photo(self.digest, self.token)))
        asker.start()
        self.admin("POST", "/admin/wait", {"afterRequests": 0, "path": "/api/kiosk/branding/photos/"})

        self.assertEqual(replies, [])
        self.admin("DELETE", "/admin/faults")
        asker.join(10)

        self.assertEqual(replies[0].body, self.file)

    def test_too_long_fills_a_photo_up_to_the_size(self):
        self.fault("tooLong", bytes=16 * MIB + 1)

        reply = self.fetch_photo(self.digest, self.token)

        self.assertEqual(reply.headers["Content-Type"], "image/png")
        self.assertEqual(reply.body, self.file + bytes(16 * MIB + 1 - len(self.file)))

    def test_cut_off_sends_half_a_photo(self):
        self.fault("cutOff")

        with self.assertRaises(http.client.IncompleteRead) as caught:
            self.fetch_photo(self.digest, self.token)

        self.assertEqual(caught.exception.partial, self.file[: len(self.file) // 2])

    def test_drip_sends_a_whole_photo_in_the_end(self):
        self.fault("drip", everyMs=0)

        self.assertEqual(self.fetch_photo(self.digest, self.token).body, self.file)

    def test_garbage_does_not_match_the_digest(self):
        self.fault("garbage", bytes=len(self.file))

        self.assertNotEqual(self.fetch_photo(self.digest, self.token).body, self.file)


if __name__ == "__main__":
    unittest.main()
