#include "infoserver/PreferenceStore.h"

#include <optional>
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

}  // namespace

PreferenceStore::PreferenceStore(std::string file) : file_(std::move(file)) {
  removeAbandonedTemporaries(file_);
  if (std::optional<PropertyList> stored = readDictionary(file_)) {
    preferences_ = std::move(*stored);
  } else {
    (void)write();
  }
}

const PropertyList* PreferenceStore::find(std::string_view key) const {
  const PropertyList::Dictionary& entries = *preferences_.dictionary();
  const auto entry = entries.find(key);
  return entry == entries.end() ? nullptr : &entry->second;
}

std::error_code PreferenceStore::set(std::string_view key, PropertyList value) {
  preferences_.dictionary()->insert_or_assign(std::string(key), std::move(value));
  return write();
}

std::error_code PreferenceStore::write() const {
  const std::string text = preferences_.description();
  if (text.size() > kMaximumFileBytes) {
    // The next start could not read it and would begin with nothing: the older content is better.
    return std::make_error_code(std::errc::file_too_large);
  }
  return replaceFile(file_, text);
}

}  // namespace sorvane
