"""Frames: what goes over the wire. No input or output happens here."""

import struct
from typing import Final, Mapping, Optional

from sorvane.errors import InvalidValue, ProtocolError

REQUEST_BYTES: Final = 1 << 20
"""The longest body of a request that a name server takes as it is delivered."""

REPLY_BYTES: Final = 64 << 20
"""The longest body of a reply."""

REPLY_ENTRIES: Final = 1 << 16
"""The most entries of a reply. Small entries take far more memory here than on the wire."""

Entries = dict[str, bytes]
"""The entries of a dictionary, in their order."""

Reply = Optional[Entries]
"""A reply; None is "no dictionary"."""

_MARK = b"SV"
_VERSION = 1
_NO_DICTIONARY = 0
_DICTIONARY = 1
_header = struct.Struct(">2sBBI")
_lengths = struct.Struct(">HI")


def encode_text(text: str) -> bytes:
    """Returns a text as a value has it: UTF-8 and a NUL. Raises InvalidValue for a text that no value can have."""
    if "\0" in text:
        raise InvalidValue(f"a text has a NUL: {text[:100]!r}")
    try:
        return text.encode() + b"\0"
    except UnicodeEncodeError:
        raise InvalidValue(f"a text cannot be written as UTF-8: {text[:100]!r}") from None


def encode_request(texts: Mapping[str, str]) -> bytes:
    """Returns the frame of a request whose values are texts. Raises InvalidValue when no name server takes it."""
    body = bytearray()
    for key, text in texts.items():
        key_bytes = encode_text(key)[:-1]
        value = encode_text(text)
        if len(key_bytes) > 0xFFFF or len(body) + len(key_bytes) + len(value) > REQUEST_BYTES - _lengths.size:
            raise InvalidValue(f"the request is longer than {REQUEST_BYTES} bytes")
        body += _lengths.pack(len(key_bytes), len(value)) + key_bytes + value
    return _header.pack(_MARK, _VERSION, _DICTIONARY, len(body)) + bytes(body)


def decode_entries(body: bytes) -> Entries:
    """Returns the entries that fill a body, or a value that has the form of one. Raises ProtocolError."""
    entries: Entries = {}
    at = 0
    while at < len(body):
        if len(body) - at < _lengths.size:
            raise ProtocolError("an entry runs past the end")
        key_length, value_length = _lengths.unpack_from(body, at)
        key_end = at + _lengths.size + key_length
        end = key_end + value_length
        if end > len(body):
            raise ProtocolError("an entry runs past the end")
        try:
            key = body[at + _lengths.size : key_end].decode()
        except UnicodeDecodeError:
            raise ProtocolError("a key is not UTF-8") from None
        if "\0" in key:
            raise ProtocolError("a key has a NUL")
        if key in entries:
            raise ProtocolError(f"the key {key[:100]!r} is repeated")
        if len(entries) == REPLY_ENTRIES:
            raise ProtocolError(f"a reply has more than {REPLY_ENTRIES} entries")
        entries[key] = body[key_end:end]
        at = end
    return entries


def text_of(entries: Entries, key: str) -> str | None:
    """Returns the text under a key, or None when there is no such key. Raises ProtocolError when it is not UTF-8."""
    value = entries.get(key)
    if value is None:
        return None
    try:
        return value.partition(b"\0")[0].decode()
    except UnicodeDecodeError:
        raise ProtocolError(f"the value of {key[:100]!r} is not UTF-8") from None


class FrameReader:
    """Makes replies of the bytes of a connection. Holds no more than what is said to come, and 64 MiB at most."""

    def __init__(self) -> None:
        self._bytes = bytearray()

    @property
    def between_frames(self) -> bool:
        """True when nothing of a next reply has come."""
        return not self._bytes

    def feed(self, data: bytes) -> list[Reply]:
        """Takes bytes as they come, and returns the replies that they complete. After ProtocolError, no more."""
        self._bytes += data
        replies: list[Reply] = []
        at = 0
        while len(self._bytes) - at >= _header.size:
            mark, version, kind, length = _header.unpack_from(self._bytes, at)
            if mark != _MARK or version != _VERSION or kind not in (_NO_DICTIONARY, _DICTIONARY):
                raise ProtocolError("a frame begins as no reply does")
            if kind == _NO_DICTIONARY and length != 0:
                raise ProtocolError("a frame without a dictionary has a body")
            if length > REPLY_BYTES:
                raise ProtocolError(f"a reply of {length} bytes is longer than {REPLY_BYTES}")
            end = at + _header.size + length
            if len(self._bytes) < end:
                break
            body = bytes(self._bytes[at + _header.size : end])
            replies.append(decode_entries(body) if kind == _DICTIONARY else None)
            at = end
        del self._bytes[:at]
        return replies
