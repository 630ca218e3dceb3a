// The preferences: one dictionary in memory, and the file that keeps it.
#pragma once

#include <string>
#include <string_view>

#include "platform/Console.h"
#include "platform/KeptForm.h"
#include "platform/PropertyList.h"

namespace sorvane {

/// The file is read once, at construction, and only written from then on. A change that somebody
/// else makes to it is overwritten by the next `set`. It holds the dictionary's description, a text
/// property list in UTF-8. A file that cannot be written costs a console line with the reason, and
/// so does a change that is refused; both are limited in rate.
///
/// Not safe for several threads at a time: the info server's lock guards it.
class PreferenceStore {
 public:
  /// Longest text of all preferences: the longest file that can be read again, bytes.
  static constexpr std::size_t kMaximumFileBytes = PropertyList::kMaximumBytes;

  /// Reads the file. A file that is missing, cannot be read or does not hold a dictionary is
  /// replaced by the text of an empty dictionary: damaged preferences never keep the name server
  /// from starting. Never raises.
  explicit PreferenceStore(std::string file);
  /// Goes on with what another store of the same file had in memory, written by its `keep`. Neither
  /// reads nor writes the file: a change that could not be written is written by the next `set`.
  PreferenceStore(std::string file, KeptReader& kept);
  void keep(KeptWriter& writer) const;

  /// Returns the top-level entry of that key, or null. Valid until the next `set`.
  [[nodiscard]] const PropertyList* find(std::string_view key) const;

  /// Stores the entry in place of an earlier one, then writes the whole file, even when nothing
  /// changed. A failed write leaves the file as it was; the entry is in memory all the same, and
  /// the next `set` writes it, too. Raises NSException and changes nothing when the text of all
  /// preferences would be longer than `kMaximumFileBytes`; that costs about as much as the two
  /// entries are long, however many others there are.
  void set(std::string_view key, PropertyList value);

  /// Returns all preferences as they are in memory.
  [[nodiscard]] const PropertyList& all() const { return preferences_; }

 private:
  void write();

  const std::string file_;
  PropertyList preferences_;       // a dictionary at all times
  std::size_t bytes_ = 0;          // length of its description, kept by addition
  ConsoleRateLimit failedWrites_;  // console lines
  ConsoleRateLimit refusals_;      // console lines
};

}  // namespace sorvane
