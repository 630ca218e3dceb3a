// The reader behind `PropertyList::parse`.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

namespace sorvane {

/// Reads one text once, from its beginning to its end.
class PropertyListReader {
 public:
  using KeyLines = std::map<std::string, int, std::less<>>;

  /// If `keyLines` is not null, it receives the line of each key of a top-level dictionary.
  explicit PropertyListReader(std::string_view text, KeyLines* keyLines = nullptr);

  /// Throws PropertyListError.
  [[nodiscard]] PropertyList read();

 private:
  // ---- PropertyListReader.cpp: the whole text, and values made of other values

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

  // ---- PropertyListStrings.cpp: words, quoted texts and their escapes

  [[nodiscard]] std::string readKey();
  [[nodiscard]] std::string readString();
  [[nodiscard]] std::string readQuoted();
  [[nodiscard]] std::string readWord();
  void readEscape(std::string& result);
  [[nodiscard]] char32_t readOctal(char first);
  [[nodiscard]] char32_t readUnicode(std::size_t begin);
  [[nodiscard]] char32_t readFourHexDigits(std::size_t begin);

  // ---- PropertyListReader.cpp: position and errors

  void enterLevel();
  [[nodiscard]] bool atEnd() const { return at_ == text_.size(); }
  /// The character here, or NUL at the end. The text itself contains no NUL.
  [[nodiscard]] char here() const { return atEnd() ? '\0' : text_[at_]; }
  [[nodiscard]] bool startsWith(std::string_view token) const {
    return text_.compare(at_, token.size(), token) == 0;
  }
  [[noreturn]] void failAt(std::size_t position, const std::string& reason) const;
  /// Fails at the present position, where `wanted` should be.
  [[noreturn]] void failWanting(const std::string& wanted) const;

  const std::string_view text_;
  KeyLines* const keyLines_;
  std::size_t at_ = 0;
  int depth_ = 0;
  std::size_t countedTo_ = 0;  // the position whose line is `countedLine_`
  int countedLine_ = 1;
};

}  // namespace sorvane
