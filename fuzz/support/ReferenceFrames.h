// The frames of docs/protocol.md, read a second time: for clarity, and without code of the product.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Message.h"

namespace sorvane::fuzz {

struct ReferenceEntry {
  std::string key;
  std::string value;

  bool operator==(const ReferenceEntry&) const = default;
};
using Entries = std::vector<ReferenceEntry>;

/// Returns the entries of a body, or nothing if it is none.
[[nodiscard]] std::optional<Entries> readReferenceBody(std::string_view body);

/// What a stream begins with.
struct ReferenceFrame {
  enum class Kind : std::uint8_t { part, fault, none, dictionary };
  Kind kind = Kind::part;
  std::size_t bytes = 0;  ///< length of a whole frame
  Entries entries;        ///< of a dictionary
};
[[nodiscard]] ReferenceFrame readReferenceFrame(std::string_view stream, std::size_t mostBodyBytes);

/// Returns the text of a value: what stands before its first NUL. Returns nothing if the value has
/// no bytes or that is not UTF-8.
[[nodiscard]] std::optional<std::string> textOf(std::string_view value);

/// Returns the value under a key, or null.
[[nodiscard]] const std::string* find(const Entries& entries, std::string_view key);

[[nodiscard]] std::string bodyOf(const Entries& entries);

/// Returns what the product has read.
[[nodiscard]] Entries entriesOf(const Message& message);

}  // namespace sorvane::fuzz
