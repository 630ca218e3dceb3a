// What the commands print: JSON, a line for each value, when --json was given; else text, escaped
// and aligned for reading. Everything is written at once. A standard output that cannot be written
// is a Failure.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Message.h"
#include "sorvctl/Colours.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// Prints `json`, or else `line`.
void printLine(const Session& session, const nlohmann::ordered_json& json, std::string_view line);

/// Prints `json`, or else `text`, whose lines are sorvctl's own: they are not escaped.
void printText(const Session& session, const nlohmann::ordered_json& json, std::string_view text);

/// Prints names and their values: an object, or else a line for each.
void printFields(const Session& session,
                 const std::vector<std::pair<std::string, std::string>>& fields);

/// Prints the entries of a message in the same way. A value that is not one NUL-terminated UTF-8
/// text is shown by its bytes: {"data": "0fbd77"}, or else <0fbd77>. Without --json, `ifEmpty` is
/// the line for a message without entries; null: no line.
void printMessage(const Session& session, const sorvane::Message& message,
                  const char* ifEmpty = nullptr);

/// Whether a table for reading has a line above it that names the columns.
enum class Headings { shown, leftOut };

/// A column of a table.
struct Column {
  std::string name;
  Tone tone = Tone::plain;  ///< of its cells
};

/// Prints rows: an array with an object for each, whose keys are the columns' names; or else a line
/// for each. A cell is a text or a number. On a terminal, wide columns are cut so that a line fits.
void printTable(const Session& session, const std::vector<Column>& columns,
                const std::vector<std::vector<nlohmann::ordered_json>>& rows,
                Headings headings = Headings::shown);

/// Prints "sorvctl: " and the line, escaped, to standard error.
void printError(std::string_view line);

}  // namespace sorvctl
