#include "sorvctl/Placeholders.h"

#include <algorithm>
#include <charconv>

#include "platform/Ascii.h"
#include "sorvctl/Failure.h"
#include "sorvctl/HostAndPort.h"

namespace sorvctl {

namespace {

constexpr std::size_t kLongestHost = 255;  // of a name of the Domain Name System

bool isLoopback(std::string_view host) {
  return host.empty() || sorvane::equalIgnoringCase(host, "localhost") || host == "::1" ||
         host.starts_with("127.");
}

/// Whether a text consists of what names and addresses of hosts consist of.
bool canBeHost(std::string_view text) {
  return !text.empty() && text.size() <= kLongestHost && text.front() != '-' &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return sorvane::isAsciiLetterOrDigit(c) ||
                  std::string_view("-._:%").find(c) != std::string_view::npos;
         });
}

bool canBePort(std::string_view text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end && number >= 1 && number <= 65535;
}

void expect(bool right, const char* what, const std::string& text) {
  if (!right) {
    throw Failure(Status::saidNo, std::string("the server tells the ") + what + " \"" + text +
                                      "\", which cannot be one");
  }
}

}  // namespace

Target targetOf(const Session& session, const Port& port) {
  const Target target{isLoopback(port.host) ? session.hostName() : port.host, port.number,
                      port.address.empty() ? session.hostName() : port.address};
  expect(canBeHost(target.host), "host", target.host);
  expect(canBePort(target.number), "port number", target.number);
  expect(canBeHost(target.address), "address", target.address);
  return target;
}

std::string filledIn(std::string_view text, const Target& target) {
  const struct {
    std::string_view name;
    const std::string& value;
  } placeholders[] = {
      {"{host}", target.host}, {"{number}", target.number}, {"{address}", target.address}};
  std::string result;
  while (!text.empty()) {
    const auto* const found =
        std::find_if(std::begin(placeholders), std::end(placeholders),
                     [text](const auto& each) { return text.starts_with(each.name); });
    if (found == std::end(placeholders)) {
      result += text.front();
      text.remove_prefix(1);
      continue;
    }
    text.remove_prefix(found->name.size());
    const bool inUrl = result.ends_with("//") || text.starts_with(':');
    result += inUrl ? inBrackets(found->value) : found->value;
  }
  return result;
}

}  // namespace sorvctl
