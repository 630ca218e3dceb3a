"""Asking a name server, by threads or asyncio."""

import socket
import threading
import time
import unittest
from typing import Any
from unittest import mock

from sorvane import (
    ConnectionLost,
    Entry,
    InvalidValue,
    Limits,
    NoReply,
    ProtocolError,
    Refused,
    SorvaneError,
    Unreachable,
    Unsupported,
)
from support import NO_DICTIONARY, SHORT, VARIANT, NameServer, ScriptedServer, body, frame

server: NameServer


def setUpModule() -> None:
    global server
    server = NameServer()


def tearDownModule() -> None:
    server.__exit__()


class ARealNameServer(unittest.TestCase):
    def setUp(self) -> None:
        self.client = self.enterContext(VARIANT.Client("127.0.0.1", server.port))

    def test_answers(self) -> None:
        self.client.ping()

    def test_finds_what_is_registered_and_nothing_else(self) -> None:
        with VARIANT.Registration("found", "127.0.0.1", server.port, type="t", registered_host="h", number=4711):
            self.assertEqual(self.client.find("found"), Entry("found", 4711, "h", type="t"))
            self.assertIsNone(self.client.find("lost"))
        self.assertIsNone(self.client.find("lost"))

    def test_tells_at_which_host_a_database_is_reached(self) -> None:
        with VARIANT.Registration("local", "127.0.0.1", server.port, registered_host="localhost"):
            self.assertEqual(self.client.reachable_host(self.client.find("local")), "127.0.0.1")

    def test_lists_databases_with_their_states_and_alerts(self) -> None:
        with VARIANT.Registration("b", "127.0.0.1", server.port, registered_host="h", number=1), VARIANT.Registration(
            "a", "127.0.0.1", server.port, registered_host="h", number=2
        ):
            self.client.set_state("b", "starting")
            self.client.set_alert("b", "disk nearly full")
            listed = self.client.list()
            known = [(entry.name, entry.number, entry.host) for entry in listed]
            self.assertEqual(known, [("a", 2, "h"), ("b", 1, "h")])
            self.assertEqual((listed[1].state, listed[1].alert), ("starting", "disk nearly full"))
            self.assertEqual(self.client.states(), {"a": "running", "b": "starting"})
            self.assertEqual(self.client.alerts(), {"b": "disk nearly full"})

    def test_tells_about_its_host(self) -> None:
        info = self.client.host_info()
        self.assertEqual((info.name, info.hardware_address, info.address), ("dbhost", "02:00:5e:10:00:07", "192.0.2.7"))

    def test_answers_any_request(self) -> None:
        self.assertEqual(self.client.ask({"action": "setDatabaseState"}), {"result": "failed"})
        self.assertIsNone(self.client.ask({"acceptPort": ""}))

    def test_is_asked_by_several_threads_at_once(self) -> None:
        failures: list[object] = []

        def ask() -> None:
            for _ in range(50):
                if self.client.find("VN_nameserver").number != server.port:
                    failures.append("a wrong reply")

        threads = [threading.Thread(target=ask) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])

    def test_is_asked_again_after_a_restart_without_an_error(self) -> None:
        self.client.ping()
        server.stop()
        server.start()
        self.client.ping()


class AnOtherServer(unittest.TestCase):
    def client(self, script: Any, limits: Limits = Limits()) -> Any:
        self.other = self.enterContext(ScriptedServer(script))
        return self.enterContext(VARIANT.Client("127.0.0.1", self.other.port, limits=limits))

    def test_that_hangs_ends_a_call_within_its_limit(self) -> None:
        client = self.client(lambda request: None, SHORT)
        before = time.monotonic()
        with self.assertRaises(NoReply) as error:
            client.ping()
        self.assertLess(time.monotonic() - before, 5)
        self.assertIn("0.3 s", str(error.exception))
        with self.assertRaises(NoReply):
            client.ping()  # over another connection: a late reply must not be taken for that to this question
        self.assertEqual(len(self.other.connections), 2)

    def test_that_sends_a_reply_slowly_ends_a_call_within_its_limit(self) -> None:
        client = self.client(lambda request: b"SV\x01\x01\0\0", SHORT)
        with self.assertRaises(NoReply):
            client.ping()

    def test_that_closes_is_an_error_and_the_next_call_connects_again(self) -> None:
        client = self.client(lambda request: b"" if self.other.asked("ping", "") == 1 else frame())
        with self.assertRaises(ConnectionLost):
            client.ping()
        client.ping()

    def test_that_is_no_name_server_is_an_error(self) -> None:
        client = self.client(lambda request: b"HTTP/1.1 400 Bad Request\r\n\r\n")
        with self.assertRaises(ProtocolError):
            client.ping()

    def test_that_sends_what_nobody_asked_for_is_an_error(self) -> None:
        for more in (frame(), b"S"):
            with self.assertRaises(ProtocolError):
                self.client(lambda request: frame() + more).ping()

    def test_of_an_earlier_version_is_asked_for_each_name(self) -> None:
        def script(request: dict[str, str]) -> bytes:
            if request.get("action") == "databaseStates":
                return frame(("result", "db2:x|gone:running|db1:running"), ("alerts", "db2:full"))
            if name := request.get("findPort"):
                found = frame(("portNumber", "7"), ("portHost", "h"), ("portType", "t"))
                return frame(("notFound", "notFound")) if name == "gone" else found
            return frame()

        client = self.client(script)
        one, two = Entry("db1", 7, "h", "", "t", "running"), Entry("db2", 7, "h", "", "t", "x", "full")
        self.assertEqual(client.list(), [one, two])
        with self.assertRaises(Unsupported):
            client.forget("db1")

    def test_that_tells_changes_is_asked_for_the_list_at_once(self) -> None:
        rows = [("0", body(("name", "db1"), ("portNumber", "7"), ("left", "YES")))]
        head = [("instance", "i"), ("sequence", "1"), ("more", "NO"), ("restart", "YES")]
        client = self.client(lambda request: frame(*head, *rows))
        self.assertEqual(client.list(), [Entry("db1", 7, left=True)])
        self.assertEqual(len(self.other.requests), 1)

    def test_that_never_comes_to_an_end_is_an_error(self) -> None:
        count = [0]

        def script(request: dict[str, str]) -> bytes:
            count[0] += 1
            restart = "YES" if count[0] == 1 else "NO"
            head = [("instance", "i"), ("sequence", str(count[0])), ("more", "YES"), ("restart", restart)]
            return frame(*head, ("0", body(("name", "sorvexec"))))

        with self.assertRaises(ProtocolError):
            self.client(script, Limits(picture_bytes=1 << 20)).list()

    def test_that_refuses_is_an_error(self) -> None:
        client = self.client(lambda request: NO_DICTIONARY)
        for call in (client.ping, client.list, client.host_info, lambda: client.set_state("db1", "x")):
            with self.assertRaises(Refused):
                call()


class NoNameServer(unittest.TestCase):
    def refused(self, host: str, port: int) -> str:
        with self.assertRaises(Unreachable) as error:
            VARIANT.Client(host, port, limits=Limits(connect=20)).__enter__()
        return str(error.exception)

    def test_is_told_in_words(self) -> None:
        with socket.socket() as holder:
            holder.bind(("127.0.0.1", 0))
            port = holder.getsockname()[1]
            self.assertEqual(self.refused("127.0.0.1", port), f"127.0.0.1 port {port}: Connection refused")

    def test_at_a_host_that_is_unknown(self) -> None:
        failure = socket.gaierror(socket.EAI_NONAME, "Name or service not known")
        with mock.patch("socket.getaddrinfo", side_effect=failure):
            self.assertIn("Name or service not known", self.refused("nowhere.example", 1))

    def test_at_a_host_whose_look_up_hangs_ends_within_the_limit(self) -> None:
        released = threading.Event()

        def look_up(*arguments: Any, **options: Any) -> Any:
            released.wait(20)
            return []

        with mock.patch("socket.getaddrinfo", side_effect=look_up):
            before = time.monotonic()
            with self.assertRaises((Unreachable, NoReply)):
                VARIANT.Client("slow.example", 1, limits=Limits(connect=0.1)).__enter__()
            self.assertLess(time.monotonic() - before, 5)
            released.set()

    def test_that_accepts_ends_within_the_limit(self) -> None:
        with socket.socket() as full:
            full.bind(("127.0.0.1", 0))
            full.listen(0)
            port = full.getsockname()[1]
            waiting = []
            for _ in range(4):  # until the queue of connections is full
                each = self.enterContext(socket.socket())
                each.setblocking(False)
                each.connect_ex(("127.0.0.1", port))
                waiting.append(each)
            with self.assertRaises(Unreachable) as error:
                VARIANT.Client("127.0.0.1", port, limits=Limits(connect=0.2)).__enter__()
            self.assertIn("0.2 s", str(error.exception))

    def test_but_a_connection_to_itself_counts_as_refused(self) -> None:
        with socket.socket() as holder:
            holder.bind(("127.0.0.1", 0))
            port = holder.getsockname()[1]

        class Itself(socket.socket):
            """The system gives a connection a port at random. This one always gets that to which it connects."""

            def connect_ex(self, address: Any) -> int:
                self.bind(address)
                return super().connect_ex(address)

            def connect(self, address: Any) -> None:
                self.bind(address)
                super().connect(address)

        with mock.patch("socket.socket", Itself):
            self.assertIn("refused", self.refused("127.0.0.1", port))

    def test_can_have_an_address_that_is_none(self) -> None:
        for host, port in (("", 1), ("a\0b", 1), ("localhost", 0), ("localhost", 65536)):
            with self.assertRaises(InvalidValue):
                VARIANT.Client(host, port)
        with self.assertRaises(SorvaneError):
            VARIANT.Client("x" * 300, 1, limits=Limits(connect=20)).__enter__()
        with self.assertRaises(ValueError):
            Limits(reply=0)


if __name__ == "__main__":
    unittest.main()
