#include "infoserver/PreferenceCommands.h"

#include <array>
#include <optional>
#include <string>
#include <utility>

#include "platform/Ascii.h"

namespace sorvane {
namespace {

/// The top-level entry that holds the preference key setting, and the request key that names
/// entries.
constexpr std::string_view kKey = "key";

/// What an entry may hold, in the order in which replies carry it.
constexpr std::array<std::string_view, 4> kSettings = {"changePreferences", "startDatabases",
                                                       "loginDisplay", "databases"};

Reply result(PreferenceRequest& request, std::string_view word) {
  request.reply.text("result", word);
  return Reply::written();
}

/// Stores an entry. A file that cannot be written changes nothing for the client. Raises when there
/// is no room for the entry.
Reply store(PreferenceRequest& request, std::string_view key, PropertyList entry) {
  request.preferences.set(key, std::move(entry));
  return result(request, "succeed");
}

/// Kept on purpose: the setting is asked for its bytes, and the string that
/// "set_userpreferences_key" stores has none to give, so that this raises once something is stored.
/// Only data, which nobody but an editor of the file can have put there, is answered.
Reply getPreferencesKey(PreferenceRequest& request) {
  if (!request.message.contains(kKey)) {
    return Reply::none();
  }
  const PropertyList* stored = request.preferences.find(kKey);
  if (stored == nullptr) {
    return result(request, "group:application");
  }
  if (stored->data() == nullptr) {
    throw NSException("the preference key setting has no bytes");
  }
  const std::optional<std::string_view> text = textOfValue(stored->data()->bytes);
  if (!text) {
    throw NSException("the preference key setting is no text");
  }
  return result(request, *text);
}

Reply setPreferencesKey(PreferenceRequest& request) {
  if (!request.message.contains(kKey)) {
    return Reply::none();
  }
  return store(request, kKey, std::string(request.message.requiredText(kKey)));
}

Reply setPreferences(PreferenceRequest& request) {
  if (!request.message.contains(kKey)) {
    return Reply::none();
  }
  const std::string_view key = request.message.requiredText(kKey);
  PropertyList::Dictionary entry;
  for (const std::string_view setting : kSettings) {
    if (request.message.contains(setting)) {
      entry.emplace(setting, std::string(request.message.requiredText(setting)));
    }
  }
  return store(request, key, std::move(entry));
}

Reply getPreferences(PreferenceRequest& request) {
  if (!request.message.contains(kKey)) {
    return Reply::none();
  }
  const PropertyList* entry = request.preferences.find(request.message.requiredText(kKey));
  if (entry == nullptr) {
    entry = request.preferences.find(request.message.requiredText("*"));
  }
  if (entry == nullptr) {
    return result(request, "none");
  }
  if (entry->dictionary() == nullptr) {
    throw NSException("the preference entry is no dictionary");
  }
  std::array<const std::string*, kSettings.size()> values{};
  for (std::size_t i = 0; i < kSettings.size(); ++i) {
    const auto found = entry->dictionary()->find(kSettings[i]);
    if (found == entry->dictionary()->end()) {
      continue;
    }
    values[i] = found->second.string();
    if (values[i] == nullptr) {
      throw NSException("a setting of the preference entry is no string");
    }
  }
  for (std::size_t i = 0; i < kSettings.size(); ++i) {
    if (values[i] != nullptr) {
      request.reply.text(kSettings[i], *values[i]);
    }
  }
  return Reply::written();
}

constexpr std::array<PreferenceCommand, 4> kCommands = {{
    {"get_userpreferences_key", getPreferencesKey, false},
    {"set_userpreferences_key", setPreferencesKey, true},
    {"set_userpreferences", setPreferences, true},
    {"get_userpreferences", getPreferences, false},
}};

}  // namespace

std::span<const PreferenceCommand> preferenceCommands() { return kCommands; }

Reply handlePreferenceRequest(PreferenceRequest& request) {
  if (const std::optional<std::string_view> action = request.message.text("action")) {
    for (const PreferenceCommand& command : kCommands) {
      if (equalIgnoringCase(*action, command.word)) {
        return command.changes && !request.mayChange ? Reply::none() : command.handle(request);
      }
    }
  }
  return Reply::written();
}

}  // namespace sorvane
