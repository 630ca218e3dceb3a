#include "sorvctl/TerminalText.h"

#include <fmt/format.h>
#include <locale.h>
#include <wchar.h>

#include <algorithm>
#include <array>
#include <numeric>

#include "platform/Utf8.h"

namespace sorvctl {

namespace {

constexpr std::size_t kGap = 2;               // blanks between two columns
constexpr std::size_t kNarrowest = 3;         // a column is not cut to less
constexpr std::string_view kMore = "\u2026";  // takes one column

struct Range {
  char32_t first;
  char32_t last;
};

// DEL and C1 controls, invisible characters, and characters that change the writing direction.
constexpr std::array kMisleading{
    Range{0x7F, 0x9F},     Range{0xAD, 0xAD},     Range{0x61C, 0x61C},
    Range{0x180E, 0x180E}, Range{0x200B, 0x200F}, Range{0x2028, 0x202E},
    Range{0x2060, 0x206F}, Range{0xFEFF, 0xFEFF}, Range{0xFFF9, 0xFFFB}};

bool misleads(char32_t point) {
  return std::any_of(kMisleading.begin(), kMisleading.end(), [point](const Range& range) {
    return point >= range.first && point <= range.last;
  });
}

/// Takes the first character off the text. A byte that is not UTF-8 counts as one.
std::string_view takeCharacter(std::string_view& text) {
  const std::string_view character =
      text.substr(0, std::max<std::size_t>(sorvane::utf8CharacterLength(text), 1));
  text.remove_prefix(character.size());
  return character;
}

void appendEscaped(std::string& text, std::string_view character) {
  const auto byte = static_cast<unsigned char>(character.front());
  if (character == "\\") {
    text += "\\\\";
  } else if (character == "\n") {
    text += "\\n";
  } else if (character == "\r") {
    text += "\\r";
  } else if (character == "\t") {
    text += "\\t";
  } else if (character.size() == 1 && (byte < 0x20 || byte >= 0x7F)) {
    text += fmt::format("\\x{:02x}", byte);
  } else if (const char32_t point = sorvane::utf8CodePoint(character); misleads(point)) {
    text += fmt::format("\\u{:04x}", static_cast<unsigned>(point));
  } else {
    text += character;
  }
}

/// The columns of a character of an escaped text. Where the system has no locale for UTF-8, all but
/// ASCII counts as one column.
std::size_t characterWidth(std::string_view character) {
  if (character.size() == 1) {
    return 1;
  }
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
  if (utf8 == nullptr) {
    return 1;
  }
  const locale_t before = uselocale(utf8);
  const int width = wcwidth(static_cast<wchar_t>(sorvane::utf8CodePoint(character)));
  uselocale(before);
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

std::size_t lineWidth(const std::vector<std::size_t>& widths) {
  return std::accumulate(widths.begin(), widths.end(),
                         widths.empty() ? 0 : kGap * (widths.size() - 1));
}

/// Makes the widest columns narrower, one column of the terminal after the other, until a line
/// fits.
void fit(std::vector<std::size_t>& widths, std::size_t width) {
  for (std::size_t line = lineWidth(widths); line > width;) {
    const std::size_t widest = *std::max_element(widths.begin(), widths.end());
    if (widest <= kNarrowest) {
      return;
    }
    std::size_t next = kNarrowest;  // the width of the widest among the other columns
    std::size_t count = 0;
    for (const std::size_t each : widths) {
      count += each == widest ? 1 : 0;
      next = each < widest ? std::max(next, each) : next;
    }
    // All of the widest go down to the next in one step, or as far as is needed.
    const std::size_t cut = std::min(widest - next, (line - width + count - 1) / count);
    std::replace(widths.begin(), widths.end(), widest, widest - cut);
    line -= cut * count;
  }
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    appendEscaped(result, takeCharacter(text));
  }
  return result;
}

std::string escapedJson(std::string_view json) {
  std::string result;
  result.reserve(json.size());
  while (!json.empty()) {
    const std::string_view character = takeCharacter(json);
    const char32_t point = sorvane::utf8CodePoint(character);
    if (misleads(point)) {
      result += fmt::format("\\u{:04x}", static_cast<unsigned>(point));
    } else {
      result += character;
    }
  }
  return result;
}

std::string shortened(std::string_view text, std::size_t most) {
  return std::string(sorvane::utf8Beginning(text, most)) +
         std::string(text.size() > most ? kMore : "");
}

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    width += characterWidth(takeCharacter(text));
  }
  return width;
}

std::string_view beginningOfWidth(std::string_view text, std::size_t width) {
  std::size_t taken = 0;
  std::string_view rest = text;
  while (!rest.empty()) {
    std::string_view after = rest;
    taken += characterWidth(takeCharacter(after));
    if (taken > width) {
      break;
    }
    rest = after;
  }
  return text.substr(0, text.size() - rest.size());
}

std::string cutToWidth(std::string_view text, std::size_t width) {
  if (beginningOfWidth(text, width).size() == text.size()) {
    return std::string(text);
  }
  if (width == 0) {
    return {};
  }
  return std::string(beginningOfWidth(text, width - 1)) + std::string(kMore);
}

std::string aligned(const std::vector<std::vector<Cell>>& rows, std::optional<std::size_t> width) {
  std::vector<std::vector<std::string>> shown;
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    auto& cells = shown.emplace_back();
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column < row.size(); ++column) {
      cells.push_back(escaped(row[column].text));
      widths[column] = std::max(widths[column], displayWidth(cells[column]));
    }
  }
  if (width) {
    fit(widths, *width);
  }
  std::string text;
  for (std::size_t row = 0; row < rows.size(); ++row) {
    std::size_t blanks = 0;  // those due before the next cell that is not empty
    for (std::size_t column = 0; column < rows[row].size(); ++column) {
      const std::string cell = cutToWidth(shown[row][column], widths[column]);
      if (!cell.empty()) {
        text.append(blanks, ' ');
        text += toned(cell, rows[row][column].tone);
        blanks = 0;
      }
      blanks += widths[column] - displayWidth(cell) + kGap;
    }
    text += '\n';
  }
  return text;
}

}  // namespace sorvctl
