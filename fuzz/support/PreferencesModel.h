// What docs/protocol.md promises of the preferences, written a second time: as plainly as it can
// be, and without code of the product.
#pragma once

#include <map>
#include <string>
#include <variant>

#include "model/RegistryModel.h"

namespace sorvane::fuzz {

class PreferencesModel {
 public:
  /// Returns the reply to a request that is no command of the registry. Connections of other
  /// machines change nothing.
  model::Reply ask(const model::Request& request, bool isFromThisMachine);

 private:
  using Preference = std::map<std::string, std::string>;

  model::Reply get(const model::Request& request) const;
  model::Reply set(const model::Request& request);

  /// By user. The key that "set_userpreferences_key" sets is a text.
  std::map<std::string, std::variant<std::string, Preference>> preferences_;
};

}  // namespace sorvane::fuzz
