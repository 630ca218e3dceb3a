// Text property lists: dictionaries, arrays, strings and data, read from and written as text.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/NSException.h"

namespace sorvane {

/// Raised if a text is not a property list. `what()` is "line L, column C: REASON".
class PropertyListError : public NSException {
 public:
  PropertyListError(int line, int column, const std::string& reason);

  const int line;    ///< 1 is the first
  const int column;  ///< in bytes, 1 is the first
  const std::string reason;
};

/// A value of one of four kinds. It owns its content, and copies are deep. Texts are UTF-8 and
/// contain no NUL, because the text form has no way to write one. Different values may be used on
/// different threads at the same time.
class PropertyList {
 public:
  using String = std::string;  ///< UTF-8
  using Array = std::vector<PropertyList>;
  using Dictionary =
      std::map<std::string, PropertyList, std::less<>>;  ///< in the order of the bytes of the keys
  struct Data {
    std::string bytes;
    bool operator==(const Data&) const = default;
  };

  static constexpr int kMaximumDepth = 64;  ///< levels of dictionaries and arrays
  static constexpr std::size_t kMaximumBytes = std::size_t{16} << 20;  ///< length of a text

  /// Makes an empty dictionary.
  PropertyList() : value_(Dictionary{}) {}
  // NOLINTBEGIN(google-explicit-constructor): each of the four kinds is a value
  PropertyList(String text) : value_(std::move(text)) {}
  PropertyList(const char* text) : value_(String(text)) {}
  PropertyList(Data data) : value_(std::move(data)) {}
  PropertyList(Array array) : value_(std::move(array)) {}
  PropertyList(Dictionary dictionary) : value_(std::move(dictionary)) {}
  // NOLINTEND(google-explicit-constructor)

  // Each of these returns null if the value is of another kind.
  [[nodiscard]] const String* string() const { return std::get_if<String>(&value_); }
  [[nodiscard]] const Data* data() const { return std::get_if<Data>(&value_); }
  [[nodiscard]] const Array* array() const { return std::get_if<Array>(&value_); }
  [[nodiscard]] const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value_); }
  [[nodiscard]] Dictionary* dictionary() { return std::get_if<Dictionary>(&value_); }

  // ---- plist/PropertyListReader.cpp

  /// Reads a text: a dictionary `{ key = value; }`, an array `(a, b)`, a string (a word or quoted),
  /// data `<0fbd77>`, or the pairs of a dictionary without its braces. Comments are `/* */` and
  /// `//`. Throws PropertyListError. The time is linear in the length of the text.
  [[nodiscard]] static PropertyList parse(std::string_view text);

  // ---- plist/PropertyListWriter.cpp

  /// Returns the text of the value: four blanks a level, keys sorted by their bytes, no line feed
  /// at the end. `parse` turns it into an equal value, unless a limit above is exceeded.
  [[nodiscard]] std::string description() const;
  /// Returns the length of the text that the value is in a description, without making the text,
  /// for a value that begins on a line of that level. The outermost value has level 0.
  [[nodiscard]] std::size_t descriptionBytes(std::size_t level = 0) const;

  bool operator==(const PropertyList&) const = default;

 private:
  std::variant<String, Data, Array, Dictionary> value_;
};

/// Returns a string as `description` writes it. A text that consists of letters, digits and "_"
/// stays as it is, unless it is empty. Any other text is quoted, and what is not printable ASCII is
/// escaped. `text` must be UTF-8.
[[nodiscard]] std::string describeString(std::string_view text);
/// Returns the length of that text without making it.
[[nodiscard]] std::size_t describedStringBytes(std::string_view text);

/// Returns data as `description` writes it, in groups of four bytes: `<0fbd771c 2735ae>`.
[[nodiscard]] std::string describeData(std::string_view bytes);

/// Returns the line of each key of a top-level dictionary, for messages about a settings file.
/// Throws PropertyListError.
[[nodiscard]] std::map<std::string, int, std::less<>> topLevelKeyLines(std::string_view text);

}  // namespace sorvane
