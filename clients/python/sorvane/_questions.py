"""The questions to a name server and the reading of its replies. No input or output happens here."""

import re
from datetime import datetime, timedelta, timezone
from typing import Iterable, Mapping

from sorvane._frames import Entries, Reply, decode_entries, encode_request, text_of
from sorvane._steps import Ask, Steps, ask
from sorvane.entries import Entry, Here, HostInfo, Limits, Page, Place
from sorvane.errors import InvalidValue, ProtocolError, Refused, Unsupported

_NOT_LISTED = frozenset(("VN_nameserver", "VN_infoserver", "sorvexec"))
_EPOCH = datetime(2001, 1, 1, tzinfo=timezone.utc)
_BATCH_BYTES = 16 << 10

ENTRY_OVERHEAD = 1 << 10
"""About the memory that an entry takes besides its texts, in bytes."""


def _dictionary(reply: Reply) -> Entries:
    if reply is None:
        raise Refused("the name server does not carry out this request")
    return reply


def _result(reply: Reply) -> str:
    entries = _dictionary(reply)
    if not entries:
        raise Unsupported("the name server is of an earlier version, which lacks this request")
    result = text_of(entries, "result")
    if result is None:
        raise ProtocolError("a reply has no result")
    return result


def port_number(text: str | None) -> int:
    """The number of a port; 0 for a text that is none, since a database may register any."""
    if text is None or not re.fullmatch("[0-9]{1,5}", text) or int(text) > 65535:
        return 0
    return int(text)


def _instant(text: str | None) -> datetime | None:
    if text is None or not re.fullmatch(r"[0-9]{1,10}(\.[0-9]{1,6})?", text):
        return None
    return _EPOCH + timedelta(seconds=float(text))


def checked_name(name: str) -> str:
    """Returns the name of a database. Raises InvalidValue when there is none."""
    if not name:
        raise InvalidValue("a database has a name")
    return name


def ping() -> Steps[None]:
    _dictionary((yield from ask({"ping": ""})))


def _find_texts(here: Here, name: str) -> Mapping[str, str]:
    return {"findPort": name, "portHost": here.host, "portHostAddress": here.address}


def _found(name: str, reply: Reply) -> Entry | None:
    entries = _dictionary(reply)
    if "notFound" in entries:
        return None
    if "portNumber" not in entries:
        raise ProtocolError("a reply tells neither a number nor that the name is not registered")
    return Entry(
        name=name,
        number=port_number(text_of(entries, "portNumber")),
        host=text_of(entries, "portHost") or "",
        type=text_of(entries, "portType") or "",
    )


def find(here: Here, name: str) -> Steps[Entry | None]:
    return _found(name, (yield from ask(_find_texts(here, checked_name(name)))))


def _pairs(joined: str) -> dict[str, str]:
    """Reads "NAME:TEXT|NAME:TEXT". A piece without a colon belongs to the text before it."""
    pairs: dict[str, str] = {}
    last = None
    for piece in joined.split("|") if joined else ():
        name, colon, text = piece.partition(":")
        if colon:
            pairs[name] = text
            last = name
        elif last is not None:
            pairs[last] += "|" + piece
    return pairs


def _states_and_alerts() -> Steps[tuple[dict[str, str], dict[str, str]]]:
    reply = _dictionary((yield from ask({"action": "databaseStates"})))
    states = text_of(reply, "result")
    if states is None:
        raise ProtocolError("a reply has no result")
    return _pairs(states), _pairs(text_of(reply, "alerts") or "")


def states() -> Steps[dict[str, str]]:
    return (yield from _states_and_alerts())[0]


def alerts() -> Steps[dict[str, str]]:
    return (yield from _states_and_alerts())[1]


def _batches(here: Here, names: Iterable[str]) -> Iterable[list[tuple[str, bytes]]]:
    """Requests of so few bytes together that nobody has to read replies before all are sent."""
    batch: list[tuple[str, bytes]] = []
    size = 0
    for name in names:
        request = encode_request(_find_texts(here, name))
        if batch and size + len(request) > _BATCH_BYTES:
            yield batch
            batch, size = [], 0
        batch.append((name, request))
        size += len(request)
    if batch:
        yield batch


class Budget:
    """What may still be kept of what a name server tells."""

    def __init__(self, limits: Limits) -> None:
        self._limit = limits.picture_bytes
        self._left = limits.picture_bytes

    def spend(self, weight: int) -> None:
        """Takes bytes of it. Raises ProtocolError when there are none left."""
        self._left -= weight
        if self._left < 0:
            raise ProtocolError(f"the name server tells more than {self._limit} bytes of databases")


def all_one_by_one(here: Here, limits: Limits) -> Steps[dict[str, Entry]]:
    """All databases, of any name server: one question for the names, and one for each of them."""
    budget = Budget(limits)
    states, alerts = yield from _states_and_alerts()
    told: dict[str, Entry] = {}
    for batch in _batches(here, states):
        replies: list[Reply] = yield Ask([request for _, request in batch])
        for (name, _), reply in zip(batch, replies):
            entry = _found(name, reply)
            if entry is None:
                continue  # gone since, or what is before the colon is not the whole name
            state, alert = states[name], alerts.get(name, "")
            budget.spend(ENTRY_OVERHEAD + len(name) + len(entry.host) + len(entry.type) + len(state) + len(alert))
            told[name] = Entry(name, entry.number, entry.host, "", entry.type, state, alert)
    return told


def _row(row: bytes) -> tuple[str, Entry | None]:
    entries = decode_entries(row)
    name = text_of(entries, "name")
    if name is None:
        raise ProtocolError("a change has no name")
    if text_of(entries, "gone") == "YES":
        return name, None
    return name, Entry(
        name=name,
        number=port_number(text_of(entries, "portNumber")),
        host=text_of(entries, "portHost") or "",
        address=text_of(entries, "portHostAddress") or "",
        type=text_of(entries, "portType") or "",
        state=text_of(entries, "portStatus") or "",
        alert=text_of(entries, "alertStatus") or "",
        alert_time=_instant(text_of(entries, "alertStatusTimestamp")),
        left=text_of(entries, "left") == "YES",
    )


def _yes(entries: Entries, key: str) -> bool:
    text = text_of(entries, key)
    if text not in ("YES", "NO"):
        raise ProtocolError(f"{key!r} is neither YES nor NO")
    return text == "YES"


def changes(place: Place | None) -> Steps[Page]:
    """A page of what has changed since a place, or of everything. Raises Unsupported."""
    texts = {"action": "portChanges"}
    if place is not None:
        texts |= {"instance": place.instance, "since": place.since}
    reply = _dictionary((yield from ask(texts)))
    if not reply:
        raise Unsupported("the name server is of an earlier version, which does not tell what has changed")
    instance, sequence = text_of(reply, "instance"), text_of(reply, "sequence")
    if not instance or not sequence:
        raise ProtocolError("a reply does not tell up to where it goes")
    if len(instance) > 1024 or len(sequence) > 1024:
        raise ProtocolError("a reply tells up to where it goes at great length")
    page = Page(Place(instance, sequence), _yes(reply, "more"), _yes(reply, "restart"))
    rows = 0
    while (row := reply.get(str(rows))) is not None:
        name, entry = _row(row)
        rows += 1
        page.weight += len(row) + ENTRY_OVERHEAD
        if name not in _NOT_LISTED:
            page.entries[name] = entry
    if page.more and (rows == 0 or page.place == place):
        raise ProtocolError("a reply promises more, and tells nothing")
    if place is None and not page.restart:
        raise ProtocolError("a reply to who knows nothing does not begin anew")
    return page


def all_at_once(limits: Limits) -> Steps[dict[str, Entry]]:
    """All databases, of a name server that tells what has changed. Raises Unsupported."""
    place: Place | None = None
    told: dict[str, Entry] = {}
    budget = Budget(limits)
    while True:
        page = yield from changes(place)
        budget.spend(page.weight)
        if page.restart:
            told = {}
        for name, entry in page.entries.items():
            if entry is None:
                told.pop(name, None)
            else:
                told[name] = entry
        if not page.more:
            return told
        place = page.place


def list_databases(here: Here, limits: Limits) -> Steps[list[Entry]]:
    try:
        told = yield from all_at_once(limits)
    except Unsupported:
        told = yield from all_one_by_one(here, limits)
    return [told[name] for name in sorted(told)]


def _set(action: str, name: str, text: str) -> Steps[None]:
    reply = yield from ask({"action": action, "databaseName": checked_name(name), "state": text})
    if _result(reply) != "success":
        raise Refused(f"the name server did not take this for {name[:100]!r}")


def set_state(name: str, state: str) -> Steps[None]:
    return _set("setDatabaseState", name, state)


def set_alert(name: str, text: str) -> Steps[None]:
    return _set("setAlertState", name, text)


def host_info(here: Here) -> Steps[HostInfo]:
    result = _result((yield from ask({"action": "hostInfo", "hostAddress": here.address})))
    if result == "local only":
        raise Refused("the name server serves its own machine only")
    parts = result.split("|", 4)
    if len(parts) != 5:
        raise ProtocolError("a reply does not tell about the host")
    return HostInfo(*parts)


def forget(name: str) -> Steps[None]:
    if _result((yield from ask({"action": "forgetPort", "name": checked_name(name)}))) != "success":
        raise Refused(f"{name[:100]!r} is not a name that was left behind")


def new_number(name: str, host: str, type: str, address: str) -> Steps[int]:
    texts = {"newPort": "", "portName": name, "portHost": host, "portType": type}
    if address:
        texts["portHostAddress"] = address
    number = port_number(text_of(_dictionary((yield from ask(texts))), "portNumber"))
    if number == 0:
        raise ProtocolError("a reply has no port number")
    return number


def accept() -> Steps[None]:
    _dictionary((yield from ask({"acceptPort": ""})))


def reconnect(name: str, number: int, host: str, type: str, address: str) -> Steps[None]:
    texts = {"reconnectPort": name, "portNumber": str(number), "portHost": host, "portType": type}
    if address:
        texts["portHostAddress"] = address
    _dictionary((yield from ask(texts)))


def wait_for_change(seconds: int) -> Steps[bool]:
    """True when something has changed, False when nothing has for so long. Raises Unsupported."""
    reply = _dictionary((yield from ask({"action": "awaitPortChanges", "timeout": str(seconds)}, seconds)))
    result = text_of(reply, "result")
    if result not in ("YES", "NO"):
        raise Unsupported("the name server is of an earlier version, which does not wait for a change")
    return result == "YES"


def has_changed() -> Steps[bool]:
    return _result((yield from ask({"action": "didPortsChange"}))) == "YES"
