#include "sorvctl/top/Fitted.h"

#include <algorithm>

#include "platform/Utf8.h"
#include "sorvctl/TerminalText.h"

namespace sorvctl::top {

namespace {

constexpr std::string_view kMore = "…";
// A column takes a few bytes, with what combines with its character. More than these are cut off.
constexpr std::size_t kBytesOfColumn = 32;

/// The escaped beginning of a text that may fill so many columns, with a mark when it is cut.
std::string beginning(std::string_view text, std::size_t columns) {
  const std::size_t most = (columns + 1) * kBytesOfColumn;
  return escaped(sorvane::utf8Beginning(text, most)) +
         (text.size() > most ? std::string(kMore) : "");
}

}  // namespace

std::string fitted(std::string_view text, std::size_t columns) {
  return cutToWidth(beginning(text, columns), columns);
}

std::vector<std::string> wrapped(std::string_view text, std::size_t columns, std::size_t most) {
  const std::string all = beginning(text, columns * most);
  std::string_view rest = all;
  std::vector<std::string> lines;
  while (lines.size() + 1 < most && displayWidth(rest) > columns && columns > 1) {
    std::size_t bytes = 0;
    for (std::size_t width = 0; bytes < rest.size();) {
      const std::size_t length =
          std::max<std::size_t>(sorvane::utf8CharacterLength(rest.substr(bytes)), 1);
      width += displayWidth(rest.substr(bytes, length));
      if (width > columns) {
        break;
      }
      bytes += length;
    }
    lines.emplace_back(rest.substr(0, bytes));
    rest.remove_prefix(bytes);
  }
  lines.push_back(cutToWidth(rest, columns));
  return lines;
}

}  // namespace sorvctl::top
