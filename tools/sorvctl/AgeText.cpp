#include "sorvctl/AgeText.h"

#include <algorithm>

namespace sorvctl {

namespace {

constexpr long long kSecondsOfMinute = 60;
constexpr long long kSecondsOfHour = 60 * kSecondsOfMinute;
constexpr long long kSecondsOfDay = 24 * kSecondsOfHour;
constexpr long long kMostDays = 9999;

}  // namespace

std::string ageText(std::chrono::seconds age) {
  const long long seconds = std::max<long long>(age.count(), 0);
  if (seconds < kSecondsOfMinute) {
    return std::to_string(seconds) + " s";
  }
  if (seconds < kSecondsOfHour) {
    return std::to_string(seconds / kSecondsOfMinute) + " min";
  }
  if (seconds < kSecondsOfDay) {
    return std::to_string(seconds / kSecondsOfHour) + " h";
  }
  return std::to_string(std::min(seconds / kSecondsOfDay, kMostDays)) + " d";
}

}  // namespace sorvctl
