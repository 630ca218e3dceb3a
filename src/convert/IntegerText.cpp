#include "convert/IntegerText.h"

#include "convert/Digits.h"

namespace sorvane {
namespace {

std::int64_t withSign(std::uint64_t distance, bool negative) {
  return static_cast<std::int64_t>(negative ? std::uint64_t{0} - distance : distance);
}

bool isBetween(char character, char first, char last) {
  return character >= first && character <= last;
}

}  // namespace

std::int64_t vn_llabs(std::int64_t value) { return static_cast<std::int64_t>(magnitude(value)); }

std::int64_t vn_ahextoll(const char* text) {
  if (text == nullptr) {
    return 0;
  }
  const bool negative = *text == '-';
  if (negative) {
    ++text;
  }
  if (text[0] == '0' && text[1] == 'x') {
    text += 2;
  }
  std::uint64_t value = 0;
  for (;; ++text) {
    int digit = static_cast<unsigned char>(*text);
    if (isBetween(*text, '0', '9')) {
      digit -= '0';
    } else if (isBetween(*text, 'a', 'f') || isBetween(*text, 'A', 'F')) {
      digit -= 'a' - 10;  // on purpose for upper case, too
    } else {
      return withSign(value, negative);
    }
    value = value * 16 + static_cast<std::uint64_t>(std::int64_t{digit});
  }
}

void vn_lltoas(std::int64_t value, char* buffer, char separator) {
  if (separator == '\0') {
    return vn_lltoa(value, buffer);
  }
  if (value < 0) {
    *buffer++ = '-';
  }
  *writeGrouped(buffer, magnitude(value), separator) = '\0';
}

void vn_lltoa(std::int64_t value, char* buffer) {
  if (value < 0) {
    *buffer++ = '-';
  }
  *writeUnsigned(buffer, magnitude(value)) = '\0';
}

std::int64_t vn_atoll(const char* text) {
  bool negative = false;
  std::uint64_t value = 0;
  for (; *text != '\0'; ++text) {
    if (*text == '-') {
      negative = true;
    } else {
      value = value * 10 + static_cast<unsigned char>(*text) - '0';
    }
  }
  return withSign(value, negative);
}

}  // namespace sorvane
