"""What belongs to asyncio alone."""

import asyncio
import gc
import time
import unittest
import warnings

import sorvane
from sorvane.aio import Client, Registration, Watch
from sorvane.aio._tasks import Wire
from support import LIMIT, NameServer, ScriptedServer, frame


class Tasks(unittest.IsolatedAsyncioTestCase):
    async def asyncSetUp(self) -> None:
        self.server = self.enterContext(NameServer())

    async def test_several_ask_over_one_connection(self) -> None:
        async with Client("127.0.0.1", self.server.port) as client:
            found = await asyncio.gather(*(client.find("VN_nameserver") for _ in range(50)))
        self.assertEqual({entry.number for entry in found if entry}, {self.server.port})

    async def test_a_question_that_is_cancelled_does_not_answer_the_next_one(self) -> None:
        def script(request: dict[str, str]) -> bytes | None:
            return None if request.get("findPort") == "slow" else frame(("portNumber", "7"))

        with ScriptedServer(script) as other:
            async with Client("127.0.0.1", other.port) as client:
                with self.assertRaises(TimeoutError):
                    async with asyncio.timeout(0.05):
                        await client.find("slow")
                self.assertEqual(await client.find("quick"), sorvane.Entry("quick", 7))
            self.assertEqual(len(other.connections), 2)

    async def test_being_woken_once_ends_one_wait(self) -> None:
        wire = Wire("127.0.0.1", self.server.port, sorvane.Limits())
        await wire.connect()
        wire.woken.set()
        await wire.idle(1000)
        before = time.monotonic()
        await wire.idle(0.05)
        self.assertGreater(time.monotonic() - before, 0.04)
        wire.drop()

    async def test_listening_may_be_awaited(self) -> None:
        servers: list[asyncio.Server] = []

        async def listen(number: int) -> None:
            servers.append(await asyncio.start_server(lambda reader, writer: writer.close(), "127.0.0.1", 0))

        async with Registration("db1", "127.0.0.1", self.server.port, listen=listen):
            self.assertEqual(len(servers), 1)
        servers[0].close()

    async def test_a_wait_for_a_change_that_is_cancelled_loses_none(self) -> None:
        async with Watch("127.0.0.1", self.server.port) as watch:
            for _ in range(5):
                self.assertIsNone(await watch.next_change(0.01))
            async with Registration("db1", "127.0.0.1", self.server.port):
                change = await watch.next_change(LIMIT)
        assert change
        self.assertEqual(change.entry.name, "db1")

    async def test_nothing_is_left_behind_at_the_end(self) -> None:
        before = asyncio.all_tasks()
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            async with Watch("127.0.0.1", self.server.port), Registration("db1", "127.0.0.1", self.server.port):
                pass
            gc.collect()
        self.assertEqual(asyncio.all_tasks(), before)


if __name__ == "__main__":
    unittest.main()
