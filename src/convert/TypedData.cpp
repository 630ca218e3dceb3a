// Values by their type.
#include <charconv>
#include <cstring>
#include <limits>

#include "convert/IntegerText.h"
#include "convert/VNConvertTypes.h"

namespace sorvane {
namespace {

// The values that stand for null.
constexpr double kNullDouble = 0x1p-149;
constexpr auto kNullInt = std::numeric_limits<std::int32_t>::min();
constexpr auto kNullLong = static_cast<long>(2147483648);  // the most negative one of 32 bits
constexpr auto kNullLongLong = std::numeric_limits<std::int64_t>::min();

constexpr std::size_t kDoubleBytes = 330;

template <typename Value>
Value valueAt(const void* data) {
  Value value;
  std::memcpy(&value, data, sizeof(value));
  return value;
}

void writeDouble(double value, char* buffer) {
  const auto written =
      std::to_chars(buffer, buffer + kDoubleBytes - 1, value, std::chars_format::fixed, 10);
  *written.ptr = '\0';
}

}  // namespace

void VNConvertTypes::convertLongLong(std::int64_t value, char* buffer) { vn_lltoa(value, buffer); }

void VNConvertTypes::convertAscii(const char* text, std::int64_t* longLong) {
  *longLong = vn_atoll(text);
}

bool VNConvertTypes::convertData(const void* data, char type, char* buffer) {
  std::memcpy(buffer, "\n", 2);
  switch (type) {
    case '!':
    case 'F':
      if (const auto value = valueAt<double>(data); value != kNullDouble) {
        writeDouble(value, buffer);
      }
      return true;
    case 'C':
    case 'D':
    case 'O':
    case 'T':
      std::strcpy(buffer, static_cast<const char*>(data));
      return true;
    case 'I':
      if (const auto value = valueAt<std::int32_t>(data); value != kNullInt) {
        vn_lltoa(value, buffer);
      }
      return true;
    case 'L':
      if (const auto value = valueAt<long>(data); value != kNullLong) {
        vn_lltoa(value, buffer);
      }
      return true;
    case 'M':
      if (const auto value = valueAt<std::int64_t>(data); value != kNullLongLong) {
        formatMoneyLL(value, buffer);
      }
      return true;
    case 'Q':
      if (const auto value = valueAt<std::int64_t>(data); value != kNullLongLong) {
        vn_lltoa(value, buffer);
      }
      return true;
    default:
      return false;
  }
}

}  // namespace sorvane
