#include "platform/plist/PropertyListReader.h"

#include <algorithm>

#include "platform/Ascii.h"
#include "platform/Utf8.h"

namespace sorvane {
namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::string_view withoutByteOrderMark(std::string_view text) {
  return text.substr(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
}

}  // namespace

PropertyListError::PropertyListError(int errorLine, int errorColumn, const std::string& why)
    : NSException("line " + std::to_string(errorLine) + ", column " + std::to_string(errorColumn) +
                  ": " + why),
      line(errorLine),
      column(errorColumn),
      reason(why) {}

PropertyList PropertyList::parse(std::string_view text) { return PropertyListReader(text).read(); }

std::map<std::string, int, std::less<>> topLevelKeyLines(std::string_view text) {
  PropertyListReader::KeyLines lines;
  static_cast<void>(PropertyListReader(text, &lines).read());
  return lines;
}

PropertyListReader::PropertyListReader(std::string_view text, KeyLines* keyLines)
    : text_(withoutByteOrderMark(text)), keyLines_(keyLines) {}

PropertyList PropertyListReader::read() {
  checkWholeText();
  skipBlanks();
  if (atEnd()) {
    failAt(at_, "the text is empty");
  }
  PropertyList result = readTopLevel();
  skipBlanks();
  if (!atEnd()) {
    failWanting("the end");
  }
  return result;
}

void PropertyListReader::checkWholeText() const {
  if (text_.size() > PropertyList::kMaximumBytes) {
    failAt(0, "the text is longer than " + std::to_string(PropertyList::kMaximumBytes) + " bytes");
  }
  const std::size_t wellFormed = wellFormedUtf8Length(text_);
  if (wellFormed != text_.size()) {
    failAt(wellFormed, "the text is not UTF-8");
  }
  const std::size_t nul = text_.find('\0');
  if (nul != std::string_view::npos) {
    failAt(nul, "a NUL in the text");
  }
}

void PropertyListReader::skipBlanks() {
  for (;;) {
    while (isBlank(here())) {
      ++at_;
    }
    if (startsWith("//")) {
      at_ = std::min(text_.find_first_of("\r\n", at_), text_.size());
    } else if (startsWith("/*")) {
      skipBlockComment();
    } else {
      return;
    }
  }
}

void PropertyListReader::skipBlockComment() {
  const std::size_t end = text_.find("*/", at_ + 2);
  if (end == std::string_view::npos) {
    failAt(at_, "the comment that begins here does not end");
  }
  at_ = end + 2;
}

PropertyList PropertyListReader::readTopLevel() {
  const char first = here();
  if (first == '{' || first == '(' || first == '<') {
    return readValue();
  }
  std::size_t keyBegin = at_;
  std::string key = readString();
  skipBlanks();
  if (atEnd()) {
    return key;
  }
  if (here() != '=') {
    failWanting("\"=\" or the end");
  }
  enterLevel();
  PropertyList::Dictionary dictionary;
  for (;;) {
    readPair(dictionary, keyBegin, std::move(key));
    if (atEnd()) {
      return dictionary;
    }
    keyBegin = at_;
    key = readKey();
  }
}

PropertyList PropertyListReader::readValue() {
  switch (here()) {
    case '{':
      return readDictionary();
    case '(':
      return readArray();
    case '<':
      return readData();
    default:
      return readString();
  }
}

PropertyList PropertyListReader::readArray() {
  enterLevel();
  ++at_;
  PropertyList::Array array;
  for (;;) {
    skipBlanks();
    if (here() == ')') {
      break;
    }
    array.push_back(readValue());
    skipBlanks();
    if (here() == ',') {
      ++at_;
    } else if (here() != ')') {
      failWanting("\",\" or \")\"");
    }
  }
  ++at_;
  --depth_;
  return array;
}

PropertyList PropertyListReader::readDictionary() {
  enterLevel();
  ++at_;
  PropertyList::Dictionary dictionary;
  skipBlanks();
  while (here() != '}') {
    const std::size_t keyBegin = at_;
    std::string key = readKey();
    readPair(dictionary, keyBegin, std::move(key));
  }
  ++at_;
  --depth_;
  return dictionary;
}

/// Reads what follows a key, up to the first token after the pair.
void PropertyListReader::readPair(PropertyList::Dictionary& dictionary, std::size_t keyBegin,
                                  std::string key) {
  if (keyLines_ != nullptr && depth_ == 1) {
    noteKeyLine(key, keyBegin);
  }
  skipBlanks();
  if (here() != '=') {
    failWanting("\"=\" after the key");
  }
  ++at_;
  skipBlanks();
  PropertyList value = readValue();
  skipBlanks();
  if (here() != ';') {
    failWanting("\";\" after the value");
  }
  ++at_;
  skipBlanks();
  // The place at the end is right if the keys are sorted, as `description` writes them.
  dictionary.insert_or_assign(dictionary.end(), std::move(key), std::move(value));
}

void PropertyListReader::noteKeyLine(const std::string& key, std::size_t begin) {
  countedLine_ +=
      static_cast<int>(std::count(text_.begin() + static_cast<std::ptrdiff_t>(countedTo_),
                                  text_.begin() + static_cast<std::ptrdiff_t>(begin), '\n'));
  countedTo_ = begin;
  keyLines_->insert_or_assign(key, countedLine_);
}

PropertyList PropertyListReader::readData() {
  const std::size_t begin = at_++;
  PropertyList::Data data;
  int highDigit = -1;
  for (;; ++at_) {
    const char c = here();
    const int digit = hexValue(c);
    if (digit >= 0) {
      if (highDigit < 0) {
        highDigit = digit;
      } else {
        data.bytes += static_cast<char>(highDigit * 16 + digit);
        highDigit = -1;
      }
    } else if (c == '>') {
      break;
    } else if (atEnd()) {
      failAt(begin, "the data that begins here does not end");
    } else if (!isBlank(c)) {
      failWanting("a hexadecimal digit or \">\"");
    }
  }
  if (highDigit >= 0) {
    failAt(at_, "the data has an odd number of digits");
  }
  ++at_;
  return data;
}

void PropertyListReader::enterLevel() {
  if (++depth_ > PropertyList::kMaximumDepth) {
    failAt(at_, "more than " + std::to_string(PropertyList::kMaximumDepth) + " levels");
  }
}

void PropertyListReader::failAt(std::size_t position, const std::string& reason) const {
  const std::string_view before = text_.substr(0, position);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const std::size_t lineBegin = before.rfind('\n') + 1;  // npos + 1 is 0: the first line
  throw PropertyListError(static_cast<int>(line), static_cast<int>(position - lineBegin + 1),
                          reason);
}

void PropertyListReader::failWanting(const std::string& wanted) const {
  if (atEnd()) {
    failAt(at_, "the text ends where " + wanted + " should be");
  }
  const auto byte = static_cast<unsigned char>(here());
  const std::string found =
      byte > ' ' && byte < 0x7f ? " instead of \"" + std::string(1, here()) + "\"" : std::string();
  failAt(at_, wanted + " should be here" + found);
}

}  // namespace sorvane
