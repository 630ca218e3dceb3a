// What docs/json.md says of the JSON that sorvctl prints.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace sorvane::test {

/// Values by the command that has printed them: each is the text of a JSON value.
using PrintedValues = std::map<std::string, std::vector<std::string>>;

/// The commands that have a schema there, and those that print nothing.
[[nodiscard]] std::set<std::string> commandsWithSchemas();
[[nodiscard]] std::set<std::string> silentCommands();

/// Fails the running test for each value that is not as the schema of its command says, and for
/// each schema that is none. Needs python3 with its module jsonschema.
void expectAsDocumented(const PrintedValues& values);

/// The lines of what a command has printed.
[[nodiscard]] std::vector<std::string> printedLines(const std::string& output);

/// The name of the command that stands in back quotes behind `before` at the begin of a line. Its
/// arguments, which are not in small letters, are left out. Empty when the line begins otherwise.
[[nodiscard]] std::string commandIn(const std::string& line, const std::string& before);

}  // namespace sorvane::test
