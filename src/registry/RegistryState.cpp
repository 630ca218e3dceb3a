#include "registry/RegistryState.h"

#include <cmath>
#include <limits>
#include <optional>
#include <string_view>

namespace sorvane {
namespace {

using CachedList = std::shared_ptr<const std::string>;

// Counting on from the highest must not pass what the type holds.
constexpr std::uint64_t kMostPortNumber = std::numeric_limits<std::int64_t>::max() / 2;
constexpr std::uint64_t kMostRefreshNumber = 10000;

void keepList(KeptWriter& writer, const CachedList& list) {
  writer.optionalText(list == nullptr ? std::nullopt : std::optional<std::string_view>(*list));
}

CachedList restoredList(KeptReader& reader) {
  const auto list = reader.optionalText();
  return list ? std::make_shared<const std::string>(*list) : nullptr;
}

}  // namespace

void RegistryState::keep(KeptWriter& writer, KeptPart part) const {
  const auto& [ports, lists, nextNumber, lastChange, refreshNumber, version, states, alerts] =
      *this;
  ports.keep(writer, part);
  lists.keep(writer);
  writer.number(static_cast<std::uint64_t>(nextNumber));
  writer.real(lastChange);
  writer.number(static_cast<std::uint64_t>(refreshNumber));
  const bool hasLists = part == KeptPart::all;
  writer.number(hasLists ? version : 0);
  keepList(writer, hasLists ? states : nullptr);
  keepList(writer, hasLists ? alerts : nullptr);
}

bool RegistryState::hasPossibleNumbers() const {
  return maxport >= 0 && static_cast<std::uint64_t>(maxport) <= kMostPortNumber &&
         std::isfinite(timestampFlag) && forceRefreshNumber >= 0 &&
         static_cast<std::uint64_t>(forceRefreshNumber) <= kMostRefreshNumber;
}

void RegistryState::restore(KeptReader& reader, const SipKey& key,
                            const PortDescriptor::Watched& list) {
  auto& [ports, lists, nextNumber, lastChange, refreshNumber, version, states, alerts] = *this;
  ports.restore(reader, key, list);
  lists.restore(reader);
  nextNumber = static_cast<std::int64_t>(reader.number(kMostPortNumber));
  lastChange = reader.real();
  if (!std::isfinite(lastChange)) {
    throw KeptFault("what was kept has a change at no time");
  }
  refreshNumber = static_cast<std::int32_t>(reader.number(kMostRefreshNumber));
  version = reader.number();
  states = restoredList(reader);
  alerts = restoredList(reader);
}

}  // namespace sorvane
