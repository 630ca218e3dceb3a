// How a host shows dates, times and money.
#pragma once

namespace sorvane {

class SSDefaults;

/// Each setting is a text that ends with a NUL. A stored value that is too long for its array is
/// cut to fit, between two characters.
struct DisplaySettings {
  /// The style of dates. Only its first character counts: "1" gives 6 May 2004, "2" 05-06-2004,
  /// "3" 05/06/2004, "4" 6.5.2004, anything else May 6, 2004.
  char pDate[32] = "0";
  /// The style of times. Only its first character counts: "1" gives 24 hours, anything else 12
  /// hours with am and pm.
  char pTime[32] = "0";
  char pMoneyPre[32] = "$";  ///< written before an amount of money
  char pMoneyPost[48] = "";  ///< written after an amount of money
  /// The calendar format of the host, for programs that show a calendar. No conversion uses it.
  char pCalendarFormat[64] = "%m.%d.%y %H:%M %Z";
};

/// Reads the settings from a defaults store. What it does not hold keeps its default.
[[nodiscard]] DisplaySettings readDisplaySettings(SSDefaults& store);

}  // namespace sorvane
