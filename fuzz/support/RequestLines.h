// Sessions as text: what the targets of whole requests read.
//
//   0 action=setDatabaseState databaseName=db1 state=starting
//   3 findPort:db1 portHost=h
//   3
//   @4000
//
// A line is a request of one of eight connections. `key=value` is a text, `key:value` the bytes
// alone. The first request of a connection opens it, and a line without an entry closes it. A line
// that begins with @ moves the clock by so many seconds.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/RegistryModel.h"
#include "support/ReferenceFrames.h"

namespace sorvane::fuzz {

struct RequestLine {
  enum class Kind : std::uint8_t { nothing, request, close, clock };
  Kind kind = Kind::nothing;
  unsigned connection = 0;  ///< 0 to 7
  Entries entries;          ///< of a request; a key may be repeated or be no text
  double seconds = 0;       ///< of a clock, up to 99999
};

inline constexpr unsigned kConnections = 8;

/// Takes the next line off `text`.
[[nodiscard]] RequestLine takeLine(std::string_view& text);

/// The request as the models want it.
[[nodiscard]] model::Request requestOf(const Entries& entries);

}  // namespace sorvane::fuzz
