#include "registry/ChangeCommands.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

#include "registry/ChangeWalk.h"
#include "registry/RequestKeys.h"
#include "registry/SecondsText.h"

namespace sorvane {
namespace {

constexpr std::size_t kUsualLimit = 1000;
constexpr std::size_t kMostLimit = 10000;
constexpr std::size_t kPageBytes = std::size_t{1} << 20;
constexpr std::size_t kSliceOfSteps = 256;
// Well below a tenth of a millisecond of work.
constexpr std::uint64_t kNamesToldWithoutWaiting = 128;
constexpr std::uint64_t kBytesToldWithoutWaiting = 65536;

std::size_t limitOf(const Message& request) {
  const std::string_view digits = request.text("limit").value_or("");
  std::size_t limit = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, limit);
  const bool isLimit = error == std::errc() && stop == end && limit >= 1 && limit <= kMostLimit;
  return isLimit ? limit : kUsualLimit;
}

// Returns where the client wants to go on, if that is a position of this registry.
std::optional<ChangePosition> positionOf(const CommandContext& context) {
  const Message& request = context.request;
  return request.text("instance") == context.registry.instance()
             ? ChangePosition::from(request.text("since").value_or("-"))
             : std::nullopt;
}

bool isKnown(const ChangePosition& position, const PortMap& map) {
  return position.removalsKnownUpTo() <= map.lastChange() &&
         position.removalsKnownUpTo() >= map.removedNames().forgottenUpTo();
}

// Returns true if little has changed after that number. Looks at little more than what it allows.
bool isShort(const PortMap& map, ChangeOrder::Number after) {
  std::uint64_t names = 0;
  std::uint64_t bytes = 0;
  const auto fits = [&](std::uint64_t moreNames, std::uint64_t bytesOfEach) {
    names += moreNames;
    bytes += moreNames * bytesOfEach;
    return names <= kNamesToldWithoutWaiting && bytes <= kBytesToldWithoutWaiting;
  };
  const ChangeOrder& changes = map.table().changes();
  for (auto slot = changes.newest(); slot != ChangeOrder::kNone && changes.numberOf(slot) > after;
       slot = changes.olderThan(slot)) {
    const PortDescriptor& record = *map.inSlot(slot);
    if (!fits(record.holdings().entries, record.registrationBytes() + record.stateBytes())) {
      return false;
    }
  }
  const RemovedNames& removed = map.removedNames();
  const ChangeOrder& removals = removed.order();
  for (auto name = removals.newest(); name != ChangeOrder::kNone && removals.numberOf(name) > after;
       name = removals.olderThan(name)) {
    if (!fits(1, removed.nameAt(name).size())) {
      return false;
    }
  }
  return true;
}

// The entries of a reply that tell the names.
class Page {
 public:
  explicit Page(std::size_t limit) : limit_(limit) {}

  void clear() {
    bytes_.clear();
    names_ = 0;
  }
  /// Appends a name, with null for one that was removed. Returns false and does nothing if there is
  /// no room. There is always room for one.
  bool tell(std::string_view name, PortMap& map, PortDescriptor* record);

  [[nodiscard]] std::string_view bytes() const { return bytes_; }

 private:
  static constexpr std::size_t kMostValues = 9;
  struct Row {
    void add(std::string_view key, std::optional<std::string_view> text) {
      if (text) {
        entries[count++] = {key, *text};
        bytes += textEntryBytes(key, text->size());
      }
    }
    std::array<MessageEntry, kMostValues> entries;
    std::size_t count = 0;
    std::size_t bytes = 0;
  };
  bool append(const Row& row);

  const std::size_t limit_;
  std::string bytes_;
  std::size_t names_ = 0;
};

bool Page::tell(std::string_view name, PortMap& map, PortDescriptor* record) {
  if (names_ == limit_) {
    return false;
  }
  Row row;
  row.add("name", name);
  if (record == nullptr) {
    row.add("gone", "YES");
    return append(row);
  }
  row.add(key::portNumber, record->portNumber());
  row.add(key::portHost, record->portHost());
  row.add(key::portHostAddress, record->portHostAddress());
  row.add(key::portType, record->portType());
  row.add("portStatus", record->portStatus());
  const auto alert = map.alertOf(*record);
  const SecondsText time(alert ? record->alertStatusTimestamp() : 0);
  if (alert) {
    row.add("alertStatus", alert);
    row.add("alertStatusTimestamp", time.view());
  }
  if (record->holdings().hasLeft != 0) {
    row.add("left", "YES");
  }
  return append(row);
}

bool Page::append(const Row& row) {
  char digits[8];
  char* const end = std::to_chars(digits, digits + sizeof digits, names_).ptr;
  const std::string_view place(digits, static_cast<std::size_t>(end - digits));
  const std::size_t before = bytes_.size();
  const std::size_t more = kEntryHeaderBytes + place.size() + row.bytes;
  if (names_ > 0 && before + more > kPageBytes) {
    return false;
  }
  requireEntryLengths(place, row.bytes);
  bytes_.resize(before + more);
  // The header of a data value, whose bytes the row is.
  char* out = writeEntry(bytes_.data() + before, place, {});
  storeBigEndian32(bytes_.data() + before + 2, static_cast<std::uint32_t>(row.bytes));
  for (std::size_t each = 0; each < row.count; ++each) {
    out = writeTextEntry(out, row.entries[each].key, row.entries[each].value);
  }
  ++names_;
  return true;
}

}  // namespace

Outcome portChanges(CommandContext& context) {
  Registry& registry = context.registry;
  Page page(limitOf(context.request));
  const std::optional<ChangePosition> given = positionOf(context);
  ChangePosition since = given.value_or(ChangePosition());
  bool restarts = !given;
  bool isBegun = false;
  ChangeWalk walk(since);
  auto stop = ChangeWalk::Stop::steps;
  while (stop == ChangeWalk::Stop::steps) {
    stop = registry.with([&](RegistryState& state) {
      PortMap& map = state.map;
      // Removals may be forgotten between two slices, too.
      if (isBegun ? !isKnown(since, map) : restarts || !isKnown(since, map)) {
        restarts = true;
        since = {.begun = map.lastChange()};
        walk = ChangeWalk(since);
        page.clear();
      }
      isBegun = true;
      return walk.goOn(map, kSliceOfSteps, [&](std::string_view name, PortDescriptor* record) {
        return page.tell(name, map, record);
      });
    });
  }
  context.reply.text("instance", registry.instance());
  context.reply.text("sequence", walk.position().text());
  context.reply.text("more", stop == ChangeWalk::Stop::full ? "YES" : "NO");
  context.reply.text("restart", restarts ? "YES" : "NO");
  context.reply.entries(page.bytes());
  return Reply::written();
}

bool portChangesMayWait(const CommandContext& context) {
  const std::optional<ChangePosition> since = positionOf(context);
  return !context.registry.with([&](const RegistryState& state) {
    const bool goesOn = since && isKnown(*since, state.map);
    return isShort(state.map, goesOn ? since->number : 0);
  });
}

Outcome forgetPort(CommandContext& context) {
  const PortName name(context.request.requiredText("name"));
  const PortMap::Record removed = context.registry.with([&](RegistryState& state) {
    const PortMap::Record* const found = state.map.find(name);
    const bool isLeft = found != nullptr && (*found)->holdings().hasLeft != 0;
    return isLeft ? state.map.remove(name) : nullptr;
  });
  const Reply reply = context.result(removed == nullptr ? "failed" : "success");
  if (removed != nullptr) {
    context.registry.setWatchToDirty();
  }
  return reply;
}

}  // namespace sorvane
