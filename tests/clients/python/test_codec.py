"""Frames, replies, and the logic that has no input or output; and how its waits end."""

import socket
import struct
import time
import unittest
from typing import Any

from sorvane import Change, Entry, InvalidValue, Limits, ProtocolError, Refused, Unsupported, reachable_host
from sorvane import _frames, _questions
from sorvane._following import Following, Picture
from sorvane._frames import FrameReader, encode_request, text_of
from sorvane._hosts import here_of
from sorvane._holding import Holding, Plan, Wishes
from sorvane._steps import Ask, Connect, Idle, Listen, Pause, Tell, next_attempt
from sorvane._threads import Closing, Wake, Wire
from sorvane.entries import Here, Place, RegistrationStatus, WatchStatus
from support import NO_DICTIONARY, body, frame

HERE = Here("localhost", "127.0.0.1")


def carried_out(steps: Any, *replies: bytes) -> Any:
    """The outcome of steps that ask, when they get these replies."""
    reader = FrameReader()
    answer = None
    due = list(replies)
    try:
        while True:
            step = steps.send(answer)
            answer = [reader.feed(due.pop(0))[0] for _ in step.requests]
    except StopIteration as end:
        if due:
            raise AssertionError(f"{len(due)} replies were not asked for") from None
        return end.value


class Frames(unittest.TestCase):
    def test_a_request_has_the_bytes_that_the_protocol_shows(self) -> None:
        self.assertEqual(
            encode_request({"findPort": "db1", "portHost": "client7"}),
            bytes.fromhex("5356010100000028 000800000004 66696e64506f7274 64623100")
            + bytes.fromhex("000800000008 706f7274486f7374 636c69656e743700"),
        )

    def test_a_reply_has_the_bytes_that_the_protocol_shows(self) -> None:
        reply = bytes.fromhex("5356010100000017 000800000009 6e6f74466f756e64 6e6f74466f756e6400")
        self.assertEqual(FrameReader().feed(reply), [{"notFound": b"notFound\0"}])
        self.assertEqual(FrameReader().feed(bytes.fromhex("5356010000000000")), [None])
        self.assertEqual(FrameReader().feed(bytes.fromhex("5356010100000000")), [{}])

    def test_replies_come_in_pieces_and_together(self) -> None:
        both = frame(("result", "YES")) + NO_DICTIONARY
        reader = FrameReader()
        pieces = [reader.feed(both[at : at + 1]) for at in range(len(both))]
        self.assertEqual([reply for piece in pieces for reply in piece], [{"result": b"YES\0"}, None])
        self.assertTrue(reader.between_frames)
        self.assertEqual(len(FrameReader().feed(both)), 2)

    def test_a_bad_frame_is_an_error(self) -> None:
        good = frame(("k", "v"))
        bad = {
            "mark": b"XV" + good[2:],
            "version": good[:2] + b"\x02" + good[3:],
            "kind": good[:3] + b"\x02" + good[4:],
            "a body without a dictionary": good[:3] + b"\x00" + good[4:],
            "longer than 64 MiB": good[:4] + struct.pack(">I", (64 << 20) + 1),
            "a value past the end": b"SV\x01\x01" + struct.pack(">IHI", 6, 0, 1),
            "half an entry": b"SV\x01\x01" + struct.pack(">IH", 5, 0) + b"abc",
            "a repeated key": frame(("k", "v"), ("k", "w")),
            "a NUL in a key": frame(("a\0b", "v")),
            "a key that is not UTF-8": b"SV\x01\x01" + struct.pack(">IHI", 7, 1, 0) + b"\xff",
            "too many entries": frame(*((str(each), b"") for each in range(_frames.REPLY_ENTRIES + 1))),
        }
        for what, bytes_ in bad.items():
            with self.subTest(what), self.assertRaises(ProtocolError):
                FrameReader().feed(bytes_)

    def test_the_longest_reply_and_the_most_entries_are_taken(self) -> None:
        self.assertEqual(FrameReader().feed(b"SV\x01\x01" + struct.pack(">I", 64 << 20)), [])
        most = frame(*((str(each), b"") for each in range(_frames.REPLY_ENTRIES)))
        self.assertEqual(len(FrameReader().feed(most)[0] or ()), _frames.REPLY_ENTRIES)

    def test_a_text_ends_at_its_first_nul_or_with_the_value(self) -> None:
        self.assertEqual(text_of({"k": b"ab\0cd"}, "k"), "ab")
        self.assertEqual(text_of({"k": b"ab"}, "k"), "ab")
        self.assertIsNone(text_of({}, "k"))
        with self.assertRaises(ProtocolError):
            text_of({"k": b"\xff\0"}, "k")

    def test_what_no_name_server_takes_is_not_sent(self) -> None:
        for what, text in {"a NUL": "a\0b", "a surrogate": "\ud800", "too long": "x" * (1 << 20)}.items():
            with self.subTest(what), self.assertRaises(InvalidValue):
                encode_request({"key": text})
        with self.assertRaises(InvalidValue):
            encode_request({"k" * 65536: ""})
        self.assertEqual(len(encode_request({"": "x" * ((1 << 20) - 7)})), 8 + (1 << 20))


class Replies(unittest.TestCase):
    def test_a_database_is_found_or_not(self) -> None:
        found = frame(("portNumber", "20222"), ("portName", "db1"), ("portHostAddress", "x"), ("portHost", "h"))
        self.assertEqual(carried_out(_questions.find(HERE, "db1"), found), Entry("db1", 20222, "h"))
        self.assertIsNone(carried_out(_questions.find(HERE, "db1"), frame(("notFound", "notFound"))))
        with self.assertRaises(Refused):
            carried_out(_questions.find(HERE, "db1"), NO_DICTIONARY)
        with self.assertRaises(ProtocolError):
            carried_out(_questions.find(HERE, "db1"), frame())
        with self.assertRaises(InvalidValue):
            carried_out(_questions.find(HERE, ""))

    def test_a_number_that_is_none_is_0(self) -> None:
        for text in ("", "abc", "-1", "65536", "99999999999999", "1_0", "\u0661", " 1"):
            with self.subTest(text):
                self.assertEqual(_questions.port_number(text), 0)
        self.assertEqual(_questions.port_number("65535"), 65535)

    def test_states_are_told_apart_where_that_is_possible(self) -> None:
        reply = frame(("result", "db1:a:b|c|db2:running"), ("alerts", "db2:full"))
        self.assertEqual(carried_out(_questions.states(), reply), {"db1": "a:b|c", "db2": "running"})
        self.assertEqual(carried_out(_questions.alerts(), reply), {"db2": "full"})
        self.assertEqual(carried_out(_questions.states(), frame(("result", ""), ("alerts", ""))), {})
        self.assertEqual(carried_out(_questions.states(), frame(("result", "piece"), ("alerts", ""))), {})
        with self.assertRaises(ProtocolError):
            carried_out(_questions.states(), frame())

    def test_host_info_has_five_parts(self) -> None:
        info = carried_out(_questions.host_info(HERE), frame(("result", "n|e|a|v|p|q")))
        self.assertEqual((info.name, info.address, info.platform), ("n", "a", "p|q"))
        with self.assertRaises(Refused):
            carried_out(_questions.host_info(HERE), frame(("result", "local only")))
        with self.assertRaises(ProtocolError):
            carried_out(_questions.host_info(HERE), frame(("result", "n|e")))

    def test_what_is_refused_or_not_known_is_an_error(self) -> None:
        for error, reply in ((Refused, NO_DICTIONARY), (Refused, frame(("result", "failed"))), (Unsupported, frame())):
            with self.subTest(error), self.assertRaises(error):
                carried_out(_questions.forget("db1"), reply)
            with self.subTest(error), self.assertRaises(error):
                carried_out(_questions.set_state("db1", "running"), reply)
        carried_out(_questions.forget("db1"), frame(("result", "success")))

    def test_few_requests_are_under_way_at_once(self) -> None:
        names = {f"{each:03}" + "n" * 1000: "s" for each in range(100)}
        for batch in _questions._batches(HERE, names):
            self.assertLessEqual(sum(len(request) for _, request in batch), 16 << 10)
            self.assertGreater(len(batch), 1 if "099" not in batch[-1][0] else 0)
        self.assertEqual(len(list(_questions._batches(HERE, ["n" * 100000, "m"]))), 2)

    def test_a_database_is_reached_at_its_host_or_at_that_of_the_name_server(self) -> None:
        for host in ("", "localhost", "LocalHost.", "localhost.localdomain", "db.localhost", "127.0.0.9", "::1"):
            with self.subTest(host):
                self.assertEqual(reachable_host(Entry("db1", 1, host), "hub"), "hub")
        for host in ("dbhost", "192.0.2.1", "localhost7"):
            self.assertEqual(reachable_host(Entry("db1", 1, host), "hub"), host)

    def test_a_connection_to_itself_counts_as_refused(self) -> None:
        with self.assertRaises(ConnectionRefusedError):
            here_of(("127.0.0.1", 40000), ("127.0.0.1", 40000))
        self.assertEqual(here_of(("192.0.2.1", 40000), ("192.0.2.1", 20221)), HERE)
        self.assertEqual(here_of(("192.0.2.1", 40000), ("192.0.2.2", 20221)).address, "192.0.2.1")


def page(sequence: str, *rows: bytes, more: str = "NO", restart: str = "NO", instance: str = "i1") -> bytes:
    """A reply to portChanges."""
    numbered = [(str(place), row) for place, row in enumerate(rows)]
    return frame(("instance", instance), ("sequence", sequence), ("more", more), ("restart", restart), *numbered)


def row(name: str, **values: str) -> bytes:
    return body(("name", name), *values.items())


class WhatHasChanged(unittest.TestCase):
    def changes(self, following: Following, *replies: bytes) -> list[str]:
        changes = carried_out(following._changes(), *replies)
        return [f"{change.kind} {change.entry.name} {change.entry.number}" for change in changes]

    def test_first_what_is_there_is_told_then_differences(self) -> None:
        following = Following(Limits(), 1)
        first = page("5", row("db1", portNumber="1"), row("db2", portNumber="2"), restart="YES")
        self.assertEqual(self.changes(following, first), ["registered db1 1", "registered db2 2"])
        then = page("7", row("db2", gone="YES"), row("db1", portNumber="3"), row("db9", gone="YES"))
        self.assertEqual(self.changes(following, then), ["gone db2 2", "changed db1 3"])
        self.assertEqual(self.changes(following, page("8", row("db1", portNumber="3"))), [])

    def test_what_begins_anew_is_told_as_differences(self) -> None:
        following = Following(Limits(), 1)
        self.changes(following, page("5", row("db1", portNumber="1"), row("db2", portNumber="2"), restart="YES"))
        anew = page("1", row("db3"), row("db1", portNumber="1"), restart="YES", instance="i2")
        self.assertEqual(self.changes(following, anew), ["gone db2 2", "registered db3 0"])

    def test_several_pages_count_with_the_last_one(self) -> None:
        following = Following(Limits(), 1)
        steps = following._changes()
        steps.send(None)
        reader = FrameReader()
        step: Any = steps.send(reader.feed(page("1", row("db1"), more="YES", restart="YES")))
        self.assertIn(b"since\0"[:5], step.requests[0])
        with self.assertRaises(StopIteration) as end:
            steps.send(reader.feed(page("2", row("db1", gone="YES"), row("db2"))))
        self.assertEqual([change.entry.name for change in end.exception.value], ["db2"])

    def test_a_list_that_begins_anew_has_nothing_of_before(self) -> None:
        first = page("1", row("db1"), row("db2"), more="YES", restart="YES")
        pages = [first, page("2", row("db2", gone="YES"), more="YES")]
        self.assertEqual(carried_out(_questions.all_at_once(Limits()), *pages, page("3")), {"db1": Entry("db1")})
        anew = page("1", row("db3"), restart="YES", instance="i2")
        self.assertEqual(carried_out(_questions.all_at_once(Limits()), *pages, anew), {"db3": Entry("db3")})
        following = Following(Limits(), 1)
        self.assertEqual(self.changes(following, *pages, anew), ["registered db3 0"])

    def test_all_that_is_told_of_a_name_is_known(self) -> None:
        told = row("db1", portNumber="1", portHost="h", portHostAddress="a", portType="t", portStatus="s")
        told += body(("alertStatus", "x"), ("alertStatusTimestamp", "1.500000"), ("left", "YES"))
        (change,) = carried_out(Following(Limits(), 1)._changes(), page("1", told, restart="YES"))
        entry = change.entry
        self.assertEqual((entry.number, entry.host, entry.address, entry.type), (1, "h", "a", "t"))
        self.assertEqual((entry.state, entry.alert, entry.left), ("s", "x", True))
        self.assertEqual(entry.alert_time.isoformat(), "2001-01-01T00:00:01.500000+00:00")

    def test_names_that_are_no_databases_are_left_out(self) -> None:
        rows = [row(name) for name in ("VN_nameserver", "VN_infoserver", "sorvexec", "db1")]
        self.assertEqual(self.changes(Following(Limits(), 1), page("1", *rows, restart="YES")), ["registered db1 0"])

    def test_a_page_that_makes_no_sense_is_an_error(self) -> None:
        bad = {
            "more, and nothing told": page("1", more="YES", restart="YES"),
            "not from the start": page("1", row("db1")),
            "no instance": page("1", row("db1"), restart="YES", instance=""),
            "an endless instance": page("1", row("db1"), restart="YES", instance="i" * 1025),
            "neither yes nor no": page("1", row("db1"), more="maybe", restart="YES"),
            "no name": page("1", body(("portNumber", "1")), restart="YES"),
            "half an entry": page("1", b"\0\0\0", restart="YES"),
        }
        for what, reply in bad.items():
            with self.subTest(what), self.assertRaises(ProtocolError):
                carried_out(_questions.changes(None), reply)
        with self.assertRaises(ProtocolError):  # no further than before
            carried_out(_questions.changes(Place("i1", "1")), page("1", row("db1"), more="YES"))

    def test_no_more_is_kept_than_the_limit_says(self) -> None:
        limits = Limits(picture_bytes=10 << 10)
        rows = [row(f"db{each}") for each in range(5)]
        self.assertEqual(len(carried_out(Following(limits, 1)._changes(), page("1", *rows, restart="YES"))), 5)
        many = [page(str(each), *rows, more="YES", restart="YES") for each in range(3)]
        with self.assertRaises(ProtocolError):
            carried_out(Following(limits, 1)._changes(), *many)
        following = Following(limits, 1)
        carried_out(following._changes(), page("0", *rows, restart="YES"))
        with self.assertRaises(ProtocolError):  # little by little
            for each in range(1, 10):
                carried_out(following._changes(), page(str(each), row(f"more{each}")))

    def test_an_alert_that_lapses_is_no_change(self) -> None:
        picture = Picture(Limits())
        picture.update({"db1": Entry("db1", 1, alert="full")})
        self.assertEqual(picture.update({"db1": Entry("db1", 1, alert="full")}), [])
        self.assertEqual(picture.update({"db1": Entry("db1", 1)}), [])
        self.assertEqual(picture.update({"db1": Entry("db1", 2)}), [Change("changed", Entry("db1", 2))])


class FollowingSteps(unittest.TestCase):
    def test_the_pause_before_an_attempt_is_random_within_its_bounds(self) -> None:
        pauses = [next_attempt().seconds for _ in range(1000)]
        self.assertGreaterEqual(min(pauses), 0.2)
        self.assertLessEqual(max(pauses), 2.0)
        self.assertLess(min(pauses), 0.5)
        self.assertGreater(max(pauses), 1.7)

    def test_an_error_is_told_once_and_followed_by_a_pause(self) -> None:
        steps = Following(Limits(), 1).steps()
        self.assertIsInstance(next(steps), Connect)
        self.assertEqual(steps.throw(Refused("no")), Tell(WatchStatus(False, "no")))
        self.assertIsInstance(next(steps), Pause)
        self.assertIsInstance(next(steps), Connect)
        self.assertIsInstance(steps.throw(Refused("no")), Pause)


class Waking(unittest.TestCase):
    def test_being_woken_once_ends_one_wait(self) -> None:
        with socket.create_server(("127.0.0.1", 0)) as listener:
            wake = Wake()
            wire = Wire("127.0.0.1", listener.getsockname()[1], Limits(), wake)
            wire.connect()
            wake.wake()
            wire.idle(1000)
            before = time.monotonic()
            wire.idle(0.05)
            self.assertGreater(time.monotonic() - before, 0.04)
            wire.drop()
            wake.release()

    def test_being_closed_ends_every_wait(self) -> None:
        wake = Wake()
        wire = Wire("127.0.0.1", 1, Limits(), wake)
        wake.close()
        for _ in range(2):
            with self.assertRaises(Closing):
                wire.pause(1000)
        wake.release()


class HoldingSteps(unittest.TestCase):
    def holding(self, number: int = 0) -> tuple[Any, Wishes]:
        wishes = Wishes("db1")
        self.now = 0.0
        return Holding(Plan("db1", "t", "h", "", number, 10), wishes, lambda: self.now).steps(), wishes

    def after(self, idle: Any, steps: Any) -> Any:
        """The step after a wait that nothing has ended early."""
        self.assertIsInstance(idle, Idle)
        self.now += idle.seconds
        return next(steps)

    def reply(self, *entries: tuple[str, str | bytes]) -> list[Any]:
        return FrameReader().feed(frame(*entries))

    def test_the_database_listens_before_it_can_be_found(self) -> None:
        steps, _ = self.holding()
        next(steps)
        self.assertIn(b"newPort", steps.send(HERE).requests[0])
        self.assertEqual(steps.send(self.reply(("portNumber", "20222"))), Listen(20222))
        self.assertIn(b"newPort", steps.send("occupied").requests[0])
        self.assertEqual(steps.send(self.reply(("portNumber", "20223"))), Listen(20223))
        self.assertIn(b"acceptPort", steps.send(None).requests[0])
        self.assertEqual(steps.send(self.reply()), Tell(RegistrationStatus("registered", 20223)))

    def test_a_connection_lost_while_registering_keeps_the_number_that_is_listened_on(self) -> None:
        steps, _ = self.holding()
        next(steps)
        steps.send(HERE)
        steps.send(self.reply(("portNumber", "20222")))
        steps.send(None)
        steps.throw(Refused("full"))
        next(steps)
        next(steps)
        request = steps.send(HERE).requests[0]
        self.assertIn(b"reconnectPort", request)
        self.assertIn(b"20222\0", request)

    def test_a_hundred_numbers_are_tried(self) -> None:
        steps, _ = self.holding()
        next(steps)
        step = steps.send(HERE)
        for _ in range(100):
            self.assertIsInstance(step, Ask)
            self.assertIsInstance(steps.send(self.reply(("portNumber", "20222"))), Listen)
            step = steps.send("occupied")
        self.assertEqual(step.event.kind, "refused")
        self.assertIn("occupied", step.event.reason)

    def test_a_name_that_was_taken_is_left_to_the_other_until_it_is_free(self) -> None:
        steps, _ = self.holding(number=7)
        next(steps)
        steps.send(HERE)
        self.assertEqual(steps.send(self.reply()), Tell(RegistrationStatus("registered", 7)))
        self.assertIn(b"findPort", self.after(next(steps), steps).requests[0])
        taken = steps.send(self.reply(("portNumber", "9"), ("portHost", "h")))
        self.assertEqual(taken.event.kind, "taken")
        self.after(next(steps), steps)
        self.assertIn(b"reconnectPort", steps.send(self.reply(("notFound", "notFound"))).requests[0])
        self.assertEqual(steps.send(self.reply()), Tell(RegistrationStatus("registered", 7)))

    def test_the_name_is_looked_for_soon_after_it_was_registered_and_then_less_often(self) -> None:
        steps, _ = self.holding(number=7)
        next(steps)
        steps.send(HERE)
        steps.send(self.reply())
        pauses = [next(steps)]
        for _ in range(5):
            self.assertIn(b"findPort", self.after(pauses[-1], steps).requests[0])
            pauses.append(steps.send(self.reply(("portNumber", "7"), ("portHost", "h"))))
        self.assertEqual(pauses, [Idle(seconds) for seconds in (1, 2, 4, 8, 10, 10)])

    def test_state_and_alert_are_sent_with_each_registration_and_the_alert_for_an_hour(self) -> None:
        now = [0.0]
        wishes = Wishes("db1", lambda: now[0])
        wishes.set_state("running")
        wishes.set_alert("full")
        self.assertEqual(wishes.take(again=True), ("running", "full"))
        self.assertEqual(wishes.take(again=False), (None, None))
        wishes.set_state("stopping")
        self.assertEqual(wishes.take(again=False), ("stopping", None))
        now[0] = 3599.0
        self.assertEqual(wishes.take(again=True), ("stopping", "full"))
        now[0] = 3600.0
        self.assertEqual(wishes.take(again=True), ("stopping", None))

    def test_what_cannot_be_registered_is_told_at_once(self) -> None:
        for number, name in ((-1, "db1"), (65536, "db1"), (1, ""), (1, "a\0b"), (1, "x" * (1 << 20))):
            with self.subTest(number), self.assertRaises(InvalidValue):
                Plan(name, "t", "h", "", number, 10)
        with self.assertRaises(InvalidValue):
            Wishes("db1").set_state("\0")


if __name__ == "__main__":
    unittest.main()
