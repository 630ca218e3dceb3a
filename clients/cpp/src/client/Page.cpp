#include "client/Page.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <numeric>
#include <utility>

namespace sorvane::client::detail {
namespace {

constexpr std::size_t kLongestSequence = 64;

Error malformed(const char* what) {
  return {ErrorCode::protocol, std::string("the name server's reply about changes ") + what};
}

/// "YES" or "NO".
std::optional<bool> yesOrNo(std::optional<std::string_view> text) {
  if (text == "YES" || text == "NO") {
    return text == "YES";
  }
  return std::nullopt;
}

template <typename Number>
bool readWhole(std::string_view text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

/// The text of `row` belongs into this member of an entry. Null when it does not.
std::string* textMember(Entry& entry, std::string_view key) {
  static constexpr std::pair<std::string_view, std::string Entry::*> kMembers[] = {
      {"name", &Entry::name},
      {"portHost", &Entry::host},
      {"portHostAddress", &Entry::address},
      {"portType", &Entry::type},
      {"portStatus", &Entry::state},
      {"alertStatus", &Entry::alert}};
  const auto* member = std::find_if(std::begin(kMembers), std::end(kMembers),
                                    [&](const auto& each) { return each.first == key; });
  return member == std::end(kMembers) ? nullptr : &(entry.*member->second);
}

/// Reads the row of a name. Keys that are not known are of a later version.
bool readRow(std::string_view row, PageEntry& into) {
  const auto entries = readEntries(row);
  if (!entries) {
    return false;
  }
  bool named = false;
  for (const auto& [key, value] : *entries) {
    const auto text = textOf(value);
    if (!text) {
      return false;
    }
    named = named || key == "name";
    if (std::string* const member = textMember(into.entry, key)) {
      *member = *text;
    } else if (key == "gone") {
      into.gone = *text == "YES";
    } else if (key == "left") {
      into.entry.left = *text == "YES";
    } else if (key == "portNumber") {
      into.entry.number = readPort(*text);
    } else if (key == "alertStatusTimestamp") {
      into.entry.alertTime = readTime(*text);
    }
  }
  return named;
}

void leaveOutEarlierRows(std::vector<PageEntry>& entries) {
  std::vector<std::size_t> byName(entries.size());
  std::iota(byName.begin(), byName.end(), std::size_t{0});
  std::sort(byName.begin(), byName.end(), [&](std::size_t one, std::size_t other) {
    const int order = entries[one].entry.name.compare(entries[other].entry.name);
    return order < 0 || (order == 0 && one < other);
  });
  std::vector<bool> isEarlier(entries.size());
  bool hasEarlier = false;
  for (std::size_t at = 1; at < byName.size(); ++at) {
    if (entries[byName[at - 1]].entry.name == entries[byName[at]].entry.name) {
      isEarlier[byName[at - 1]] = hasEarlier = true;
    }
  }
  if (!hasEarlier) {
    return;
  }
  std::vector<PageEntry> later;
  for (std::size_t at = 0; at < entries.size(); ++at) {
    if (!isEarlier[at]) {
      later.push_back(std::move(entries[at]));
    }
  }
  entries = std::move(later);
}

}  // namespace

int readPort(std::string_view text) {
  int number = 0;
  return readWhole(text, number) && number >= 1 && number <= 65535 ? number : 0;
}

std::optional<std::chrono::system_clock::time_point> readTime(std::string_view text) {
  using namespace std::chrono;
  constexpr std::int64_t kReferenceDate = 978307200;    // in seconds since 1970
  constexpr std::int64_t kMostSeconds = 8'000'000'000;  // the clock ends in 2262
  const std::size_t point = std::min(text.find('.'), text.size());
  std::string decimals(text.substr(std::min(point + 1, text.size())));
  const bool hasDecimals = point < text.size();
  std::int64_t whole = 0;
  std::int64_t millionths = 0;
  if (text.empty() || text[0] == '-' || !readWhole(text.substr(0, point), whole) ||
      whole > kMostSeconds || hasDecimals == decimals.empty() || decimals.size() > 6) {
    return std::nullopt;
  }
  decimals.append(6 - decimals.size(), '0');
  if (decimals[0] == '-' || !readWhole(std::string_view(decimals), millionths)) {
    return std::nullopt;
  }
  return system_clock::time_point(seconds(whole + kReferenceDate) + microseconds(millionths));
}

bool isOwnName(std::string_view name) {
  return name == "VN_nameserver" || name == "VN_infoserver" || name == "sorvexec";
}

Result<Page> readPage(const Reply& reply) {
  if (!reply.isDictionary()) {
    return Error{ErrorCode::refused, "the name server does not tell its changes"};
  }
  const auto instance = reply.text("instance");
  if (!instance) {
    return Error{ErrorCode::unsupported, "the name server cannot tell its changes"};
  }
  const auto sequence = reply.text("sequence");
  const auto more = yesOrNo(reply.text("more"));
  const auto restart = yesOrNo(reply.text("restart"));
  if (!sequence || sequence->empty() || sequence->size() > kLongestSequence || !more || !restart) {
    return malformed("does not say where to go on");
  }
  Page page{std::string(*instance), std::string(*sequence), *more, *restart, {}};
  for (const auto& [key, row] : reply.entries()) {
    if (key.empty() || key.find_first_not_of("0123456789") != std::string_view::npos) {
      continue;
    }
    if (key != std::to_string(page.entries.size()) || !readRow(row, page.entries.emplace_back())) {
      return malformed("has a row that is none");
    }
  }
  if (page.more && page.entries.empty()) {
    return malformed("promises more and tells nothing");
  }
  leaveOutEarlierRows(page.entries);
  return page;
}

}  // namespace sorvane::client::detail
