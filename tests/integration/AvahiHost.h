// A host with a D-Bus and an Avahi daemon of its own, in a network of the test's own.
#pragma once

#include <signal.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "integration/NetworkNamespace.h"
#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// Neither daemon runs at first. Avahi uses the interface "eth0" and no other, so nothing leaves
/// the test's network. A daemon that does not start is an exception.
class AvahiHost {
 public:
  /// `name` is the host's name in Bonjour.
  explicit AvahiHost(std::string name);

  [[nodiscard]] const NetworkNamespace& network() const { return network_; }

  void startBus();
  void stopBus();
  /// Returns when Avahi has settled its host name.
  void startAvahi();
  /// Returns when Avahi is gone.
  void stopAvahi();
  /// Avahi takes no more calls, and refuses none either, until it goes on.
  void hangAvahi() { avahi_->signal(SIGSTOP); }
  void letAvahiGoOn() { avahi_->signal(SIGCONT); }
  /// Both.
  void startDaemons();

  /// What a new process does to be on this host: for `Program::Options` and `Daemon::launch`.
  [[nodiscard]] std::function<void()> inside() const;
  /// Starts a program on this host.
  [[nodiscard]] std::unique_ptr<Program> start(const std::filesystem::path& program,
                                               std::vector<std::string> arguments) const;

 private:
  [[nodiscard]] std::string busAddress() const;

  const std::string name_;
  NetworkNamespace network_;
  TemporaryFolder folder_;
  std::unique_ptr<Program> bus_;
  std::unique_ptr<Program> avahi_;
};

}  // namespace sorvane::test
