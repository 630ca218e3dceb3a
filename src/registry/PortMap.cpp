#include "registry/PortMap.h"

#include <string>
#include <utility>

#include "platform/NSException.h"
#include "platform/TimeSource.h"
#include "registry/HeapBytes.h"
#include "registry/Journal.h"

namespace sorvane {
namespace {

// As many as there are when the table is half full.
constexpr std::size_t kSlotsOfEntry = 2;
constexpr std::size_t kEntryBytes = kSlotsOfEntry * PortTable::kSlotBytes;

std::int64_t difference(std::size_t now, std::size_t before) {
  return static_cast<std::int64_t>(now) - static_cast<std::int64_t>(before);
}

// What a record costs whatever entries it has.
std::size_t textBytes(const PortDescriptor& record) {
  return record.registrationBytes() + record.stateBytes();
}

bool isLastLeftBehind(const PortDescriptor& record) {
  return record.holdings().hasLeft != 0 && record.holdings().entries == 1;
}

}  // namespace

// A short name lies in its slot.
std::size_t PortMap::nameBytes(std::string_view name) {
  const std::size_t inSlot = std::string().capacity();
  return name.size() <= inSlot ? 0 : heapBytes(name.size() + 1);
}

template <typename Change>
void PortMap::change(PortDescriptor& record, Change&& make) {
  PortDescriptor::Holdings& held = record.holdings();
  if (held.isCounted != 0) {
    addToSums(record, ~std::uint64_t{0});
  }
  make();
  held.isCounted = held.hasLeft == 0 || held.entries > 0 ? 1 : 0;
  if (held.isCounted != 0) {
    addToSums(record, 1);
  }
}

PortMap::Record PortMap::replaceRegistration(PortDescriptor& record,
                                             const Registration& registration, int connection) {
  PortDescriptor::Prepared texts(registration);
  Growth growth = growthByRegistration(record, texts.bytes());
  std::optional<PortTable::Place> former;
  if (record.portNumber() && record.portName()) {
    const std::string_view name = *record.portName();
    const PortTable::Place place = table_.placeOf(name);
    if (place.isTaken()) {
      const PortDescriptor& holder = *table_.at(place);
      const std::int64_t freed = difference(nameBytes(name), 0);
      growth.ofAll -= freed;
      if (&holder == &record) {
        growth.ofConnection -= freed + difference(kEntryBytes, 0);
      } else if (isLastLeftBehind(holder)) {
        growth.ofAll -= difference(textBytes(holder), 0);
      }
      former = place;
    }
  }
  requireRoom(record, growth);
  Record removed = former ? remove(*former) : nullptr;
  change(record, [&] { record.setRegistration(std::move(texts)); });
  table_.noteChange(record);
  if (journal_ != nullptr) {
    journal_->registrationReplaced(connection, record);
  }
  return removed;
}

template <typename Set>
PortMap::Record PortMap::enter(PortTable::Place place, Record record, OwnedPortName&& name,
                               Set&& set) {
  const auto bytes = static_cast<std::uint32_t>(nameBytes(name.text()));
  PortDescriptor& entered = *record;
  PortDescriptor* const holder = place.isTaken() ? table_.at(place).get() : nullptr;
  Record replaced;
  const auto put = [&] {
    change(entered, [&] {
      set(entered);
      if (holder != &entered) {
        entered.holdings().nameBytes += bytes;
        replaced = table_.enter(place, std::move(name), std::move(record));
      }
    });
  };
  if (holder == nullptr || holder == &entered) {
    put();
  } else {
    change(*holder, [&] {
      holder->holdings().nameBytes -= bytes;
      put();
    });
  }
  table_.noteChange(entered);
  return replaced;
}

PortMap::Record PortMap::enter(OwnedPortName&& name, Record record, int connection) {
  const PortTable::Place place = table_.placeOf(name);
  Growth growth = growthByEntry(place, name.text(), *record);
  if (record->holdings().isCounted == 0) {
    growth.ofAll += difference(textBytes(*record), 0);
  }
  requireRoom(*record, growth);
  if (journal_ == nullptr) {
    return enter(place, std::move(record), std::move(name), [](PortDescriptor&) {});
  }
  // The name may be taken.
  journal_->willEnter(connection, *record, name.text());
  Record replaced = enter(place, std::move(record), std::move(name), [](PortDescriptor&) {});
  journal_->didAsPrepared();
  return replaced;
}

PortMap::Record PortMap::enterWith(NamedRegistration&& registration, Record record,
                                   int connection) {
  const PortTable::Place place = table_.placeOf(registration.name);
  Growth growth = growthByEntry(place, registration.name.text(), *record);
  const Growth ofTexts = growthByRegistration(*record, registration.texts.bytes());
  growth.ofConnection += ofTexts.ofConnection;
  growth.ofAll += ofTexts.ofAll;
  requireRoom(*record, growth);
  PortDescriptor& entering = *record;
  Record replaced = enter(
      place, std::move(record), std::move(registration.name),
      [&](PortDescriptor& entered) { entered.setRegistration(std::move(registration.texts)); });
  if (journal_ != nullptr) {
    journal_->enteredWith(connection, entering);
  }
  return replaced;
}

PortMap::Record PortMap::remove(const PortName& name) {
  const PortTable::Place place = table_.placeOf(name);
  if (!place.isTaken()) {
    return nullptr;
  }
  if (journal_ == nullptr) {
    return remove(place);
  }
  journal_->willRemove(name.text());  // which may be the text of the entry
  Record removed = remove(place);
  journal_->didAsPrepared();
  return removed;
}

PortMap::Record PortMap::removeOldestLeftBehind() {
  Record removed = remove(table_.oldestLeftBehind());
  if (journal_ != nullptr) {
    journal_->oldestLeftBehindRemoved();
  }
  return removed;
}

void PortMap::setStatus(const PortName& name, std::string_view text) {
  const bool isSet = setText<&PortDescriptor::stateBytesWithStatus>(
      name, text, [&](PortDescriptor& record) { record.setPortStatus(text); });
  if (isSet && journal_ != nullptr) {
    journal_->statusSet(name.text(), text);
  }
}

void PortMap::setAlert(const PortName& name, std::string_view text) {
  setAlert(name, text, timeIntervalSinceReferenceDate());
}

void PortMap::setAlert(const PortName& name, std::string_view text, double time) {
  const bool isSet = setText<&PortDescriptor::stateBytesWithAlert>(
      name, text, [&](PortDescriptor& record) { record.setAlertStatus(text, time); });
  if (isSet && journal_ != nullptr) {
    journal_->alertSet(name.text(), text, time);
  }
}

template <std::size_t (PortDescriptor::*bytesWith)(std::string_view) const, typename Set>
bool PortMap::setText(const PortName& name, std::string_view text, Set&& set) {
  const Record* const found = table_.find(name);
  if (found == nullptr) {
    return false;
  }
  PortDescriptor& record = **found;
  const std::int64_t more = difference((record.*bytesWith)(text), record.stateBytes());
  requireRoom(record, {more, more});
  change(record, [&] { set(record); });
  table_.noteChange(record);
  return true;
}

std::optional<std::string_view> PortMap::alertOf(PortDescriptor& record) {
  std::optional<std::string_view> alert;
  if (record.alertAsSet()) {
    change(record, [&] { alert = record.alertStatus(); });
    if (!alert && journal_ != nullptr) {
      journal_->alertDropped(table_.oldestOf(record));
    }
  }
  return alert;
}

void PortMap::dropAlert(PortDescriptor& record) {
  change(record, [&] { record.dropAlert(); });
}

std::optional<PortName> PortMap::nameThatEndsWith(const PortDescriptor& record) {
  const auto name = record.portName();
  return record.portKey() && name ? std::optional<PortName>(*name) : std::nullopt;
}

PortMap::Record PortMap::end(PortDescriptor& record, const std::optional<PortName>& name,
                             int connection) {
  Record removed;
  if (name) {
    if (const PortTable::Place place = table_.placeOf(*name); place.isTaken()) {
      removed = remove(place);
    }
  }
  change(record, [&] {
    record.holdings().hasLeft = 1;
    if (record.holdings().entries > 0) {
      table_.leaveBehind(record);
    }
  });
  table_.noteChange(record);
  if (journal_ != nullptr) {
    journal_->ended(connection, record, name ? std::optional(name->text()) : std::nullopt);
  }
  return removed;
}

std::uint64_t PortMap::bytesOf(const PortDescriptor& record) {
  const PortDescriptor::Holdings& held = record.holdings();
  return std::uint64_t{textBytes(record)} + held.nameBytes +
         std::uint64_t{held.entries} * kEntryBytes;
}

void PortMap::requireRoom(const PortDescriptor& record, Growth growth) const {
  const auto passes = [](std::uint64_t sum, std::int64_t more, std::uint64_t limit) {
    return more > 0 && sum + static_cast<std::uint64_t>(more) > limit;
  };
  if (passes(bytesOf(record), growth.ofConnection, limits_.connection)) {
    throw NSException("one connection may not hold that much in the registry");
  }
  if (passes(bytes(), growth.ofAll, limits_.all)) {
    throw NSException("the registry has no room for that");
  }
}

PortMap::Growth PortMap::growthByRegistration(const PortDescriptor& record, std::size_t bytes) {
  const std::int64_t ofTexts = difference(bytes, record.registrationBytes());
  Growth growth = {ofTexts, ofTexts};
  if (record.holdings().isCounted == 0) {
    growth.ofAll += difference(textBytes(record), 0);
  }
  return growth;
}

PortMap::Growth PortMap::growthByEntry(PortTable::Place place, std::string_view name,
                                       const PortDescriptor& record) const {
  const std::int64_t ofName = difference(nameBytes(name), 0);
  const std::int64_t ofEntry = ofName + difference(kEntryBytes, 0);
  if (!place.isTaken()) {
    return {ofEntry, ofName + difference(table_.bytesToEnter(), 0)};
  }
  const PortDescriptor& holder = *table_.at(place);
  if (&holder == &record) {
    return {};
  }
  return {ofEntry, isLastLeftBehind(holder) ? -difference(textBytes(holder), 0) : 0};
}

PortMap::Record PortMap::remove(PortTable::Place place) {
  PortTable::Entry removed;
  PortDescriptor& record = *table_.at(place);
  change(record, [&] {
    removed = table_.remove(place);
    record.holdings().nameBytes -= static_cast<std::uint32_t>(nameBytes(removed.name));
  });
  removed_.add(std::move(removed.name), removed.hash, table_.nextChange());
  return std::move(removed.record);
}

// `sign` is 1, or its negative in the arithmetic of unsigned integers.
void PortMap::addToSums(const PortDescriptor& record, std::uint64_t sign) {
  const PortDescriptor::Holdings& held = record.holdings();
  recordBytes_ += sign * (std::uint64_t{textBytes(record)} + held.nameBytes);
  if (held.hasLeft != 0) {
    leftBehindBytes_ += sign * bytesOf(record);
  }
  const std::string_view name = listedName(record);
  if (held.entries == 0 || !isListed(name)) {
    return;
  }
  const std::uint64_t withoutText = name.size() + 2;  // the colon, and the byte behind the entry
  stateEntryBytes_ += sign * held.entries * (withoutText + listedState(record).size());
  if (const auto alert = record.alertAsSet()) {
    alertEntryBytes_ += sign * held.entries * (withoutText + alert->size());
  }
}

void PortMap::countRestored(PortDescriptor& record) {
  change(record, [] {});
}

}  // namespace sorvane
