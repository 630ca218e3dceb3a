// Arguments that several commands have.
#pragma once

#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace sorvctl {

/// Declares the argument NAME of a command, the name of a database that is registered. Shells
/// complete it with the names that the name server knows.
void addDatabaseName(CLI::App& command, std::string& name);

/// Whether `addDatabaseName` has declared it.
[[nodiscard]] bool isDatabaseName(CLI::Option& argument);

}  // namespace sorvctl
