"""A tenant's branding as somebody asks for it, made into what the terminal is sent.

What is left out is filled in, and "photos" may say how many of the portal's own there should be. admin_api.py and
forms.py call this before the rules of validate.py are applied; photos.py makes the pictures.
"""

import photos
from exchange import Refused
from validate import MAX_PHOTOS

# Not one that a terminal is sent, for want of a display name: what others start from.
EMPTY = {"displayName": "", "signInSubtitle": "", "photos": []}


def filled_in(portal, wish):
    """The branding for a wish; anything that is not an object, and photos given as an array, stay as they are. The
    portal keeps the photos it makes. Raises Refused.

    {"displayName":"Tarn","photos":3} has the first three; {"photos":{"count":4,"first":17,"size":16777216}} has four
    of 16 MiB; {"photos":17} is refused.
    """
    if not isinstance(wish, dict):
        return wish
    branding = {**EMPTY, **wish}
    if not isinstance(branding["photos"], list):
        branding["photos"] = _own_photos(portal, branding["photos"])
    return branding


def further_photos(portal, count, size, besides=(), first=1):
    """Entries for `count` photos of that size that are not in `besides`, an iterable of digests. Raises Refused."""
    _require_whole("count", count, 0, MAX_PHOTOS)
    _require_whole("first", first, 1, photos.MAX_NUMBER)
    if size != 0:
        _require_whole("size", size, photos.MIN_SIZE, photos.MAX_SIZE)
    made, number = [], first
    while len(made) < count and number <= photos.MAX_NUMBER:
        photo = photos.photo(number, size)
        if photo.sha256 not in besides:
            made.append(photo)
        number += 1
    portal.keep_photos(made)
    return [photos.entry_of(photo) for photo in made]


def photos_by_digest(branding):
    """The entries of a branding's photos, whatever it is: a test may have had any JSON sent."""
    entries = branding.get("photos") if isinstance(branding, dict) else None
    if not isinstance(entries, list):
        return {}
    return {entry["sha256"]: entry for entry in entries if isinstance(entry, dict) and _has_digest(entry)}


def _has_digest(entry):
    return isinstance(entry.get("sha256"), str)


def _own_photos(portal, wish):
    if not isinstance(wish, dict):
        wish = {"count": wish}
    for name in wish:
        if name not in ("count", "first", "size"):
            raise Refused(400, f"branding.photos does not take {name:.80}; it takes count, first, size")
    return further_photos(portal, wish.get("count"), wish.get("size", 0), first=wish.get("first", 1))


def _require_whole(name, value, least, most):
    if not isinstance(value, int) or isinstance(value, bool) or not least <= value <= most:
        raise Refused(400, f"{name} of branding.photos must be a whole number from {least} to {most}")
