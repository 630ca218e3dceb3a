// Reads arbitrary bytes as a property list. Whatever is accepted must be written and read back
// equal.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  using sorvane::PropertyList;
  const std::string_view text(reinterpret_cast<const char*>(bytes), length);
  try {
    const PropertyList value = PropertyList::parse(text);
    if (PropertyList::parse(value.description()) != value) {
      std::abort();
    }
    const PropertyList::Dictionary* dictionary = value.dictionary();
    const std::size_t keys = dictionary != nullptr ? dictionary->size() : 0;
    if (sorvane::topLevelKeyLines(text).size() != keys) {
      std::abort();
    }
  } catch (const sorvane::PropertyListError& error) {
    if (error.line < 1 || error.column < 1 || error.reason.empty()) {
      std::abort();
    }
  }
  return 0;
}
