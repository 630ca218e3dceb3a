#include "platform/Utf8.h"

#include <cstdint>
#include <cstring>

#include "platform/Ascii.h"

namespace sorvane {
namespace {

/// The length of the ASCII beginning, found eight bytes at a time.
std::size_t asciiLength(std::string_view bytes) {
  std::size_t at = 0;
  for (std::uint64_t word; bytes.size() - at >= sizeof word; at += sizeof word) {
    std::memcpy(&word, bytes.data() + at, sizeof word);
    if ((word & 0x8080808080808080U) != 0) {
      break;
    }
  }
  while (at < bytes.size() && static_cast<unsigned char>(bytes[at]) < 0x80) {
    ++at;
  }
  return at;
}

/// What may follow a lead byte. The second byte's range shuts out overlong forms, surrogates and
/// what lies beyond U+10FFFF.
struct Form {
  std::size_t length;
  unsigned char secondLow = 0x80;
  unsigned char secondHigh = 0xbf;
};

Form formOf(unsigned char lead) {
  if (lead < 0x80) {
    return {1};
  }
  if (lead < 0xc2) {
    return {0};
  }
  if (lead < 0xe0) {
    return {2};
  }
  switch (lead) {
    case 0xe0:
      return {3, 0xa0, 0xbf};
    case 0xed:
      return {3, 0x80, 0x9f};
    case 0xf0:
      return {4, 0x90, 0xbf};
    case 0xf4:
      return {4, 0x80, 0x8f};
    default:
      return {lead < 0xf0 ? 3U : lead < 0xf4 ? 4U : 0U};
  }
}

bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

}  // namespace

std::size_t utf8CharacterLength(std::string_view bytes) {
  if (bytes.empty()) {
    return 0;
  }
  const Form form = formOf(static_cast<unsigned char>(bytes[0]));
  if (form.length < 2) {
    return form.length;
  }
  if (bytes.size() < form.length) {
    return 0;
  }
  const auto second = static_cast<unsigned char>(bytes[1]);
  if (second < form.secondLow || second > form.secondHigh) {
    return 0;
  }
  for (std::size_t i = 2; i < form.length; ++i) {
    if (!continues(bytes[i])) {
      return 0;
    }
  }
  return form.length;
}

std::size_t wellFormedUtf8Length(std::string_view bytes) {
  std::size_t at = 0;
  for (;;) {
    at += asciiLength(bytes.substr(at));
    const std::size_t length = utf8CharacterLength(bytes.substr(at));
    if (length == 0) {
      return at;
    }
    at += length;
  }
}

bool isUtf8(std::string_view bytes) {
  return isAsciiWithoutNul(bytes) || wellFormedUtf8Length(bytes) == bytes.size();
}

std::string_view utf8Beginning(std::string_view text, std::size_t most) {
  if (text.size() <= most) {
    return text;
  }
  constexpr std::size_t kLongestRest = 3;  // of a character behind its lead byte
  for (std::size_t begin = most; begin > 0 && most - begin < kLongestRest;) {
    --begin;
    if (begin + utf8CharacterLength(text.substr(begin)) > most) {
      return text.substr(0, begin);
    }
  }
  return text.substr(0, most);
}

char32_t utf8CodePoint(std::string_view bytes) {
  constexpr unsigned char kLeadBits[] = {0, 0x7f, 0x1f, 0x0f, 0x07};
  char32_t codePoint = static_cast<unsigned char>(bytes[0]) & kLeadBits[bytes.size()];
  for (const char byte : bytes.substr(1)) {
    codePoint = (codePoint << 6) | (static_cast<unsigned char>(byte) & 0x3f);
  }
  return codePoint;
}

std::string escapeControls(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = utf8CharacterLength(text);
    const std::string_view character = text.substr(0, length == 0 ? 1 : length);
    const char32_t codePoint =
        length == 0 ? static_cast<unsigned char>(text.front()) : utf8CodePoint(character);
    if (length == 0 || codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0)) {
      result += "\\x";
      appendHex(result, static_cast<unsigned char>(codePoint));
    } else {
      result += character;
    }
    text.remove_prefix(character.size());
  }
  return result;
}

void appendUtf8(std::string& text, char32_t codePoint) {
  const auto append = [&](char32_t byte) {
    text += static_cast<char>(static_cast<unsigned char>(byte));
  };
  if (codePoint < 0x80) {
    append(codePoint);
    return;
  }
  if (codePoint < 0x800) {
    append(0xc0 | (codePoint >> 6));
  } else {
    if (codePoint < 0x10000) {
      append(0xe0 | (codePoint >> 12));
    } else {
      append(0xf0 | (codePoint >> 18));
      append(0x80 | ((codePoint >> 12) & 0x3f));
    }
    append(0x80 | ((codePoint >> 6) & 0x3f));
  }
  append(0x80 | (codePoint & 0x3f));
}

}  // namespace sorvane
