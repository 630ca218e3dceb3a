#include "platform/settings/SettingsTable.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "platform/Ascii.h"
#include "platform/IPv4Address.h"

namespace sorvane {
namespace {

constexpr int kMaximumThreads = 1024;
constexpr double kMaximumSeconds = 86400;
// The server's own ports always have room.
constexpr std::uint64_t kLeastRegistryBytes = std::uint64_t{1} << 20;
// The registry numbers its slots with 32 bits.
constexpr std::uint64_t kMostRegistryBytes = std::uint64_t{1} << 36;
constexpr std::size_t kMaximumBytes = std::numeric_limits<std::size_t>::max() / 2;
constexpr std::size_t kMaximumHostNameBytes = 255;

[[noreturn]] void failNeeding(const std::string& what) { throw NSException(what + " is needed"); }

const std::string& text(const PropertyList& value) {
  if (value.string() == nullptr) {
    failNeeding("a text");
  }
  return *value.string();
}

template <typename Number>
bool readWhole(const std::string& text, Number& number) {
  const char* end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, number);
  return failure == std::errc() && stop == end;
}

template <typename Number>
Number wholeNumber(const PropertyList& value, Number lowest, Number highest) {
  Number number{};
  if (!readWhole(text(value), number) || number < lowest || number > highest) {
    failNeeding("a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest));
  }
  return number;
}

std::chrono::milliseconds seconds(const PropertyList& value) {
  double number = 0;
  if (!readWhole(text(value), number) || !(number >= 0.001 && number <= kMaximumSeconds)) {
    failNeeding("a number of seconds from 0.001 to 86400");
  }
  return std::chrono::milliseconds(std::lround(number * 1000));
}

/// Returns nullopt if the word is none of these six.
std::optional<bool> readYesOrNo(const std::string& lowerCaseWord) {
  for (const char* yes : {"yes", "1", "true"}) {
    if (lowerCaseWord == yes) {
      return true;
    }
  }
  for (const char* no : {"no", "0", "false"}) {
    if (lowerCaseWord == no) {
      return false;
    }
  }
  return std::nullopt;
}

bool yesOrNo(const PropertyList& value) {
  const std::optional<bool> answer = readYesOrNo(lowerCase(text(value)));
  if (!answer) {
    failNeeding("YES or NO");
  }
  return *answer;
}

std::optional<bool> yesOrNoOrAuto(const PropertyList& value) {
  const std::string word = lowerCase(text(value));
  const std::optional<bool> answer = readYesOrNo(word);
  if (!answer && word != "auto") {
    failNeeding("YES, NO or AUTO");
  }
  return answer;
}

/// Returns an absolute path without a slash at its end. A relative path is refused: it would depend
/// on where the process was started.
std::string path(const PropertyList& value) {
  std::string result = text(value);
  if (result.empty() || result.front() != '/') {
    failNeeding("a path that begins with \"/\"");
  }
  while (result.size() > 1 && result.back() == '/') {
    result.pop_back();
  }
  return result;
}

std::string hostName(const PropertyList& value) {
  const std::string& name = text(value);
  const bool blank = std::any_of(name.begin(), name.end(), [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == '\x7f';
  });
  if (name.empty() || name.size() > kMaximumHostNameBytes || blank) {
    failNeeding("a host name without blanks, of 1 to 255 bytes,");
  }
  return name;
}

std::string hostAddress(const PropertyList& value) {
  const std::string& address = text(value);
  // 0.x.x.x is not the address of a host, nor is one from 224.0.0.0 on: multicast and above.
  int first = 0;
  std::from_chars(address.data(), address.data() + address.size(), first);
  if (!isIPv4Address(address) || first == 0 || first >= 224) {
    failNeeding("the IPv4 address of a host");
  }
  return address;
}

std::string ethernetAddress(const PropertyList& value) {
  const std::string& given = text(value);
  constexpr std::string_view kForm = "xx:xx:xx:xx:xx:xx";
  const bool wellFormed =
      given.size() == kForm.size() &&
      std::equal(given.begin(), given.end(), kForm.begin(),
                 [](char c, char form) { return form == 'x' ? hexValue(c) >= 0 : c == form; });
  if (!wellFormed) {
    failNeeding("a text of six two-digit hexadecimal groups joined by colons");
  }
  return lowerCase(given);
}

std::map<std::string, std::string, std::less<>> aliases(const PropertyList& value) {
  if (value.dictionary() == nullptr) {
    failNeeding("a dictionary of addresses and their aliases");
  }
  std::map<std::string, std::string, std::less<>> result;
  for (const auto& [address, alias] : *value.dictionary()) {
    if (address.empty() || alias.string() == nullptr || alias.string()->empty()) {
      throw NSException("the alias of " + describeString(address) + " must be a text");
    }
    result.emplace(address, *alias.string());
  }
  return result;
}

std::vector<IPNetwork> networks(const PropertyList& value) {
  if (value.array() == nullptr) {
    failNeeding("a list of networks");
  }
  std::vector<IPNetwork> result;
  for (const PropertyList& each : *value.array()) {
    const auto network = IPNetwork::parse(text(each));
    if (!network) {
      throw NSException(
          describeString(text(each)) +
          " is no network: an address, \"/\" and the number of leading bits that count "
          "are needed, and no bits of the address behind these");
    }
    result.push_back(*network);
  }
  return result;
}

struct Row {
  const char* key;
  void (*apply)(Settings& settings, const PropertyList& value);
};

// clang-format off
constexpr Row kRows[] = {
    {"BasePort", [](Settings& s, const PropertyList& v) { s.basePort = wholeNumber(v, 2, 65534); }},
    {"InstallationDirectory", [](Settings& s, const PropertyList& v) { s.installationDirectory = path(v); }},
    {"ServerConfigDirectory", [](Settings& s, const PropertyList& v) { s.serverConfigDirectory = path(v); }},
    {"UserPreferenceFile", [](Settings& s, const PropertyList& v) { s.userPreferenceFile = path(v); }},
    {"NameServerHostFile", [](Settings& s, const PropertyList& v) { s.nameServerHostFile = path(v); }},
    {"LockDirectory", [](Settings& s, const PropertyList& v) { s.lockDirectory = path(v); }},
    {"LocalAccessOnly", [](Settings& s, const PropertyList& v) { s.localAccessOnly = yesOrNo(v); }},
    {"BonjourDisabled", [](Settings& s, const PropertyList& v) { s.bonjourDisabled = yesOrNo(v); }},
    {"DynamicAddress", [](Settings& s, const PropertyList& v) { s.dynamicAddress = yesOrNoOrAuto(v); }},
    {"HostName", [](Settings& s, const PropertyList& v) { s.hostName = hostName(v); }},
    {"Address", [](Settings& s, const PropertyList& v) { s.address = hostAddress(v); }},
    {"EthernetAddress", [](Settings& s, const PropertyList& v) { s.ethernetAddress = ethernetAddress(v); }},
    {"Aliases", [](Settings& s, const PropertyList& v) { s.aliases = aliases(v); }},
    {"MaxMessageBytes", [](Settings& s, const PropertyList& v) {
       s.maxMessageBytes = wholeNumber<std::size_t>(v, 1, std::numeric_limits<std::uint32_t>::max()); }},
    {"MaxConnections", [](Settings& s, const PropertyList& v) {
       s.maxConnections = wholeNumber(v, 0, std::numeric_limits<int>::max()); }},
    {"MaxRegistryBytes", [](Settings& s, const PropertyList& v) {
       s.maxRegistryBytes = wholeNumber(v, kLeastRegistryBytes, kMostRegistryBytes); }},
    {"MaxUnfinishedBytes", [](Settings& s, const PropertyList& v) {
       s.maxUnfinishedBytes = wholeNumber<std::size_t>(v, 1, kMaximumBytes); }},
    {"MaxUnsentBytes", [](Settings& s, const PropertyList& v) {
       s.maxUnsentBytes = wholeNumber<std::size_t>(v, 1, kMaximumBytes); }},
    {"PartialMessageTimeout", [](Settings& s, const PropertyList& v) { s.partialMessageTimeout = seconds(v); }},
    {"Threads", [](Settings& s, const PropertyList& v) { s.threads = wholeNumber(v, 0, kMaximumThreads); }},
    {"AllowedNetworks", [](Settings& s, const PropertyList& v) { s.allowedNetworks = networks(v); }},
    {"RemoteControl", [](Settings& s, const PropertyList& v) { s.remoteControl = yesOrNo(v); }},
    {"RemoteRegistration", [](Settings& s, const PropertyList& v) { s.remoteRegistration = yesOrNo(v); }},
    {"MaxLogBytes", [](Settings& s, const PropertyList& v) {
       s.maxLogBytes = wholeNumber<std::int64_t>(v, 0, std::numeric_limits<std::int64_t>::max()); }},
    {"SurviveCrashes", [](Settings& s, const PropertyList& v) { s.surviveCrashes = yesOrNo(v); }},
};
// clang-format on

}  // namespace

std::vector<std::string_view> settingKeys() {
  std::vector<std::string_view> keys;
  for (const Row& row : kRows) {
    keys.emplace_back(row.key);
  }
  return keys;
}

bool applySetting(Settings& settings, std::string_view key, const PropertyList& value) {
  const auto row = std::find_if(std::begin(kRows), std::end(kRows),
                                [&](const Row& each) { return key == each.key; });
  if (row == std::end(kRows)) {
    return false;
  }
  row->apply(settings, value);
  return true;
}

}  // namespace sorvane
