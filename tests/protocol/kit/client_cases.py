"""Runs cases against a client: a program that is given a scripted server, and what it asks, prints and returns."""

import contextlib
import json
import signal
import socket
import subprocess
import threading
import time
from typing import Any

from . import frames, wording
from .frames import Entries
from .reference_server import CLOSE, HANG, RESET, ReferenceServer, Step
from .registry import Record
from .wording import Mismatch

TIMEOUT = "2"  # seconds that a client is told to wait for a reply
PATIENCE = 20.0
# What an earlier server does not know.
NEWER = {"awaitPortChanges", "portChanges", "forgetPort", "continuity"}


class LeftOut(Exception):
    """The adapter has no such action."""


class Script:
    """What the server does in place of its correct replies, request by request."""

    def __init__(self, case: dict):
        self._case = case
        self._counts: dict[str, int] = {}
        self.count = 0

    def __call__(self, command: str, request: Entries, due: bytes | None) -> list[Step] | None:
        self.count += 1
        self._counts[command] = self._counts.get(command, 0) + 1
        for rule in self._case.get("replies", []):
            if rule["to"] in (command, "anything") and rule.get("time", self._counts[command]) == self._counts[command]:
                return [step for words in rule["give"] for step in self._steps(words, due)]
        return None

    @staticmethod
    def _steps(words: Any, due: bytes | None) -> list[Step]:
        right = due or frames.frame([(b"result", b"NO\0")])
        if words in ("end", "reset", "hang"):
            return [{"end": CLOSE, "reset": RESET, "hang": HANG}[words]]
        if words == "right":
            return [right]
        if words == "none":
            return [frames.frame(None)]
        if "wait" in words:
            return [float(words["wait"])]
        if "entries" in words:
            return [frames.frame(wording.entries(words["entries"]))]
        data = wording.pieces(words["bytes"]) if "bytes" in words else right
        if "take" in words:
            return [data[: words["take"]]]
        if "split" not in words:
            return [data]
        parts = [data[at : at + words["split"]] for at in range(0, len(data), words["split"])]
        return [step for part in parts for step in (part, words.get("pause", 0.001))]


def enter(registry, database: dict) -> None:
    """Registers a database, on a connection that nobody sees."""
    record = Record(database["name"], database.get("number", "20400"), database.get("host", "dbhost"),
                    database.get("address"), database.get("type", "database"), database.get("state"),
                    database.get("alert"), time.time())
    registry.records.append(record)
    registry.ports[record.name] = record
    registry._changed(record.name)
    registry.mark("")


def change(server: ReferenceServer, words: dict) -> None:
    """One thing that happens at the server. On its thread."""
    registry = server.registry
    if "register" in words:
        enter(registry, words["register"])
    elif "gone" in words:
        registry.closed(registry.ports[words["gone"]])
    elif "state" in words:
        name, text = words["state"]
        registry.reply(Record(), [(b"action", b"setDatabaseState\0"), (b"databaseName", frames.text(name)),
                                  (b"state", frames.text(text))])
    elif "alert" in words:
        name, text = words["alert"]
        registry.reply(Record(), [(b"action", b"setAlertState\0"), (b"databaseName", frames.text(name)),
                                  (b"state", frames.text(text))])
    elif "refresh" in words:
        registry.reply(Record(), [(b"action", b"needsRefresh\0")])
    elif "restart" in words:
        server.drop_all()
        server.new_registry()
        for database in words["restart"]:
            enter(server.registry, database)
    else:
        server.drop_all()


class Client:
    """The program under test, and what it has printed."""

    def __init__(self, command: list[str]):
        self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                         stderr=subprocess.PIPE, text=True, encoding="utf-8", errors="replace")
        self.printed = ""
        self.errors = ""
        self._changed = threading.Condition()
        self._readers = [threading.Thread(target=self._read, args=(which,), daemon=True) for which in (1, 2)]
        for reader in self._readers:
            reader.start()

    def _read(self, which: int) -> None:
        stream = self._process.stdout if which == 1 else self._process.stderr
        for line in stream:
            with self._changed:
                if which == 1:
                    self.printed += line
                else:
                    self.errors += line
                self._changed.notify_all()

    def wait_for(self, is_so, end: float) -> bool:
        """Waits until it has printed something that `is_so` accepts, or has ended."""
        with self._changed:
            while not is_so(self.printed):
                if time.monotonic() > end or self._process.poll() is not None:
                    return False
                self._changed.wait(0.02)
        return True

    def has_ended(self) -> bool:
        return self._process.poll() is not None

    def stop(self) -> None:
        """Stops a client that goes on until it is stopped."""
        try:
            status = self._process.wait(0.1)
        except subprocess.TimeoutExpired:
            self._process.send_signal(signal.SIGTERM)
            return
        raise Mismatch(f"expected the client to go on until it is stopped, and it ended with the status {status}")

    def status(self, end: float) -> int:
        try:
            return self._process.wait(max(0.01, end - time.monotonic()))
        except subprocess.TimeoutExpired:
            raise Mismatch("expected the client to end in time, and it runs on") from None

    def finish(self) -> None:
        self._process.kill()
        self._process.wait()
        for reader in self._readers:
            reader.join()
        self._process.stdout.close()
        self._process.stderr.close()


def values_of(printed: str, how: str) -> list[dict]:
    """The objects that a client has printed. Whole lines count alone."""
    try:
        if how == "lines":
            return [json.loads(line) for line in printed.split("\n")[:-1] if line]
        if how == "nothing":
            return [] if not printed else [{"printed": printed}]
        made = json.loads(printed) if printed else []
    except json.JSONDecodeError as error:
        raise Mismatch(f"expected JSON, got {printed[:300]!r}: {error}") from None
    return made if isinstance(made, list) else [made]


class Run:
    """One run of one case. Raises Mismatch or LeftOut."""

    def __init__(self, adapter: dict, program: str):
        self._adapter = adapter
        self._program = program
        self._members: dict[str, str] = {}  # by the names that cases have, where the program has others

    def case(self, case: dict) -> None:
        action = self._adapter["actions"].get(case["do"])
        if action is None:
            raise LeftOut(case["do"])
        self._members = action.get("members", {})
        script = Script(case)
        end = time.monotonic() + case.get("within", PATIENCE)
        with contextlib.ExitStack() as stack:
            lacks = NEWER if case.get("server") == "older" else ()
            server = stack.enter_context(ReferenceServer(script=script, lacks=lacks))
            if "databases" in case:
                databases = case["databases"]
                server.does(lambda: [enter(server.registry, each) for each in databases])
            port = server.port
            absent = stack.enter_context(socket.socket())
            if case.get("server") == "absent":  # a port that nobody else gets meanwhile
                absent.bind(("127.0.0.1", 0))
                port = absent.getsockname()[1]
            client = Client(self._command(action["command"], port, case.get("with", {})))
            try:
                self._watch(case, action, server, client, end)
            finally:
                client.finish()

    def _command(self, template: list[str], port: int, parameters: dict) -> list[str]:
        words = {"program": self._program, "host": "127.0.0.1", "port": str(port), "timeout": TIMEOUT, **parameters}
        return [word.format_map(words) for word in template if "{" not in word or word.format_map(words)]

    def _watch(self, case: dict, action: dict, server: ReferenceServer, client: Client, end: float) -> None:
        how = action["prints"]
        for event in case.get("events", []):
            self._wait_for_event(event, how, server, client, end)
            for words in event["then"]:
                server.does(lambda words=words: change(server, words))
        if "stop" in case:
            wanted = case["stop"]
            if not client.wait_for(lambda printed: self._tells(wanted, printed, how), end):
                raise Mismatch(f"expected to be told {wanted}, got {client.printed[-500:]!r} {client.errors[-300:]!r}")
            client.stop()
        status = client.status(end)
        for reader in client._readers:
            reader.join()
        self._check_end(case, how, client, status)
        self._check_requests(case, server)

    def _wait_for_event(self, event: dict, how: str, server: ReferenceServer, client: Client, end: float) -> None:
        if "told" in event:
            if not client.wait_for(lambda printed: self._tells(event["told"], printed, how), end):
                raise Mismatch(f"expected to be told {event['told']}, got {client.printed[-500:]!r} "
                               f"{client.errors[-300:]!r}")
            return
        while len(server.requests) < event["asked"]:
            if time.monotonic() > end or client.has_ended():
                raise Mismatch(f"expected {event['asked']} requests, got {len(server.requests)}")
            time.sleep(0.005)

    def _tells(self, wanted: list[dict], printed: str, how: str) -> bool:
        """Whether these values were printed in this order, perhaps with others between them."""
        left = list(wanted)
        for value in values_of(printed, how):
            if left and self._is(value, left[0]):
                left.pop(0)
        return not left

    def _is(self, value: Any, wanted: dict) -> bool:
        if not isinstance(value, dict):
            return False
        members = self._members
        return all(value.get(members.get(key, key)) == each for key, each in wanted.items())

    def _check_end(self, case: dict, how: str, client: Client, status: int) -> None:
        statuses = self._adapter["statuses"]
        failed = case["outcome"] == "failed"  # whatever the client calls it
        expected = [*statuses["no"], *statuses["unreached"]] if failed else statuses[case["outcome"]]
        if status not in expected:
            raise Mismatch(f"expected the status {expected} ({case['outcome']}), got {status}, "
                           f"{client.printed[-300:]!r} {client.errors[-300:]!r}")
        values = values_of(client.printed, how)
        if "tells" in case:
            wanted = case["tells"]
            if len(values) != len(wanted) or not self._tells(wanted, client.printed, how):
                raise Mismatch(f"expected to be told {wanted}, got {values}")
        for each in case.get("never tells", []):
            if any(self._is(value, each) for value in values):
                raise Mismatch(f"expected not to be told {each}, got {values}")

    @staticmethod
    def _check_requests(case: dict, server: ReferenceServer) -> None:
        if server.faults_of_clients:
            raise Mismatch(f"expected whole and correct frames of the client, got: {server.faults_of_clients[0]}")
        requests = [request for _, request in server.requests]
        for request in requests:
            for key, value in request:
                if value[-1:] != b"\0" or b"\0" in value[:-1]:
                    raise Mismatch(f"expected texts with one NUL at their end, got {key.decode()}: "
                                   f"{frames.shown_value(value)}")
        commands = [server.registry.command_of(request) for request in requests]
        for command in case.get("never asks", []):
            if command in commands:
                raise Mismatch(f"expected no {command}, got {commands}")
        left = list(case.get("asks", []))
        for request in requests:
            if left and Run._asks(request, left[0]):
                left.pop(0)
        if left:
            raise Mismatch(f"expected the request {left[0]}, got {[frames.shown(each) for each in requests[:20]]}")
        if "connections" in case:
            used = len({number for number, _ in server.requests})
            if used != case["connections"]:
                raise Mismatch(f"expected {case['connections']} connections with requests, got {used}")

    @staticmethod
    def _asks(request: Entries, words: list) -> bool:
        """Whether the request has these entries, perhaps with others."""
        values = dict(request)
        try:
            for key, check in words:
                wording.check_value(str(key), values.get(wording.key_of(key), b""), check, {})
        except Mismatch:
            return False
        return True
