// A client of the preferences of a running name server, and the file that it keeps them in.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "integration/Daemon.h"
#include "platform/NetConnection.h"
#include "platform/PropertyList.h"
#include "support/Texts.h"

namespace sorvane::test {

/// Asks on one connection, made at the first request.
class PreferenceClient {
 public:
  explicit PreferenceClient(const Daemon& server) : server_(server) {}

  std::optional<Texts> asks(const Message& message) {
    const std::optional<Message> reply = connection().sendDictionary(message);
    EXPECT_EQ(connection().lastError(), "");
    return textsOf(reply);
  }
  std::optional<Texts> asks(std::string_view action, const Texts& texts) {
    return asks(request(action, texts));
  }

  [[nodiscard]] static Message setting(std::string_view entry, const Texts& settings) {
    Texts texts = {{"key", std::string(entry)}};
    texts.insert(texts.end(), settings.begin(), settings.end());
    return request("set_userpreferences", texts);
  }
  /// Stores an entry, which must succeed.
  void sets(std::string_view entry, const Texts& settings) {
    EXPECT_EQ(asks(setting(entry, settings)), kSucceed);
  }
  std::optional<Texts> gets(std::string_view entry) {
    return asks("get_userpreferences", {{"key", std::string(entry)}});
  }

  [[nodiscard]] NetConnection& connection() {
    if (!connection_) {
      connection_ = server_.connection();
    }
    return *connection_;
  }

 private:
  const Daemon& server_;
  std::unique_ptr<NetConnection> connection_;
};

inline std::filesystem::path preferenceFile(const Daemon& server) {
  return server.tree() / "Users" / "SorvPreferences";
}

inline PropertyList preferencesOnDisk(const Daemon& server) {
  return PropertyList::parse(readFile(preferenceFile(server)));
}

/// How many files lie beside the preference file.
inline std::ptrdiff_t filesBesidePreferences(const Daemon& server) {
  namespace fs = std::filesystem;
  return std::distance(fs::directory_iterator(server.tree() / "Users"), fs::directory_iterator()) -
         1;
}

}  // namespace sorvane::test
