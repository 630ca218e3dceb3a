"""The frames of the protocol, as docs/protocol.md describes them."""

import struct
from collections.abc import Callable

HEADER = struct.Struct(">2sBBI")
ENTRY = struct.Struct(">HI")
MOST_REPLY_BYTES = 64 << 20
MOST_REQUEST_BYTES = 1 << 20

Entries = list[tuple[bytes, bytes]]


class BadFrame(Exception):
    """Bytes that are no frame, with the reason."""


def text(value: str) -> bytes:
    """The bytes of a text: UTF-8 and one NUL."""
    return value.encode() + b"\0"


def text_of(value: bytes) -> str:
    """The text of a value: what stands before the first NUL. Raises UnicodeDecodeError for what is not UTF-8."""
    return value.split(b"\0", 1)[0].decode()


def entry(key: bytes, value: bytes) -> bytes:
    return ENTRY.pack(len(key), len(value)) + key + value


def body(entries: Entries) -> bytes:
    return b"".join(entry(key, value) for key, value in entries)


def frame_of_body(content: bytes) -> bytes:
    return HEADER.pack(b"SV", 1, 1, len(content)) + content


def frame(entries: Entries | None) -> bytes:
    """A whole frame; None is "no dictionary"."""
    return HEADER.pack(b"SV", 1, 0, 0) if entries is None else frame_of_body(body(entries))


def strict(_fault: str) -> bool:
    """Lets no fault pass."""
    return False


def entries_of(content: bytes, lax: Callable[[str], bool] = strict) -> Entries:
    """The entries of a body. Raises BadFrame, unless `lax` lets the fault pass."""
    found: Entries = []
    keys = set()
    at = 0
    while at < len(content):
        if len(content) - at < ENTRY.size:
            if lax("an entry past the body is taken"):
                break
            raise BadFrame("an entry runs past the body")
        key_bytes, value_bytes = ENTRY.unpack_from(content, at)
        at += ENTRY.size
        if len(content) - at < key_bytes + value_bytes:
            if lax("an entry past the body is taken"):
                break
            raise BadFrame("an entry runs past the body")
        key = content[at : at + key_bytes]
        at += key_bytes + value_bytes
        try:
            key.decode()
        except UnicodeDecodeError:
            if not lax("a key that is not UTF-8 is taken"):
                raise BadFrame("a key is not UTF-8") from None
        if b"\0" in key and not lax("a key with a NUL is taken"):
            raise BadFrame("a key contains a NUL")
        if key in keys and not lax("a repeated key is taken"):
            raise BadFrame(f"the key {key.decode()!r} is repeated")
        keys.add(key)
        found.append((key, content[at - value_bytes : at]))
    return found


def take_frame(buffer: bytearray, most_bytes: int, is_reply: bool,
               lax: Callable[[str], bool] = strict) -> tuple[bool, Entries | None, bytes]:
    """Takes a frame from the front of the buffer.

    Returns whether there was a whole one, its entries (None: no dictionary) and its bytes. Raises BadFrame as soon as
    the bytes tell that the frame is bad, unless `lax` lets the fault pass.
    """
    kinds = b"\0\1" if is_reply else b"\1"
    rules = (("mark", b"S"), ("mark", b"V"), ("version", b"\1"), ("kind", kinds))
    for at, (what, allowed) in enumerate(rules):
        if len(buffer) > at and buffer[at] not in allowed and not lax(f"another {what} is taken"):
            raise BadFrame(f"the {what} is wrong: byte {at} is {buffer[at]:02x}")
    if len(buffer) < HEADER.size:
        return False, None, b""
    kind, length = buffer[3], HEADER.unpack_from(buffer)[3]
    if kind == 0 and length != 0:
        raise BadFrame("no dictionary, and yet a body")
    if length > most_bytes and not lax("a body above the limit is taken"):
        raise BadFrame(f"a body of {length} bytes")
    whole = HEADER.size + length
    if len(buffer) < whole:
        return False, None, b""
    content = bytes(buffer[:whole])
    del buffer[:whole]
    return True, entries_of(content[HEADER.size :], lax) if kind != 0 else None, content


def shown(entries: Entries | None) -> str:
    """A reply or a request for people."""
    if entries is None:
        return "no dictionary"
    return "{" + ", ".join(f"{key.decode(errors='replace')}: {shown_value(value)}" for key, value in entries[:30]) + "}"


def shown_value(value: bytes) -> str:
    if value.endswith(b"\0") and b"\0" not in value[:-1] and len(value) <= 200:
        try:
            return repr(value[:-1].decode())
        except UnicodeDecodeError:
            pass
    return f"{value[:60].hex(' ')}{' ...' if len(value) > 60 else ''} ({len(value)} bytes)"
