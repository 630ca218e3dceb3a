// The host on which this process runs.
#pragma once

#include <atomic>
#include <optional>
#include <string>

namespace sorvane {

/// There is one object for the process. Its values never change. Any thread.
class VNHost {
 public:
  /// Returns the host. The first call takes a snapshot of the host; later calls return it.
  static VNHost& currentHost() {
    VNHost* const host = current_.load(std::memory_order_acquire);  // each lookup calls this
    return host != nullptr ? *host : makeCurrentHost();
  }

  /// Returns true if the system reports the same address as when the host object was made. The
  /// address in the settings does not count. Also returns true if the system cannot be asked, now
  /// or then.
  [[nodiscard]] static bool validateCurrentHost();

  /// The host's name; may be empty if the system has none.
  [[nodiscard]] const std::string& name() const { return name_; }
  /// Dotted IPv4. 127.0.0.1 if the host is local-access-only or has no other address.
  [[nodiscard]] const std::string& address() const { return address_; }
  /// Six lower-case two-digit hex groups joined by colons; all zero if there is none.
  [[nodiscard]] const std::string& ethernetAddress() const { return ethernetAddress_; }
  /// True if only programs of this machine are served.
  [[nodiscard]] bool isLocalAccessOnly() const { return localAccessOnly_; }
  [[nodiscard]] bool isBonjourDisabled() const { return bonjourDisabled_; }
  /// True if the address is dynamic, that is, may change. The settings decide; if they do not, true
  /// if the system assigned the address for a limited time, or does not tell.
  [[nodiscard]] bool isDynamic() const { return dynamic_; }

  /// Returns true if `nameOrAddress` means this host: if it is the host's name, its short name,
  /// "localhost", any loopback address, or the address of one of its interfaces. The letter case of
  /// names does not matter.
  [[nodiscard]] bool isThisHost(const std::string& nameOrAddress) const;

  /// Deletes the host object, so that the next `currentHost` reads the settings again. For tests.
  static void resetForTest();

 private:
  VNHost();

  ~VNHost() = default;

  static VNHost& makeCurrentHost();

  inline static std::atomic<VNHost*> current_{nullptr};  // written with a mutex held

  std::optional<std::string> systemAddress_;  // at creation; nullopt: the system could not be asked
  std::string systemName_;
  std::string name_;
  std::string address_;
  std::string ethernetAddress_;
  bool localAccessOnly_ = false;
  bool bonjourDisabled_ = false;
  bool dynamic_ = false;
};

}  // namespace sorvane
