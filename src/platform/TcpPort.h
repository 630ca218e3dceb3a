// What the system tells about the TCP ports of this host: who listens, and who is connected.
//
// Implemented in host/TcpPortLinux.cpp; on other systems in host/TcpPortPortable.cpp, which knows
// nothing.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace sorvane {

/// A socket that listens on a port.
struct TcpListener {
  std::string address;         ///< numeric; "0.0.0.0" or "::" for all addresses
  bool isLoopback = false;     ///< the address is a loopback address
  unsigned user = 0;           ///< whose socket it is
  std::optional<int> process;  ///< one that has it open; none if this user may not know
};

/// What goes on at a port.
struct TcpPortUse {
  std::vector<TcpListener> listeners;
  std::size_t connections = 0;  ///< of the listeners, with those whose peer is closing
};

/// Returns what goes on at a port of this host, in the network of this process; nothing if the
/// system does not tell. Any thread.
[[nodiscard]] std::optional<TcpPortUse> useOfTcpPort(int port);

/// The ports that the system gives to connections whose own port does not matter.
struct EphemeralPorts {
  int first = 0;
  int last = 0;
  std::string reserved;  ///< ports that it leaves out, such as "20221,30000-30010"

  /// True if the system may give out this port.
  [[nodiscard]] bool contain(int port) const;
};

/// Returns them, or nothing if the system does not tell. Any thread.
[[nodiscard]] std::optional<EphemeralPorts> ephemeralPorts();

}  // namespace sorvane
