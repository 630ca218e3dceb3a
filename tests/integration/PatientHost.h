// A host for `sorvctl doctor`: nothing is wrong with it until a test breaks something.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "integration/Daemon.h"
#include "integration/NetworkNamespace.h"
#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// What the doctor told.
struct Examination {
  int status = -1;
  nlohmann::json report;

  /// The ids of the findings, in their order.
  [[nodiscard]] std::vector<std::string> found() const;
  /// What the finding with that id tells; fails the running test if there is none.
  [[nodiscard]] std::string what(const std::string& id) const;
  /// What the check with that name has seen.
  [[nodiscard]] std::string seen(const std::string& check) const;
  /// The subjects that it could not look at, such as "files: whether ...".
  [[nodiscard]] std::vector<std::string> notLookedAt() const;
};

using Ids = std::vector<std::string>;

/// The host "dbhost". It has the address 192.0.2.7 on its interface eth0, and its name means this
/// address. `sorvctl` stands beside the name server and reads the same settings.
class PatientHost {
 public:
  /// `network` has the interface already. `inside` brings a new process onto the host.
  PatientHost(const NetworkNamespace& network, std::function<void()> inside);

  Daemon server;

  /// Starts the name server and waits until it answers and has the lock. `beforeStart` runs in the
  /// new process.
  void startServer(std::vector<std::string> words = {"-noexit"},
                   const std::function<void()>& beforeStart = {});
  /// What a setting of the file is from now on; the name server keeps what it has read.
  void changeSettings(const std::string& text) const;

  /// What /etc/hosts of this host says from now on.
  void namesAre(const std::string& hosts) const;
  /// Asks nobody but that address for other names, and waits for it for a minute.
  void askForNames(const std::string& address) const;

  /// Keeps the system from giving this port to any connection of this host.
  void reservePort(int port) const;

  /// Runs a command of the system on this host.
  void run(const std::string& program, std::vector<std::string> words) const;
  /// Runs `sorvctl` on this host. `beforeStart` runs in the new process.
  [[nodiscard]] Outcome sorvctl(std::vector<std::string> words,
                                const std::function<void()>& beforeStart = {}) const;
  /// Runs `sorvctl doctor --json` on this host. It may take a minute, so that a busy machine does
  /// not become a finding.
  [[nodiscard]] Examination examine(std::vector<std::string> words = {},
                                    const std::function<void()>& beforeStart = {}) const;

 private:
  /// Puts a file of the test's own in the place of one of the system, for this host alone.
  void replaceSystemFile(const std::string& path, const std::string& content) const;

  const NetworkNamespace& network_;
  const std::function<void()> inside_;
  const TemporaryFolder files_;
};

/// For tests on such a host: skipped where there are no networks of a test's own.
class DoctorTest : public testing::Test {
 protected:
  void SetUp() override;

  std::unique_ptr<NetworkNamespace> network;
  std::unique_ptr<PatientHost> host;
};

/// Makes a process that of another user.
[[nodiscard]] std::function<void()> asUser(unsigned user);

}  // namespace sorvane::test
