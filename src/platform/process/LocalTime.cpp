#include "platform/LocalTime.h"

#include <time.h>

#include <cmath>

#include "platform/TimeSource.h"

namespace sorvane {

LocalTime localTimeNow() {
  const auto now =
      static_cast<time_t>(std::floor(timeIntervalSinceReferenceDate() + kReferenceDateUnixSeconds));
  struct tm fields {};
  if (localtime_r(&now, &fields) == nullptr) {
    return {};
  }
  const bool daylightSaving = fields.tm_isdst > 0;
  const int minutesEast = static_cast<int>(fields.tm_gmtoff / 60) - (daylightSaving ? 60 : 0);
  return {.year = fields.tm_year + 1900,
          .month = fields.tm_mon + 1,
          .day = fields.tm_mday,
          .hour = fields.tm_hour,
          .minute = fields.tm_min,
          .daylightSaving = daylightSaving,
          .minutesWest = -minutesEast};
}

}  // namespace sorvane
