#include "defaults/SSDefaults.h"

#include <cstdio>
#include <filesystem>

#include "platform/Ascii.h"
#include "platform/NetConnection.h"
#include "platform/PlainFile.h"
#include "platform/VNGlobalPath.h"

namespace sorvane {
namespace {

constexpr std::string_view kLauncher = "sorvexec";

// Returns the dictionary that a text describes, or an empty one when the text describes none.
SSDefaults::Dictionary dictionaryFromText(std::string_view text) {
  try {
    PropertyList list = PropertyList::parse(text);
    if (SSDefaults::Dictionary* const dictionary = list.dictionary()) {
      return std::move(*dictionary);
    }
  } catch (const NSException&) {
    // The text is not a property list. Nothing reports that: the caller then uses its built-in
    // defaults.
  }
  return {};
}

}  // namespace

std::shared_ptr<SSDefaults> SSDefaults::newForHost(std::string_view hostName) {
  return std::make_shared<SSDefaults>(hostName);
}

std::shared_ptr<SSDefaults> SSDefaults::newDirectLoad() { return newForHost({}); }

SSDefaults::SSDefaults(std::string_view hostName) : hostName_(hostName) {}

bool SSDefaults::connectTo(NetConnection& launcher) const {
  if (timeLimit_) {
    launcher.setTimeLimits(*timeLimit_, *timeLimit_);
  }
  return launcher.connectToServer(kLauncher, hostName_);
}

SSDefaults::Dictionary& SSDefaults::defaults() {
  if (!defaultDictionary_) {
    readDefaults();
  }
  return *defaultDictionary_;
}

const char* SSDefaults::getDefault(const char* key) {
  const Dictionary& dictionary = defaults();
  const auto found = dictionary.find(key);
  if (found == dictionary.end() || found->second.string() == nullptr) {
    return nullptr;
  }
  return found->second.string()->c_str();
}

SSDefaults& SSDefaults::setDefault(const char* key, const char* value) {
  defaults().insert_or_assign(key, PropertyList(value));
  return *this;
}

SSDefaults& SSDefaults::readDefaults() {
  defaultDictionary_.reset();
  defaultDictionary_ = readDefaultDictionary().value_or(Dictionary{});
  return *this;
}

std::optional<SSDefaults::Dictionary> SSDefaults::readDefaultDictionary() {
  lastError_.clear();
  if (hostName_.empty()) {
    return localDatabasePreferences();
  }
  NetConnection launcher;
  if (!connectTo(launcher)) {
    lastError_ = launcher.lastError();
    return std::nullopt;  // on purpose not the local file: it has the defaults of this host
  }
  const auto reply = launcher.sendDictionary(Message{{"action", "getDatabasePreferences"}});
  lastError_ = launcher.lastError();
  launcher.invalidate();
  return dictionaryFromText(reply ? reply->text("data").value_or("") : "");
}

SSDefaults::Dictionary SSDefaults::localDatabasePreferences() {
  const std::filesystem::path folder = VNGlobalPath::serverConfigFilePath();
  const auto file = readPlainFile(folder / "SorvDefaults", PropertyList::kMaximumBytes);
  const auto* text = std::get_if<std::string>(&file);
  return text != nullptr ? dictionaryFromText(*text) : Dictionary{};
}

int SSDefaults::writeDefaultsWithPassword(std::string_view password) {
  return writeDefaultDictionary(defaultDictionary_ ? &*defaultDictionary_ : nullptr, password);
}

int SSDefaults::writeDefaultDictionary(const Dictionary* dictionary, std::string_view password) {
  std::optional<Message> reply;
  NetConnection launcher;
  if (dictionary != nullptr && connectTo(launcher)) {
    reply = launcher.sendData(PropertyList(*dictionary).description(), "setDatabasePreferences7",
                              password);
    launcher.invalidate();
  }
  std::printf("writeDefaultDictionary RETURN = %s\n",
              reply ? reply->description().c_str() : "(null)");
  return reply && equalIgnoringCase(reply->text("result").value_or(""), "succeed") ? 1 : 0;
}

SSDefaults& SSDefaults::freeDefaults() {
  defaultDictionary_.reset();
  return *this;
}

}  // namespace sorvane
