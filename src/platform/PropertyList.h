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

/// The text is no property list; `what()` is "line L, column C: REASON".
class PropertyListError : public NSException {
 public:
  PropertyListError(int line, int column, const std::string& reason);

  const int line;    ///< 1 is the first
  const int column;  ///< in bytes, 1 is the first
  const std::string reason;
};

/// A value, owned; copies are deep. A text is UTF-8 and holds no NUL: the text form has none.
/// Different values may be used on different threads.
class PropertyList {
 public:
  using String = std::string;  ///< UTF-8
  using Array = std::vector<PropertyList>;
  using Dictionary =
      std::map<std::string, PropertyList, std::less<>>;  ///< in the order of the keys' bytes
  struct Data {
    std::string bytes;
    bool operator==(const Data&) const = default;
  };

  static constexpr int kMaximumDepth = 64;  ///< levels of dictionaries and arrays
  static constexpr std::size_t kMaximumBytes = std::size_t{16} << 20;  ///< length of a text

  PropertyList() : value_(Dictionary{}) {}
  PropertyList(String text)
      : value_(std::move(text)) {}  // NOLINT(google-explicit-constructor): a value is one
  PropertyList(const char* text)
      : value_(String(text)) {}  // NOLINT(google-explicit-constructor): of these four
  PropertyList(Data data) : value_(std::move(data)) {}     // NOLINT(google-explicit-constructor)
  PropertyList(Array array) : value_(std::move(array)) {}  // NOLINT(google-explicit-constructor)
  PropertyList(Dictionary dictionary)
      : value_(std::move(dictionary)) {}  // NOLINT(google-explicit-constructor)

  /// Null when the value is of another kind.
  [[nodiscard]] const String* string() const { return std::get_if<String>(&value_); }
  [[nodiscard]] const Data* data() const { return std::get_if<Data>(&value_); }
  [[nodiscard]] const Array* array() const { return std::get_if<Array>(&value_); }
  [[nodiscard]] const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value_); }
  [[nodiscard]] Dictionary* dictionary() { return std::get_if<Dictionary>(&value_); }

  /// Reads a text: a dictionary `{ key = value; }`, an array `(a, b)`, a string (a word or quoted),
  /// data `<0fbd77>`, or the pairs of a dictionary without its braces. Comments are `/* */` and
  /// `//`. Throws PropertyListError. The time is linear in the length.
  [[nodiscard]] static PropertyList parse(std::string_view text);

  /// The text of the value: four blanks a level, keys sorted by their bytes, no line feed at its
  /// end. `parse` gives the equal value back, as long as the limits above hold.
  [[nodiscard]] std::string description() const;

  bool operator==(const PropertyList&) const = default;

 private:
  std::variant<String, Data, Array, Dictionary> value_;
};

/// A string as `description` writes it: as it stands when made only of letters, digits and "_" (and
/// not empty), else quoted, with everything outside printable ASCII escaped. `text` must be UTF-8.
[[nodiscard]] std::string describeString(std::string_view text);

/// Data as `description` writes it: `<0fbd77 1c2735ae>`, groups of four bytes.
[[nodiscard]] std::string describeData(std::string_view bytes);

/// The line on which each key of a top-level dictionary stands, for messages about a settings file.
[[nodiscard]] std::map<std::string, int, std::less<>> topLevelKeyLines(std::string_view text);

}  // namespace sorvane
