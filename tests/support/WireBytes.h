// Frames written by hand, independently of the code under test.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace sorvane::test {

/// One entry of a dictionary, its value exactly these bytes.
[[nodiscard]] std::string entry(std::string_view key, std::string_view value);
/// A frame with any header fields.
[[nodiscard]] std::string frameWith(std::string_view mark, int version, int kind,
                                    std::size_t length, std::string_view body);
/// The frame of a dictionary with that body.
[[nodiscard]] std::string frameOfBody(std::string_view body);
/// The frame of a dictionary of texts, each with its NUL.
[[nodiscard]] std::string frameOfTexts(
    std::initializer_list<std::pair<std::string_view, std::string_view>> texts);
/// The frame of "no dictionary".
[[nodiscard]] std::string nilFrame();

/// The length of the body that a frame header of eight bytes tells.
[[nodiscard]] std::size_t bodyLength(std::string_view header);

}  // namespace sorvane::test
