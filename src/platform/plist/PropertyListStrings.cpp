// The reader's strings: words, quoted texts and their escapes.
#include "platform/Ascii.h"
#include "platform/Utf8.h"
#include "platform/plist/PropertyListReader.h"

namespace sorvane {
namespace {

bool isWordCharacter(char c) {
  return isAsciiLetterOrDigit(c) || c == '_' || c == '$' || c == '/' || c == ':' || c == '.' ||
         c == '-';
}

}  // namespace

std::string PropertyListReader::readKey() {
  if (here() != '"' && here() != '\'' && !isWordCharacter(here())) {
    failWanting("a key");
  }
  return readString();
}

std::string PropertyListReader::readString() {
  return here() == '"' || here() == '\'' ? readQuoted() : readWord();
}

std::string PropertyListReader::readWord() {
  const std::size_t begin = at_;
  while (isWordCharacter(here())) {
    ++at_;
  }
  if (at_ == begin) {
    failWanting("a value");
  }
  return std::string(text_.substr(begin, at_ - begin));
}

std::string PropertyListReader::readQuoted() {
  const std::size_t begin = at_;
  const char quote = text_[at_++];
  std::string result;
  for (;;) {
    const std::size_t run = at_;
    while (!atEnd() && text_[at_] != quote && text_[at_] != '\\') {
      ++at_;
    }
    result.append(text_, run, at_ - run);
    if (at_ + (here() == '\\' ? 1 : 0) >= text_.size()) {
      failAt(begin, "the string that begins here does not end");
    }
    if (text_[at_] == quote) {
      ++at_;
      return result;
    }
    readEscape(result);
  }
}

void PropertyListReader::readEscape(std::string& result) {
  constexpr std::string_view kNames = "abfnrtv";
  constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v";
  const std::size_t begin = at_++;
  const char name = text_[at_++];
  char32_t codePoint = 0;
  if (const std::size_t known = kNames.find(name); known != std::string_view::npos) {
    result += kMeanings[known];
    return;
  }
  if (name >= '0' && name <= '7') {
    codePoint = readOctal(name);
    if (codePoint > 255) {
      failAt(begin, "an octal escape above \\377");
    }
  } else if (name == 'U') {
    codePoint = readUnicode(begin);
  } else {
    // If the character is not ASCII, this is its first byte. The others are read as they are.
    result += name;
    return;
  }
  if (codePoint == 0) {
    failAt(begin, "an escape that stands for NUL");
  }
  appendUtf8(result, codePoint);
}

char32_t PropertyListReader::readOctal(char first) {
  char32_t value = static_cast<char32_t>(first - '0');
  for (int digits = 1; digits < 3 && here() >= '0' && here() <= '7'; ++digits) {
    value = value * 8 + static_cast<char32_t>(text_[at_++] - '0');
  }
  return value;
}

char32_t PropertyListReader::readUnicode(std::size_t begin) {
  const char32_t first = readFourHexDigits(begin);
  if (first < 0xd800 || first > 0xdfff) {
    return first;
  }
  if (first < 0xdc00 && startsWith("\\U")) {
    at_ += 2;
    const char32_t second = readFourHexDigits(begin);
    if (second >= 0xdc00 && second <= 0xdfff) {
      return 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00);
    }
  }
  failAt(begin, "a lone surrogate");
}

char32_t PropertyListReader::readFourHexDigits(std::size_t begin) {
  char32_t value = 0;
  for (int digits = 0; digits < 4; ++digits) {
    const int digit = hexValue(here());
    if (digit < 0) {
      failAt(begin, "\\U without four hexadecimal digits");
    }
    value = value * 16 + static_cast<char32_t>(digit);
    ++at_;
  }
  return value;
}

}  // namespace sorvane
