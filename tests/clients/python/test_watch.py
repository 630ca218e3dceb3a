"""Watching, by threads or asyncio."""

import itertools
import threading
import time
import unittest
from typing import Any
from unittest import mock

from sorvane import Change, Entry, InvalidValue, Limits, Registration, WatchStatus
from support import LIMIT, SHORT, VARIANT, NameServer, ScriptedServer, body, frame, quick_attempts, wait_until


class Told:
    """The changes of a watch, a line each."""

    def __init__(self, watch: Any) -> None:
        self.watch = watch

    def next(self) -> str:
        change = self.watch.next_change(LIMIT)
        if change is None:
            raise AssertionError(f"no change was told; {self.watch.status}")
        self.last: Entry = change.entry
        return f"{change.kind} {self.last.name} {self.last.number}"


class AtARealNameServer(unittest.TestCase):
    def setUp(self) -> None:
        self.server = self.enterContext(NameServer())

    def watch(self, **options: Any) -> Any:
        return VARIANT.Watch("127.0.0.1", self.server.port, **options)

    def hold(self, name: str, number: int) -> Registration:
        return Registration(name, "127.0.0.1", self.server.port, number=number, registered_host="h")

    def test_what_is_there_is_told_first_then_each_change(self) -> None:
        first = self.enterContext(self.hold("db1", 1))
        with self.watch() as watch:
            told = Told(watch)
            self.assertEqual(told.next(), "registered db1 1")
            wait_until(lambda: watch.status == WatchStatus(True), "the watch is current")
            second = self.enterContext(self.hold("db2", 2))
            self.assertEqual(told.next(), "registered db2 2")
            first.set_state("starting")
            self.assertEqual((told.next(), told.last.state), ("changed db1 1", "starting"))
            first.set_alert("disk full")
            self.assertEqual((told.next(), told.last.alert), ("changed db1 1", "disk full"))
            second.close()
            self.assertEqual(told.next(), "gone db2 2")
            self.assertIsNone(watch.next_change(0.05))

    def test_a_change_is_told_at_once(self) -> None:
        with self.watch() as watch:
            wait_until(lambda: watch.status.current, "the watch is current")
            before = time.monotonic()
            self.enterContext(self.hold("db1", 1))
            self.assertIsNotNone(watch.next_change(LIMIT))
            self.assertLess(time.monotonic() - before, 0.5)

    @quick_attempts
    def test_a_name_server_that_was_restarted_is_followed_and_differences_are_told(self) -> None:
        statuses: list[bool] = []
        with self.hold("db1", 1), self.watch(on_status=lambda status: statuses.append(status.current)) as watch:
            told = Told(watch)
            self.assertEqual(told.next(), "registered db1 1")
            self.server.stop()
            wait_until(lambda: not watch.status.current, "the name server counts as away")
            self.assertTrue(watch.status.reason)
            self.assertIsNone(watch.next_change(0.05))
            self.server.start()
            wait_until(lambda: watch.status.current, "the watch is current again")
            self.enterContext(self.hold("db2", 2))
            lines = [told.next()]
            while "registered db2 2" not in lines:
                lines.append(told.next())
            self.assertTrue(set(lines) <= {"gone db1 1", "registered db1 1", "registered db2 2"}, lines)
        self.assertEqual([current for current, _ in itertools.groupby(statuses)], [True, False, True])

    @quick_attempts
    def test_a_lost_connection_changes_nothing(self) -> None:
        with self.hold("db1", 1), self.watch(limits=SHORT) as watch:
            told = Told(watch)
            self.assertEqual(told.next(), "registered db1 1")
            with self.assertNoLogs("sorvane"), self.hold("db2", 2):
                self.assertEqual(told.next(), "registered db2 2")

    def test_changes_are_handed_to_a_callback(self) -> None:
        changes: list[Change] = []
        with self.hold("db1", 1), self.watch(on_change=changes.append) as watch:
            wait_until(lambda: changes, "a change")
            with self.assertRaises(RuntimeError):
                watch.next_change(0)
        self.assertEqual((changes[0].kind, changes[0].entry.name), ("registered", "db1"))

    def test_closing_ends_who_waits_for_a_change(self) -> None:
        for before_closing in (0.0, 0.1):
            watch = self.watch()
            watch.start()
            ended: list[object] = []
            waiting = threading.Thread(target=lambda: ended.append(watch.next_change()))
            waiting.start()
            waiting.join(before_closing)
            before = time.monotonic()
            watch.close()
            waiting.join(LIMIT)
            self.assertLess(time.monotonic() - before, 1.0)
            self.assertEqual(ended, [None])
            self.assertEqual(watch.status, WatchStatus(False, "the watch is closed"))

    def test_who_takes_changes_slowly_gets_the_last_of_several(self) -> None:
        held = self.enterContext(self.hold("db1", 1))
        with self.watch() as watch:
            told = Told(watch)
            self.assertEqual(told.next(), "registered db1 1")
            for each in range(200):
                held.set_state(f"state{each}")
                if each % 20 == 0:
                    time.sleep(0.001)
            count = 0
            while count == 0 or told.last.state != "state199":
                self.assertEqual(told.next(), "changed db1 1")
                count += 1
            self.assertLess(count, 200)


class AtAnOtherServer(unittest.TestCase):
    def followed(self, script: Any, **options: Any) -> Any:
        self.other = self.enterContext(ScriptedServer(script))
        return self.enterContext(VARIANT.Watch("127.0.0.1", self.other.port, **options))

    def test_of_an_earlier_version_is_asked_from_time_to_time(self) -> None:
        names = ["db1"]
        changed = [True]

        def script(request: dict[str, str]) -> bytes:
            action = request.get("action")
            if action == "didPortsChange":
                due, changed[0] = changed[0], False
                return frame(("result", "YES" if due else "NO"))
            if action == "databaseStates":
                return frame(("result", "|".join(f"{name}:running" for name in names)), ("alerts", ""))
            if "findPort" in request:
                return frame(("portNumber", "7"), ("portHost", "h"))
            return frame()

        told = Told(self.followed(script, poll_every=0.01))
        self.assertEqual(told.next(), "registered db1 7")
        wait_until(lambda: self.other.asked("action", "didPortsChange") > 3, "several questions")
        self.assertEqual(self.other.asked("action", "databaseStates"), 1)
        self.assertEqual(self.other.asked("action", "awaitPortChanges"), 1)
        names[:] = ["db2"]
        changed[0] = True
        self.assertEqual(told.next(), "gone db1 7")
        self.assertEqual(told.next(), "registered db2 7")

    def test_that_waits_but_does_not_tell_changes_is_asked_for_all(self) -> None:
        replies = iter(["YES", "NO", "YES"])

        def script(request: dict[str, str]) -> bytes | None:
            action = request.get("action")
            if action == "awaitPortChanges":
                result = next(replies, None)
                return frame(("result", result)) if result else None
            if action == "databaseStates":
                return frame(("result", f"db{self.other.asked('action', 'databaseStates')}:running"), ("alerts", ""))
            return frame(("portNumber", "7")) if "findPort" in request else frame()

        told = Told(self.followed(script))
        self.assertEqual(told.next(), "registered db1 7")
        self.assertEqual(told.next(), "gone db1 7")
        self.assertEqual(self.other.asked("action", "didPortsChange"), 0)

    @quick_attempts
    def test_that_loses_connections_is_asked_from_where_it_was(self) -> None:
        def script(request: dict[str, str]) -> bytes | None:
            if request.get("action") == "awaitPortChanges":
                return frame(("result", "YES")) if waits() % 2 else None
            since = request.get("since", "0")
            rows = {"0": [body(("name", "db1")), body(("name", "db2"))], "1": [body(("name", "db3"))]}.get(since, [])
            restart = "YES" if since == "0" else "NO"
            head = [("instance", "i"), ("sequence", str(int(since) + 1)), ("more", "NO"), ("restart", restart)]
            return frame(*head, *((str(place), row) for place, row in enumerate(rows)))

        def waits() -> int:
            return self.other.asked("action", "awaitPortChanges")

        told = Told(self.followed(script))
        self.assertEqual([told.next(), told.next()], ["registered db1 0", "registered db2 0"])
        wait_until(lambda: waits() == 2, "the watch waits")
        self.other.hang_up()
        self.assertEqual(told.next(), "registered db3 0")
        self.assertEqual(self.other.asked("since", "1"), 1)

    def test_that_has_much_to_tell_is_asked_no_faster_than_changes_are_taken(self) -> None:
        def script(request: dict[str, str]) -> bytes | None:
            since = int(request.get("since", "0"))
            if request.get("action") == "awaitPortChanges":
                return frame(("result", "YES")) if asked() < 20 else None
            head = [("instance", "i"), ("sequence", str(since + 1)), ("more", "NO"), ("restart", "NO" if since else "YES")]
            return frame(*head, ("0", body(("name", f"db{since}"))))

        def asked() -> int:
            return self.other.asked("action", "portChanges")

        told = Told(self.followed(script))
        wait_until(lambda: asked() == 2, "two questions")
        for each in range(20):
            self.assertLessEqual(asked(), each + 2)
            self.assertEqual(told.next(), f"registered db{each} 0")

    @quick_attempts
    def test_that_hangs_is_given_up_and_tried_again(self) -> None:
        with mock.patch("sorvane._following.WAIT_SECONDS", 0):
            watch = self.followed(lambda request: None, limits=Limits(reply=0.05))
            wait_until(lambda: "not replied within 0.05 s" in watch.status.reason, "the reason")
            wait_until(lambda: self.other.asked("action", "awaitPortChanges") > 1, "another attempt")

    @quick_attempts
    def test_that_makes_no_sense_is_told_in_words(self) -> None:
        watch = self.followed(lambda request: b"HTTP/1.1 400 Bad Request\r\n\r\n")
        wait_until(lambda: watch.status.reason, "the reason")
        self.assertIn("begins as no reply does", watch.status.reason)

    @quick_attempts
    def test_that_tells_too_much_is_told_in_words(self) -> None:
        def script(request: dict[str, str]) -> bytes:
            if request.get("action") == "awaitPortChanges":
                return frame(("result", "YES"))
            head = [("instance", "i"), ("sequence", "1"), ("more", "NO"), ("restart", "YES")]
            return frame(*head, *((str(each), body(("name", f"db{each}"))) for each in range(100)))

        watch = self.followed(script, limits=Limits(picture_bytes=1 << 10))
        wait_until(lambda: "more than 1024 bytes" in watch.status.reason, "the reason")

    def test_that_hangs_does_not_delay_the_end(self) -> None:
        watch = self.followed(lambda request: None)
        wait_until(lambda: self.other.requests, "a request")
        before = time.monotonic()
        watch.close()
        self.assertLess(time.monotonic() - before, 1.0)

    def test_a_watch_that_was_not_started_tells_so(self) -> None:
        with self.assertRaises(RuntimeError):
            VARIANT.Watch().next_change(0)
        with self.assertRaises(InvalidValue):
            VARIANT.Watch(poll_every=0)


if __name__ == "__main__":
    unittest.main()
