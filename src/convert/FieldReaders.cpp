// The fields of a date or a time as a user types it.
#include <cstring>
#include <initializer_list>

#include "convert/LeadingInteger.h"
#include "convert/VNConvertTypes.h"
#include "platform/Ascii.h"

namespace sorvane {
namespace {

constexpr int kAbsent = -1;

bool isMonth(int number) { return number >= 1 && number <= 12; }

// Changes a letter to upper case in place and returns it.
char upperInPlace(char* letter) { return *letter = upperCase(*letter); }

int monthBeginningWithJ(char* next) {
  switch (upperInPlace(next)) {
    case 'U':
      return upperInPlace(next + 1) == 'L' ? 7 : 6;
    case 'L':
      return 7;
    case 'N':
      return 6;
    default:
      return 1;
  }
}

int monthBeginningWithM(char* next) {
  if (*next == 'a' || *next == 'A') {
    ++next;
  }
  return upperInPlace(next) == 'Y' ? 5 : 3;
}

// Returns the month whose name begins here. Reads only the letters that tell it from the others.
int monthByName(char* name) {
  char* const next = name + 1;
  switch (upperInPlace(name)) {
    case 'A':
      return upperInPlace(next) == 'U' ? 8 : 4;
    case 'D':
      return 12;
    case 'F':
      return 2;
    case 'J':
      return monthBeginningWithJ(next);
    case 'M':
      return monthBeginningWithM(next);
    case 'N':
      return 11;
    case 'O':
      return 10;
    case 'S':
      return 9;
    default:
      return kAbsent;
  }
}

}  // namespace

bool VNConvertTypes::isDateNumber(const char* text) {
  for (const char* place = text; *place != '\0'; ++place) {
    if (!isAsciiDigit(*place) && *place != '.' && !(*place == '-' && place == text)) {
      return false;
    }
  }
  return true;
}

int VNConvertTypes::getYear(const char* text) {
  for (const char before : {',', '-', '/', '.', ' '}) {
    if (const char* const found = std::strrchr(text, before)) {
      const int year = leadingInteger<int>(found + 1);
      return year <= 99 ? year + 1900 : year;
    }
  }
  return kAbsent;
}

int VNConvertTypes::getMonth(char* text) {
  if (std::strpbrk(text, "/-") != nullptr) {
    const int month = leadingInteger<int>(text);
    if (isMonth(month)) {
      return month;
    }
  }
  if (const char* const point = std::strchr(text, '.')) {
    const int month = leadingInteger<int>(point + 1);
    if (isMonth(month)) {
      return month;
    }
  }
  for (; *text != '\0'; ++text) {
    if (isAsciiLetter(*text)) {
      return monthByName(text);
    }
  }
  return kAbsent;
}

int VNConvertTypes::getDay(const char* text) {
  for (const char before : {'/', '-'}) {
    if (const char* const found = std::strchr(text, before)) {
      return leadingInteger<int>(found + 1);
    }
  }
  if (std::strchr(text, '.') != nullptr) {
    return leadingInteger<int>(text);
  }
  for (; *text != '\0'; ++text) {
    if (isAsciiDigit(*text)) {
      return leadingInteger<int>(text);
    }
    if (*text == ',') {
      return 0;
    }
  }
  return kAbsent;
}

int VNConvertTypes::getHour(const char* text) {
  const char* const number = std::strpbrk(text, "0123456789:");
  if (number == nullptr || *number == ':') {
    return kAbsent;
  }
  int hour = leadingInteger<int>(number);
  if (hour > 24) {
    return kAbsent;
  }
  if (hour == 24) {
    hour = 0;
  }
  const char* const half = std::strpbrk(text, "AaPp");
  if (half == nullptr) {
    return hour;
  }
  if (*half == 'A' || *half == 'a') {
    return hour == 12 ? 0 : hour;
  }
  return hour <= 11 ? hour + 12 : hour;
}

int VNConvertTypes::getMin(const char* text) {
  const char* const colon = std::strchr(text, ':');
  if (colon == nullptr) {
    return kAbsent;
  }
  const int minute = leadingInteger<int>(colon + 1);
  return minute <= 59 ? minute : kAbsent;
}

}  // namespace sorvane
