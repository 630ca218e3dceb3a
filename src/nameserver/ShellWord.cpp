#include "nameserver/ShellWord.h"

namespace sorvane {

std::string shellWord(std::string_view text) {
  constexpr std::string_view kHarmless =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:=@%";
  if (!text.empty() && text.find_first_not_of(kHarmless) == std::string_view::npos) {
    return std::string(text);
  }
  std::string word = "'";
  for (const char character : text) {
    if (character == '\'') {
      word += R"('\'')";
    } else {
      word += character;
    }
  }
  return word + "'";
}

}  // namespace sorvane
