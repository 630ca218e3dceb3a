// UTF-8: whether bytes are text, and their characters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace sorvane {

/// True when every byte is ASCII and none is NUL, as in almost every key and text that comes over
/// the wire; true for no bytes. Looks at a word at a time, the last of which overlaps the one
/// before.
[[nodiscard]] inline bool isAsciiWithoutNul(std::string_view bytes) {
  // Neither the byte nor the byte less one has its top bit. Of several zero bytes the lowest shows
  // for certain, which is enough.
  const auto plain = []<typename Word>(const char* at, Word ones) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return ((word | (word - ones)) & static_cast<Word>(ones << 7)) == 0;
  };
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  constexpr auto kHalfOnes = static_cast<std::uint32_t>(kOnes);
  const char* at = bytes.data();
  const char* const end = at + bytes.size();
  if (bytes.size() >= sizeof kOnes) {
    for (; end - at > static_cast<std::ptrdiff_t>(sizeof kOnes); at += sizeof kOnes) {
      if (!plain(at, kOnes)) {
        return false;
      }
    }
    return plain(end - sizeof kOnes, kOnes);
  }
  if (bytes.size() >= sizeof kHalfOnes) {
    return plain(at, kHalfOnes) && plain(end - sizeof kHalfOnes, kHalfOnes);
  }
  for (; at != end; ++at) {
    if (static_cast<signed char>(*at) <= 0) {
      return false;
    }
  }
  return true;
}

/// True when the bytes are well-formed UTF-8 (no surrogates, nothing overlong, at most U+10FFFF).
[[nodiscard]] bool isUtf8(std::string_view bytes);

/// The length in bytes of the longest well-formed beginning; all of `bytes` when it is UTF-8.
[[nodiscard]] std::size_t wellFormedUtf8Length(std::string_view bytes);

/// The length of the character at the start of `bytes`, 1 to 4; 0 when it is malformed or cut off.
[[nodiscard]] std::size_t utf8CharacterLength(std::string_view bytes);

/// The first `most` bytes of a text, or all of it if it is not longer. A character that would be
/// split is left out.
[[nodiscard]] std::string_view utf8Beginning(std::string_view text, std::size_t most);

/// The code point of the well-formed character that `bytes` is.
[[nodiscard]] char32_t utf8CodePoint(std::string_view bytes);

/// The text with each control character as `\xNN`, where NN is its code point, and with each byte
/// that is not UTF-8 in the same form. For texts of peers in a log or on a console.
[[nodiscard]] std::string escapeControls(std::string_view text);

/// Appends a code point, at most U+10FFFF and no surrogate.
void appendUtf8(std::string& text, char32_t codePoint);

}  // namespace sorvane
