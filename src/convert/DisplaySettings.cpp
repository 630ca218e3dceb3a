#include "convert/DisplaySettings.h"

#include <cstddef>
#include <cstring>
#include <string_view>

#include "defaults/SSDefaults.h"

namespace sorvane {
namespace {

// Returns the length of the longest beginning of a text that has at most `most` bytes and ends
// between two UTF-8 characters.
std::size_t lengthCutAtCharacter(std::string_view text, std::size_t most) {
  if (text.size() <= most) {
    return text.size();
  }
  const auto continuesCharacter = [&](std::size_t place) {
    return (static_cast<unsigned char>(text[place]) & 0xC0) == 0x80;
  };
  std::size_t length = most;
  while (length > 0 && continuesCharacter(length)) {
    --length;
  }
  return length;
}

template <std::size_t Size>
void copyCut(const char* stored, char (&setting)[Size]) {
  const std::size_t length = lengthCutAtCharacter(stored, Size - 1);
  std::memcpy(setting, stored, length);
  setting[length] = '\0';
}

template <std::size_t Size>
void copyWhenStored(SSDefaults& store, const char* key, char (&setting)[Size]) {
  if (const char* const stored = store.getDefault(key)) {
    copyCut(stored, setting);
  }
}

}  // namespace

DisplaySettings readDisplaySettings(SSDefaults& store) {
  DisplaySettings settings;
  copyWhenStored(store, "Date", settings.pDate);
  copyWhenStored(store, "Time", settings.pTime);
  copyWhenStored(store, "MoneyPostfix", settings.pMoneyPost);
  copyWhenStored(store, "MoneyPrefix", settings.pMoneyPre);
  const char* const format = store.getDefault("CalendarFormat");
  if (format != nullptr && *format != '\0') {
    copyCut(format, settings.pCalendarFormat);
  }
  return settings;
}

}  // namespace sorvane
