#include <algorithm>

#include "platform/Ascii.h"
#include "platform/PropertyList.h"
#include "platform/Utf8.h"

namespace sorvane {
namespace {

constexpr std::size_t kBlanksPerLevel = 4;
constexpr std::size_t kDataGroup = 4;

bool needsNoQuotes(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](char c) { return isAsciiLetterOrDigit(c) || c == '_'; });
}

void appendUnicodeEscape(std::string& result, char32_t unit) {
  result += "\\U";
  for (int shift = 12; shift >= 0; shift -= 4) {
    result += hexDigit((unit >> shift) & 0xf);
  }
}

void appendOctalEscape(std::string& result, unsigned char byte) {
  result += '\\';
  result += static_cast<char>('0' + (byte >> 6));
  result += static_cast<char>('0' + ((byte >> 3) & 7));
  result += static_cast<char>('0' + (byte & 7));
}

void appendAscii(std::string& result, char c) {
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

void appendBeyondAscii(std::string& result, char32_t codePoint) {
  if (codePoint < 0x10000) {
    appendUnicodeEscape(result, codePoint);
  } else {
    appendUnicodeEscape(result, 0xd800 + ((codePoint - 0x10000) >> 10));
    appendUnicodeEscape(result, 0xdc00 + (codePoint & 0x3ff));
  }
}

void appendString(std::string& result, std::string_view text) {
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

void appendData(std::string& result, std::string_view bytes) {
  result += '<';
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0 && i % kDataGroup == 0) {
      result += ' ';
    }
    appendHex(result, static_cast<unsigned char>(bytes[i]));
  }
  result += '>';
}

/// Appends values to one text. `level` is the level of the line on which a value begins.
class Writer {
 public:
  explicit Writer(std::string& result) : result_(result) {}

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

  std::string& result_;
};

}  // namespace

std::string PropertyList::description() const {
  std::string result;
  Writer(result).value(*this, 0);
  return result;
}

std::string describeString(std::string_view text) {
  std::string result;
  appendString(result, text);
  return result;
}

std::string describeData(std::string_view bytes) {
  std::string result;
  appendData(result, bytes);
  return result;
}

}  // namespace sorvane
