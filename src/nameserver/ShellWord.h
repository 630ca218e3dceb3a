// Texts as words of a shell command.
#pragma once

#include <string>
#include <string_view>

namespace sorvane {

/// `text` as one word of a command of the system's shell: as it stands where every character of it
/// is harmless there, else in single quotes.
[[nodiscard]] std::string shellWord(std::string_view text);

}  // namespace sorvane
