#include "registry/RequestKeys.h"

#include <cstring>
#include <string>

namespace sorvane {
namespace {

constexpr std::size_t kUnknown = kKeyCount;

// The length decides first, so that a key is compared with the few known ones of its length alone,
// each comparison with a constant of known length.
std::size_t indexOfKey(std::string_view key) {
  const auto is = [key]<std::size_t size>(const char(&known)[size]) {
    return std::memcmp(key.data(), known, size - 1) == 0;
  };
  const auto index = [](bool same, Key known) {
    return same ? static_cast<std::size_t>(known) : kUnknown;
  };
  switch (key.size()) {
    case 4:
      return index(is("ping"), Key::ping);
    case 5:
      return is("state") ? index(true, Key::state) : index(is("force"), Key::force);
    case 6:
      return index(is("action"), Key::action);
    case 7:
      return index(is("newPort"), Key::newPort);
    case 8:
      return is("findPort")   ? index(true, Key::findPort)
             : is("portHost") ? index(true, Key::portHost)
             : is("portName") ? index(true, Key::portName)
             : is("portType") ? index(true, Key::portType)
                              : index(is("hostName"), Key::hostName);
    case 9:
      return index(is("terminate"), Key::terminate);
    case 10:
      return is("acceptPort") ? index(true, Key::acceptPort)
                              : index(is("portNumber"), Key::portNumber);
    case 11:
      return index(is("hostAddress"), Key::hostAddress);
    case 12:
      return index(is("databaseName"), Key::databaseName);
    case 13:
      return index(is("reconnectPort"), Key::reconnectPort);
    case 15:
      return is("portHostAddress") ? index(true, Key::portHostAddress)
                                   : index(is("ethernetAddress"), Key::ethernetAddress);
    default:
      return kUnknown;
  }
}

constexpr std::string_view kKeyNames[kKeyCount] = {
    "acceptPort",    "action",          "databaseName", "ethernetAddress", "findPort",
    "force",         "hostAddress",     "hostName",     "newPort",         "ping",
    "portHost",      "portHostAddress", "portName",     "portNumber",      "portType",
    "reconnectPort", "state",           "terminate",
};

struct CommandWord {
  std::string_view text;
  Word word;
};

constexpr CommandWord kWords[] = {
    {"didPortsChange", Word::didPortsChange},
    {"changeTimestamp", Word::changeTimestamp},
    {"databaseStates", Word::databaseStates},
    {"watchPortChanges", Word::watchPortChanges},
    {"setDatabaseState", Word::setDatabaseState},
    {"setAlertState", Word::setAlertState},
    {"needsRefresh", Word::needsRefresh},
    {"sorvexecConnectHost", Word::sorvexecConnectHost},
    {"hostInfo", Word::hostInfo},
    {"hostList", Word::hostList},
    {"restart", Word::restart},
};

// A value that equals a word is ASCII, so what is no text equals none without being examined.
Word wordOf(std::string_view value) {
  const std::string_view text = value.substr(0, value.find('\0'));
  for (const CommandWord& each : kWords) {
    if (equalIgnoringCase(text, each.text)) {
      return each.word;
    }
  }
  return Word::none;
}

constexpr char lowerCase(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character | 0x20) : character;
}

}  // namespace

bool equalIgnoringCase(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) {
    return false;
  }
  for (std::size_t index = 0; index < left.size(); ++index) {
    if (lowerCase(left[index]) != lowerCase(right[index])) {
      return false;
    }
  }
  return true;
}

RequestKeys::RequestKeys(const Message& request) : request_(request) {
  for (const MessageEntry& entry : request.entries()) {
    const std::size_t index = indexOfKey(entry.key);
    if (index != kUnknown) {
      found_ |= KeySet{1} << index;
      entries_[index] = &entry;
    }
  }
  if (holds(Key::action)) {
    action_ = wordOf(bytes(Key::action));
  }
}

void RequestKeys::raise(Key key) const {
  throw NSException("the value of \"" + std::string(kKeyNames[static_cast<std::size_t>(key)]) +
                    (holds(key) ? "\" is no text" : "\" is missing"));
}

}  // namespace sorvane
