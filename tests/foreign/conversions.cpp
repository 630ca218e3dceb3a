// Walks the conversions over many inputs, always the same ones, and prints each call with its
// result, so that the outputs of two systems can be compared by line.
//
//   conversions                       lists the names of the sweeps
//   conversions NAME COUNT BITS       BITS is the width of a C `long` on the system to compare with
//
// Where a conversion takes or returns a `long`, a system whose `long` has 32 bits differs on
// purpose:
// - a number that is passed as a `long` is the low 32 bits of the number here,
// - MoneyToLong holds its result at the ends of 32 bits,
// - the null of a `long` in convertData, 2147483648, is -2147483648 in 32 bits.
// With BITS 32 a system with a longer `long` prints what the shorter one must.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <string_view>

#include "convert/Calendar.h"
#include "convert/IntegerText.h"
#include "convert/VNConvertTypes.h"
#include "platform/TimeSource.h"

namespace {

using sorvane::VNConvertTypes;

constexpr std::size_t kTextBytes = 48;     // of an input
constexpr std::size_t kBufferBytes = 512;  // enough for every result

bool longHas32Bits = false;
double now = 0;

/// The inputs of one sweep. Ordinary ones, those at the ends of a type, and nonsense.
class Inputs {
 public:
  std::uint64_t below(std::uint64_t end) { return random_() % end; }

  /// Numbers of every length and both signs.
  std::int64_t number() {
    static constexpr std::array<std::int64_t, 9> kEnds{0,
                                                       -1,
                                                       2147483647,
                                                       2147483648,
                                                       -2147483648,
                                                       -2147483649,
                                                       4294967296,
                                                       std::numeric_limits<std::int64_t>::max(),
                                                       std::numeric_limits<std::int64_t>::min()};
    if (below(16) == 0) {
      return kEnds[below(kEnds.size())];
    }
    return static_cast<std::int64_t>(random_()) >> below(64);
  }

  int integer() { return static_cast<int>(number()); }

  /// Seconds of several thousand years, and numbers of any size.
  double seconds() {
    switch (below(8)) {
      case 0:
        return std::bit_cast<double>(random_());
      case 1:
        return static_cast<double>(number());
      default:
        return static_cast<double>(below(4000000000000)) / 16 - 1.25e11;
    }
  }

  std::string text() {
    static constexpr std::array kParts{"@",
                                       "#",
                                       "-",
                                       ".",
                                       ",",
                                       ":",
                                       "/",
                                       " ",
                                       "$",
                                       "+",
                                       "0x",
                                       "am",
                                       "p",
                                       "PM",
                                       "May",
                                       "jan",
                                       "Sep",
                                       "d",
                                       "1",
                                       "12",
                                       "31",
                                       "99",
                                       "100",
                                       "2004",
                                       "1999",
                                       "ff",
                                       "deadbeef",
                                       "000",
                                       "23",
                                       "59",
                                       "60",
                                       "+01",
                                       "00",
                                       "T",
                                       "August",
                                       "7:05 PM",
                                       "2147483648",
                                       "4294967296",
                                       "\xC3\xA4",
                                       "\xFF",
                                       "@2004-05-06",
                                       "#19:05",
                                       "2004-05-06 19:05:00 +0200",
                                       "9223372036854775807",
                                       "6 May 2004",
                                       "1,234.56"};
    std::string text;
    for (std::uint64_t parts = below(7); parts > 0; --parts) {
      switch (below(4)) {
        case 0:
          text += std::to_string(number());
          break;
        case 1:
          text += static_cast<char>(1 + below(255));
          break;
        default:
          text += kParts[below(kParts.size())];
      }
    }
    return text.substr(0, kTextBytes);
  }

  /// Chooses the display styles, the zone and the time of the next call.
  void settle() {
    sorvane::DisplaySettings settings;
    settings.pDate[0] = static_cast<char>('0' + below(6));
    settings.pTime[0] = static_cast<char>('0' + below(2));
    VNConvertTypes::useSettingsForTest(settings);
    sorvane::initGMTOffset(static_cast<int>(below(2800)) - 1400);
    now = static_cast<double>(below(1100000000));
  }

 private:
  std::mt19937_64 random_{20040506};
};

/// One line of output.
class Line {
 public:
  Line& operator<<(std::int64_t value) {
    text_ += ' ' + std::to_string(value);
    return *this;
  }
  Line& operator<<(int value) { return *this << std::int64_t{value}; }
  Line& operator<<(bool value) { return *this << std::int64_t{value}; }
  /// All bits, but only one kind of "not a number": systems differ in its bits.
  Line& operator<<(double value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, " %a", value);
    text_ += std::isnan(value) ? " nan" : digits;
    return *this;
  }
  Line& operator<<(std::string_view text) {
    text_ += " \"";
    for (const char each : text) {
      const auto code = static_cast<unsigned char>(each);
      char digits[8];
      std::snprintf(digits, sizeof digits, "\\x%02x", code);
      text_ +=
          code < ' ' || code > '~' || each == '"' || each == '\\' ? digits : std::string(1, each);
    }
    text_ += '"';
    return *this;
  }
  Line& operator<<(const char* text) { return *this << std::string_view(text); }

  void print() {
    text_ += '\n';
    std::fputs(text_.c_str() + 1, stdout);
    text_.clear();
  }

 private:
  std::string text_;
};

/// The number as it is passed for a `long`.
long asLong(std::int64_t value) {
  return longHas32Bits ? static_cast<std::int32_t>(value) : static_cast<long>(value);
}

/// The `long` as it is returned.
std::int64_t heldAsLong(long value) {
  using Short = std::numeric_limits<std::int32_t>;
  return longHas32Bits ? std::clamp<std::int64_t>(value, Short::min(), Short::max()) : value;
}

/// The `long` as it is stored where null is told apart.
long storedLong(std::int64_t value) {
  const long stored = asLong(value);
  const bool isNullThere = longHas32Bits && stored == std::numeric_limits<std::int32_t>::min();
  return isNullThere ? static_cast<long>(2147483648) : stored;
}

template <auto function, typename Value>
void numberToNumber(Inputs& inputs, Line& line) {
  const auto value = static_cast<Value>(inputs.number());
  line << value << function(value);
}

template <auto function>
void textToNumber(Inputs& inputs, Line& line) {
  const std::string text = inputs.text();
  line << text << function(text.c_str());
}

/// For functions that change a text in place.
template <auto function>
void textToText(Inputs& inputs, Line& line) {
  char buffer[kBufferBytes] = "";
  inputs.settle();
  inputs.text().copy(buffer, kTextBytes);
  line << buffer;
  line << function(buffer) << buffer;
}

/// For functions that write a number into a buffer.
template <auto function>
void numberToText(Inputs& inputs, Line& line) {
  char buffer[kBufferBytes] = "";
  const std::int64_t value = inputs.number();
  function(value, buffer);
  line << value << buffer;
}

void longToText(Inputs& inputs, Line& line) {
  char buffer[kBufferBytes] = "";
  const long value = asLong(inputs.number());
  VNConvertTypes::formatMoney(value, buffer);
  line << std::int64_t{value} << buffer;
}

/// For convertData of what has that type.
template <char type, typename Value>
void dataToText(const Value& value, Line& line) {
  char buffer[kBufferBytes] = "";
  line << VNConvertTypes::convertData(&value, type, buffer) << buffer;
}

void dateToText(Inputs& inputs, Line& line) {
  char buffer[kBufferBytes] = "";
  inputs.settle();
  const double value = inputs.seconds();
  line << value << sorvane::VN_formatDate(buffer, value);
}

void dateToFields(Inputs& inputs, Line& line) {
  double rest = inputs.seconds();
  line << rest;
  const int year = sorvane::secondsToYear(&rest);
  line << year << rest;
  line << sorvane::secondsToMonth(&rest, sorvane::isLeapYear(year)) << rest;
  line << sorvane::secondsToDays(&rest) << rest;
  line << sorvane::secondsToHours(&rest) << rest;
  line << sorvane::secondsToMin(&rest) << rest;
}

void textToDate(Inputs& inputs, Line& line) {
  inputs.settle();
  textToNumber<&VNConvertTypes::dateTimeToFloat>(inputs, line);
}

void monthToSeconds(Inputs& inputs, Line& line) {
  const int month = static_cast<int>(inputs.below(16)) - 1;
  const int leap = inputs.integer();
  line << month << leap << sorvane::monthToSeconds(month, leap);
}

void zone(Inputs& inputs, Line& line) {
  const int offset = inputs.integer();
  line << offset << sorvane::initGMTOffset(offset) << int{sorvane::gmtoffset} << sorvane::gmtstring;
  inputs.settle();
  line << now << sorvane::initDateTime() << int{sorvane::gmtoffset} << sorvane::gmtstring;
}

void localNow(Inputs& inputs, Line& line) {
  inputs.settle();
  line << now << VNConvertTypes::currentYear() << VNConvertTypes::currentMonth();
  line << VNConvertTypes::currentDay() << VNConvertTypes::currentHour()
       << VNConvertTypes::currentMin();
}

void grouped(Inputs& inputs, Line& line) {
  char buffer[kBufferBytes] = "";
  const std::int64_t value = inputs.number();
  sorvane::vn_lltoas(value, buffer, inputs.below(2) == 0 ? '\'' : '\0');
  line << value << buffer;
}

void textToLong(Inputs& inputs, Line& line) {
  char buffer[kBufferBytes] = "";
  inputs.text().copy(buffer, kTextBytes);
  line << buffer << heldAsLong(VNConvertTypes::MoneyToLong(buffer)) << buffer;
}

void asciiToNumber(Inputs& inputs, Line& line) {
  const std::string text = inputs.text();
  std::int64_t value = 0;
  VNConvertTypes::convertAscii(text.c_str(), &value);
  line << text << value;
}

struct Sweep {
  const char* name;
  void (*call)(Inputs& inputs, Line& line);
};

constexpr Sweep kSweeps[] = {
    {"isLeapYear", &numberToNumber<&sorvane::isLeapYear, int>},
    {"monthToSeconds", &monthToSeconds},
    {"daysToSeconds", &numberToNumber<&sorvane::daysToSeconds, int>},
    {"hoursToSeconds", &numberToNumber<&sorvane::hoursToSeconds, int>},
    {"minutesToSeconds", &numberToNumber<&sorvane::minutesToSeconds, int>},
    {"yearToseconds", &numberToNumber<&sorvane::yearToseconds, int>},
    {"secondsToFields", &dateToFields},
    {"VN_formatDate", &dateToText},
    {"dateTimeToFloat", &textToDate},
    {"initGMTOffset", &zone},
    {"current", &localNow},
    {"isDateNumber", &textToNumber<&VNConvertTypes::isDateNumber>},
    {"getYear", &textToNumber<&VNConvertTypes::getYear>},
    {"getMonth", &textToText<&VNConvertTypes::getMonth>},
    {"getDay", &textToNumber<&VNConvertTypes::getDay>},
    {"getHour", &textToNumber<&VNConvertTypes::getHour>},
    {"getMin", &textToNumber<&VNConvertTypes::getMin>},
    {"preFilter", &textToText<&VNConvertTypes::preFilter>},
    {"postFilter", &textToText<&VNConvertTypes::postFilter>},
    {"preTimeFilter", &textToText<&VNConvertTypes::preTimeFilter>},
    {"postTimeFilter", &textToText<&VNConvertTypes::postTimeFilter>},
    {"vn_llabs", &numberToNumber<&sorvane::vn_llabs, std::int64_t>},
    {"vn_ahextoll", &textToNumber<&sorvane::vn_ahextoll>},
    {"vn_atoll", &textToNumber<&sorvane::vn_atoll>},
    {"vn_lltoa", &numberToText<&sorvane::vn_lltoa>},
    {"vn_lltoas", &grouped},
    {"formatMoney", &longToText},
    {"formatMoneyLL", &numberToText<&VNConvertTypes::formatMoneyLL>},
    {"MoneyToLong", &textToLong},
    {"MoneyToLongLong", &textToNumber<&VNConvertTypes::MoneyToLongLong>},
    {"LongLongMoneyToDouble",
     &numberToNumber<&VNConvertTypes::LongLongMoneyToDouble, std::int64_t>},
    {"movePointToLeft", &textToText<&VNConvertTypes::movePointToLeft>},
    {"movePointToRight", &textToText<&VNConvertTypes::movePointToRight>},
    {"stripNumber", &textToText<&VNConvertTypes::stripNumber>},
    {"convertAscii", &asciiToNumber},
    {"convertData-F", [](Inputs& inputs, Line& line) { dataToText<'F'>(inputs.seconds(), line); }},
    {"convertData-I",
     [](Inputs& inputs, Line& line) { dataToText<'I'>(std::int32_t{inputs.integer()}, line); }},
    {"convertData-L",
     [](Inputs& inputs, Line& line) { dataToText<'L'>(storedLong(inputs.number()), line); }},
    {"convertData-M", [](Inputs& inputs, Line& line) { dataToText<'M'>(inputs.number(), line); }},
    {"convertData-Q", [](Inputs& inputs, Line& line) { dataToText<'Q'>(inputs.number(), line); }},
};

}  // namespace

int main(int count, char** words) {
  if (count != 4) {
    for (const Sweep& sweep : kSweeps) {
      std::puts(sweep.name);
    }
    return 0;
  }
  const std::string_view name = words[1];
  const auto* const sweep = std::find_if(std::begin(kSweeps), std::end(kSweeps),
                                         [name](const Sweep& each) { return each.name == name; });
  if (sweep == std::end(kSweeps)) {
    std::fprintf(stderr, "there is no sweep \"%s\"\n", words[1]);
    return 2;
  }
  longHas32Bits = std::atoi(words[3]) == 32 || sizeof(long) == 4;
  sorvane::setTimeSource([] { return now; });
  Inputs inputs;
  Line line;
  inputs.settle();
  for (long left = std::atol(words[2]); left > 0; --left) {
    sweep->call(inputs, line);
    line.print();
  }
}
