// What sorvctl prints: text that cannot disturb a terminal, and aligned tables.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Message.h"

namespace sorvctl {

/// The text with everything that could break a line or mislead a reader written as an escape: line
/// breaks and other control characters, characters without width or that change the writing
/// direction, bytes that are not UTF-8, and the backslash itself.
[[nodiscard]] std::string escaped(std::string_view text);

/// Columns that a text takes on a terminal, for text that `escaped` gave.
[[nodiscard]] std::size_t displayWidth(std::string_view text);

/// A table whose columns are as wide as their widest cell; cells are escaped.
class Table {
 public:
  explicit Table(const std::vector<std::string>& headings);
  void row(const std::vector<std::string>& cells);
  /// The lines, each with its line feed and without blanks at its end.
  [[nodiscard]] std::string text() const;

 private:
  std::size_t columns_;
  std::vector<std::vector<std::string>> rows_;
};

/// Names and values, a line each, the values aligned; both escaped.
[[nodiscard]] std::string pairLines(const std::vector<std::pair<std::string, std::string>>& pairs);

/// A value for reading: its text where it is one NUL-terminated text, else its bytes as `<0fbd77>`.
[[nodiscard]] std::string readable(std::string_view value);
/// The same for programs: a text, or {"data": "0fbd77"}.
[[nodiscard]] nlohmann::ordered_json jsonOfValue(std::string_view value);
/// A whole message.
[[nodiscard]] nlohmann::ordered_json jsonOfMessage(const sorvane::Message& message);

/// Writes "sorvctl: " and the line, escaped, to standard error.
void printError(std::string_view line);
/// Writes to standard output at once. A standard output that cannot be written is a failure.
void print(std::string_view text);
/// Prints a value as one line.
void printJson(const nlohmann::ordered_json& value);

}  // namespace sorvctl
