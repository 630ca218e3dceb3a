#include "support/PreferencesModel.h"

#include <algorithm>
#include <string_view>

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

std::string actionOf(const Request& request) {
  const auto found = request.find("action");
  std::string action = found == request.end() ? "" : found->second.value_or("");
  std::transform(action.begin(), action.end(), action.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  });
  return action;
}

/// The text under a key. Nothing: there is no such key, or its value is no text.
std::optional<std::string> textOf(const Request& request, const std::string& key) {
  const auto found = request.find(key);
  return found == request.end() ? std::nullopt : found->second;
}

}  // namespace

Reply PreferencesModel::ask(const Request& request, bool isFromThisMachine) {
  const std::string action = actionOf(request);
  const bool sets = action == "set_userpreferences" || action == "set_userpreferences_key";
  if (!sets && action != "get_userpreferences" && action != "get_userpreferences_key") {
    return dictionary({});
  }
  if ((sets && !isFromThisMachine) || !request.contains("key")) {
    return kNoDictionary;
  }
  if (action == "get_userpreferences_key") {
    return preferences_.contains("key") ? kRaised : result("group:application");
  }
  if (action == "get_userpreferences") {
    return get(request);
  }
  const auto key = textOf(request, "key");
  if (!key) {
    return kRaised;
  }
  if (action == "set_userpreferences") {
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
