// The version of the product: the same for all programs of a build.
#pragma once

#include <string>

namespace sorvane {

/// Returns the product's version, such as "1.0.0 (build #1) 11.20.2026". Any thread, until the
/// process ends.
[[nodiscard]] const std::string& productVersion();

/// A day of the calendar.
struct BuildDate {
  int year = 0;
  int month = 0;  ///< 1 to 12
  int day = 0;    ///< 1 to 31
};

/// Returns the date in the product's version.
[[nodiscard]] BuildDate productBuildDate();

}  // namespace sorvane
