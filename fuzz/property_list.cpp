// Reads arbitrary bytes as a property list. Whatever is accepted must be written and read back
// equal.
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"
#include "support/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  using sorvane::PropertyList;
  using sorvane::fuzz::require;
  const std::string_view text(reinterpret_cast<const char*>(bytes), length);
  try {
    const PropertyList value = PropertyList::parse(text);
    const std::string description = value.description();
    require(PropertyList::parse(description) == value, "what is written is read back equal");
    require(value.descriptionBytes() == description.size(), "the length of a description");
    const PropertyList::Dictionary* dictionary = value.dictionary();
    const std::size_t keys = dictionary != nullptr ? dictionary->size() : 0;
    require(sorvane::topLevelKeyLines(text).size() == keys, "each key has a line");
  } catch (const sorvane::PropertyListError& error) {
    require(error.line >= 1 && error.column >= 1 && !error.reason.empty(),
            "an error names its place and its reason");
  }
  return 0;
}
