// The preferences: one dictionary in memory, and the file that keeps it.
#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "platform/PropertyList.h"

namespace sorvane {

/// The file is read once, at construction; from then on it is only written, and a change that
/// somebody else makes to it is overwritten by the next `set`. It holds the dictionary's
/// description, a text property list in UTF-8.
///
/// Not safe for several threads at a time: the info server's lock guards it.
class PreferenceStore {
 public:
  /// Longest file that is written: the longest that can be read again, bytes.
  static constexpr std::size_t kMaximumFileBytes = PropertyList::kMaximumBytes;

  /// Reads the file. One that is missing, cannot be read or does not hold a dictionary is replaced
  /// by the text of an empty one: damaged preferences never keep the name server from starting.
  /// Never raises; whether that replacing worked is deliberately not asked.
  explicit PreferenceStore(std::string file);

  /// The top-level entry of that key, or null. Valid until the next `set`.
  [[nodiscard]] const PropertyList* find(std::string_view key) const;

  /// Stores the entry, replacing an earlier one whole, and writes the whole file before it returns,
  /// even when nothing changed. Answers why the file could not be written, or no error; the entry
  /// is stored in memory in any case, and the next `set` writes it, too. A failed write leaves the
  /// file as it was.
  std::error_code set(std::string_view key, PropertyList value);

  /// Everything, as it is in memory.
  [[nodiscard]] const PropertyList& all() const { return preferences_; }

 private:
  [[nodiscard]] std::error_code write() const;

  const std::string file_;
  PropertyList preferences_;  // a dictionary at all times
};

}  // namespace sorvane
