// Every conversion with any text and any value. The first byte chooses the display styles, the next
// eight are a number, the rest is a text.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "convert/Calendar.h"
#include "convert/IntegerText.h"
#include "convert/VNConvertTypes.h"
#include "support/Require.h"

namespace {

using sorvane::VNConvertTypes;
using sorvane::fuzz::require;

constexpr std::size_t kDateBytes = 64;
constexpr std::size_t kNumberBytes = 128;

// The text in a buffer of exactly that size, so that the sanitizer sees every byte beyond it.
std::unique_ptr<char[]> buffer(const std::string& text, std::size_t size) {
  auto bytes = std::make_unique<char[]>(size);
  const std::size_t length = text.size() < size ? text.size() : size - 1;
  std::memcpy(bytes.get(), text.data(), length);
  bytes[length] = '\0';
  return bytes;
}

void useStyles(std::uint8_t styles) {
  sorvane::DisplaySettings settings;
  settings.pDate[0] = static_cast<char>('0' + (styles & 7));
  settings.pTime[0] = static_cast<char>('0' + (styles >> 3 & 1));
  VNConvertTypes::useSettingsForTest(settings);
}

void convertDates(const std::string& text) {
  using Filter = char* (*)(char*);
  for (const Filter filter : {&VNConvertTypes::preFilter, &VNConvertTypes::postFilter,
                              &VNConvertTypes::preTimeFilter, &VNConvertTypes::postTimeFilter}) {
    const auto exact = buffer(text, kDateBytes);
    filter(exact.get());
    // Whatever came out goes in again, of any filter.
    VNConvertTypes::postFilter(VNConvertTypes::preFilter(exact.get()));
    VNConvertTypes::postTimeFilter(VNConvertTypes::preTimeFilter(exact.get()));
  }
  const auto exact = buffer(text, text.size() + 1);
  (void)VNConvertTypes::isDateNumber(exact.get());
  (void)VNConvertTypes::getYear(exact.get());
  (void)VNConvertTypes::getDay(exact.get());
  (void)VNConvertTypes::getHour(exact.get());
  (void)VNConvertTypes::getMin(exact.get());
  const double value = VNConvertTypes::dateTimeToFloat(exact.get());
  (void)VNConvertTypes::getMonth(exact.get());
  VNConvertTypes::floatToDateTime(value, buffer("", kDateBytes).get());
}

void takeApart(double value, int number) {
  sorvane::initGMTOffset(number);
  VNConvertTypes::floatToDateTime(value, buffer("", kDateBytes).get());
  double rest = value;
  const int year = sorvane::secondsToYear(&rest);
  (void)sorvane::secondsToMonth(&rest, sorvane::isLeapYear(year));
  (void)sorvane::secondsToDays(&rest);
  (void)sorvane::secondsToHours(&rest);
  (void)sorvane::secondsToMin(&rest);
  (void)sorvane::yearToseconds(number);
  (void)sorvane::monthToSeconds(number % 16, number);
  (void)sorvane::daysToSeconds(number);
  (void)sorvane::hoursToSeconds(number);
}

void readNumbers(const std::string& text) {
  const auto exact = buffer(text, text.size() + 1);
  (void)sorvane::vn_atoll(exact.get());
  (void)sorvane::vn_ahextoll(exact.get());
  (void)VNConvertTypes::MoneyToLongLong(exact.get());
  (void)VNConvertTypes::MoneyToLong(buffer(text, text.size() + 3).get());
  VNConvertTypes::stripNumber(exact.get());
  VNConvertTypes::movePointToLeft(buffer(text, text.size() + 5).get());
  VNConvertTypes::movePointToRight(buffer(text, text.size() + 3).get());
}

void writeNumbers(std::int64_t value, char separator) {
  const auto plain = buffer("", 21);
  sorvane::vn_lltoa(value, plain.get());
  require(sorvane::vn_atoll(plain.get()) == value, "an integer is read back equal");
  const auto grouped = buffer("", 28);
  sorvane::vn_lltoas(value, grouped.get(), separator);

  const auto money = buffer("", kNumberBytes);
  VNConvertTypes::formatMoneyLL(value, money.get());
  require(VNConvertTypes::MoneyToLongLong(money.get()) == value, "an amount is read back equal");
  VNConvertTypes::formatMoney(value, money.get());
  for (const char type : std::string("!FILMQZ")) {
    VNConvertTypes::convertData(&value, type, buffer("", 330).get());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::int64_t number = 0;
  if (size < 1 + sizeof number) {
    return 0;
  }
  useStyles(data[0]);
  std::memcpy(&number, data + 1, sizeof number);
  double value = 0;
  std::memcpy(&value, data + 1, sizeof value);
  const std::string text(reinterpret_cast<const char*>(data) + 1 + sizeof number,
                         size - 1 - sizeof number);

  takeApart(value, static_cast<int>(number));
  convertDates(text.substr(0, text.find('\0')));
  readNumbers(text.substr(0, text.find('\0')));
  writeNumbers(number, text.empty() ? '\0' : text[0]);
  return 0;
}
