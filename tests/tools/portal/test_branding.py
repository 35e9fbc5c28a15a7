"""A tenant's branding, set by a script and by a person."""

import unittest

from support import PortalTest

import photos  # found once `support` has been imported

DIGESTS = [photos.photo(number).sha256 for number in range(1, 21)]


class BrandingTest(PortalTest):
    def setUp(self):
        super().setUp()
        self.terminal, self.token = self.enrol()
        self.path = f"/admin/terminals/{self.terminal}/settings"

    def sent(self):
        return self.check_in(self.token).json().get("branding", "nothing")

    def sent_digests(self):
        return [photo["sha256"] for photo in self.sent()["photos"]]


class Script(BrandingTest):
    def test_finds_none_on_a_new_terminal(self):
        self.assertEqual(self.sent(), "nothing")

    def test_need_only_give_a_display_name(self):
        self.change(self.terminal, branding={"displayName": "Tarn"})

        self.assertEqual(self.sent(), {"displayName": "Tarn", "signInSubtitle": "", "photos": []})

    def test_gets_as_many_photos_as_it_asks_for(self):
        self.change(self.terminal, branding={"displayName": "Tarn", "signInSubtitle": "Hello", "photos": 16})

        self.assertEqual(self.sent_digests(), DIGESTS[:16])
        self.assertEqual(self.sent()["signInSubtitle"], "Hello")
        entry = {"sha256": DIGESTS[0], "contentType": "image/png", "width": photos.WIDTH, "height": photos.HEIGHT}
        self.assertEqual(self.sent()["photos"][0], {**entry, "credit": "Photo 1 of the stand-in"})

    def test_gets_the_same_photos_for_each_terminal(self):
        other, other_token = self.enrol()
        for terminal in (self.terminal, other):
            self.change(terminal, branding={"displayName": "Tarn", "photos": 2})

        self.assertEqual(self.sent(), self.check_in(other_token).json()["branding"])

    def test_can_begin_at_any_photo_and_choose_a_size(self):
        wish = {"count": 2, "first": 4, "size": 20000}
        self.change(self.terminal, branding={"displayName": "Tarn", "photos": wish})

        self.assertEqual(self.sent_digests(), [photos.photo(4, 20000).sha256, photos.photo(5, 20000).sha256])
        kept = [(photo["number"], photo["size"]) for photo in self.state()["photos"]]
        self.assertEqual(kept, [(4, 20000), (5, 20000)])

    def test_is_refused_more_than_the_limits_allow_and_changes_nothing(self):
        rows = [17, -1, True, None, "3", 1.5, {}, {"count": 1, "colour": 1}, {"count": 17}, {"count": 1, "first": 0}]
        rows += [{"count": 1, "first": photos.MAX_NUMBER + 1}, {"count": 1, "size": photos.MIN_SIZE - 1}]
        rows += [{"count": 1, "size": photos.MAX_SIZE + 1}, {"count": 1, "size": "1"}]
        for wish in rows:
            with self.subTest(wish=wish):
                reply = self.admin_reply("POST", self.path, {"branding": {"displayName": "Tarn", "photos": wish}})
                self.assertEqual(reply.status, 400)
                self.assertIn("branding.photos", reply.json()["error"])
        no_name = {"branding": {"displayName": "", "photos": 1}}
        self.assertEqual(self.admin_reply("POST", self.path, no_name).status, 400)
        self.assertEqual(self.sent(), "nothing")

    def test_can_send_what_a_terminal_must_not_take(self):
        self.change(self.terminal, branding={"displayName": "Tarn", "photos": {"count": 4, "first": 17}})
        last_four = self.sent()["photos"]
        self.change(self.terminal, branding={"displayName": "Tarn", "photos": 16})
        twenty = self.sent()["photos"] + last_four
        odd = [{**twenty[0], "sha256": DIGESTS[0].upper()}, twenty[0], twenty[0], 7]

        for entries in (twenty, odd, 3, None):
            self.change(self.terminal, branding={"displayName": "", "photos": entries}, raw=True)
            self.assertEqual(self.sent(), {"displayName": "", "photos": entries})
            self.assertEqual(self.send("GET", "/").status, 200)
        self.assertEqual(self.fetch_photo(DIGESTS[19], self.token).status, 200)

    def test_can_take_it_away(self):
        self.change(self.terminal, branding={"displayName": "Tarn"})

        self.change(self.terminal, branding=None)

        self.assertIsNone(self.sent())


class Person(BrandingTest):
    def submit_branding(self, **fields):
        fields = {"displayName": "Tarn", "signInSubtitle": "Hello", "addCount": "", "addSize": "", **fields}
        return self.submit(f"/forms/terminals/{self.terminal}/branding", **fields)

    def save(self, **fields):
        reply = self.submit_branding(**fields)
        self.assertEqual((reply.status, reply.headers["Location"]), (303, f"/#t-{self.terminal}"), reply.body)

    def test_sets_the_words(self):
        self.save()

        self.assertEqual(self.sent(), {"displayName": "Tarn", "signInSubtitle": "Hello", "photos": []})
        self.assertIn('name="displayName" value="Tarn"', self.page())

    def test_adds_keeps_and_drops_photos(self):
        self.save(addCount="3")
        self.assertEqual(self.sent_digests(), DIGESTS[:3])

        self.save(photos=[DIGESTS[0], DIGESTS[2]])
        self.assertEqual(self.sent_digests(), [DIGESTS[0], DIGESTS[2]])

        self.save(photos=[DIGESTS[0], DIGESTS[2]], addCount="2")
        self.assertEqual(self.sent_digests(), [DIGESTS[0], DIGESTS[2], DIGESTS[1], DIGESTS[3]])

    def test_adds_photos_of_a_size(self):
        self.save(addCount="1", addSize="20000")

        self.assertEqual(len(self.fetch_photo(self.sent_digests()[0], self.token).body), 20000)
        self.assertIn("Photo 1, 20,000 bytes", self.page())

    def test_cannot_have_more_than_sixteen(self):
        self.save(addCount="16")

        reply = self.submit_branding(photos=DIGESTS[:16], addCount="1")

        self.assertEqual(reply.status, 400)
        self.assertIn("at most 16 photos", reply.body.decode())
        self.assertEqual(self.sent_digests(), DIGESTS[:16])

    def test_cannot_leave_the_display_name_empty(self):
        self.assertEqual(self.submit_branding(displayName="").status, 400)

    def test_takes_it_away(self):
        self.save(addCount="1")

        self.save(displayName="", clear="yes")

        self.assertIsNone(self.sent())
        self.assertIn("The tenant has no branding now.", self.page())

    def test_sees_a_photo_that_is_not_the_portals_own_by_its_digest(self):
        entry = {"sha256": "ab" * 32, "contentType": "image/jpeg", "width": 1, "height": 1, "credit": ""}
        self.change(self.terminal, branding={"displayName": "Tarn", "photos": [entry]})

        self.assertIn("abababab</label>", self.page())
        self.save(photos=["ab" * 32], addCount="1")
        self.assertEqual(self.sent_digests(), ["ab" * 32, DIGESTS[0]])
        self.assertEqual(self.page().count('<img src="data:image/png;base64,'), 1)


if __name__ == "__main__":
    unittest.main()
