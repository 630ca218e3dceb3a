"""The logic of a watch: what it knows, what it asks, what it tells. No input or output happens here."""

import dataclasses

from sorvane import _questions
from sorvane._steps import Connect, Idle, Steps, Tell, next_attempt
from sorvane.entries import Change, Entry, Here, Limits, Place, WatchStatus
from sorvane.errors import ProtocolError, SorvaneError, Unsupported

WAIT_SECONDS = 10
"""How long a name server is let wait for a change. One that hangs is noticed after this time and the limit of a
reply."""


class Picture:
    """The databases as they were told last."""

    def __init__(self, limits: Limits) -> None:
        self._limits = limits
        self._weight = 0
        self.entries: dict[str, Entry] = {}

    def update(self, news: dict[str, Entry | None]) -> list[Change]:
        """Takes news of some names, None for one that is gone. Returns what is different. Raises ProtocolError, and
        takes nothing, when the databases would be too many to be kept."""
        weight = self._weight + sum(_weight(entry) - _weight(self.entries.get(name)) for name, entry in news.items())
        if weight > self._limits.picture_bytes:
            raise ProtocolError(f"the name server tells more than {self._limits.picture_bytes} bytes of databases")
        self._weight = weight
        changes: list[Change] = []
        for name, entry in news.items():
            before = self.entries.get(name)
            if entry is None:
                if before is not None:
                    del self.entries[name]
                    changes.append(Change("gone", before))
                continue
            self.entries[name] = entry
            if before is None:
                changes.append(Change("registered", entry))
            elif entry != before and not _has_only_lapsed(before, entry):
                changes.append(Change("changed", entry))
        return changes

    def replace(self, entries: dict[str, Entry]) -> list[Change]:
        """Takes news of all names that there are. Returns what is different."""
        news: dict[str, Entry | None] = {name: None for name in self.entries if name not in entries}
        news.update(entries)
        return self.update(news)


def _weight(entry: Entry | None) -> int:
    """About the memory that an entry takes, in bytes."""
    if entry is None:
        return 0
    texts = (entry.name, entry.host, entry.address, entry.type, entry.state, entry.alert)
    return _questions.ENTRY_OVERHEAD + sum(map(len, texts))


def _has_only_lapsed(before: Entry, now: Entry) -> bool:
    """True when the alert is over and nothing else is different."""
    return not now.alert and now == dataclasses.replace(before, alert="", alert_time=None)


class Following:
    """Follows the databases of a name server: connects, looks, waits for a change, and so on, for ever."""

    def __init__(self, limits: Limits, poll_every: float) -> None:
        self._limits = limits
        self._poll_every = poll_every
        self._place: Place | None = None
        self.picture = Picture(limits)

    def steps(self) -> Steps[None]:
        """Tells each list of changes, and each WatchStatus that differs from the one before."""
        status = WatchStatus()
        while True:
            try:
                here: Here = yield Connect()
                waits = tells = True
                # The first time, both questions for a change are answered at once, and with yes.
                while True:
                    if waits:
                        try:
                            changed = yield from _questions.wait_for_change(WAIT_SECONDS)
                        except Unsupported:
                            waits = False
                    if not waits:
                        changed = yield from _questions.has_changed()
                    if changed:
                        if tells:
                            try:
                                changes = yield from self._changes()
                            except Unsupported:
                                tells = False
                        if not tells:
                            everything = yield from _questions.all_one_by_one(here, self._limits)
                            changes = self.picture.replace(everything)
                        if changes:
                            yield Tell(changes)
                        if not status.current:
                            status = WatchStatus(True)
                            yield Tell(status)
                    if not waits:
                        yield Idle(self._poll_every)
            except SorvaneError as error:
                if status != WatchStatus(False, str(error)):
                    status = WatchStatus(False, str(error))
                    yield Tell(status)
                yield next_attempt()

    def _changes(self) -> Steps[list[Change]]:
        """What is different since the last time. Of what is told in several pages, nothing counts before the last."""
        place = self._place
        budget = _questions.Budget(self._limits)
        anew = False
        news: dict[str, Entry | None] = {}
        while True:
            page = yield from _questions.changes(place)
            budget.spend(page.weight)
            if page.restart:
                anew = True
                news = {}
            news.update(page.entries)
            place = page.place
            if not page.more:
                break
        if anew:
            changes = self.picture.replace({name: entry for name, entry in news.items() if entry is not None})
        else:
            changes = self.picture.update(news)
        self._place = place
        return changes
