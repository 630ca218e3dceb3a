// The host on which this process runs.
#pragma once

#include <atomic>
#include <optional>
#include <string>

namespace sorvane {

/// One object a process, made at the first `currentHost`; its answers never change afterwards. Any
/// thread.
class VNHost {
 public:
  /// Also called for its effect alone: what the host looks like now is what counts from here on.
  static VNHost& currentHost() {
    VNHost* const host = current_.load(std::memory_order_acquire);  // asked by each lookup
    return host != nullptr ? *host : makeCurrentHost();
  }

  /// True while the system still answers the address that it answered when the host object was
  /// made; settings do not enter into it. True as well when the system cannot be asked.
  [[nodiscard]] static bool validateCurrentHost();

  /// The host's name; may be empty when the system has none.
  [[nodiscard]] const std::string& name() const { return name_; }
  /// Dotted IPv4; 127.0.0.1 when local-access-only, and when there is no other.
  [[nodiscard]] const std::string& address() const { return address_; }
  /// Six lower-case two-digit hex groups joined by colons, all zero when there is none.
  [[nodiscard]] const std::string& ethernetAddress() const { return ethernetAddress_; }
  /// Only this machine is served.
  [[nodiscard]] bool isLocalAccessOnly() const { return localAccessOnly_; }
  [[nodiscard]] bool isBonjourDisabled() const { return bonjourDisabled_; }
  /// The address is assigned dynamically and may change: as the settings say, else when the system
  /// assigned it for a limited time.
  [[nodiscard]] bool isDynamic() const { return dynamic_; }

  /// True when `nameOrAddress` means this host: its name, its short name, "localhost", any loopback
  /// address, or the address of one of its interfaces. Names in any letter case.
  [[nodiscard]] bool isThisHost(const std::string& nameOrAddress) const;

  /// Forgets the host object, so that the next `currentHost` reads the settings again. For tests.
  static void resetForTest();

 private:
  VNHost();

  ~VNHost() = default;

  static VNHost& makeCurrentHost();

  inline static std::atomic<VNHost*> current_{nullptr};  // set with a mutex held

  std::optional<std::string> systemAddress_;  // at creation; nothing when it could not be asked
  std::string systemName_;
  std::string name_;
  std::string address_;
  std::string ethernetAddress_;
  bool localAccessOnly_ = false;
  bool bonjourDisabled_ = false;
  bool dynamic_ = false;
};

}  // namespace sorvane
