// Texts of peers, escaped and cut to the room that there is.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace sorvctl::top {

/// Returns the escaped text, cut to that many columns. If it is cut, it ends in "…". Takes no
/// longer, and returns no more bytes, for a very long text: characters without width count, too.
[[nodiscard]] std::string fitted(std::string_view text, std::size_t columns);

/// Returns the escaped text in lines of that many columns: `most` lines at most, and at least one.
/// If that is not all of it, the last one ends in "…".
[[nodiscard]] std::vector<std::string> wrapped(std::string_view text, std::size_t columns,
                                               std::size_t most);

}  // namespace sorvctl::top
