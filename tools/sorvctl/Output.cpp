#include "sorvctl/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "platform/Ascii.h"
#include "platform/Utf8.h"
#include "sorvctl/Failure.h"

namespace sorvctl {

namespace {

struct Range {
  std::uint32_t first;
  std::uint32_t last;
};

// C1 controls, and characters that are invisible or change the direction of what follows.
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

/// The length of the well-formed character at the start of `text`, 1 for a byte that begins none.
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

std::string hexOf(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    sorvane::appendHex(text, static_cast<unsigned char>(byte));
  }
  return text;
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

Table::Table(const std::vector<std::string>& headings) : columns_(headings.size()) {
  row(headings);
}

void Table::row(const std::vector<std::string>& cells) {
  auto& added = rows_.emplace_back();
  for (const std::string& cell : cells) {
    added.push_back(escaped(cell));
  }
  added.resize(columns_);
}

std::string Table::text() const {
  std::vector<std::size_t> widths(columns_, 0);
  for (const auto& row : rows_) {
    for (std::size_t column = 0; column < columns_; ++column) {
      widths[column] = std::max(widths[column], displayWidth(row[column]));
    }
  }
  std::string text;
  for (const auto& row : rows_) {
    for (std::size_t column = 0; column < columns_; ++column) {
      text += row[column];
      text.append(widths[column] - displayWidth(row[column]) + 2, ' ');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  return text;
}

std::string pairLines(const std::vector<std::pair<std::string, std::string>>& pairs) {
  std::size_t width = 0;
  for (const auto& [name, value] : pairs) {
    width = std::max(width, displayWidth(escaped(name)));
  }
  std::string text;
  for (const auto& [name, value] : pairs) {
    const std::string shown = escaped(name);
    text += shown;
    text.append(width - displayWidth(shown) + 2, ' ');
    text += escaped(value);
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  return text;
}

std::string readable(std::string_view value) {
  const auto text = sorvane::wholeTextOfValue(value);
  return text ? std::string(*text) : "<" + hexOf(value) + ">";
}

nlohmann::ordered_json jsonOfValue(std::string_view value) {
  if (const auto text = sorvane::wholeTextOfValue(value)) {
    return std::string(*text);
  }
  return {{"data", hexOf(value)}};
}

nlohmann::ordered_json jsonOfMessage(const sorvane::Message& message) {
  auto object = nlohmann::ordered_json::object();
  for (const sorvane::MessageEntry& entry : message.entries()) {
    object[std::string(entry.key)] = jsonOfValue(entry.value);
  }
  return object;
}

void printError(std::string_view line) { fmt::print(stderr, "sorvctl: {}\n", escaped(line)); }

void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure(Status::saidNo, "standard output cannot be written");
  }
}

void printJson(const nlohmann::ordered_json& value) {
  // What is not UTF-8 is replaced: a list may be cut in the middle of a character.
  print(value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
}

}  // namespace sorvctl
