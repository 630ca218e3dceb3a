// An info server with a preference file of its own, and a client of it in the same process.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "infoserver/InfoserverController.h"
#include "platform/Message.h"
#include "platform/NetConnection.h"
#include "platform/PropertyList.h"
#include "support/InProcess.h"
#include "support/TestFiles.h"
#include "support/Texts.h"

namespace sorvane::test {

class InfoServerTest : public ::testing::Test {
 protected:
  /// Starts a server, after the end of the one before if there was one.
  void start() {
    server_.reset();
    server_ = std::make_unique<InfoserverController>(file_.string());
  }
  /// Starts a server that finds this content in the preference file.
  void startWith(std::string_view content) {
    writeFile(file_, content);
    start();
  }

  std::optional<Texts> asks(const Message& message) {
    if (!server_) {
      start();
    }
    return textsOf(deliverInProcess(*server_, message, client_));
  }
  std::optional<Texts> asks(std::string_view action, const Texts& texts) {
    return asks(request(action, texts));
  }

  /// Stores an entry, which must succeed.
  void sets(std::string_view entry, const Texts& settings) {
    Texts texts = {{"key", std::string(entry)}};
    texts.insert(texts.end(), settings.begin(), settings.end());
    EXPECT_EQ(asks("set_userpreferences", texts), kSucceed);
  }
  void setsKey(std::string_view setting) {
    EXPECT_EQ(asks("set_userpreferences_key", {{"key", std::string(setting)}}), kSucceed);
  }
  std::optional<Texts> gets(std::string_view entry) {
    return asks("get_userpreferences", {{"key", std::string(entry)}});
  }
  std::optional<Texts> gets(std::string_view entry, std::string_view fallback) {
    return asks("get_userpreferences", {{"key", std::string(entry)}, {"*", std::string(fallback)}});
  }
  std::optional<Texts> getsKey() { return asks("get_userpreferences_key", {{"key", ""}}); }

  /// What the preference file holds.
  [[nodiscard]] PropertyList onDisk() const { return PropertyList::parse(readFile(file_)); }
  [[nodiscard]] std::ptrdiff_t filesBesideTheFile() const {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator(file_.parent_path()), fs::directory_iterator()) - 1;
  }

  TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_ / "Users" / "SorvPreferences";
  std::unique_ptr<InfoserverController> server_;
  InProcessConnection client_;
};

}  // namespace sorvane::test
