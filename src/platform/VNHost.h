// The host on which this process runs.
#pragma once

#include <string>

namespace sorvane {

/// What the network of this host looks like right now, asked of the system; settings do not enter
/// into it.
struct HostFacts {
  std::string name;             ///< host name, may be empty
  std::string address;          ///< dotted IPv4 address, "127.0.0.1" when there is no other
  std::string ethernetAddress;  ///< six lower-case two-digit hex groups joined by colons, all zero
                                ///< when there is none
  bool addressHasLifetime = false;  ///< the address was assigned for a limited time

  bool operator==(const HostFacts&) const = default;
};

/// One object a process, made at the first `currentHost`; its answers never change afterwards. Any
/// thread.
class VNHost {
 public:
  [[nodiscard]] static VNHost& currentHost();

  /// True while the system still answers the address that it answered when the host object was
  /// made.
  [[nodiscard]] static bool validateCurrentHost();

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] const std::string& ethernetAddress() const { return ethernetAddress_; }
  /// Only this machine is served.
  [[nodiscard]] bool isLocalAccessOnly() const { return localAccessOnly_; }
  [[nodiscard]] bool isBonjourDisabled() const { return bonjourDisabled_; }
  /// The address is assigned dynamically and may change.
  [[nodiscard]] bool isDynamic() const { return dynamic_; }

  /// True when `nameOrAddress` means this host: its name, its short name, "localhost", any loopback
  /// address, or the address of one of its interfaces.
  [[nodiscard]] bool isThisHost(const std::string& nameOrAddress) const;

  /// Forgets the host object, so that the next `currentHost` reads the settings again. For tests.
  static void resetForTest();

 private:
  VNHost();

  HostFacts factsAtCreation_;
  std::string name_;
  std::string address_;
  std::string ethernetAddress_;
  bool localAccessOnly_ = false;
  bool bonjourDisabled_ = false;
  bool dynamic_ = false;
};

/// Asks the system. Implemented once for each operating system.
[[nodiscard]] HostFacts readHostFacts();

}  // namespace sorvane
