#include "convert/Digits.h"

#include <array>
#include <bit>
#include <cstring>

namespace sorvane {
namespace {

constexpr auto kPairs = [] {
  std::array<char, 200> pairs{};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

constexpr auto kPowersOfTen = [] {
  std::array<std::uint64_t, 20> powers{};
  std::uint64_t power = 1;
  for (auto& entry : powers) {
    entry = power;
    power *= 10;
  }
  return powers;
}();

// Returns the number of decimal digits. The number of bits gives an estimate (1233 / 4096 is just
// above log10 of 2) that is right or one too low; the comparison corrects it. The lowest bit is set
// so that 0 has a digit; it makes no other difference.
unsigned digitCount(std::uint64_t value) {
  value |= 1;
  const auto estimate = static_cast<unsigned>(std::bit_width(value)) * 1233 >> 12;
  return estimate + (value >= kPowersOfTen[estimate] ? 1 : 0);
}

void putPair(char* out, std::uint32_t value) {
  std::memcpy(out, &kPairs[std::size_t{2} * value], 2);
}

void putEight(char* out, std::uint32_t value) {
  const std::uint32_t high = value / 10000;
  const std::uint32_t low = value % 10000;
  putPair(out, high / 100);
  putPair(out + 2, high % 100);
  putPair(out + 4, low / 100);
  putPair(out + 6, low % 100);
}

// Writes the digits of a value below 10 to the power of 8 so that they end before `end`.
void putBackwards(char* end, std::uint32_t value) {
  while (value >= 100) {
    end -= 2;
    putPair(end, value % 100);
    value /= 100;
  }
  if (value >= 10) {
    putPair(end - 2, value);
  } else {
    end[-1] = static_cast<char>('0' + value);
  }
}

}  // namespace

char* writeTwoDigits(char* out, unsigned value) {
  putPair(out, value);
  return out + 2;
}

char* writeUnsigned(char* out, std::uint64_t value) {
  char* const end = out + digitCount(value);
  char* place = end;
  while (value >= 100'000'000) {
    place -= 8;
    putEight(place, static_cast<std::uint32_t>(value % 100'000'000));
    value /= 100'000'000;
  }
  putBackwards(place, static_cast<std::uint32_t>(value));
  return end;
}

char* writeGrouped(char* out, std::uint64_t value, char separator) {
  const unsigned digits = digitCount(value);
  char* const end = out + digits + (digits - 1) / 3;
  char* place = end;
  while (value >= 1000) {
    const auto group = static_cast<std::uint32_t>(value % 1000);
    value /= 1000;
    place -= 4;
    place[0] = separator;
    place[1] = static_cast<char>('0' + group / 100);
    putPair(place + 2, group % 100);
  }
  putBackwards(place, static_cast<std::uint32_t>(value));
  return end;
}

char* writeZeroPadded(char* out, int value, int width) {
  if (width == 2 && value >= 0 && value < 100) {
    return writeTwoDigits(out, static_cast<unsigned>(value));
  }
  if (width == 4 && value >= 0 && value < 10000) {
    putPair(out, static_cast<std::uint32_t>(value) / 100);
    putPair(out + 2, static_cast<std::uint32_t>(value) % 100);
    return out + 4;
  }
  const std::uint64_t distance = magnitude(value);
  int length = static_cast<int>(digitCount(distance));
  if (value < 0) {
    *out++ = '-';
    ++length;
  }
  for (; length < width; ++length) {
    *out++ = '0';
  }
  return writeUnsigned(out, distance);
}

char* writeBlankPadded(char* out, int value, int width) {
  const std::uint64_t distance = magnitude(value);
  const int length = static_cast<int>(digitCount(distance)) + (value < 0 ? 1 : 0);
  for (int i = length; i < width; ++i) {
    *out++ = ' ';
  }
  if (value < 0) {
    *out++ = '-';
  }
  return writeUnsigned(out, distance);
}

char* writeText(char* out, const char* text) {
  while (*text != '\0') {
    *out++ = *text++;
  }
  return out;
}

}  // namespace sorvane
