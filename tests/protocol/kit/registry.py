"""A name server's registry and commands, written for the tests of the kit: correct, and wrong on request.

Each fault has a name, which stands where the fault is. test_kit turns each of them on and expects that a case finds it.
"""

import re
import time
from dataclasses import dataclass, field

from . import frames
from .frames import Entries

EPOCH_2001 = 978307200
OWN_NAMES = ("VN_nameserver", "VN_infoserver")
SETTINGS = ("changePreferences", "startDatabases", "loginDisplay", "databases")
VERSION = "1.0.0 (build #1) 11.20.2026"
PLATFORM = "reference"
ETHERNET = "02:00:00:00:00:01"
BEGUN, PROCESS = "817000000.000000", "4711"
HOST_INFO = ("testhost", ETHERNET, "192.0.2.10", VERSION, PLATFORM)

class Refused(Exception):
    """The reply is "no dictionary"."""


class Ends(Exception):
    """The server ends."""


class Faults:
    """The faults that are turned on."""

    def __init__(self, *names: str):
        self.names = set(names)

    def __call__(self, name: str) -> bool:
        return name in self.names


@dataclass(eq=False)
class Record:
    """What one connection has registered."""

    name: str | None = None
    number: str = ""
    host: str | None = None
    address: str | None = None
    type: str | None = None
    status: str | None = None
    alert: str | None = None
    alert_time: float = 0
    alive: bool = True
    watches: bool = False
    dirty: bool = False


@dataclass
class Registry:
    """Names, changes and preferences. One connection's requests come with that connection's record."""

    base: int
    fault: Faults
    local_only: bool = False
    ports: dict[str, Record] = field(default_factory=dict)
    changes: dict[str, int] = field(default_factory=dict)  # by name, in the order of the last change
    records: list[Record] = field(default_factory=list)
    preferences: dict[str, dict[str, str]] = field(default_factory=dict)
    key_setting: str | None = None
    forgotten: int = 0  # the sequence of the newest removal that is no longer remembered

    def __post_init__(self) -> None:
        self.instance = f"{time.time_ns():032x}"
        self.sequence = 0
        self.next_number = self.base + 1
        self.refresh = 0
        self.stamp = time.time()
        for name in OWN_NAMES:
            self.ports[name] = Record(name=name, number=str(self.base), host="testhost", address="192.0.2.10")
            self._changed(name)

    # ---- What the connections tell

    def opened(self) -> Record:
        record = Record()
        self.records.append(record)
        return record

    def closed(self, record: Record) -> None:
        record.alive = False
        self.records.remove(record)
        if self.fault("the end of a connection keeps its name"):
            return
        if record.name is not None:
            owner = self.ports.get(record.name)
            if owner is not record and self.fault("the end of a connection spares a name registered since"):
                return
            if record.name in self.ports:
                self._remove(record.name)
        for name, each in list(self.ports.items()):
            if each is record:
                if self.fault("names of an earlier reconnectPort go with the connection"):
                    self._remove(name)
                else:
                    self._changed(name)
        self.mark("the end of a connection marks nobody")

    def _remove(self, name: str) -> None:
        del self.ports[name]
        self._changed(name)
        if len([name for name in self.changes if name not in self.ports]) > 65536:
            gone = next(name for name in self.changes if name not in self.ports)
            self.forgotten = self.changes.pop(gone)

    def _changed(self, name: str) -> None:
        if name in self.changes and self.fault("a later change of a name is not told"):
            return
        self.changes.pop(name, None)
        self.sequence += 1
        self.changes[name] = self.sequence

    def mark(self, fault: str) -> None:
        """Marks all watchers."""
        if self.fault(fault):
            return
        if not self.fault("no change moves the time of the last change"):
            self.stamp = time.time()
        for record in self.records:
            record.dirty = record.watches

    # ---- Requests

    def reply(self, record: Record, request: Entries) -> Entries | None:
        """The reply; None is "no dictionary". Raises Ends. Waiting for a change is left to the server."""
        try:
            return self._command(dict(request), request)(record, dict(request), request)
        except Refused:
            return None

    def command_of(self, request: Entries) -> str:
        """The name of the request's command: a key, an action in its own letters, or nothing."""
        values = dict(request)
        rows = self._rows()
        if self.fault("acceptPort comes before findPort"):
            rows.insert(1, rows.pop(3))
        if self.fault("an action comes before the keys"):
            rows.sort(key=lambda row: isinstance(row, tuple))
        if self.fault("newPort comes before restart"):
            rows.insert(4, rows.pop(6))
        for row in rows:
            if isinstance(row, tuple) and all(key.encode() in values for key in row):
                return row[0]
            if isinstance(row, str) and self._is_action(values.get(b"action", b""), row):
                return row
        return ""

    def _rows(self) -> list:
        new_port = ("newPort", "portHost", "portName", "portType")
        if self.fault("newPort is recognised by its key alone"):
            new_port = ("newPort",)
        rows = [("ping",), ("reconnectPort",), ("findPort",), ("acceptPort",), ("terminate",), "restart", new_port,
                "needsRefresh", "setAlertState", "setDatabaseState", "databaseStates", "watchPortChanges",
                "didPortsChange", "changeTimestamp", "sorvexecConnectHost", "hostInfo", "hostList", "awaitPortChanges",
                "portChanges", "forgetPort", "continuity", "get_userpreferences_key", "set_userpreferences_key",
                "set_userpreferences", "get_userpreferences"]
        if self.fault("the action terminate is a command"):
            rows.insert(6, "terminate")
        return rows

    def _is_action(self, value: bytes, action: str) -> bool:
        if not self.fault("an action is taken beyond its NUL"):
            value = value.split(b"\0", 1)[0]
        else:
            value = value.rstrip(b"\0")
        if self.fault("the case of an action counts"):
            return value == action.encode()
        if self.fault("an action is recognised by its beginning"):
            return value.lower().startswith(action.lower().encode())
        return value.lower() == action.lower().encode()

    def _command(self, values: dict[bytes, bytes], request: Entries):
        name = self.command_of(request)
        return getattr(self, "_do_" + name, self._unknown) if name else self._unknown

    def _unknown(self, record: Record, values: dict, request: Entries) -> Entries | None:
        return None if self.fault("an unknown request has no dictionary") else []

    def _text(self, values: dict[bytes, bytes], key: str) -> str:
        value = values.get(key.encode())
        if value is None:
            raise Refused
        return self._text_of(value)

    def _text_of(self, value: bytes) -> str:
        if not value and not self.fault("a value without bytes is the empty text"):
            raise Refused
        if b"\0" not in value and self.fault("a text without a NUL loses its last byte"):
            value = value[:-1]
        if self.fault("a text goes beyond its NUL"):
            value = value.removesuffix(b"\0").replace(b"\0", b"?")
        try:
            return frames.text_of(value)
        except UnicodeDecodeError:
            if self.fault("a text need not be UTF-8"):
                return "?"
            raise Refused from None

    def _optional(self, values: dict[bytes, bytes], key: str) -> str | None:
        return self._text(values, key) if key.encode() in values else None

    @staticmethod
    def _texts(*pairs: tuple[str, str | None]) -> Entries:
        return [(key.encode(), frames.text(value)) for key, value in pairs if value is not None]

    # ---- Registering and finding

    def _do_ping(self, record: Record, values: dict, request: Entries) -> Entries:
        return request if self.fault("a ping is sent back") else []

    def _do_newPort(self, record: Record, values: dict, request: Entries) -> Entries:
        host, name = self._text(values, "portHost"), self._text(values, "portName")
        if self.fault("newPort needs no type that is a text"):
            values = {**values, b"portType": b"\0"}
        kind = self._text(values, "portType")
        address = self._optional(values, "portHostAddress")
        launcher = name == "sorvexec" if self.fault("sorvexec in capitals gets a number like others") else (
            name.lower() == "sorvexec")
        if launcher:
            number = self.base - (0 if self.fault("sorvexec gets the base port") else 1)
        else:
            number = self.next_number
            if not self.fault("a number is given out twice"):
                self.next_number += 1
        if not self.fault("newPort keeps what was registered before"):
            if record.name is not None and self.ports.get(record.name) is record:
                self._remove(record.name)
        watches, dirty = record.watches, record.dirty
        fresh = Record(name, str(number), host, address or record.address, kind, watches=watches, dirty=dirty)
        record.__dict__.update(fresh.__dict__)
        if self.fault("a name is found before acceptPort"):
            self.ports[name] = record
        return self._texts(("portNumber", f"{number}.0" if self.fault("a number is not decimal") else str(number)))

    def _do_acceptPort(self, record: Record, values: dict, request: Entries) -> Entries:
        if record.name is None:
            if self.fault("acceptPort without newPort has a reply"):
                return request
            raise Refused
        self._enter(record.name, record)
        self.mark("acceptPort marks nobody")
        if self.fault("acceptPort sorts the reply"):
            return sorted(request)
        return [(b"acceptPort", b"\0")] if self.fault("acceptPort replies with its own key alone") else request

    def _enter(self, name: str, record: Record) -> None:
        if name in self.ports and self.fault("a registered name is not replaced"):
            return
        self.ports[name.lower() if self.fault("the case of a name does not count") else name] = record
        self._changed(name)

    def _do_reconnectPort(self, record: Record, values: dict, request: Entries) -> Entries:
        name, host = self._text(values, "reconnectPort"), self._text(values, "portHost")
        number, kind = self._text(values, "portNumber"), self._text(values, "portType")
        address = self._optional(values, "portHostAddress")
        if record.name not in (None, name) and self.fault("reconnectPort takes out the name before"):
            self._remove(record.name)
        record.name, record.number, record.host, record.type = name, number, host, kind
        record.address = address or record.address
        for each, owner in list(self.ports.items()):
            if owner is record and each != name:
                self._changed(each)
        self._enter(name, record)
        self.mark("reconnectPort marks nobody")
        return [] if self.fault("reconnectPort has an empty reply") else request

    def _do_findPort(self, record: Record, values: dict, request: Entries) -> Entries:
        name = self._text(values, "findPort")
        host = (values.get(b"portHost") or b"\0").decode() if self.fault("findPort needs no host") else (
            self._text(values, "portHost"))
        given = self._optional(values, "portHostAddress")
        address = host if given is None else given
        if self.local_only and address not in ("localhost", "127.0.0.1"):
            if not self.fault("a server for its own machine serves others"):
                raise Refused
        found = self.ports.get(name.lower() if self.fault("the case of a name does not count") else name)
        if found is None:
            return self._texts(("notFound", "" if self.fault("notFound has another text") else "notFound"))
        if self.fault("findPort tells the registered address"):
            address = found.address or ""
        if given is None and self.fault("findPort without an address tells none"):
            address = None
        return self._texts(("portNumber", found.number), ("portName", found.name), ("portHostAddress", address),
                           ("portHost", found.host), ("portType", found.type))

    def _do_forgetPort(self, record: Record, values: dict, request: Entries) -> Entries:
        name = self._text(values, "name")
        found = self.ports.get(name)
        if found is None:
            return self._result("success" if self.fault("forgetPort of nothing succeeds") else "failed")
        if found.alive and name not in OWN_NAMES and not self.fault("forgetPort takes out a living name"):
            return self._result("failed")
        if name in OWN_NAMES and not self.fault("forgetPort takes out the server's own names"):
            return self._result("failed")
        if not self.fault("forgetPort takes out nothing"):
            self._remove(name)
        self.mark("forgetPort marks nobody")
        return self._result("success")

    def _result(self, text: str) -> Entries:
        return self._texts(("result", text))

    # ---- Watching

    def _do_watchPortChanges(self, record: Record, values: dict, request: Entries) -> Entries:
        record.watches = True
        record.dirty = True
        return self._result("success" if self.fault("watchPortChanges replies with success") else "succeed")

    def ask_change(self, record: Record) -> bool:
        """Makes the connection a watcher, and takes its mark."""
        if not record.watches:
            record.watches = True
            record.dirty = not self.fault("the first didPortsChange gets NO")
        changed = record.dirty
        if not self.fault("a mark is not cleared"):
            record.dirty = False
        return changed

    def _do_didPortsChange(self, record: Record, values: dict, request: Entries) -> Entries:
        return self._result("YES" if self.ask_change(record) else "NO")

    def _do_awaitPortChanges(self, record: Record, values: dict, request: Entries) -> Entries:
        return self._result("YES" if self.ask_change(record) else "NO")

    def seconds_to_wait(self, request: Entries) -> float:
        """How long awaitPortChanges may be held."""
        value = dict(request).get(b"timeout", b"").split(b"\0", 1)[0]
        seconds = int(value) if re.fullmatch(b"[0-9]{1,6}", value) else 301
        if seconds > 300:
            return 0 if self.fault("a timeout out of range counts as 0") else 30
        return seconds

    def _do_needsRefresh(self, record: Record, values: dict, request: Entries) -> Entries:
        force = (values.get(b"force") or b"").split(b"\0", 1)[0]
        if force.lower() == b"yes" and not self.fault("force is not looked at"):
            if force == b"YES" or not self.fault("the case of force counts"):
                self.refresh = self.refresh % 10000 + 1
        elif self.fault("every needsRefresh counts as forced"):
            self.refresh += 1
        self.mark("needsRefresh marks nobody")
        return self._result("success")

    def _do_changeTimestamp(self, record: Record, values: dict, request: Entries) -> Entries:
        since_1970 = self.stamp - (0 if self.fault("times count from 1970") else EPOCH_2001)
        digits = 3 if self.fault("a time has three decimals") else 6
        refresh = str(self.refresh) if self.refresh or self.fault("the refresh number begins with 0") else None
        return self._result(f"{since_1970:.{digits}f}") + self._texts(("force_refresh", refresh))

    # ---- States and alerts

    def _set(self, record: Record, values: dict, attribute: str) -> Entries:
        if b"databaseName" not in values or b"state" not in values:
            if self.fault("a state without its key succeeds"):
                return self._result("success")
            return self._result("failed")
        text, name = self._text(values, "state"), self._text(values, "databaseName")
        found = self.ports.get(name)
        if found is None:
            if self.fault("a state of an unknown name fails"):
                return self._result("failed")
        else:
            if self.fault("an alert is taken for a state"):
                attribute = "status"
            setattr(found, attribute, text)
            found.alert_time = time.time()
            for each, owner in list(self.ports.items()):
                if owner is found and not self.fault("a state is not told as a change"):
                    self._changed(each)
        self.mark("a state marks nobody")
        return self._result("success")

    def _do_setDatabaseState(self, record: Record, values: dict, request: Entries) -> Entries:
        return self._set(record, values, "status")

    def _do_setAlertState(self, record: Record, values: dict, request: Entries) -> Entries:
        return self._set(record, values, "alert")

    def _do_databaseStates(self, record: Record, values: dict, request: Entries) -> Entries:
        states, alerts = [], []
        for name, each in self.ports.items():
            if name in OWN_NAMES and not self.fault("the lists tell the server's own names"):
                continue
            if name.lower() == "sorvexec" and not self.fault("the lists tell sorvexec"):
                continue
            running = "" if self.fault("a state that was not reported is empty") else "running"
            states.append(f"{name}:{running if each.status is None else each.status}")
            if each.alert is not None:
                alerts.append(f"{name}:{each.alert}")
        bar = "," if self.fault("the lists are joined by commas") else "|"
        if self.fault("the lists have different orders"):
            alerts.reverse()
        return self._texts(("result", bar.join(states)), ("alerts", bar.join(alerts)))

    # ---- Hosts, and the end

    def _do_hostInfo(self, record: Record, values: dict, request: Entries) -> Entries:
        address = self._optional(values, "hostAddress")
        if self.local_only and address not in ("localhost", "127.0.0.1"):
            if not self.fault("a server for its own machine tells about itself"):
                return self._result("local only")
        parts = HOST_INFO[:4] if self.fault("hostInfo has four parts") else HOST_INFO
        return self._result("|".join(parts))

    def _do_hostList(self, record: Record, values: dict, request: Entries) -> Entries:
        return self._result("a host" if self.fault("a host has no address") else "")

    def _do_sorvexecConnectHost(self, record: Record, values: dict, request: Entries) -> Entries | None:
        if b"hostName" not in values or b"portHostAddress" not in values:
            if self.fault("a launcher without a name fails"):
                return self._result("failed")
            raise Refused
        if b"ethernetAddress" not in values:
            return self._result("failed")
        self._text(values, "hostName"), self._text(values, "portHostAddress")
        same = self._text(values, "ethernetAddress") == ETHERNET
        return self._result("connected" if same or self.fault("every launcher is connected") else "failed")

    def _do_continuity(self, record: Record, values: dict, request: Entries) -> Entries:
        if self.fault("continuity clears the mark"):
            record.dirty = False
        if self.fault("continuity makes a watcher"):
            record.watches = True
        if self.fault("continuity is a change"):
            self.mark("")
        instance = "0" * 32 if self.fault("continuity tells another instance") else self.instance
        count = "1" if self.fault("the counts of a run do not begin with 0") else "0"
        count = "" if self.fault("a count is no number") else count
        refused = "" if not self.fault("a refusal is told that there was not") else "no"
        told = self._texts(("instance", instance), ("upgrades", count), ("crashes", count), ("attempts", count),
                           ("refused", None if self.fault("continuity tells no refusal") else refused),
                           ("begun", BEGUN if not self.fault("a program begins without a time") else ""),
                           ("process", PROCESS if not self.fault("a process has no number") else ""))
        return self._result("success" if self.fault("continuity replies with success") else "succeed") + told

    def _do_terminate(self, record: Record, values: dict, request: Entries) -> Entries:
        if self.fault("terminate has a reply and no effect"):
            return []
        raise Ends

    def _do_restart(self, record: Record, values: dict, request: Entries) -> Entries:
        if self.fault("restart has a reply and no effect"):
            return []
        raise Ends

    # ---- What has changed

    def _do_portChanges(self, record: Record, values: dict, request: Entries) -> Entries:
        since, begins = self._since(values)
        limit = self._limit(values)
        if self.fault("portChanges clears the mark"):
            record.dirty = False
        if self.fault("portChanges makes a watcher"):
            record.watches = True
        told: list[Entries] = []
        last = since
        more = False
        size = 0
        for name, place in sorted(self.changes.items(), key=lambda change: change[1]):
            owner = self.ports.get(name)
            if place <= since or (begins and owner is None) or self._untold(name):
                continue
            row = self._row(name, owner)
            if len(told) == limit or size + len(frames.body(row)) > 1 << 20:
                more = True
                break
            size += len(frames.body(row))
            told.append(row)
            last = place
        if not more:
            last = self.sequence
        if self.fault("more is always NO"):
            more = False
        head = self._texts(("instance", self.instance), ("sequence", str(last)), ("more", "YES" if more else "NO"),
                           ("restart", "YES" if begins else "NO"))
        if self.fault("restart stands before more"):
            head[2:4] = head[3:1:-1]
        first = 1 if self.fault("places begin with 1") else 0
        return head + [(str(first + place).encode(), frames.body(row)) for place, row in enumerate(told)]

    def _untold(self, name: str) -> bool:
        if name in OWN_NAMES and self.fault("portChanges leaves out the server's own names"):
            return True
        if name.lower() == "sorvexec" and self.fault("portChanges leaves out sorvexec"):
            return True
        return name not in self.ports and self.fault("portChanges leaves out what is gone")

    def _since(self, values: dict) -> tuple[int, bool]:
        """From where on changes are told, and whether they are told from the beginning."""
        instance = values.get(b"instance", b"").split(b"\0", 1)[0].decode(errors="replace")
        since = values.get(b"since", b"").split(b"\0", 1)[0]
        if instance != self.instance and not self.fault("portChanges does not look at the instance"):
            return 0, True
        if not re.fullmatch(b"[0-9]{1,64}", since):
            return (self.sequence, False) if self.fault("a since that is no number is the newest") else (0, True)
        if int(since) > self.sequence and not self.fault("a since from the future is the newest"):
            return 0, True
        if int(since) < self.forgotten:
            return 0, True
        return int(since), self.fault("restart is always YES")

    def _limit(self, values: dict) -> int:
        value = values.get(b"limit", b"").split(b"\0", 1)[0]
        if self.fault("limit is not looked at"):
            return 10000
        if re.fullmatch(b"[0-9]{1,6}", value) and 1 <= int(value) <= 10000:
            return int(value)
        return 1 if self.fault("a limit out of range counts as 1") else 1000

    def _row(self, name: str, owner: Record | None) -> Entries:
        if owner is None:
            old = ("portNumber", "1") if self.fault("a row of what is gone has more") else ("portNumber", None)
            return self._texts(("name", name), ("gone", "YES"), old)
        stamp = f"{owner.alert_time - EPOCH_2001:.6f}" if owner.alert is not None else None
        left = "YES" if not owner.alive and not self.fault("what was left behind is not told") else None
        status = owner.status
        if status is None and self.fault("a row has a state that nobody reported"):
            status = "running"
        if self.fault("a row has no alert"):
            return self._texts(("name", name), ("portNumber", owner.number), ("portHost", owner.host),
                               ("portHostAddress", owner.address), ("portType", owner.type), ("portStatus", status),
                               ("left", left))
        address = None if self.fault("a row has no address") else owner.address
        return self._texts(("name", name), ("portNumber", owner.number), ("portHost", owner.host),
                           ("portHostAddress", address), ("portType", owner.type), ("portStatus", status),
                           ("alertStatus", owner.alert), ("alertStatusTimestamp", stamp), ("left", left))

    # ---- Preferences

    def _preference_text(self, values: dict, key: str) -> str:
        value = values.get(key.encode())
        try:
            if value:
                return frames.text_of(value)
        except UnicodeDecodeError:
            pass
        if self.fault("a preference without bytes has no dictionary"):
            raise Refused
        raise KeyError(key)

    def _preference(self, values: dict, work) -> Entries:
        if b"key" not in values:
            if self.fault("a preference without a key has a dictionary"):
                return []
            raise Refused
        try:
            return work()
        except KeyError:
            return []

    def _do_set_userpreferences(self, record: Record, values: dict, request: Entries) -> Entries:
        def work() -> Entries:
            key = self._preference_text(values, "key")
            entry = {each: self._preference_text(values, each) for each in SETTINGS if each.encode() in values}
            if self.fault("an entry keeps what was not sent"):
                entry = {**self.preferences.get(key, {}), **entry}
            if not self.fault("an entry is not kept"):
                self.preferences[key] = entry
            return self._result("success" if self.fault("set_userpreferences replies with success") else "succeed")

        return self._preference(values, work)

    def _do_get_userpreferences(self, record: Record, values: dict, request: Entries) -> Entries:
        def work() -> Entries:
            entry = self.preferences.get(self._preference_text(values, "key"))
            if entry is None:
                if self.fault("an entry has nothing to fall back to"):
                    return self._result("none")
                if b"*" not in values and self.fault("an entry that is missing is none"):
                    return self._result("none")
                entry = self.preferences.get(self._preference_text(values, "*"))
            if entry is None:
                return self._result("none")
            return self._texts(*((each, entry.get(each)) for each in SETTINGS))

        return self._preference(values, work)

    def _do_set_userpreferences_key(self, record: Record, values: dict, request: Entries) -> Entries:
        def work() -> Entries:
            self.key_setting = self._preference_text(values, "key")
            return self._result("succeed")

        return self._preference(values, work)

    def _do_get_userpreferences_key(self, record: Record, values: dict, request: Entries) -> Entries:
        if self.key_setting is not None and not self.fault("the key setting is told after it was set"):
            return self._preference(values, lambda: [])
        return self._preference(values, lambda: self._result("group:application"))
