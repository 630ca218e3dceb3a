#include "sorvctl/HostAndPort.h"

#include <charconv>

#include "sorvctl/Failure.h"

namespace sorvctl {

namespace {

// A name server has a port of its own, and one below it for the launcher.
constexpr int kLowestPort = 2;
constexpr int kHighestPort = 65534;

[[noreturn]] void refuse(std::string_view text, const char* why) {
  throw Failure(Status::wrongUsage, "\"" + std::string(text) + "\" is no host: " + why);
}

int readPort(std::string_view text, std::string_view digits) {
  int port = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, port);
  if (error != std::errc() || stop != end || port < kLowestPort || port > kHighestPort) {
    refuse(text, "a port from 2 to 65534 stands behind the colon");
  }
  return port;
}

/// "[ADDRESS]", perhaps with ":PORT" behind it.
HostAndPort readBrackets(std::string_view text) {
  const std::size_t end = text.find(']');
  if (end == std::string_view::npos) {
    refuse(text, "the closing bracket is missing");
  }
  const std::string_view address = text.substr(1, end - 1);
  if (address.find(':') == std::string_view::npos) {
    refuse(text, "an IPv6 address stands in brackets");
  }
  const std::string_view rest = text.substr(end + 1);
  if (rest.empty()) {
    return {std::string(address), std::nullopt};
  }
  if (rest.front() != ':') {
    refuse(text, "nothing but a colon and a port stands behind the brackets");
  }
  return {std::string(address), readPort(text, rest.substr(1))};
}

}  // namespace

HostAndPort readHostAndPort(std::string_view text) {
  if (text.empty()) {
    refuse(text, "it is empty");
  }
  if (text.front() == '[') {
    return readBrackets(text);
  }
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon != text.rfind(':')) {
    return {std::string(text), std::nullopt};
  }
  if (colon == 0) {
    refuse(text, "a name or an address stands before the colon");
  }
  return {std::string(text.substr(0, colon)), readPort(text, text.substr(colon + 1))};
}

std::string inBrackets(const std::string& host) {
  return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

}  // namespace sorvctl
