// Requests and replies as lists of texts, to be compared and printed.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Message.h"

namespace sorvane::test {

/// Keys and texts of a request or a reply, in their order.
using Texts = std::vector<std::pair<std::string, std::string>>;

/// The replies that carry nothing.
inline const std::optional<Texts> kNil = std::nullopt;
inline const std::optional<Texts> kEmptyDictionary = Texts{};
inline const std::optional<Texts> kSucceed = Texts{{"result", "succeed"}};

/// A request of texts; the action goes first.
inline Message request(std::string_view action, const Texts& texts) {
  Message message{{"action", action}};
  for (const auto& [key, text] : texts) {
    message.setText(key, text);
  }
  return message;
}

/// The texts of a reply. Every value must end in its one NUL.
inline std::optional<Texts> textsOf(const std::optional<Message>& reply) {
  if (!reply) {
    return std::nullopt;
  }
  Texts texts;
  for (const MessageEntry& entry : reply->entries()) {
    EXPECT_EQ(entry.value.find('\0'), entry.value.size() - 1) << entry.key;
    texts.emplace_back(entry.key, entry.value.substr(0, entry.value.find('\0')));
  }
  return texts;
}

}  // namespace sorvane::test
