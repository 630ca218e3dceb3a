// A name server that is upgraded in place, seen by a tool that is connected all the while.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>

#include "integration/Client.h"

namespace sorvane::test {

class Upgrading {
 public:
  /// The name server must serve.
  explicit Upgrading(const Daemon& server) : server_(server), tool_(server) {}

  /// A text of the reply about upgrades; "(none)" if it is not there.
  std::string told(std::string_view key) {
    const auto reply = tool_.acts("continuity");
    for (const auto& [name, text] : reply.value_or(Texts())) {
      if (name == key) {
        return text;
      }
    }
    return "(none)";
  }

  /// Asks for an upgrade and waits until it has been tried. Returns why it was put off; empty if it
  /// was done.
  std::string upgrade() {
    const int before = std::stoi(told("attempts"));
    ::kill(server_.process(), SIGUSR2);
    EXPECT_TRUE(waitUntil([&] {
      return std::stoi(told("attempts")) > before &&
             (told("refused") != "" || std::stoi(told("upgrades")) > upgrades_);
    })) << server_.console();
    upgrades_ = std::stoi(told("upgrades"));
    return told("refused");
  }
  /// Number of upgrades so far.
  [[nodiscard]] int upgrades() const { return upgrades_; }

  /// Puts another program file in the place of the name server's: a script.
  void putScript(const std::string& text) const {
    namespace fs = std::filesystem;
    const fs::path file = server_.tree() / "bin/new";
    writeFile(file, text);
    fs::permissions(file, fs::perms::owner_all);
    fs::rename(file, server_.executable());
  }
  /// Puts the real one back.
  void putProgram() const {
    namespace fs = std::filesystem;
    const fs::path file = server_.tree() / "bin/new";
    fs::copy_file(builtProgram("sorvinfo"), file);
    fs::rename(file, server_.executable());
  }

  [[nodiscard]] Client& tool() { return tool_; }

 private:
  const Daemon& server_;
  Client tool_;
  int upgrades_ = 0;
};

}  // namespace sorvane::test
