// The preferences: one dictionary in memory, and the file that keeps it.
#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "platform/PropertyList.h"

namespace sorvane {

/// The file is read once, at construction, and only written from then on. A change that somebody
/// else makes to it is overwritten by the next `set`. It holds the dictionary's description, a text
/// property list in UTF-8.
///
/// Not safe for several threads at a time: the info server's lock guards it.
class PreferenceStore {
 public:
  /// Longest file that is written: the longest that can be read again, bytes.
  static constexpr std::size_t kMaximumFileBytes = PropertyList::kMaximumBytes;

  /// Reads the file. A file that is missing, cannot be read or does not hold a dictionary is
  /// replaced by the text of an empty dictionary: damaged preferences never keep the name server
  /// from starting. Never raises. A failure to replace the file is deliberately ignored.
  explicit PreferenceStore(std::string file);

  /// Returns the top-level entry of that key, or null. Valid until the next `set`.
  [[nodiscard]] const PropertyList* find(std::string_view key) const;

  /// Stores the entry in place of an earlier one, then writes the whole file, even when nothing
  /// changed. Returns why the file could not be written, or no error. A failed write leaves the
  /// file as it was; the entry is in memory all the same, and the next `set` writes it, too.
  std::error_code set(std::string_view key, PropertyList value);

  /// Returns all preferences as they are in memory.
  [[nodiscard]] const PropertyList& all() const { return preferences_; }

 private:
  [[nodiscard]] std::error_code write() const;

  const std::string file_;
  PropertyList preferences_;  // a dictionary at all times
};

}  // namespace sorvane
