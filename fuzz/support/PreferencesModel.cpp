#include "support/PreferencesModel.h"

#include <optional>

namespace sorvane::fuzz {
namespace {

using model::Reply;
using model::Request;

constexpr const char* kSettings[] = {"changePreferences", "startDatabases", "loginDisplay",
                                     "databases"};

Reply dictionary(model::Texts texts) {
  return {.kind = Reply::Kind::dictionary, .texts = std::move(texts)};
}
Reply result(const char* text) { return dictionary({{"result", text}}); }
const Reply kNoDictionary = {.kind = Reply::Kind::none};
// A command that cannot be carried out is replied to like one that nobody knows.
const Reply kRaised = dictionary({});

/// The text under a key. Nothing: there is no such key, or its value is no text.
std::optional<std::string> textOf(const Request& request, const std::string& key) {
  const auto found = request.find(key);
  return found == request.end() ? std::nullopt : found->second;
}

}  // namespace

Reply PreferencesModel::ask(const Request& request, bool isFromThisMachine) {
  const auto acts = [&](const char* word) { return model::says(request, "action", word); };
  const bool sets = acts("set_userpreferences") || acts("set_userpreferences_key");
  if (!sets && !acts("get_userpreferences") && !acts("get_userpreferences_key")) {
    return dictionary({});
  }
  if ((sets && !isFromThisMachine) || !request.contains("key")) {
    return kNoDictionary;
  }
  if (acts("get_userpreferences_key")) {
    return preferences_.contains("key") ? kRaised : result("group:application");
  }
  if (acts("get_userpreferences")) {
    return get(request);
  }
  const auto key = textOf(request, "key");
  if (!key) {
    return kRaised;
  }
  if (acts("set_userpreferences")) {
    return set(request);
  }
  preferences_["key"] = *key;
  return result("succeed");
}

Reply PreferencesModel::get(const Request& request) const {
  const auto key = textOf(request, "key");
  if (!key) {
    return kRaised;
  }
  auto found = preferences_.find(*key);
  if (found == preferences_.end()) {
    const auto otherwise = textOf(request, "*");
    if (!otherwise) {
      return kRaised;
    }
    found = preferences_.find(*otherwise);
  }
  if (found == preferences_.end()) {
    return result("none");
  }
  const auto* const entry = std::get_if<Preference>(&found->second);
  if (entry == nullptr) {
    return kRaised;
  }
  model::Texts texts;
  for (const char* setting : kSettings) {
    if (const auto value = entry->find(setting); value != entry->end()) {
      texts.emplace_back(*value);
    }
  }
  return dictionary(texts);
}

Reply PreferencesModel::set(const Request& request) {
  Preference entry;
  for (const char* setting : kSettings) {
    if (request.contains(setting)) {
      const auto value = textOf(request, setting);
      if (!value) {
        return kRaised;
      }
      entry[setting] = *value;
    }
  }
  preferences_[*textOf(request, "key")] = entry;
  return result("succeed");
}

}  // namespace sorvane::fuzz
