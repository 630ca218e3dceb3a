// The words of a command line as a shell has them, with their quotes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sorvctl {

/// The word at the end of a command line, which somebody is typing.
struct OpenWord {
  std::string text;   ///< without quotes and backslashes
  char quote = '\0';  ///< ' or " when it stands in such quotes, which are still open
  /// How many bytes of `text` bash leaves as they are when it completes the word: those up to the
  /// last unquoted character that parts words for it.
  std::size_t kept = 0;
};

/// Splits a command line at blanks that are not quoted. The last word, which may be empty, goes
/// into `open`, and the others, without their quotes, are returned. `breaks` is the value of
/// COMP_WORDBREAKS: the characters that part words for bash when it completes them.
[[nodiscard]] std::vector<std::string> splitLine(std::string_view line, std::string_view breaks,
                                                 OpenWord& open);

/// Returns what bash has to insert for the word to become `text`, which begins with the open word's
/// text: without the bytes that are kept, and quoted so that no character means anything to the
/// shell. Empty when that cannot be said within the quotes that are open.
[[nodiscard]] std::string insertion(std::string_view text, const OpenWord& open);

}  // namespace sorvctl
