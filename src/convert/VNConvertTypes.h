// Dates, times and money as users read and type them, and as they are stored.
#pragma once

#include <cstdint>

#include "convert/DisplaySettings.h"

namespace sorvane {

/// Conversions between the stored forms and the display forms that a host has chosen. Used through
/// static methods alone.
///
/// Text buffers belong to the caller and end with a NUL. A method that answers `char*` changes the
/// buffer in place and answers it; unless it says otherwise 64 bytes are enough for a date or a
/// time, 128 for a number or an amount of money. Nothing reports an error.
///
/// Any number of threads may convert at the same time: whichever needs the settings first loads
/// them, once, while the others wait for it. `initDefaults`, `setDefaultHost` and `setDirectLoad`
/// are for the time before that.
///
/// Stored forms: a date is "@2004-05-06", a time "#19:05", money a count of hundredths.
class VNConvertTypes {
 public:
  VNConvertTypes() = delete;

  // ---- Settings (VNConvertTypes.cpp)

  /// Loads the settings from the defaults store and sets the zone (`initDateTime`). What the store
  /// does not hold keeps its default, as everything does when the host cannot be reached; that is
  /// not tried again before the host changes or this is called.
  static void initDefaults();
  /// Names the host whose defaults are read, 199 bytes at most; empty at first, which means this
  /// host. Another name than before makes the next conversion load the settings anew and undoes
  /// `setDirectLoad`.
  static void setDefaultHost(const char* name);
  /// Makes the next loading read the defaults file of this host, whatever host is named.
  static void setDirectLoad();
  /// The settings in force, loaded now when they have not been.
  [[nodiscard]] static const DisplaySettings& settings();

  /// Puts these settings in force without a defaults store and leaves the zone alone. For tests.
  static void useSettingsForTest(const DisplaySettings& settings);
  /// Back to the state of a new process, but for the zone. For tests, while no other thread
  /// converts.
  static void resetForTest();

  // ---- Fields of a text as a user types it (FieldReaders.cpp)

  /// True for a text made of digits and "." after at most one "-"; also for the empty text.
  [[nodiscard]] static bool isDateNumber(const char* text);
  /// The number after the last "," or, where there is none, the last "-", "/", "." or blank, tried
  /// in this order; -1 without any. Years up to 99 get 1900 added.
  [[nodiscard]] static int getYear(const char* text);
  /// 1 to 12, or -1. Reads numbers, names, their first three letters, and single letters; the
  /// letters that decide are put into upper case in the caller's text.
  [[nodiscard]] static int getMonth(char* text);
  /// The day of the month, not held to a range; 0 for a "," before any digit, -1 without digits.
  [[nodiscard]] static int getDay(const char* text);
  /// 0 to 23, or -1. An "a" or "p" in the text means morning or afternoon.
  [[nodiscard]] static int getHour(const char* text);
  /// The number after the first ":", at most 59; -1 without one.
  [[nodiscard]] static int getMin(const char* text);

  // ---- The local date and time now (CurrentTime.cpp)

  [[nodiscard]] static int currentYear();
  [[nodiscard]] static int currentMonth();  ///< 1 to 12
  [[nodiscard]] static int currentDay();    ///< of the month
  [[nodiscard]] static int currentHour();   ///< 0 to 23
  [[nodiscard]] static int currentMin();

  // ---- Between stored and display forms (DateTimeFilters.cpp)

  /// Stored date to display. A text that does not begin with "@" stays as it is; a month outside 1
  /// to 12 has no name.
  static char* preFilter(char* text);
  /// Display date to stored. What cannot be read is taken from today; the empty text stays empty.
  static char* postFilter(char* text);
  /// Stored time to display; the empty text stays empty.
  static char* preTimeFilter(char* text);
  /// Display time to stored. What cannot be read is taken from the time now; the empty text stays
  /// empty.
  static char* postTimeFilter(char* text);
  static char* convertFromDate(char* text);  ///< as `preFilter`
  static char* convertToDate(char* text);    ///< as `postFilter`
  static char* convertFromTime(char* text);  ///< as `preTimeFilter`
  static char* convertToTime(char* text);    ///< as `postTimeFilter`

  /// The date value of a date and time text; `dateToFloat` after the settings are loaded.
  [[nodiscard]] static double dateTimeToFloat(const char* text);
  /// The text of a date value; `VN_formatDate` after the settings are loaded.
  static char* floatToDateTime(double value, char* buffer);

  // ---- Money, in hundredths (Money.cpp)

  /// Writes "$-1,234.56": the money prefix, the number with groups of three, the postfix. On
  /// purpose -1 to -99 come out as "$0.-5" and "$-.12"; callers that want them well formed use
  /// `formatMoneyLL`.
  static void formatMoney(long hundredths, char* buffer);
  /// The same, well formed for every value.
  static void formatMoneyLL(std::int64_t hundredths, char* buffer);
  static char* LongToMoney(long hundredths, char* buffer);  ///< as `formatMoney`; answers `buffer`
  static char* LongLongToMoney(std::int64_t hundredths,
                               char* buffer);  ///< as `formatMoneyLL`; answers `buffer`

  /// Reads an amount; decimals beyond two are cut off. Changes the text to the number of
  /// hundredths, which needs room for two bytes more; a text is cut after 299 bytes. A number
  /// beyond a `long` is held at its end.
  static long MoneyToLong(char* text);
  /// Reads an amount from the first 50 bytes of a text, which stays as it is; null gives 0. Wraps
  /// in 64 bits.
  [[nodiscard]] static std::int64_t MoneyToLongLong(const char* text);
  [[nodiscard]] static double LongLongMoneyToDouble(std::int64_t hundredths);

  /// Puts "." before the last two characters, filling up to "0.00"; a "-" counts as a character.
  /// Needs room for four bytes more; a text is cut after 299 bytes.
  static char* movePointToLeft(char* text);
  /// Scales a number to hundredths: "1.5" becomes "150"; decimals beyond two are cut off. Needs
  /// room for two bytes more; a text is cut after 299 bytes.
  static char* movePointToRight(char* text);
  /// Keeps only digits, "." and "-" of the first 299 bytes.
  static char* stripNumber(char* text);

  // ---- Values by their type (TypedData.cpp)

  static void convertLongLong(std::int64_t value, char* buffer);       ///< `vn_lltoa`
  static void convertAscii(const char* text, std::int64_t* longLong);  ///< `vn_atoll`

  /// Writes the text of the value at `data`, which need not be aligned. `type` tells what is there:
  ///
  ///   '!' 'F'          double, ten decimals          'M'  64-bit hundredths, as money
  ///   'C' 'D' 'O' 'T'  characters up to a NUL        'Q'  64-bit integer
  ///   'I'              32-bit integer                'L'  long
  ///
  /// False for any other type. The buffer then holds a line feed as the only character, and so it
  /// does for a null value: 2 to the power of -149 for a double, the most negative value for an
  /// integer, and for a long 2147483648, kept so on purpose. A double needs 330 bytes, characters
  /// as many as there are.
  static bool convertData(const void* data, char type, char* buffer);
};

}  // namespace sorvane
