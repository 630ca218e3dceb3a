// Text that is safe to print on a terminal, whatever a name or value holds.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sorvctl {

/// Returns the text with everything escaped that could break a line or mislead a reader: line
/// breaks and other control characters, characters without width, characters that change the
/// writing direction, bytes that are not UTF-8, and the backslash itself.
[[nodiscard]] std::string escaped(std::string_view text);

/// Returns a line for each row, with the cells escaped. Each column is as wide as its widest cell,
/// with two blanks between columns and none at the end of a line.
[[nodiscard]] std::string aligned(const std::vector<std::vector<std::string>>& rows);

}  // namespace sorvctl
