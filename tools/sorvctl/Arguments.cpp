#include "sorvctl/Arguments.h"

#include <CLI/CLI.hpp>

namespace sorvctl {

namespace {

/// The name of a check that accepts everything: a mark that the parser keeps with the argument.
const char* markOf(NamesOf which) {
  return which == NamesOf::all ? "name of a database" : "name that was left behind";
}

}  // namespace

void addDatabaseName(CLI::App& command, std::string& name, NamesOf which) {
  command.add_option("NAME", name, "Name of the database")
      ->required()
      ->check(
          CLI::Validator([](std::string& /*text*/) { return std::string(); }, "", markOf(which)));
}

std::optional<NamesOf> databasesNamedBy(CLI::Option& argument) {
  for (const NamesOf which : {NamesOf::all, NamesOf::leftBehind}) {
    try {
      if (argument.get_validator(markOf(which)) != nullptr) {
        return which;
      }
    } catch (const CLI::OptionNotFound&) {
      continue;
    }
  }
  return std::nullopt;
}

}  // namespace sorvctl
