#include "registry/RequestKeys.h"

#include <string>

namespace sorvane {
namespace {

constexpr std::size_t kUnknown = kKeyCount;

// The length decides first, so that a key is compared with the few known ones of its length alone,
// each comparison with a constant.
std::size_t indexOfKey(std::string_view key) {
  const auto either = [key](auto... candidates) {
    std::size_t index = kUnknown;
    ((key == candidates.first ? (index = static_cast<std::size_t>(candidates.second), true)
                              : false) ||
     ...);
    return index;
  };
  using Candidate = std::pair<std::string_view, Key>;
  switch (key.size()) {
    case 4:
      return either(Candidate("ping", Key::ping));
    case 5:
      return either(Candidate("state", Key::state), Candidate("force", Key::force));
    case 6:
      return either(Candidate("action", Key::action));
    case 7:
      return either(Candidate("newPort", Key::newPort));
    case 8:
      return either(Candidate("findPort", Key::findPort), Candidate("portHost", Key::portHost),
                    Candidate("portName", Key::portName), Candidate("portType", Key::portType),
                    Candidate("hostName", Key::hostName));
    case 9:
      return either(Candidate("terminate", Key::terminate));
    case 10:
      return either(Candidate("acceptPort", Key::acceptPort),
                    Candidate("portNumber", Key::portNumber));
    case 11:
      return either(Candidate("hostAddress", Key::hostAddress));
    case 12:
      return either(Candidate("databaseName", Key::databaseName));
    case 13:
      return either(Candidate("reconnectPort", Key::reconnectPort));
    case 15:
      return either(Candidate("portHostAddress", Key::portHostAddress),
                    Candidate("ethernetAddress", Key::ethernetAddress));
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

std::string_view RequestKeys::requiredText(Key key) const {
  if (holds(key)) {
    if (const auto text = textOfValue(bytes(key))) {
      return *text;
    }
  }
  throw NSException("the value of \"" + std::string(kKeyNames[static_cast<std::size_t>(key)]) +
                    (holds(key) ? "\" is no text" : "\" is missing"));
}

std::optional<std::string_view> RequestKeys::optionalText(Key key) const {
  return holds(key) ? std::optional(requiredText(key)) : std::nullopt;
}

}  // namespace sorvane
