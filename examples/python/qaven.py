"""libqaven for Python: its entry points, and what the texts in their answers consist of.

The loader finds the library by its usual ways: installed, or in a folder of LD_LIBRARY_PATH.
"""
import atexit
import ctypes
import json

RESMSG_SIZE, ERRMSG_SIZE = 32768, 19  # as in qaven.h: the library never writes more

CARD_FIELDS = {
    "A": "card number", "B": "cardholder name", "C": "ID type", "D": "ID number",
    "E": "track 2 equivalent data", "F": "track 1 discretionary data", "G": "cash balance",
    "H": "cash balance limit", "I": "expiry date", "J": "PAN sequence number",
    "K": "single payment limit", "L": "issuer's data", "M": "issuer's data", "N": "issuer's data",
    "O": "issuer's data",
}

library = ctypes.CDLL("libqaven.so.0")
library.initDriver()
atexit.register(library.deinit)


class Failure(Exception):
    """A call that did not give 0: its result, and the library's own words."""


def call(function, **request):
    """Calls an entry point with a JSON object and gives the JSON object that it answers with."""
    resmsg = ctypes.create_string_buffer(RESMSG_SIZE)
    errmsg = ctypes.create_string_buffer(ERRMSG_SIZE)
    code = library[function](json.dumps(request).encode(), resmsg, errmsg, 0, 0)
    if code != 0:
        raise Failure(f"{function}: {code} {errmsg.value.decode('gbk', 'replace')}")
    # Texts of a card may be GBK and their lengths count bytes: here, a character is a byte.
    return json.loads(resmsg.value.decode("latin-1"))


def length(characters):
    """Each character is worth its code minus 48: the length of track 2 may be "02/", which is 19."""
    hundreds, tens, ones = (ord(character) - 48 for character in characters)
    return 100 * hundreds + 10 * tens + ones


def fields(text):
    """The fields of a text that repeats: letter, three-digit length, value."""
    while len(text) >= 4:
        end = 4 + length(text[1:4])
        yield text[0], text[4:end].encode("latin-1").decode("gbk", "replace").strip()
        text = text[end:]


def log_entries(text):
    """A transaction log, the newest entry first, amounts with decimals; None if it is no log."""
    if len(text) < 2:
        return None
    entries = []
    for letter, value in fields(text[2:]):  # behind two bytes that count
        if letter == "P":
            entries.append({})
        entries[-1][letter] = f"{int(value) / 100:.2f}" if letter in "PQ" else value
    return entries


def data_object(objects, tag):
    """The value of a tag in a hex text that repeats: tag, length, value."""
    while objects:
        start = 6 if int(objects[:2], 16) & 0x1F == 0x1F else 4  # a tag of two bytes, or of one
        end = start + 2 * int(objects[start - 2:start], 16)
        if objects[:start - 2] == tag:
            return objects[start:end]
        objects = objects[end:]
    return ""
