#include "infoserver/PreferenceStore.h"

#include <optional>
#include <system_error>
#include <utility>

#include "platform/AtomicFile.h"
#include "platform/NSException.h"
#include "platform/PlainFile.h"

namespace sorvane {
namespace {

std::optional<PropertyList> readDictionary(const std::string& path) {
  const auto file = readPlainFile(path, PreferenceStore::kMaximumFileBytes);
  const auto* text = std::get_if<std::string>(&file);
  if (text == nullptr) {
    return std::nullopt;
  }
  try {
    PropertyList list = PropertyList::parse(*text);
    return list.dictionary() != nullptr ? std::optional(std::move(list)) : std::nullopt;
  } catch (const NSException&) {
    return std::nullopt;
  }
}

PropertyList keptDictionary(KeptReader& kept) {
  try {
    PropertyList list = PropertyList::parse(kept.text());
    if (list.dictionary() != nullptr) {
      return list;
    }
  } catch (const PropertyListError&) {
    // Raises below.
  }
  throw KeptFault("what was kept has preferences that are no dictionary");
}

/// The length of an entry in the description of all preferences, beyond that of its key and value:
/// the start of its line, " = " and ";".
constexpr std::size_t kEntryFrameBytes = std::string_view("\n     = ;").size();

/// By how many bytes an entry makes the description longer.
std::size_t entryBytes(std::string_view key, const PropertyList& value) {
  return kEntryFrameBytes + describedStringBytes(key) + value.descriptionBytes(1);
}

}  // namespace

PreferenceStore::PreferenceStore(std::string file) : file_(std::move(file)) {
  removeAbandonedTemporaries(file_);
  if (std::optional<PropertyList> stored = readDictionary(file_)) {
    preferences_ = std::move(*stored);
  } else {
    write();
  }
  bytes_ = preferences_.descriptionBytes();
}

PreferenceStore::PreferenceStore(std::string file, KeptReader& kept)
    : file_(std::move(file)),
      preferences_(keptDictionary(kept)),
      bytes_(preferences_.descriptionBytes()) {}

// The limits of the console lines begin anew.
void PreferenceStore::keep(KeptWriter& writer) const {
  const auto& [file, preferences, bytes, failedWrites, refusals] = *this;
  writer.text(preferences.description());
}

const PropertyList* PreferenceStore::find(std::string_view key) const {
  const PropertyList::Dictionary& entries = *preferences_.dictionary();
  const auto entry = entries.find(key);
  return entry == entries.end() ? nullptr : &entry->second;
}

void PreferenceStore::set(std::string_view key, PropertyList value) {
  const PropertyList* const earlier = find(key);
  // The first entry brings the line of the closing brace.
  const std::size_t added = entryBytes(key, value) + (preferences_.dictionary()->empty() ? 1 : 0);
  const std::size_t dropped = earlier == nullptr ? 0 : entryBytes(key, *earlier);
  if (bytes_ - dropped + added > kMaximumFileBytes) {
    // The next start could not read such a file and would begin with nothing.
    refusals_.line("a change of the preferences is refused: their text would be longer than " +
                   std::to_string(kMaximumFileBytes) + " bytes");
    throw NSException("the preferences would be too long");
  }
  preferences_.dictionary()->insert_or_assign(std::string(key), std::move(value));
  bytes_ += added - dropped;
  write();
}

void PreferenceStore::write() {
  if (const std::error_code error = replaceFile(file_, preferences_.description())) {
    failedWrites_.line("The preferences could not be written: " + error.message());
  }
}

}  // namespace sorvane
