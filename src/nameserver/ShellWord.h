// Texts as words of a shell command.
#pragma once

#include <string>
#include <string_view>

namespace sorvane {

/// Returns `text` as one word of a shell command: unchanged when the shell treats none of its
/// characters specially, else in single quotes.
[[nodiscard]] std::string shellWord(std::string_view text);

}  // namespace sorvane
