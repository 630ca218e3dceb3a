// UTF-8, byte by byte: what the property lists need beyond `isUtf8`.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sorvane {

/// The length in bytes of the longest well-formed beginning; all of `bytes` when it is UTF-8.
[[nodiscard]] std::size_t wellFormedUtf8Length(std::string_view bytes);

/// The length of the character at the start of `bytes`, 1 to 4; 0 when it is malformed or cut off.
[[nodiscard]] std::size_t utf8CharacterLength(std::string_view bytes);

/// The code point of the well-formed character that `bytes` is.
[[nodiscard]] char32_t utf8CodePoint(std::string_view bytes);

/// Appends a code point, at most U+10FFFF and no surrogate.
void appendUtf8(std::string& text, char32_t codePoint);

}  // namespace sorvane
