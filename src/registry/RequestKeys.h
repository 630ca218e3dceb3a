// The keys of a request that name server commands know, found in one pass and without allocation.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Message.h"

namespace sorvane {

/// The keys that some command tests or reads.
enum class Key : std::uint8_t {
  acceptPort,
  action,
  databaseName,
  ethernetAddress,
  findPort,
  force,
  hostAddress,
  hostName,
  newPort,
  ping,
  portHost,
  portHostAddress,
  portName,
  portNumber,
  portType,
  reconnectPort,
  state,
  terminate,
};
inline constexpr std::size_t kKeyCount = static_cast<std::size_t>(Key::terminate) + 1;

/// A set of keys, one bit each.
using KeySet = std::uint32_t;
template <typename... Keys>
constexpr KeySet keySet(Keys... keys) {
  return (KeySet{0} | ... | (KeySet{1} << static_cast<unsigned>(keys)));
}

/// The command words, values of the key "action".
enum class Word : std::uint8_t {
  none,  ///< no "action", or one that is no command word
  changeTimestamp,
  databaseStates,
  didPortsChange,
  hostInfo,
  hostList,
  needsRefresh,
  restart,
  setAlertState,
  setDatabaseState,
  sorvexecConnectHost,
  watchPortChanges,
};

/// True when the texts are equal but for the case of ASCII letters.
[[nodiscard]] bool equalIgnoringCase(std::string_view left, std::string_view right);

/// The known keys of one request. Holds views into it.
class RequestKeys {
 public:
  explicit RequestKeys(const Message& request);

  /// True when the request has every key of the set, whatever the values.
  [[nodiscard]] bool holds(KeySet keys) const { return (found_ & keys) == keys; }
  [[nodiscard]] bool holds(Key key) const { return holds(keySet(key)); }
  /// The command word, in whichever case it was written.
  [[nodiscard]] Word action() const { return action_; }

  /// The text of a value that the command cannot do without. Raises NSException when the key is
  /// missing or its value is no text.
  [[nodiscard]] std::string_view requiredText(Key key) const {
    if (holds(key)) {
      if (const auto text = textOfValue(bytes(key))) {
        return *text;
      }
    }
    raise(key);
  }
  /// The text of a value that may be left out: nothing when the key is missing. Raises NSException
  /// when it is there and is no text.
  [[nodiscard]] std::optional<std::string_view> optionalText(Key key) const {
    return holds(key) ? std::optional(requiredText(key)) : std::nullopt;
  }
  /// The bytes of a value; the request holds the key.
  [[nodiscard]] std::string_view bytes(Key key) const {
    return entries_[static_cast<std::size_t>(key)]->value;
  }

  [[nodiscard]] const Message& request() const { return request_; }

 private:
  [[noreturn]] void raise(Key key) const;

  const Message& request_;
  KeySet found_ = 0;
  Word action_ = Word::none;
  std::array<const MessageEntry*, kKeyCount> entries_;  // of those found; the others have no value
};

}  // namespace sorvane
