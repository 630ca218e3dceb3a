"""Holding a name, by threads or asyncio."""

import socket
import threading
import time
import unittest
from typing import Any
from unittest import mock

from sorvane import Client, InvalidValue, Limits, Refused, SorvaneError, Unreachable
from support import LIMIT, NO_DICTIONARY, SHORT, VARIANT, NameServer, ScriptedServer, frame, quick_attempts, wait_until


class AtARealNameServer(unittest.TestCase):
    def setUp(self) -> None:
        self.server = self.enterContext(NameServer())
        self.asking = self.enterContext(Client("127.0.0.1", self.server.port))

    def registration(self, name: str, **options: Any) -> Any:
        return VARIANT.Registration(name, "127.0.0.1", self.server.port, **options)

    def number_of(self, name: str) -> int:
        """The number of a database; 0 while it cannot be found."""
        try:
            entry = self.asking.find(name)
        except SorvaneError:
            return 0
        return entry.number if entry else 0

    def test_a_name_is_there_while_it_is_held(self) -> None:
        with self.registration("db1") as held:
            self.assertEqual(held.number, self.server.port + 1)
            self.assertEqual(self.number_of("db1"), held.number)
            self.assertEqual(held.status.kind, "registered")
            self.assertEqual(held.wait_until_registered(0), held.number)
        self.assertEqual((held.status.kind, held.status.reason), ("away", "the registration is closed"))
        with self.assertRaises(SorvaneError):
            held.wait_until_registered(LIMIT)
        wait_until(lambda: self.number_of("db1") == 0, "the end of the name")

    def test_all_that_is_told_is_registered(self) -> None:
        with self.registration("db1", type="t", registered_host="h", address="192.0.2.9", number=4711):
            entry = self.asking.find("db1")
            assert entry
            self.assertEqual((entry.number, entry.host, entry.type), (4711, "h", "t"))
        with self.registration("db2"):
            entry = self.asking.find("db2")
            assert entry
            self.assertEqual(entry.host, socket.gethostname())

    def test_a_database_listens_before_it_can_be_found(self) -> None:
        seen: list[tuple[int, int]] = []
        with self.registration("db1", listen=lambda number: seen.append((number, self.number_of("db1")))) as held:
            self.assertEqual(seen, [(held.number, 0)])

    def test_another_number_is_asked_for_when_listening_fails(self) -> None:
        def listen(number: int) -> None:
            if number < self.server.port + 3:
                raise OSError("occupied")

        with self.registration("db1", listen=listen) as held:
            self.assertEqual(held.number, self.server.port + 3)

    def test_state_and_alert_are_reported(self) -> None:
        with self.registration("db1") as held:
            held.set_state("starting")
            wait_until(lambda: self.asking.states() == {"db1": "starting"}, "the state")
            held.set_alert("disk full")
            wait_until(lambda: self.asking.alerts() == {"db1": "disk full"}, "the alert")
            with self.assertRaises(InvalidValue):
                held.set_state("\0")

    def test_a_name_server_that_was_killed_has_all_again_within_three_seconds_of_its_start(self) -> None:
        statuses: list[str] = []
        with self.registration("db1", on_status=lambda status: statuses.append(status.kind)) as held:
            held.set_state("starting")
            held.set_alert("disk full")
            number = held.number
            self.server.stop()
            wait_until(lambda: held.status.kind == "away", "the end of the connection")
            self.assertTrue(held.status.reason)
            self.server.start()
            started = time.monotonic()
            wait_until(lambda: self.number_of("db1") == number, "the name")
            self.assertLess(time.monotonic() - started, 3.0)
            wait_until(lambda: self.asking.states() == {"db1": "starting"}, "the state")
            wait_until(lambda: self.asking.alerts() == {"db1": "disk full"}, "the alert")
            self.assertEqual(held.wait_until_registered(5), number)
        self.assertEqual(statuses, ["registered", "away", "registered"])

    @quick_attempts
    def test_a_name_server_that_hangs_is_noticed_and_has_the_name_again_afterwards(self) -> None:
        with self.registration("db1", check_every=0.05, limits=SHORT) as held:
            self.server.hang()
            wait_until(lambda: held.status.kind == "away", "the name server counts as away")
            self.assertIn("0.3 s", held.status.reason)
            self.server.go_on()
            wait_until(lambda: held.status.kind == "registered", "the name server counts as there")
            # The connections that were given up end now, and the name with each.
            wait_until(lambda: self.number_of("db1") == held.number, "the name")

    def test_a_name_that_ended_with_a_connection_long_given_up_is_registered_again(self) -> None:
        before = self.enterContext(Client("127.0.0.1", self.server.port))
        before.ask({"reconnectPort": "db1", "portNumber": "4711", "portHost": "h", "portType": ""})
        with self.registration("db1", number=4711, registered_host="h", check_every=0.02):
            changed = self.asking.ask({"action": "changeTimestamp"})
            before.close()
            wait_until(lambda: self.asking.ask({"action": "changeTimestamp"}) != changed, "the end of the connection")
            wait_until(lambda: self.number_of("db1") == 4711, "the name")

    def test_a_name_that_another_takes_is_waited_for(self) -> None:
        with self.registration("db1", check_every=0.02) as held:
            other = self.enterContext(Client("127.0.0.1", self.server.port))
            other.ask({"reconnectPort": "db1", "portNumber": "4711", "portHost": "h", "portType": ""})
            wait_until(lambda: held.status.kind == "taken", "it is told that the name is taken")
            self.assertEqual(self.number_of("db1"), 4711)
            other.close()
            wait_until(lambda: held.status.kind == "registered", "the name")
            self.assertEqual(self.number_of("db1"), held.number)

    def test_many_registrations_end_promptly(self) -> None:
        held = [self.registration(f"db{each}") for each in range(20)]
        for each in held:
            each.start()
        for each in held:
            each.wait_until_registered(20)
        before = time.monotonic()
        for each in held:
            each.close()
        self.assertLess(time.monotonic() - before, 2.0)


OURS = frame(("portNumber", "7"), ("portHost", "h"), ("result", "success"))
"""A reply to everything, of a name server that has the name for number 7 on host h."""


class AtAnOtherServer(unittest.TestCase):
    def test_that_refuses_is_an_error_at_the_start(self) -> None:
        with ScriptedServer(lambda request: NO_DICTIONARY) as server:
            before = time.monotonic()
            with self.assertRaises(Refused):
                VARIANT.Registration("db1", "127.0.0.1", server.port).__enter__()
            self.assertLess(time.monotonic() - before, 5)

    @quick_attempts
    def test_that_refuses_is_tried_again(self) -> None:
        def script(request: dict[str, str]) -> bytes:
            return NO_DICTIONARY if server.asked("newPort", "") < 2 else frame(("portNumber", "7"))

        statuses: list[str] = []
        with ScriptedServer(script) as server:
            held = VARIANT.Registration("db1", "127.0.0.1", server.port, on_status=lambda it: statuses.append(it.kind))
            held.start()
            self.assertEqual(held.wait_until_registered(20), 7)
            held.close()
        self.assertEqual(statuses, ["refused", "registered"])

    def test_that_does_not_take_a_state_is_told_of(self) -> None:
        def script(request: dict[str, str]) -> bytes:
            found = frame(("portNumber", "7"), ("portHost", "h"))
            return NO_DICTIONARY if request.get("action") == "setDatabaseState" else found

        errors: list[SorvaneError] = []
        with ScriptedServer(script) as server:
            held = VARIANT.Registration("db1", "127.0.0.1", server.port, registered_host="h", on_error=errors.append)
            with held:
                held.set_state("running")
                wait_until(lambda: errors, "the error")
                self.assertEqual(held.status.kind, "registered")
        self.assertIsInstance(errors[0], Refused)

    @mock.patch("sorvane._holding.FIRST_CHECK_SECONDS", 1000)
    def test_that_is_just_asked_gets_a_new_state_right_after(self) -> None:
        def script(request: dict[str, str]) -> bytes:
            if request.get("state") == "one":
                held.set_state("two")
            return frame(("portNumber", "7"), ("portHost", "h"), ("result", "success"))

        with ScriptedServer(script) as server:
            held = VARIANT.Registration("db1", "127.0.0.1", server.port, registered_host="h", check_every=1000)
            with held:
                held.set_state("one")
                wait_until(lambda: server.asked("state", "two"), "the new state")

    @mock.patch("sorvane._holding.FIRST_CHECK_SECONDS", 1000)
    def test_that_is_told_states_is_not_asked_for_the_name_after_each(self) -> None:
        with ScriptedServer(lambda request: OURS) as server:
            with VARIANT.Registration("db1", "127.0.0.1", server.port, registered_host="h", check_every=1000) as held:
                for state in map(str, range(5)):
                    held.set_state(state)
                    wait_until(lambda: server.asked("state", state), "the state")
            self.assertEqual(server.asked("findPort", "db1"), 0)

    @mock.patch("sorvane._holding.FIRST_CHECK_SECONDS", 0.1)
    def test_that_is_told_states_is_asked_for_the_name_in_time(self) -> None:
        with ScriptedServer(lambda request: OURS) as server:
            with VARIANT.Registration("db1", "127.0.0.1", server.port, registered_host="h", check_every=1000) as held:
                for state in map(str, range(12)):
                    held.set_state(state)
                    wait_until(lambda: server.asked("state", state), "the state")
                asked = server.asked("findPort", "db1")
                wait_until(lambda: server.asked("findPort", "db1") > asked, "a question after the states")

    @mock.patch("sorvane._holding.FIRST_CHECK_SECONDS", 0.1)
    def test_that_is_told_states_all_the_time_is_asked_for_the_name_meanwhile(self) -> None:
        with ScriptedServer(lambda request: OURS) as server:
            with VARIANT.Registration("db1", "127.0.0.1", server.port, registered_host="h", check_every=0.1) as held:

                def is_asked_after_another_state() -> bool:
                    held.set_state("busy")
                    return server.asked("findPort", "db1") >= 2

                wait_until(is_asked_after_another_state, "two questions between states")

    @mock.patch("sorvane._holding.FIRST_CHECK_SECONDS", 0.05)
    def test_that_forgets_the_name_again_and_again_is_asked_for_it_as_soon_each_time(self) -> None:
        forgotten = frame(("portNumber", "7"), ("reconnectPort", "db1"), ("notFound", "db1"))
        with ScriptedServer(lambda request: forgotten) as server:
            with VARIANT.Registration("db1", "127.0.0.1", server.port, registered_host="h", check_every=1000):
                wait_until(lambda: server.asked("reconnectPort", "db1") >= 10, "ten registrations")

    @quick_attempts
    @mock.patch("sorvane._holding.FIRST_CHECK_SECONDS", 1000)
    def test_that_ends_the_connection_is_noticed_without_a_question(self) -> None:
        statuses: list[str] = []
        with ScriptedServer(lambda request: frame(("portNumber", "7"))) as server:
            held = VARIANT.Registration(
                "db1", "127.0.0.1", server.port, check_every=1000, on_status=lambda it: statuses.append(it.kind)
            )
            with held:
                server.hang_up()
                wait_until(lambda: statuses[1:] == ["away", "registered"], "another registration")
            self.assertEqual(server.asked("findPort", "db1"), 0)

    def test_that_hangs_does_not_delay_the_end(self) -> None:
        with ScriptedServer(lambda request: None) as server:
            held = VARIANT.Registration("db1", "127.0.0.1", server.port)
            held.start()
            wait_until(lambda: server.requests, "a request")
            before = time.monotonic()
            held.close()
            held.close()
            self.assertLess(time.monotonic() - before, 1.0)

    @quick_attempts
    def test_that_is_away_is_waited_for(self) -> None:
        with socket.socket() as holder:
            holder.bind(("127.0.0.1", 0))
            port = holder.getsockname()[1]
            held = VARIANT.Registration("db1", "127.0.0.1", port, limits=Limits(0.2, 0.2))
            with self.assertRaises(Unreachable) as error:
                held.__enter__()
            self.assertIn("Connection refused", str(error.exception))
        with NameServer() as server:
            server.stop()
            held = VARIANT.Registration("db1", "127.0.0.1", server.port)
            starting = threading.Thread(target=server.start)
            starting.start()
            with held:
                self.assertEqual(held.number, server.port + 1)
            starting.join()

    def test_callbacks_that_raise_end_nothing(self) -> None:
        def fail(*arguments: Any) -> None:
            raise RuntimeError("a mistake")

        with self.assertLogs("sorvane", "ERROR") as logs, NameServer() as server:
            with VARIANT.Registration("db1", "127.0.0.1", server.port, on_status=fail) as held:
                held.set_state("starting")
                with Client("127.0.0.1", server.port) as asking:
                    wait_until(lambda: asking.states() == {"db1": "starting"}, "the state")
            with self.assertRaises(Refused):
                VARIANT.Registration("db2", "127.0.0.1", server.port, listen=fail).__enter__()
        self.assertIn("a mistake", "".join(logs.output))

    def test_what_cannot_be_registered_is_told_at_once(self) -> None:
        for options in ({"name": ""}, {"name": "db1", "number": -1}, {"name": "db1", "check_every": 0}):
            with self.assertRaises(InvalidValue):
                VARIANT.Registration(**options)

    def test_it_can_be_started_once(self) -> None:
        with NameServer() as server, VARIANT.Registration("db1", "127.0.0.1", server.port) as held:
            with self.assertRaises(RuntimeError):
                held.start()


if __name__ == "__main__":
    unittest.main()
