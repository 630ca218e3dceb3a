#include "sorvctl/Arguments.h"

#include <CLI/CLI.hpp>

namespace sorvctl {

namespace {
// The name of a check that accepts everything: a mark that the parser keeps with the argument.
constexpr const char* kMark = "name of a database";
}  // namespace

void addDatabaseName(CLI::App& command, std::string& name) {
  command.add_option("NAME", name, "Name of the database")
      ->required()
      ->check(CLI::Validator([](std::string& /*text*/) { return std::string(); }, "", kMark));
}

bool isDatabaseName(CLI::Option& argument) {
  try {
    return argument.get_validator(kMark) != nullptr;
  } catch (const CLI::OptionNotFound&) {
    return false;
  }
}

}  // namespace sorvctl
