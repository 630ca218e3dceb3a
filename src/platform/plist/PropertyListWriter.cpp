#include <algorithm>

#include "platform/Ascii.h"
#include "platform/PropertyList.h"
#include "platform/Utf8.h"

namespace sorvane {
namespace {

constexpr std::size_t kBlanksPerLevel = 4;
constexpr std::size_t kDataGroup = 4;

/// Takes the place of a text of which the length alone is wanted.
class TextLength {
 public:
  TextLength& operator+=(char /*character*/) {
    ++bytes_;
    return *this;
  }
  TextLength& operator+=(std::string_view text) {
    bytes_ += text.size();
    return *this;
  }
  void append(std::size_t count, char /*character*/) { bytes_ += count; }
  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  std::size_t bytes_ = 0;
};

bool needsNoQuotes(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](char c) { return isAsciiLetterOrDigit(c) || c == '_'; });
}

template <typename Text>
void appendUnicodeEscape(Text& result, char32_t unit) {
  result += "\\U";
  for (int shift = 12; shift >= 0; shift -= 4) {
    result += hexDigit((unit >> shift) & 0xf);
  }
}

template <typename Text>
void appendOctalEscape(Text& result, unsigned char byte) {
  result += '\\';
  result += static_cast<char>('0' + (byte >> 6));
  result += static_cast<char>('0' + ((byte >> 3) & 7));
  result += static_cast<char>('0' + (byte & 7));
}

template <typename Text>
void appendAscii(Text& result, char c) {
  constexpr std::string_view kEscaped = "\"\\\a\b\f\n\r\t\v";
  constexpr std::string_view kNames = "\"\\abfnrtv";
  if (const std::size_t known = kEscaped.find(c); known != std::string_view::npos) {
    result += '\\';
    result += kNames[known];
  } else if (c < ' ' || c == '\x7f') {
    appendOctalEscape(result, static_cast<unsigned char>(c));
  } else {
    result += c;
  }
}

template <typename Text>
void appendBeyondAscii(Text& result, char32_t codePoint) {
  if (codePoint < 0x10000) {
    appendUnicodeEscape(result, codePoint);
  } else {
    appendUnicodeEscape(result, 0xd800 + ((codePoint - 0x10000) >> 10));
    appendUnicodeEscape(result, 0xdc00 + (codePoint & 0x3ff));
  }
}

template <typename Text>
void appendString(Text& result, std::string_view text) {
  if (needsNoQuotes(text)) {
    result += text;
    return;
  }
  result += '"';
  while (!text.empty()) {
    const std::size_t length = utf8CharacterLength(text);
    if (length == 1) {
      appendAscii(result, text.front());
    } else if (length > 1) {
      appendBeyondAscii(result, utf8CodePoint(text.substr(0, length)));
    } else {
      appendOctalEscape(result, static_cast<unsigned char>(text.front()));  // not UTF-8
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  result += '"';
}

template <typename Text>
void appendData(Text& result, std::string_view bytes) {
  result += '<';
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0 && i % kDataGroup == 0) {
      result += ' ';
    }
    const auto byte = static_cast<unsigned char>(bytes[i]);
    result += hexDigit(byte >> 4);
    result += hexDigit(byte & 0xf);
  }
  result += '>';
}

/// Appends values to one text. `level` is the level of the line on which a value begins.
template <typename Text>
class Writer {
 public:
  explicit Writer(Text& result) : result_(result) {}

  void value(const PropertyList& value, std::size_t level) {
    if (const auto* text = value.string()) {
      appendString(result_, *text);
    } else if (const auto* data = value.data()) {
      appendData(result_, data->bytes);
    } else if (const auto* array = value.array()) {
      elements(*array, level);
    } else {
      pairs(*value.dictionary(), level);
    }
  }

 private:
  void elements(const PropertyList::Array& array, std::size_t level) {
    result_ += '(';
    for (const PropertyList& element : array) {
      startLine(level + 1);
      value(element, level + 1);
      if (&element != &array.back()) {
        result_ += ',';
      }
    }
    if (!array.empty()) {
      startLine(level);
    }
    result_ += ')';
  }

  void pairs(const PropertyList::Dictionary& dictionary, std::size_t level) {
    result_ += '{';
    for (const auto& [key, entry] : dictionary) {
      startLine(level + 1);
      appendString(result_, key);
      result_ += " = ";
      value(entry, level + 1);
      result_ += ';';
    }
    if (!dictionary.empty()) {
      startLine(level);
    }
    result_ += '}';
  }

  void startLine(std::size_t level) {
    result_ += '\n';
    result_.append(level * kBlanksPerLevel, ' ');
  }

  Text& result_;
};

}  // namespace

std::string PropertyList::description() const {
  std::string result;
  Writer(result).value(*this, 0);
  return result;
}

std::size_t PropertyList::descriptionBytes(std::size_t level) const {
  TextLength length;
  Writer(length).value(*this, level);
  return length.bytes();
}

std::string describeString(std::string_view text) {
  std::string result;
  appendString(result, text);
  return result;
}

std::size_t describedStringBytes(std::string_view text) {
  TextLength length;
  appendString(length, text);
  return length.bytes();
}

std::string describeData(std::string_view bytes) {
  std::string result;
  appendData(result, bytes);
  return result;
}

}  // namespace sorvane
