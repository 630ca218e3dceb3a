#include "registry/ChangePosition.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>

namespace sorvane {
namespace {

constexpr std::size_t kNumberDigits = 20;
constexpr std::size_t kIndexDigits = 10;
constexpr std::size_t kMovesDigits = 4;

template <typename Integer>
bool read(std::string_view digits, Integer& value) {
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value);
  return error == std::errc() && stop == end;
}

}  // namespace

// The number; behind it, unless it is at rest, the two indices, the number `begun` and the moves,
// each with all digits that it may have.
std::string ChangePosition::text() const {
  if (isAtRest()) {
    return std::to_string(number);
  }
  char text[80];
  const int length = std::snprintf(
      text, sizeof text, "%" PRIu64 "%010" PRIu32 "%010" PRIu32 "%020" PRIu64 "%04" PRIu32, number,
      slot, gone, begun, moves);
  return {text, static_cast<std::size_t>(length)};
}

std::optional<ChangePosition> ChangePosition::from(std::string_view text) {
  constexpr std::size_t kRest = 2 * kIndexDigits + kNumberDigits + kMovesDigits;
  const bool isDigits =
      std::ranges::all_of(text, [](char each) { return each >= '0' && each <= '9'; });
  if (!isDigits || text.size() > kNumberDigits + kRest) {
    return std::nullopt;
  }
  ChangePosition position;
  if (text.size() <= kNumberDigits) {
    return read(text, position.number) ? std::optional(position) : std::nullopt;
  }
  if (text.size() <= kRest) {
    return std::nullopt;
  }
  const std::string_view rest = text.substr(text.size() - kRest);
  const bool isRead = read(text.substr(0, text.size() - kRest), position.number) &&
                      read(rest.substr(0, kIndexDigits), position.slot) &&
                      read(rest.substr(kIndexDigits, kIndexDigits), position.gone) &&
                      read(rest.substr(2 * kIndexDigits, kNumberDigits), position.begun) &&
                      read(rest.substr(2 * kIndexDigits + kNumberDigits), position.moves);
  return isRead ? std::optional(position) : std::nullopt;
}

}  // namespace sorvane
