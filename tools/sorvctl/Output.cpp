#include "sorvctl/Output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "platform/Ascii.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Progress.h"
#include "sorvctl/Terminal.h"
#include "sorvctl/TerminalText.h"

namespace sorvctl {

using nlohmann::ordered_json;

namespace {

std::string hexOf(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    sorvane::appendHex(text, static_cast<unsigned char>(byte));
  }
  return text;
}

/// A value of a message for reading.
std::string readable(std::string_view value) {
  const auto text = sorvane::wholeTextOfValue(value);
  return text ? std::string(*text) : "<" + hexOf(value) + ">";
}

/// A value of a message for programs.
ordered_json jsonOfValue(std::string_view value) {
  if (const auto text = sorvane::wholeTextOfValue(value)) {
    return std::string(*text);
  }
  return {{"data", hexOf(value)}};
}

std::string headingOf(std::string column) {
  std::transform(column.begin(), column.end(), column.begin(),
                 [](char letter) { return sorvane::upperCase(letter); });
  return column;
}

void print(std::string_view text) {
  Progress::hide();
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure(Status::saidNo, "standard output cannot be written");
  }
}

void printJson(const ordered_json& value) {
  // Bytes that are not UTF-8 are replaced. A list may end in the middle of a character.
  print(escapedJson(value.dump(-1, ' ', false, ordered_json::error_handler_t::replace)) + "\n");
}

using Lines = std::vector<std::vector<Cell>>;

void printEither(const Session& session, const ordered_json& json, const Lines& lines,
                 std::optional<std::size_t> width = std::nullopt) {
  if (session.json()) {
    printJson(json);
  } else {
    print(aligned(lines, width));
  }
}

}  // namespace

void printLine(const Session& session, const ordered_json& json, std::string_view line) {
  if (session.json()) {
    printJson(json);
  } else {
    print(escaped(line) + "\n");
  }
}

void printText(const Session& session, const ordered_json& json, std::string_view text) {
  if (session.json()) {
    printJson(json);
  } else {
    print(text);
  }
}

void printFields(const Session& session,
                 const std::vector<std::pair<std::string, std::string>>& fields) {
  auto object = ordered_json::object();
  Lines lines;
  for (const auto& [name, value] : fields) {
    object[name] = value;
    lines.push_back({{name}, {value}});
  }
  printEither(session, object, lines);
}

void printMessage(const Session& session, const sorvane::Message& message, const char* ifEmpty) {
  auto object = ordered_json::object();
  Lines lines;
  for (const sorvane::MessageEntry& entry : message.entries()) {
    object[std::string(entry.key)] = jsonOfValue(entry.value);
    lines.push_back({{std::string(entry.key)}, {readable(entry.value)}});
  }
  if (lines.empty() && ifEmpty != nullptr) {
    lines.push_back({{ifEmpty}});
  }
  printEither(session, object, lines);
}

void printTable(const Session& session, const std::vector<Column>& columns,
                const std::vector<std::vector<ordered_json>>& rows, Headings headings) {
  auto array = ordered_json::array();
  Lines lines;
  if (headings == Headings::shown) {
    auto& line = lines.emplace_back();
    for (const Column& column : columns) {
      line.push_back({headingOf(column.name), Tone::heading});
    }
  }
  for (const auto& row : rows) {
    auto& object = array.emplace_back(ordered_json::object());
    auto& line = lines.emplace_back();
    for (std::size_t column = 0; column < columns.size(); ++column) {
      const ordered_json& cell = row[column];
      object[columns[column].name] = cell;
      line.push_back(
          {cell.is_string() ? cell.get<std::string>() : cell.dump(), columns[column].tone});
    }
  }
  printEither(session, array, lines, terminalWidth(STDOUT_FILENO));
}

void printError(std::string_view line) {
  Progress::hide();
  fmt::print(stderr, "sorvctl: {}\n", escaped(line));
}

}  // namespace sorvctl
