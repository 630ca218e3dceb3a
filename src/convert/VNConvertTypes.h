// Dates, times and money as users read and type them, and as they are stored.
#pragma once

#include <cstdint>

#include "convert/DisplaySettings.h"

namespace sorvane {

/// Converts between the stored forms and the display forms that a host has chosen. All methods are
/// static.
///
/// Stored forms: a date is "@2004-05-06", a time is "#19:05", money is a count of hundredths.
///
/// Text buffers belong to the caller and end with a NUL. A method that returns `char*` changes the
/// buffer in place and returns it. Unless a method says otherwise, 64 bytes are enough for a date
/// or a time, and 128 for a number or an amount of money. Nothing reports an error.
///
/// Any number of threads may convert at the same time. The thread that needs the settings first
/// loads them, once, while the others wait for it. Call `initDefaults`, `setDefaultHost` and
/// `setDirectLoad` before several threads convert.
class VNConvertTypes {
 public:
  VNConvertTypes() = delete;

  // ---- Settings (VNConvertTypes.cpp)

  /// Loads the settings from the defaults store and sets the time zone (`initDateTime`). A setting
  /// that the store does not hold keeps its default. When the host cannot be reached, all settings
  /// keep their defaults, and the host is not tried again until another host is set or this is
  /// called again.
  static void initDefaults();
  /// Sets the host whose defaults are read. The name has at most 199 bytes; it is empty at first,
  /// which means this host. A name that differs from the one before undoes `setDirectLoad`, and the
  /// next conversion loads the settings again.
  static void setDefaultHost(const char* name);
  /// The next load reads the defaults file of this host, whatever host is set.
  static void setDirectLoad();
  /// Returns the settings in force. Loads them if they are not loaded yet.
  [[nodiscard]] static const DisplaySettings& settings();

  /// Puts these settings in force without a defaults store. The time zone stays as it is. For
  /// tests.
  static void useSettingsForTest(const DisplaySettings& settings);
  /// Restores the state of a new process, except for the time zone. For tests, while no other
  /// thread converts.
  static void resetForTest();

  // ---- Fields of a text as a user types it (FieldReaders.cpp)

  /// True for a text of digits and "." that may begin with one "-". True for the empty text, too.
  [[nodiscard]] static bool isDateNumber(const char* text);
  /// Returns the number after the last ",". A text without "," is searched for the last "-", then
  /// "/", then ".", then blank. Returns -1 when it has none of them. A number up to 99 gets 1900
  /// added.
  [[nodiscard]] static int getYear(const char* text);
  /// Returns 1 to 12, or -1. Reads numbers, names, their first three letters, and single letters.
  /// The letters that decide are changed to upper case in the caller's text.
  [[nodiscard]] static int getMonth(char* text);
  /// Returns the day of the month, whose range is not checked. Returns 0 when a "," comes before
  /// any digit, -1 when there are no digits.
  [[nodiscard]] static int getDay(const char* text);
  /// Returns 0 to 23, or -1. An "a" in the text means morning, a "p" afternoon.
  [[nodiscard]] static int getHour(const char* text);
  /// Returns the number after the first ":", or -1 when there is no ":" or the number is above 59.
  [[nodiscard]] static int getMin(const char* text);

  // ---- The local date and time now (CurrentTime.cpp)

  [[nodiscard]] static int currentYear();
  [[nodiscard]] static int currentMonth();  ///< 1 to 12
  [[nodiscard]] static int currentDay();    ///< of the month
  [[nodiscard]] static int currentHour();   ///< 0 to 23
  [[nodiscard]] static int currentMin();

  // ---- Between stored and display forms (DateTimeFilters.cpp)

  /// Converts a stored date to its display form. A text that does not begin with "@" stays as it
  /// is. A month outside 1 to 12 is written without a name.
  static char* preFilter(char* text);
  /// Converts a display date to its stored form. The empty text stays empty. A missing year is this
  /// year. With a month, a missing or impossible day is 1. Without a month, a day that differs from
  /// today's means that day of January; otherwise month and day are today's.
  static char* postFilter(char* text);
  /// Converts a stored time to its display form. The empty text stays empty.
  static char* preTimeFilter(char* text);
  /// Converts a display time to its stored form. The empty text stays empty. With an hour, a
  /// missing minute is 0. Without an hour, the time now gives the hour and a missing minute.
  static char* postTimeFilter(char* text);
  static char* convertFromDate(char* text);  ///< as `preFilter`
  static char* convertToDate(char* text);    ///< as `postFilter`
  static char* convertFromTime(char* text);  ///< as `preTimeFilter`
  static char* convertToTime(char* text);    ///< as `postTimeFilter`

  /// Returns the date value of a date and time text: loads the settings, then calls `dateToFloat`.
  [[nodiscard]] static double dateTimeToFloat(const char* text);
  /// Writes the text of a date value: loads the settings, then calls `VN_formatDate`.
  static char* floatToDateTime(double value, char* buffer);

  // ---- Money, in hundredths (Money.cpp)

  /// Writes "$-1,234.56": the money prefix, the number with groups of three, the money postfix. On
  /// purpose -1 to -99 are written like "$0.-5" and "$-.12"; `formatMoneyLL` writes them well
  /// formed.
  static void formatMoney(long hundredths, char* buffer);
  /// The same, well formed for every value.
  static void formatMoneyLL(std::int64_t hundredths, char* buffer);
  static char* LongToMoney(long hundredths, char* buffer);  ///< as `formatMoney`; returns `buffer`
  static char* LongLongToMoney(std::int64_t hundredths,
                               char* buffer);  ///< as `formatMoneyLL`; returns `buffer`

  /// Returns the amount in a text. A text is cut after 299 bytes, and decimals beyond two are cut
  /// off. An amount outside the range of a `long` gives the nearest end of that range. Changes the
  /// text to the number of hundredths, which needs room for two bytes more.
  static long MoneyToLong(char* text);
  /// Returns the amount in the first 50 bytes of a text, which stays as it is. Null gives 0.
  /// Overflow wraps in 64 bits.
  [[nodiscard]] static std::int64_t MoneyToLongLong(const char* text);
  [[nodiscard]] static double LongLongMoneyToDouble(std::int64_t hundredths);

  /// Puts "." before the last two characters. A text of up to two characters is filled up to
  /// "0.00". A "-" counts as a character. Needs room for four bytes more. A text is cut after 299
  /// bytes.
  static char* movePointToLeft(char* text);
  /// Scales a number to hundredths: "1.5" becomes "150". Decimals beyond two are cut off. Needs
  /// room for two bytes more. A text is cut after 299 bytes.
  static char* movePointToRight(char* text);
  /// Removes everything but the digits, "." and "-" of the first 299 bytes.
  static char* stripNumber(char* text);

  // ---- Values by their type (TypedData.cpp)

  static void convertLongLong(std::int64_t value, char* buffer);       ///< `vn_lltoa`
  static void convertAscii(const char* text, std::int64_t* longLong);  ///< `vn_atoll`

  /// Writes the text of the value at `data`, which need not be aligned. `type` is its type:
  ///
  ///   '!' 'F'          double, ten decimals          'M'  64-bit hundredths, as money
  ///   'C' 'D' 'O' 'T'  characters up to a NUL        'Q'  64-bit integer
  ///   'I'              32-bit integer                'L'  long
  ///
  /// For any other type, writes a single line feed and returns false. A null value also gives a
  /// single line feed. Null is 2 to the power of -149 for a double, the most negative value for an
  /// integer, and on purpose 2147483648 for a long. A double needs 330 bytes. Characters need as
  /// many bytes as they have at `data`, their NUL included.
  static bool convertData(const void* data, char type, char* buffer);
};

}  // namespace sorvane
