// Letters and digits of ASCII, the same in every locale.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sorvane {

[[nodiscard]] constexpr bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

[[nodiscard]] constexpr bool isAsciiLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

[[nodiscard]] constexpr bool isAsciiLetterOrDigit(char c) {
  return isAsciiLetter(c) || isAsciiDigit(c);
}

/// The letter in lower case; any other character as it is.
[[nodiscard]] constexpr char lowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

/// The letter in upper case; any other character as it is.
[[nodiscard]] constexpr char upperCase(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c & ~0x20) : c;
}

/// The text with its letters in lower case.
[[nodiscard]] inline std::string lowerCase(std::string text) {
  for (char& c : text) {
    c = lowerCase(c);
  }
  return text;
}

/// True when the texts are equal but for the case of their letters.
[[nodiscard]] constexpr bool equalIgnoringCase(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) {
    return false;
  }
  for (std::size_t index = 0; index < left.size(); ++index) {
    if (lowerCase(left[index]) != lowerCase(right[index])) {
      return false;
    }
  }
  return true;
}

/// The hexadecimal digit, in lower case, of a value from 0 to 15.
[[nodiscard]] constexpr char hexDigit(unsigned value) { return "0123456789abcdef"[value]; }

/// The value of a hexadecimal digit of either case, or -1.
[[nodiscard]] constexpr int hexValue(char c) {
  if (isAsciiDigit(c)) {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// Appends the two hexadecimal digits of a byte.
inline void appendHex(std::string& text, unsigned char byte) {
  text += hexDigit(byte >> 4);
  text += hexDigit(byte & 0xf);
}

}  // namespace sorvane
