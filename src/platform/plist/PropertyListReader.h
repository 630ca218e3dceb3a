// The reader behind `PropertyList::parse`.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

namespace sorvane {

/// Reads one text, once, from its beginning to its end; never goes back.
class PropertyListReader {
 public:
  using KeyLines = std::map<std::string, int, std::less<>>;

  /// `keyLines`, if any, receives the line of each key of a top-level dictionary.
  explicit PropertyListReader(std::string_view text, KeyLines* keyLines = nullptr);

  /// Throws PropertyListError.
  [[nodiscard]] PropertyList read();

 private:
  // ---- Values (PropertyListReader.cpp)

  void checkWholeText() const;
  void skipBlanks();
  void skipBlockComment();

  [[nodiscard]] PropertyList readTopLevel();
  [[nodiscard]] PropertyList readValue();
  [[nodiscard]] PropertyList readArray();
  [[nodiscard]] PropertyList readDictionary();
  [[nodiscard]] PropertyList readData();
  void readPair(PropertyList::Dictionary& dictionary, std::size_t keyBegin, std::string key);
  void noteKeyLine(const std::string& key, std::size_t begin);

  // ---- Strings (PropertyListStrings.cpp)

  [[nodiscard]] std::string readKey();
  [[nodiscard]] std::string readString();
  [[nodiscard]] std::string readQuoted();
  [[nodiscard]] std::string readWord();
  void readEscape(std::string& result);
  [[nodiscard]] char32_t readOctal(char first);
  [[nodiscard]] char32_t readUnicode(std::size_t begin);
  [[nodiscard]] char32_t readFourHexDigits(std::size_t begin);

  // ---- Where it stands (PropertyListReader.cpp)

  void enterLevel();
  [[nodiscard]] bool atEnd() const { return at_ == text_.size(); }
  /// The character here, or NUL at the end: a text holds none.
  [[nodiscard]] char here() const { return atEnd() ? '\0' : text_[at_]; }
  [[nodiscard]] bool startsWith(std::string_view token) const {
    return text_.compare(at_, token.size(), token) == 0;
  }
  [[noreturn]] void failAt(std::size_t position, const std::string& reason) const;
  /// Fails here, where `wanted` should be.
  [[noreturn]] void failWanting(const std::string& wanted) const;

  const std::string_view text_;
  KeyLines* const keyLines_;
  std::size_t at_ = 0;
  int depth_ = 0;
  std::size_t countedTo_ = 0;  // the line of this position is known
  int countedLine_ = 1;
};

}  // namespace sorvane
