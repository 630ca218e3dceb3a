// The terminal that a standard stream leads to.
#pragma once

#include <cstddef>
#include <optional>

namespace sorvctl {

/// Returns the columns of the terminal that this descriptor leads to. Nothing when it leads to
/// none, or when the terminal does not tell.
[[nodiscard]] std::optional<std::size_t> terminalWidth(int descriptor);

}  // namespace sorvctl
