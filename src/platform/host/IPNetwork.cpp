#include "platform/IPNetwork.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>

namespace sorvane {
namespace {

constexpr std::array<std::uint8_t, 12> kIPv4Prefix = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
constexpr unsigned kIPv4PrefixBits = 96;
constexpr unsigned kAllBits = 128;

/// Returns the lowest `count` bits of a byte.
unsigned lowestBits(std::uint8_t byte, unsigned count) { return byte & ((1U << count) - 1U); }

bool endsInZeroBits(const std::array<std::uint8_t, 16>& bytes, unsigned prefixBits) {
  const std::size_t whole = (prefixBits + 7) / 8;
  return lowestBits(prefixBits == 0 ? 0 : bytes[whole - 1], whole * 8 - prefixBits) == 0 &&
         std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(whole), bytes.end(),
                     [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

std::optional<IPAddress> IPAddress::parse(const std::string& text) {
  sockaddr_in v4{};
  v4.sin_family = AF_INET;
  if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
    return of(reinterpret_cast<const sockaddr&>(v4));
  }
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) {
    return of(reinterpret_cast<const sockaddr&>(v6));
  }
  return std::nullopt;
}

std::optional<IPAddress> IPAddress::of(const sockaddr& address) {
  IPAddress result;
  switch (address.sa_family) {
    case AF_INET:
      std::copy(kIPv4Prefix.begin(), kIPv4Prefix.end(), result.bytes_.begin());
      memcpy(&result.bytes_[kIPv4Prefix.size()],
             &reinterpret_cast<const sockaddr_in&>(address).sin_addr, sizeof(in_addr));
      return result;
    case AF_INET6:
      memcpy(result.bytes_.data(), &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr,
             sizeof(in6_addr));
      return result;
    default:
      return std::nullopt;
  }
}

bool IPAddress::isIPv4() const {
  return std::equal(kIPv4Prefix.begin(), kIPv4Prefix.end(), bytes_.begin());
}

bool IPAddress::isLoopback() const {
  if (isIPv4()) {
    return bytes_[kIPv4Prefix.size()] == 127;
  }
  return memcmp(bytes_.data(), &in6addr_loopback, bytes_.size()) == 0;
}

std::optional<IPNetwork> IPNetwork::parse(const std::string& text) {
  const std::size_t slash = text.find('/');
  const auto first = IPAddress::parse(text.substr(0, slash));
  if (!first) {
    return std::nullopt;
  }
  const bool isWrittenAsIPv4 = text.find(':') == std::string::npos;
  const unsigned before = isWrittenAsIPv4 ? kIPv4PrefixBits : 0;
  unsigned bits = kAllBits - before;
  if (slash != std::string::npos) {
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data() + slash + 1, end, bits);
    if (failure != std::errc() || stop != end || bits > kAllBits - before) {
      return std::nullopt;
    }
  }
  if (!endsInZeroBits(first->bytes(), before + bits)) {
    return std::nullopt;
  }
  return IPNetwork(*first, before + bits);
}

bool IPNetwork::contains(const IPAddress& address) const {
  if (address.isIPv4() && prefixBits_ < kIPv4PrefixBits) {
    return false;
  }
  const std::size_t whole = prefixBits_ / 8;
  const unsigned rest = prefixBits_ % 8;
  const auto& ours = first_.bytes();
  const auto& theirs = address.bytes();
  return std::equal(ours.begin(), ours.begin() + static_cast<std::ptrdiff_t>(whole),
                    theirs.begin()) &&
         (rest == 0 || ours[whole] >> (8 - rest) == theirs[whole] >> (8 - rest));
}

}  // namespace sorvane
