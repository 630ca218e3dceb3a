// What the commands know of the host that they run on.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sorvane {

/// Plain data, filled once before the first command; constant from then on.
struct HostFacts {
  std::string name;
  std::string address;          ///< dotted IPv4
  std::string ethernetAddress;  ///< six lower-case hex groups joined by colons
  /// The host serves its own machine only: its address is 127.0.0.1 and is not one that changes.
  bool hasOnlyLoopbackAddress = false;
  std::int64_t basePort = 0;            ///< of the framework
  bool takesRemoteControl = true;       ///< other machines may end the process
  bool takesRemoteRegistration = true;  ///< other machines may change the registry
  /// Returns the alias that the settings give to an address, or nothing.
  std::optional<std::string> (*aliasOf)(std::string_view address) = nullptr;
};

/// True for the two texts, compared exactly, that mean this machine.
[[nodiscard]] inline bool isLoopbackName(std::string_view address) {
  return address == "127.0.0.1" || address == "localhost";
}

}  // namespace sorvane
