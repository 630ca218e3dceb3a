"""How cases write bytes, and what they expect of a reply. README.md describes the words."""

import re
from typing import Any

from . import frames
from .frames import Entries

_VARIABLE = re.compile(r"\$\{([A-Za-z][A-Za-z0-9 ]*)([+-][0-9]+)?\}")


class Mismatch(Exception):
    """What came is not what the case expects."""


def filled(words: Any, variables: dict[str, str]) -> Any:
    """The words with ${name} and ${name+1} replaced in all texts. A variable without a value yet stays."""
    if isinstance(words, str):
        return _VARIABLE.sub(lambda match: _value(match, variables), words)
    if isinstance(words, list):
        return [filled(each, variables) for each in words]
    if isinstance(words, dict):
        return {key: filled(each, variables) for key, each in words.items()}
    return words


def _value(match: re.Match, variables: dict[str, str]) -> str:
    value = variables.get(match[1])
    if value is None:
        return match[0]
    return str(int(value) + int(match[2])) if match[2] else value


def value_bytes(words: Any) -> bytes:
    """The bytes of a key (without a NUL) or of a value, other than a plain text."""
    if "hex" in words:
        return bytes.fromhex(words["hex"])
    if "plain" in words:
        return words["plain"].encode()
    return words["repeat"].encode() * words["times"] + bytes.fromhex(words.get("then", ""))


def key_of(words: Any) -> bytes:
    return words.encode() if isinstance(words, str) else value_bytes(words)


def value_of(words: Any) -> bytes:
    return frames.text(words) if isinstance(words, str) else value_bytes(words)


def entries(words: list) -> Entries:
    return [(key_of(key), value_of(value)) for key, value in words]


def pieces(words: list) -> bytes:
    """Bytes that are written piece by piece: hexadecimal digits, entries, bodies and whole frames."""
    return b"".join(_piece(each) for each in words)


def _piece(words: Any) -> bytes:
    if isinstance(words, str):
        return bytes.fromhex(words)
    if "frame" in words:
        made = frames.frame(None if words["frame"] == "none" else entries(words["frame"]))
        return made * words.get("times", 1)
    if "body" in words:
        return frames.frame_of_body(pieces(words["body"]))
    if "entry" in words:
        return frames.entry(key_of(words["entry"][0]), value_of(words["entry"][1]))
    return value_bytes(words)


def check_value(key: str, value: bytes, words: Any, variables: dict[str, str]) -> None:
    """Raises Mismatch unless the value is what the words say. Keeps it in a variable where they ask for that."""
    words = filled(words, variables)  # with what an earlier value of this reply was
    if isinstance(words, str):
        if value != frames.text(words):
            raise Mismatch(f"{key}: expected {words!r}, got {frames.shown_value(value)}")
        return
    if "hex" in words:
        if value != bytes.fromhex(words["hex"]):
            raise Mismatch(f"{key}: expected {words['hex']}, got {frames.shown_value(value)}")
        return
    if value[-1:] != b"\0" or b"\0" in value[:-1]:
        raise Mismatch(f"{key}: expected a text with one NUL at its end, got {frames.shown_value(value)}")
    try:
        got = value[:-1].decode()
    except UnicodeDecodeError:
        raise Mismatch(f"{key}: expected UTF-8, got {frames.shown_value(value)}") from None
    _check_text(key, got, words, variables)
    if "keep" in words:
        variables[words["keep"]] = got


def _check_text(key: str, got: str, words: dict, variables: dict[str, str]) -> None:
    shown = repr(got if len(got) <= 300 else got[:300] + "...")
    if "matches" in words and not re.fullmatch(words["matches"], got):
        raise Mismatch(f"{key}: expected a text like {words['matches']}, got {shown}")
    if "one of" in words and got not in words["one of"]:
        raise Mismatch(f"{key}: expected one of {words['one of']}, got {shown}")
    if "above" in words and not (re.fullmatch("[0-9]+([.][0-9]+)?", got) and float(got) > float(words["above"])):
        raise Mismatch(f"{key}: expected a number above {words['above']}, got {shown}")
    if "parts" in words:
        parts = got.split("|") if got else []
        _check_parts(key, parts, words["parts"])
        variables.update(zip(words["parts"].get("keep", []), parts))


def _check_parts(key: str, parts: list[str], words: dict) -> None:
    if "exactly" in words and sorted(parts) != sorted(words["exactly"]):
        raise Mismatch(f"{key}: expected the parts {words['exactly']}, got {parts}")
    for each in words.get("has", []):
        if parts.count(each) != 1:
            raise Mismatch(f"{key}: expected the part {each!r} once, got {parts}")
    for each in words.get("lacks", []):
        if any(part == each or part.startswith(each + ":") for part in parts):
            raise Mismatch(f"{key}: expected no part {each!r}, got {parts}")
    if "count" in words and len(parts) != words["count"]:
        raise Mismatch(f"{key}: expected {words['count']} parts, got {parts}")


def check_entries(got: Entries, expected: list, variables: dict[str, str]) -> None:
    """These entries in this order, and no other."""
    names = [key.decode() for key, _ in got]
    wanted = [key_of(key).decode() for key, _ in expected]
    if names != wanted:
        raise Mismatch(f"expected the keys {wanted}, got {frames.shown(got)}")
    for (_, value), (key, words) in zip(got, expected):
        check_value(str(key), value, words, variables)


def check_reply(got: Entries | None, raw: bytes, words: Any, variables: dict[str, str]) -> None:
    """Raises Mismatch unless the reply is what the words say."""
    if words == "none":
        if got is not None:
            raise Mismatch(f"expected no dictionary, got {frames.shown(got)}")
        return
    if isinstance(words, dict) and "bytes" in words:
        if raw != pieces(words["bytes"]):
            raise Mismatch(f"expected the bytes {pieces(words['bytes']).hex(' ')}, got {raw.hex(' ')}")
        return
    if got is None:
        raise Mismatch("expected a dictionary, got no dictionary")
    if isinstance(words, list):
        check_entries(got, words, variables)
        return
    if "changes" in words:
        _check_changes(got, words["changes"], variables)
        return
    values = dict(got)
    for key, check in words.get("has", []):
        if key_of(key) not in values:
            raise Mismatch(f"expected the key {key!r}, got {frames.shown(got)}")
        check_value(str(key), values[key_of(key)], check, variables)
    for key in words.get("lacks", []):
        if key_of(key) in values:
            raise Mismatch(f"expected no key {key!r}, got {frames.shown(got)}")


def _check_changes(got: Entries, words: dict, variables: dict[str, str]) -> None:
    head = ["instance", "sequence", "more", "restart"]
    if [key.decode() for key, _ in got[:4]] != head:
        raise Mismatch(f"expected to begin with the keys {head}, got {frames.shown(got)}")
    checks = {"sequence": {"matches": "[0-9]{1,64}"}, "instance": {"matches": ".+"}}
    for key, value in got[:4]:
        name = key.decode()
        check_value(name, value, checks.get(name, {"one of": ["YES", "NO"]}), variables)
        if name in words:
            check_value(name, value, words[name], variables)
    rows = []
    for place, (key, value) in enumerate(got[4:]):
        if key.decode() != str(place):
            raise Mismatch(f"expected the place {place}, got the key {key.decode()!r}")
        try:
            rows.append(frames.entries_of(value))
        except frames.BadFrame as bad:
            raise Mismatch(f"row {place}: {bad}") from None
        if [key for key, _ in rows[-1][:1]] != [b"name"]:
            raise Mismatch(f"row {place}: expected to begin with a name, got {frames.shown(rows[-1])}")
    _check_rows(rows, words, variables)


def _name(row: Entries) -> bytes:
    return row[0][1]


def _check_rows(rows: list[Entries], words: dict, variables: dict[str, str]) -> None:
    if "count" in words and len(rows) != words["count"]:
        raise Mismatch(f"expected {words['count']} rows, got {[frames.shown(row) for row in rows]}")
    if "at most" in words and len(rows) > words["at most"]:
        raise Mismatch(f"expected {words['at most']} rows at most, got {len(rows)}")
    for name in words.get("lacks", []):
        if any(_name(row) == frames.text(name) for row in rows):
            raise Mismatch(f"expected no row of {name!r}, got {[frames.shown(row) for row in rows]}")
    for expected in words.get("holds", []):
        found = [row for row in rows if _name(row) == frames.text(expected[0][1])]
        _check_rows(found, {"rows": [expected]}, variables)
    wanted = words.get("rows", words.get("among", []))
    if "among" in words:
        names = {frames.text(row[0][1]) for row in wanted}
        rows = [row for row in rows if _name(row) in names]
    if ("rows" in words or "among" in words) and len(rows) != len(wanted):
        raise Mismatch(f"expected {len(wanted)} rows {[row[0][1] for row in wanted]}, got "
                       f"{[frames.shown(row) for row in rows]}")
    for row, expected in zip(rows, wanted):
        try:
            check_entries(row, expected, variables)
        except Mismatch as mismatch:
            raise Mismatch(f"row of {expected[0][1]!r}: {mismatch}") from None
