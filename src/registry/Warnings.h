// What commands tell the console.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/Console.h"

namespace sorvane {

enum class Warning : std::uint8_t { none, remoteUser, ethernetAddressMissing };

/// Writes warnings, each of them limited in rate. Any thread.
class Warnings {
 public:
  /// Writes the text of the warning; nothing for `none`.
  void write(Warning warning) {
    const auto index = static_cast<std::size_t>(warning);
    if (warning != Warning::none) {
      limits_[index].line(kTexts[index]);
    }
  }

 private:
  static constexpr std::array<std::string_view, 3> kTexts = {
      "", "Remote user failed because server is configured for non-network access",
      "ethernetAddress missing from sorvexec communication"};

  std::array<ConsoleRateLimit, kTexts.size()> limits_;
};

}  // namespace sorvane
