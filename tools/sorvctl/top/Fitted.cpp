#include "sorvctl/top/Fitted.h"

#include "sorvctl/TerminalText.h"

namespace sorvctl::top {

namespace {

// A column takes a few bytes, with what combines with its character. More than these are cut off.
constexpr std::size_t kBytesOfColumn = 32;

/// The escaped beginning of a text that may fill so many columns, with a mark when it is cut.
std::string beginning(std::string_view text, std::size_t columns) {
  return escaped(shortened(text, (columns + 1) * kBytesOfColumn));
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
    rest.remove_prefix(lines.emplace_back(beginningOfWidth(rest, columns)).size());
  }
  lines.push_back(cutToWidth(rest, columns));
  return lines;
}

}  // namespace sorvctl::top
