// Text that is safe to print on a terminal, whatever a name or value holds.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sorvctl/Colours.h"

namespace sorvctl {

/// Returns the text with everything escaped that could break a line or mislead a reader: line
/// breaks and other control characters, characters without width, characters that change the
/// writing direction, bytes that are not UTF-8, and the backslash itself.
[[nodiscard]] std::string escaped(std::string_view text);

/// Returns a JSON text, which is UTF-8 without control characters below U+0020, with the others of
/// these characters as "\uXXXX". To a program that reads it, it is the same.
[[nodiscard]] std::string escapedJson(std::string_view json);

/// Returns the first bytes of a text, `most` at most, and "…" behind them if that is not all of it.
/// A character is not split.
[[nodiscard]] std::string shortened(std::string_view text, std::size_t most);

/// The columns that a UTF-8 text takes on a terminal, as the C library counts them: 2 for a wide
/// character, 0 for one that combines with the one before it. The text must be escaped.
[[nodiscard]] std::size_t displayWidth(std::string_view text);

/// Returns the longest beginning of an escaped text that takes `width` columns at most. A character
/// is never split, and keeps what combines with it.
[[nodiscard]] std::string_view beginningOfWidth(std::string_view text, std::size_t width);

/// Returns an escaped text that takes `width` columns at most. If it is cut, it ends in "…". A
/// character is never split, and keeps what combines with it.
[[nodiscard]] std::string cutToWidth(std::string_view text, std::size_t width);

/// A place of a table.
struct Cell {
  std::string text;  ///< not escaped yet
  Tone tone = Tone::plain;
};

/// Returns a line for each row, with the cells escaped. Each column is as wide as its widest cell,
/// with two blanks between columns and none at the end of a line. If the lines would be longer than
/// `width` columns, the widest columns are cut until they fit, but none to less than 3; nothing
/// means that no column is cut.
[[nodiscard]] std::string aligned(const std::vector<std::vector<Cell>>& rows,
                                  std::optional<std::size_t> width = std::nullopt);

}  // namespace sorvctl
