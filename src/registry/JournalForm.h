// The form of the journal's file.
//
//   "sorvjour" | bytes of the base | end | base | ... | entry | entry | ...
//      8 bytes |                 8 |   8 |      |     |
//
// The base is a description as KeptForm.h tells it. Its body has the number of changes that
// watchers are told of, the registry, and the connections with their records. Each entry begins at
// a multiple of eight bytes. `end` is where the last entry ends. All behind it is zero.
//
//   bytes of the body | check sum of place and body | body
//                   8 |                           8 |
//
// The body is the kind of the entry and the values that belong to it. Whoever writes an entry
// writes its length last, and then `end`. So he may die at any moment: an entry without a length is
// not there yet, and one with a length and behind `end` is whole or has a wrong check sum. An entry
// before `end` that is not whole is damage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/SipHash.h"

namespace sorvane::journal {

inline constexpr std::string_view kMark = "sorvjour";
inline constexpr std::size_t kAtBaseBytes = 8;
inline constexpr std::size_t kAtEnd = 16;
inline constexpr std::size_t kAtBase = 24;
inline constexpr std::size_t kEntryHeader = 16;

/// What an entry tells. A connection is called by its descriptor. The first entry of a connection
/// makes its record.
enum class Entry : std::uint8_t {
  registration = 1,  ///< connection, texts: `PortMap::replaceRegistration`
  entry,             ///< connection, name: `PortMap::enter`
  entryWith,         ///< connection, texts: `PortMap::enterWith`
  end,               ///< connection, name or none: `PortMap::end`; the descriptor is free then
  removal,           ///< name: `PortMap::remove`
  oldestRemoval,     ///< `PortMap::removeOldestLeftBehind`
  status,            ///< name, text: `PortMap::setStatus`
  alert,             ///< name, text, time: `PortMap::setAlert`
  alertDrop,         ///< slot of the record's oldest entry: `PortMap::dropAlert`
  hosts,             ///< all of the lists of hosts
};

/// Returns true for a change that the watchers are told of.
[[nodiscard]] constexpr bool isTold(Entry entry) {
  return entry != Entry::registration && entry != Entry::alertDrop && entry != Entry::hosts;
}

[[nodiscard]] constexpr std::size_t roundedUp(std::size_t bytes) {
  return (bytes + 7) & ~std::size_t{7};
}

/// Against damage, not against people: who can write a journal has the process already.
[[nodiscard]] inline std::uint64_t checkSum(std::size_t place, std::string_view body) {
  return sipHash13({.low = 0x736f72766a6f7572U, .high = place}, body);
}

}  // namespace sorvane::journal
