// Money: hundredths as text, and back.
#include <algorithm>
#include <cstring>

#include "convert/Digits.h"
#include "convert/IntegerText.h"
#include "convert/LeadingInteger.h"
#include "convert/VNConvertTypes.h"

namespace sorvane {
namespace {

constexpr std::size_t kMostTextBytes = 299;
constexpr std::size_t kMostMoneyBytes = 50;

bool isNumberCharacter(char character) {
  // ASCII has "-", ".", "/" and the digits next to each other, in this order.
  return character >= '-' && character <= '9' && character != '/';
}

// Cuts the text to the length that the number readers take, and returns its length.
std::size_t cutLength(char* text) {
  std::size_t length = 0;
  while (length < kMostTextBytes && text[length] != '\0') {
    ++length;
  }
  text[length] = '\0';
  return length;
}

// Copies the characters that numbers are made of and returns the end of the copy. `out` may be
// `text`. The loop does not branch on a character, because the processor cannot predict where
// groups of digits end.
char* copyNumber(const char* text, const char* end, char* out) {
  for (; text != end; ++text) {
    *out = *text;
    out += isNumberCharacter(*text) ? 1 : 0;
  }
  return out;
}

// Writes two decimals over the point of a number, or appends them when it has no point, and ends
// the text. A decimal that is missing, or is not a digit, "." or "-", becomes "0".
void scaleToHundredths(char* text, const char* end) {
  char* place = std::find(text, text + (end - text), '.');
  const char* decimal = place == end ? end : place + 1;
  for (int i = 0; i < 2; ++i) {
    const bool given = decimal != end && isNumberCharacter(*decimal);
    *place++ = given ? *decimal++ : '0';
    if (!given) {
      decimal = end;
    }
  }
  *place = '\0';
}

// Writes prefix, number and postfix. `writeNumber` writes the number and returns its end.
template <typename WriteNumber>
void writeMoney(char* buffer, WriteNumber writeNumber) {
  const DisplaySettings& settings = VNConvertTypes::settings();
  char* end = writeNumber(writeText(buffer, settings.pMoneyPre));
  end = writeText(end, settings.pMoneyPost);
  *end = '\0';
}

}  // namespace

void VNConvertTypes::formatMoneyLL(std::int64_t hundredths, char* buffer) {
  writeMoney(buffer, [hundredths](char* out) {
    if (hundredths < 0) {
      *out++ = '-';
    }
    const std::uint64_t distance = magnitude(hundredths);
    out = writeGrouped(out, distance / 100, ',');
    *out++ = '.';
    return writeTwoDigits(out, static_cast<unsigned>(distance % 100));
  });
}

void VNConvertTypes::formatMoney(long hundredths, char* buffer) {
  if (hundredths >= 0 || hundredths <= -100) {
    return formatMoneyLL(hundredths, buffer);
  }
  // On purpose the sign comes out among the digits here, because stored reports hold such amounts.
  writeMoney(buffer, [hundredths](char* out) {
    vn_lltoa(hundredths, out);
    movePointToLeft(out);
    return out + std::strlen(out);
  });
}

char* VNConvertTypes::LongToMoney(long hundredths, char* buffer) {
  formatMoney(hundredths, buffer);
  return buffer;
}

char* VNConvertTypes::LongLongToMoney(std::int64_t hundredths, char* buffer) {
  formatMoneyLL(hundredths, buffer);
  return buffer;
}

long VNConvertTypes::MoneyToLong(char* text) {
  return leadingInteger<long>(movePointToRight(stripNumber(text)));
}

std::int64_t VNConvertTypes::MoneyToLongLong(const char* text) {
  if (text == nullptr) {
    return 0;
  }
  // Does in one pass what `stripNumber`, `movePointToRight` and `vn_atoll` do one after the other.
  std::uint64_t distance = 0;
  bool negative = false;
  bool afterPoint = false;
  int decimals = 0;
  for (std::size_t i = 0; i < kMostMoneyBytes && text[i] != '\0' && decimals < 2; ++i) {
    const char character = text[i];
    if (!isNumberCharacter(character)) {
      continue;
    }
    if (character == '.' && !afterPoint) {
      afterPoint = true;
      continue;
    }
    decimals += afterPoint ? 1 : 0;
    if (character == '-') {
      negative = true;
    } else {
      distance = distance * 10 + static_cast<unsigned char>(character) - '0';
    }
  }
  for (; decimals < 2; ++decimals) {
    distance *= 10;
  }
  return static_cast<std::int64_t>(negative ? std::uint64_t{0} - distance : distance);
}

double VNConvertTypes::LongLongMoneyToDouble(std::int64_t hundredths) {
  return static_cast<double>(hundredths) / 100.0;
}

char* VNConvertTypes::movePointToLeft(char* text) {
  const std::size_t length = cutLength(text);
  if (length > 2) {
    std::memmove(text + length - 1, text + length - 2, 3);
    text[length - 2] = '.';
    return text;
  }
  char filled[] = "0.00";
  std::memcpy(filled + 4 - length, text, length);
  std::memcpy(text, filled, sizeof(filled));
  return text;
}

char* VNConvertTypes::movePointToRight(char* text) {
  scaleToHundredths(text, text + cutLength(text));
  return text;
}

char* VNConvertTypes::stripNumber(char* text) {
  *copyNumber(text, text + cutLength(text), text) = '\0';
  return text;
}

}  // namespace sorvane
