// A network of a test's own: interfaces, addresses and ports that nobody else sees.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/OwnNamespaces.h"
#include "support/Program.h"

namespace sorvane::test {

/// A host as far as its network and its /run go: both are empty at first but for the loopback
/// interface, which is up. Everything else is shared with the machine. It goes with the object, and
/// with the test program.
class NetworkNamespace {
 public:
  /// An exception when it cannot be made.
  NetworkNamespace();

  /// The process that holds the namespace open.
  [[nodiscard]] pid_t process() const { return holder_.process(); }

  /// Moves the calling process, a new one with one thread, inside: for `Program::Options`. It ends
  /// with status 125 when that is not possible.
  void enter() const;

  /// Runs a program inside to its end; an exception with what it printed when it fails.
  Outcome run(const std::string& program, std::vector<std::string> arguments) const;

 private:
  ForkedPart holder_;
};

/// Runs `work` on a thread in that host's network, to its end. Sockets that it makes belong to that
/// network, whoever uses them later.
void onNetworkOf(const NetworkNamespace& host, const std::function<void()>& work);

/// A cable between two hosts: an interface "eth0" in each, up, with these addresses, such as
/// "192.0.2.1/24".
void connectByCable(const NetworkNamespace& one, const std::string& addressOfOne,
                    const NetworkNamespace& other, const std::string& addressOfOther);

/// An interface "eth0" that leads nowhere.
void connectToNothing(const NetworkNamespace& host, const std::string& address);

/// A program of the system by its name; an exception when it is not installed.
[[nodiscard]] std::filesystem::path systemProgram(const std::string& name);

}  // namespace sorvane::test
