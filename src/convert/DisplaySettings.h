// How a host shows dates, times and money.
#pragma once

namespace sorvane {

class SSDefaults;

/// The settings in force, each a text that ends with a NUL. A stored value that is longer is cut to
/// fit, between two characters.
struct DisplaySettings {
  /// Style of dates, its first character: "1" 6 May 2004, "2" 05-06-2004, "3" 05/06/2004,
  /// "4" 6.5.2004, anything else May 6, 2004.
  char pDate[32] = "0";
  /// Style of times, its first character: "1" 24 hours, anything else 12 hours with am and pm.
  char pTime[32] = "0";
  char pMoneyPre[32] = "$";  ///< before an amount of money
  char pMoneyPost[48] = "";  ///< after it
  /// The calendar format of the host, for programs that show one; no conversion uses it.
  char pCalendarFormat[64] = "%m.%d.%y %H:%M %Z";
};

/// Reads the settings from a defaults store. What it does not hold keeps its default.
[[nodiscard]] DisplaySettings readDisplaySettings(SSDefaults& store);

}  // namespace sorvane
