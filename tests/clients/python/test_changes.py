"""What a name server tells that knows what has changed, by threads or asyncio."""

import time
import unittest
from datetime import datetime, timezone
from typing import Any

from sorvane import Refused
from support import LIMIT, VARIANT, NameServer, wait_until


class ANameServerThatTellsWhatHasChanged(unittest.TestCase):
    def setUp(self) -> None:
        self.server = self.enterContext(NameServer())
        self.client = self.enterContext(VARIANT.Client("127.0.0.1", self.server.port))

    def registration(self, name: str, **options: Any) -> Any:
        return self.enterContext(VARIANT.Registration(name, "127.0.0.1", self.server.port, **options))

    def leave_behind(self, name: str) -> None:
        """Registers a name over a connection that ends with another one."""
        with VARIANT.Client("127.0.0.1", self.server.port) as other:
            for each in (name, "goes"):
                other.ask({"reconnectPort": each, "portNumber": "1", "portHost": "h", "portType": "t"})
            with self.assertRaises(Refused):
                self.client.forget(name)
        wait_until(lambda: self.client.find("goes") is None, "the end of the connection")

    def test_lists_all_that_is_known_of_a_database(self) -> None:
        self.registration("db1", address="192.0.2.9", registered_host="h", number=4711)
        (entry,) = self.client.list()
        self.assertEqual((entry.number, entry.host, entry.address), (4711, "h", "192.0.2.9"))
        self.assertEqual((entry.state, entry.alert, entry.alert_time, entry.left), ("", "", None, False))
        self.client.set_state("db1", "starting")
        self.client.set_alert("db1", "full")
        (entry,) = self.client.list()
        self.assertEqual((entry.state, entry.alert), ("starting", "full"))
        self.assertLess(abs((datetime.now(timezone.utc) - entry.alert_time).total_seconds()), 60)

    def test_lists_more_than_a_page_and_names_with_any_signs(self) -> None:
        connection = self.enterContext(VARIANT.Client("127.0.0.1", self.server.port))
        names = {f"db|{each}:x" for each in range(1200)}
        for name in names:
            connection.ask({"reconnectPort": name, "portNumber": "1", "portHost": "h", "portType": "t"})
        self.assertEqual({entry.name for entry in self.client.list()}, names)

    def test_forgets_what_was_left_behind_and_nothing_else(self) -> None:
        self.leave_behind("stays")
        (entry,) = self.client.list()
        self.assertTrue(entry.left)
        self.client.forget("stays")
        self.assertEqual(self.client.list(), [])
        for name in ("stays", "VN_nameserver"):
            with self.assertRaises(Refused):
                self.client.forget(name)

    def test_tells_a_watch_that_a_name_was_left_behind_and_forgotten(self) -> None:
        with VARIANT.Watch("127.0.0.1", self.server.port) as watch:
            self.leave_behind("stays")
            while not (change := watch.next_change(LIMIT)).entry.left:
                pass
            self.assertEqual(change.entry.name, "stays")
            self.client.forget("stays")
            while (change := watch.next_change(LIMIT)).kind != "gone" or change.entry.name != "stays":
                pass

    def test_asks_for_a_change_as_much_as_it_tells(self) -> None:
        connection = self.enterContext(VARIANT.Client("127.0.0.1", self.server.port))
        for each in range(1000):
            connection.ask({"reconnectPort": f"db{each}", "portNumber": "1", "portHost": "h", "portType": "t"})
        with VARIANT.Watch("127.0.0.1", self.server.port) as watch:
            wait_until(lambda: watch.status.current or watch.next_change(0), "the watch is current")
            while watch.next_change(0.05) is not None:
                pass
            before = time.monotonic()
            self.registration("new")
            self.assertEqual(watch.next_change(LIMIT).entry.name, "new")
            self.assertLess(time.monotonic() - before, 0.5)


if __name__ == "__main__":
    unittest.main()
