#include "sorvctl/TerminalText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "platform/Utf8.h"

namespace sorvctl {

namespace {

struct Range {
  std::uint32_t first;
  std::uint32_t last;
};

// C1 controls, invisible characters, and characters that change the writing direction.
constexpr std::array kMisleading{
    Range{0x80, 0x9F},     Range{0xAD, 0xAD},     Range{0x61C, 0x61C},
    Range{0x180E, 0x180E}, Range{0x200B, 0x200F}, Range{0x2028, 0x202E},
    Range{0x2060, 0x206F}, Range{0xFEFF, 0xFEFF}, Range{0xFFF9, 0xFFFB}};
constexpr std::array kCombining{Range{0x300, 0x36F},   Range{0x1AB0, 0x1AFF},
                                Range{0x1DC0, 0x1DFF}, Range{0x20D0, 0x20FF},
                                Range{0xFE00, 0xFE0F}, Range{0xFE20, 0xFE2F}};
constexpr std::array kWide{Range{0x1100, 0x115F},  Range{0x2E80, 0xA4CF},   Range{0xAC00, 0xD7A3},
                           Range{0xF900, 0xFAFF},  Range{0xFE30, 0xFE6F},   Range{0xFF00, 0xFF60},
                           Range{0xFFE0, 0xFFE6},  Range{0x1F300, 0x1F64F}, Range{0x1F900, 0x1F9FF},
                           Range{0x20000, 0x3FFFD}};

template <std::size_t Count>
bool within(const std::array<Range, Count>& ranges, std::uint32_t point) {
  return std::any_of(ranges.begin(), ranges.end(), [point](const Range& range) {
    return point >= range.first && point <= range.last;
  });
}

/// The length of the UTF-8 character at the start of `text`; 1 if no character starts there.
std::size_t characterLength(std::string_view text) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(4, text.size()); ++length) {
    if (sorvane::isUtf8(text.substr(0, length))) {
      return length;
    }
  }
  return 1;
}

std::uint32_t codePoint(std::string_view character) {
  const auto lead = static_cast<unsigned char>(character.front());
  std::uint32_t point = character.size() == 1 ? lead : lead & (0xFFU >> (character.size() + 1));
  for (const char byte : character.substr(1)) {
    point = point << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
  }
  return point;
}

void appendEscaped(std::string& text, std::string_view character) {
  const auto byte = static_cast<unsigned char>(character.front());
  const std::uint32_t point = codePoint(character);
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
  } else if (within(kMisleading, point)) {
    text += fmt::format("\\u{:04x}", point);
  } else {
    text += character;
  }
}

/// The columns that an escaped text takes on a terminal.
std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    const std::uint32_t point = codePoint(text.substr(0, length));
    width += within(kCombining, point) ? 0 : within(kWide, point) ? 2 : 1;
    text.remove_prefix(length);
  }
  return width;
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    appendEscaped(result, text.substr(0, length));
    text.remove_prefix(length);
  }
  return result;
}

std::string aligned(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::vector<std::string>> shown;
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    auto& cells = shown.emplace_back();
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column < row.size(); ++column) {
      cells.push_back(escaped(row[column]));
      widths[column] = std::max(widths[column], displayWidth(cells[column]));
    }
  }
  std::string text;
  for (const auto& cells : shown) {
    for (std::size_t column = 0; column < cells.size(); ++column) {
      text += cells[column];
      text.append(widths[column] - displayWidth(cells[column]) + 2, ' ');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  return text;
}

}  // namespace sorvctl
