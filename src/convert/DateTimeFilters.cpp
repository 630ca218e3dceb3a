// Dates and times between the stored and the display forms.
#include <cstring>
#include <optional>

#include "convert/Calendar.h"
#include "convert/Digits.h"
#include "convert/LeadingInteger.h"
#include "convert/VNConvertTypes.h"
#include "platform/LocalTime.h"

namespace sorvane {
namespace {

struct StoredDate {
  int year;
  int month;
  int day;
};

struct StoredTime {
  int hour;
  int minute;
};

// Returns the field at a position of a stored text, or 0 when the text is too short.
int storedField(const char* text, std::size_t length, std::size_t position) {
  return position < length ? leadingInteger<int>(text + position) : 0;
}

void writeStored(char* text, StoredDate date) {
  *text++ = '@';
  text = writeZeroPadded(text, date.year, 4);
  *text++ = '-';
  text = writeZeroPadded(text, date.month, 2);
  *text++ = '-';
  text = writeZeroPadded(text, date.day, 2);
  *text = '\0';
}

void writeStored(char* text, StoredTime time) {
  *text++ = '#';
  text = writeZeroPadded(text, time.hour, 2);
  *text++ = ':';
  text = writeZeroPadded(text, time.minute, 2);
  *text = '\0';
}

const char* monthName(int month) {
  static constexpr const char* kNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  return month >= 1 && month <= 12 ? kNames[month - 1] : "";
}

// Writes month, day and year; month and day have two digits.
void writeNumbers(char* text, StoredDate date, char separator) {
  text = writeZeroPadded(text, date.month, 2);
  *text++ = separator;
  text = writeZeroPadded(text, date.day, 2);
  *text++ = separator;
  *writeBlankPadded(text, date.year, 4) = '\0';
}

void writeDayFirst(char* text, StoredDate date) {
  text = writeBlankPadded(text, date.day, 0);
  *text++ = '.';
  text = writeBlankPadded(text, date.month, 0);
  *text++ = '.';
  *writeBlankPadded(text, date.year, 4) = '\0';
}

void writeDayAndName(char* text, StoredDate date) {
  text = writeBlankPadded(text, date.day, 0);
  *text++ = ' ';
  text = writeText(text, monthName(date.month));
  *text++ = ' ';
  *writeBlankPadded(text, date.year, 0) = '\0';
}

void writeNameAndDay(char* text, StoredDate date) {
  text = writeText(text, monthName(date.month));
  *text++ = ' ';
  text = writeBlankPadded(text, date.day, 0);
  *text++ = ',';
  *text++ = ' ';
  *writeBlankPadded(text, date.year, 0) = '\0';
}

void writeDisplayed(char* text, StoredDate date, char style) {
  switch (style) {
    case '1':
      return writeDayAndName(text, date);
    case '2':
      return writeNumbers(text, date, '-');
    case '3':
      return writeNumbers(text, date, '/');
    case '4':
      return writeDayFirst(text, date);
    default:
      return writeNameAndDay(text, date);
  }
}

void writeTwelveHours(char* text, StoredTime time) {
  const bool afternoon = time.hour >= 12 && time.hour <= 23;
  int hour = time.hour;
  if (hour == 0) {
    hour = 12;
  } else if (afternoon && hour > 12) {
    hour -= 12;
  }
  text = writeBlankPadded(text, hour, 0);
  *text++ = ':';
  text = writeZeroPadded(text, time.minute, 2);
  *writeText(text, afternoon ? " pm" : " am") = '\0';
}

void writeTwentyFourHours(char* text, StoredTime time) {
  text = writeZeroPadded(text, time.hour, 2);
  *text++ = ':';
  *writeZeroPadded(text, time.minute, 2) = '\0';
}

// Returns the date that a user's fields mean. Reads the clock only when it needs today's date.
StoredDate completedDate(int day, int year, int month) {
  std::optional<LocalTime> now;
  const auto today = [&]() -> const LocalTime& {
    if (!now) {
      now = localTimeNow();
    }
    return *now;
  };
  if (year < 1) {
    year = today().year;
  }
  if (month >= 1 && month <= 12) {
    return {year, month, day >= 1 && day <= 31 ? day : 1};
  }
  if (day > 0 && day != today().day) {
    return {year, 1, day};  // on purpose a day without a month is one of January
  }
  return {year, today().month, today().day};
}

}  // namespace

char* VNConvertTypes::preFilter(char* text) {
  const char style = settings().pDate[0];
  if (*text != '@') {
    return text;
  }
  const std::size_t length = std::strlen(text);
  const StoredDate date = {storedField(text, length, 1), storedField(text, length, 6),
                           storedField(text, length, 9)};
  writeDisplayed(text, date, style);
  return text;
}

char* VNConvertTypes::postFilter(char* text) {
  (void)settings();
  if (*text == '\0') {
    return text;
  }
  const int day = getDay(text);
  const int year = getYear(text);
  const int month = getMonth(text);
  writeStored(text, completedDate(day, year, month));
  return text;
}

char* VNConvertTypes::preTimeFilter(char* text) {
  const char style = settings().pTime[0];
  if (*text == '\0') {
    return text;
  }
  const std::size_t length = std::strlen(text);
  const StoredTime time = {storedField(text, length, 1), storedField(text, length, 4)};
  if (style == '1') {
    writeTwentyFourHours(text, time);
  } else {
    writeTwelveHours(text, time);
  }
  return text;
}

char* VNConvertTypes::postTimeFilter(char* text) {
  (void)settings();
  if (*text == '\0') {
    return text;
  }
  StoredTime time = {getHour(text), getMin(text)};
  if (time.hour == -1) {
    const LocalTime now = localTimeNow();
    time.hour = now.hour;
    if (time.minute == -1) {
      time.minute = now.minute;
    }
  }
  if (time.minute == -1) {
    time.minute = 0;
  }
  writeStored(text, time);
  return text;
}

char* VNConvertTypes::convertFromDate(char* text) { return preFilter(text); }
char* VNConvertTypes::convertToDate(char* text) { return postFilter(text); }
char* VNConvertTypes::convertFromTime(char* text) { return preTimeFilter(text); }
char* VNConvertTypes::convertToTime(char* text) { return postTimeFilter(text); }

double VNConvertTypes::dateTimeToFloat(const char* text) {
  (void)settings();
  return dateToFloat(text);
}

char* VNConvertTypes::floatToDateTime(double value, char* buffer) {
  (void)settings();
  return VN_formatDate(buffer, value);
}

}  // namespace sorvane
