// Arguments that several commands have.
#pragma once

#include <optional>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace sorvctl {

/// Which databases an argument may name.
enum class NamesOf { all, leftBehind };

/// Declares the argument NAME of a command, the name of a database that is registered. Shells
/// complete it with the names that the name server knows.
void addDatabaseName(CLI::App& command, std::string& name, NamesOf which = NamesOf::all);

/// Which databases an argument names. Nothing if `addDatabaseName` has not declared it.
[[nodiscard]] std::optional<NamesOf> databasesNamedBy(CLI::Option& argument);

}  // namespace sorvctl
