// The real name server, running in an installation of the test's own.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Message.h"
#include "platform/NetConnection.h"
#include "support/ConsoleLines.h"
#include "support/Program.h"
#include "support/RawConnection.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// A base port that nothing listens on, nor on the one below; no other test gets it meanwhile.
class FreePorts {
 public:
  FreePorts();
  ~FreePorts();
  FreePorts(const FreePorts&) = delete;
  FreePorts& operator=(const FreePorts&) = delete;
  [[nodiscard]] int base() const { return base_; }

 private:
  int claim_ = -1;
  int base_ = 0;
};

/// Example:
///   Daemon server;
///   server.start();
///   ASSERT_TRUE(server.registers("db1"));
///   EXPECT_TRUE(server.finds("db1"));
///
/// The tree has bin/sorvinfo (a link to or a copy of the built one), etc/sorvane.conf, Config,
/// Logs, Users and lock. Its settings unless changed: the free base port, LockDirectory in the
/// tree, BonjourDisabled, HostName "testhost", Address 192.0.2.10 (so not local-access-only),
/// DynamicAddress NO, EthernetAddress 02:00:00:00:00:01. Whatever runs from the tree is killed at
/// the end.
class Daemon {
 public:
  Daemon();
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  /// Changes a setting before the start; the value as it stands in a property list, with its quotes
  /// where it needs them. An empty value takes the setting out.
  Daemon& setting(const std::string& key, const std::string& value);
  /// Writes the settings anew for a name server that runs.
  void writeSettings() const;

  /// Starts it and waits until it answers a ping; an exception when it does not.
  void start(std::vector<std::string> arguments = {"-noexit"});
  /// Starts it and waits for nothing; `beforeStart` runs in the new process.
  void launch(std::vector<std::string> arguments = {"-noexit"},
              std::function<void()> beforeStart = {});
  /// Waits until it answers a ping; false when it ends, or does not within `kPatience`.
  [[nodiscard]] bool answers();
  /// Waits until it has taken the lock of its host: the last thing that the start does, beside the
  /// serving. False when that takes longer than `kPatience`.
  [[nodiscard]] bool hasTakenLock() const;
  /// SIGKILL, and waits until it is gone.
  void kill();
  /// Waits for the started process to end by itself.
  std::optional<int> waitForExit(std::chrono::milliseconds limit = kPatience);

  [[nodiscard]] int basePort() const { return ports_.base(); }
  [[nodiscard]] const std::filesystem::path& tree() const { return tree_.path(); }
  [[nodiscard]] std::filesystem::path executable() const { return tree_ / "bin/sorvinfo"; }
  [[nodiscard]] pid_t process() const { return program_->process(); }
  /// Every process that runs the tree's executable, a detached one too.
  [[nodiscard]] std::vector<pid_t> processes() const;

  [[nodiscard]] std::string log() const;
  [[nodiscard]] std::string console() const { return program_->errors(); }
  [[nodiscard]] std::string standardOutput() const { return program_->output(); }
  /// Wait until the log, or the console, holds that text.
  [[nodiscard]] bool logs(const std::string& text) const;
  [[nodiscard]] bool complains(const std::string& text) const { return program_->complains(text); }

  /// A new connection, for bytes, or for requests.
  [[nodiscard]] RawConnection rawConnection() const { return RawConnection(basePort()); }
  [[nodiscard]] std::unique_ptr<NetConnection> connection() const;
  /// Asks on a connection of its own. Nothing for a nil reply.
  [[nodiscard]] std::optional<Message> ask(const Message& request) const;

  /// Registers a database on a connection of its own, which stays open until `unregisters` or the
  /// end; true when it was accepted.
  [[nodiscard]] bool registers(const std::string& name, const std::string& host = "dbhost",
                               const std::string& type = "database");
  /// Closes that connection, and waits until the name is gone.
  void unregisters(const std::string& name);
  [[nodiscard]] bool finds(const std::string& name) const;

 private:
  FreePorts ports_;
  TemporaryFolder tree_;
  std::map<std::string, std::string> settings_;
  std::unique_ptr<Program> program_;
  std::map<std::string, std::unique_ptr<NetConnection>> registered_;
};

}  // namespace sorvane::test
