#include "support/RequestLines.h"

#include <algorithm>

namespace sorvane::fuzz {
namespace {

std::string_view takeUpTo(char end, std::string_view& text) {
  const std::string_view taken = text.substr(0, text.find(end));
  text.remove_prefix(std::min(text.size(), taken.size() + 1));
  return taken;
}

double secondsOf(std::string_view digits) {
  double seconds = 0;
  for (const char digit : digits.substr(0, 5)) {
    seconds = digit >= '0' && digit <= '9' ? seconds * 10 + (digit - '0') : seconds;
  }
  return seconds;
}

}  // namespace

RequestLine takeLine(std::string_view& text) {
  std::string_view line = takeUpTo('\n', text);
  RequestLine taken;
  if (line.empty()) {
    return taken;
  }
  if (line[0] == '@') {
    taken.kind = RequestLine::Kind::clock;
    taken.seconds = secondsOf(line.substr(1));
    return taken;
  }
  taken.kind = RequestLine::Kind::close;
  taken.connection = static_cast<unsigned char>(line[0]) % kConnections;
  line.remove_prefix(1);
  while (!line.empty()) {
    const std::string_view field = takeUpTo(' ', line);
    const std::size_t mark = field.find_first_of("=:");
    if (mark != std::string_view::npos) {
      taken.kind = RequestLine::Kind::request;
      taken.entries.push_back(
          {std::string(field.substr(0, mark)), std::string(field.substr(mark + 1))});
      if (field[mark] == '=') {
        taken.entries.back().value += '\0';
      }
    }
  }
  return taken;
}

model::Request requestOf(const Entries& entries) {
  model::Request request;
  for (const auto& [key, value] : entries) {
    request[key] = textOf(value);
  }
  return request;
}

}  // namespace sorvane::fuzz
