#include "sorvctl/ShellWords.h"

#include "platform/Ascii.h"

namespace sorvctl {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

/// Whether a character means nothing to a shell anywhere in a word.
bool isPlain(char c) {
  return sorvane::isAsciiLetterOrDigit(c) || static_cast<signed char>(c) < 0 ||
         std::string_view("_-./:=@%+,").find(c) != std::string_view::npos;
}

// Bash parts words at it, too, but completes it with what follows.
constexpr char kPartOfNextWord = '@';

/// The characters that end double quotes or mean something in them.
constexpr std::string_view kSpecialInDoubleQuotes = "\"\\$`!";

}  // namespace

std::vector<std::string> splitLine(std::string_view line, std::string_view breaks, OpenWord& open) {
  std::vector<std::string> words;
  bool begun = false;  // of the open word: "" is a word, too
  open = {};
  for (std::size_t at = 0; at < line.size(); ++at) {
    const char c = line[at];
    if (open.quote == '\0' && isBlank(c)) {
      if (begun) {
        words.push_back(open.text);
      }
      open = {};
      begun = false;
      continue;
    }
    begun = true;
    if (c == open.quote) {
      open.quote = '\0';
    } else if (open.quote == '\0' && (c == '\'' || c == '"')) {
      open.quote = c;
    } else if (c == '\\' && open.quote != '\'' && at + 1 < line.size() &&
               (open.quote == '\0' ||
                kSpecialInDoubleQuotes.find(line[at + 1]) != std::string_view::npos)) {
      open.text += line[++at];
    } else {
      const std::size_t before = open.text.size();
      open.text += c;
      if (open.quote == '\0' && breaks.find(c) != std::string_view::npos) {
        open.kept = c == kPartOfNextWord ? before : open.text.size();
      }
    }
  }
  return words;
}

std::string insertion(std::string_view text, const OpenWord& open) {
  text.remove_prefix(open.kept);
  std::string quoted;
  for (const char c : text) {
    if (open.quote == '\'' && c == '\'') {
      return {};
    }
    const bool special = open.quote == '\0' ? !isPlain(c)
                         : open.quote == '"'
                             ? kSpecialInDoubleQuotes.find(c) != std::string_view::npos
                             : false;
    if (special && open.quote == '"' && c == '!') {
      return {};  // a backslash before it would stay in the word
    }
    quoted += special ? std::string("\\") + c : std::string(1, c);
  }
  return quoted;
}

}  // namespace sorvctl
