// The real name server, confined as its unit says.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "integration/Daemon.h"
#include "platform/NetConnection.h"
#include "service/Confinement.h"
#include "support/OwnNamespaces.h"
#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// Skipped where the system grants no namespaces.
class Confined : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    host_ = std::make_unique<ConfinedHost>();
    std::filesystem::copy_file(builtProgram("sorvinfo"), (*host_)["/program/sorvinfo"]);
    writeSettings("");
  }

  void writeSettings(const std::string& further) const {
    writeFile((*host_)["/etc/sorvane/sorvane.conf"],
              "BasePort = " + std::to_string(ports_.base()) +
                  ";\n"
                  "InstallationDirectory = \"/var/lib/sorvane\";\n" +
                  further);
  }

  /// Starts the name server as the unit says; `before` runs before it is confined.
  void start(const std::function<void()>& before) {
    server_ = std::make_unique<Program>("/program/sorvinfo", std::vector<std::string>{"noexit"},
                                        Program::Options{"", [&] {
                                                           before();
                                                           host_->confine();
                                                         }});
  }

  /// Runs a shell command confined as the name server is.
  [[nodiscard]] Outcome shellInside(const std::string& command) const {
    Program shell("/bin/sh", {"-c", command}, {"", [this] { host_->confine(); }});
    const int status = shell.wait().value_or(-1);
    return {status, shell.output(), shell.errors()};
  }

  [[nodiscard]] std::optional<Message> ask(const Message& request) const {
    NetConnection connection;
    EXPECT_TRUE(connection.connectToPort("127.0.0.1", ports_.base())) << connection.lastError();
    return connection.sendDictionary(request);
  }

  const FreePorts ports_;
  std::unique_ptr<ConfinedHost> host_;
  std::unique_ptr<Program> server_;
};

}  // namespace sorvane::test
