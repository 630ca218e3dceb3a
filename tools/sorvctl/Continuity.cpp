#include "sorvctl/Continuity.h"

#include <charconv>
#include <string_view>
#include <system_error>

#include "platform/TimeSource.h"

namespace sorvctl {

using sorvane::Message;

namespace {

template <typename Number>
bool read(const Message& reply, std::string_view key, Number& number) {
  const std::string text = textOf(reply, key);
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

/// Reads seconds since the reference date, of this or the next centuries.
bool read(const Message& reply, std::string_view key, std::chrono::system_clock::time_point& time) {
  constexpr double kMost = 1e10;
  double seconds = 0;
  if (!read<double>(reply, key, seconds) || !(seconds >= 0 && seconds <= kMost)) {
    return false;
  }
  time = std::chrono::system_clock::time_point(std::chrono::round<std::chrono::microseconds>(
      std::chrono::duration<double>(seconds + sorvane::kReferenceDateUnixSeconds)));
  return true;
}

}  // namespace

std::optional<Continuity> continuityOf(const Message& reply) {
  Continuity told;
  if (!read(reply, "upgrades", told.upgrades) || !read(reply, "crashes", told.crashes) ||
      !read(reply, "attempts", told.attempts) || !read(reply, "begun", told.begun) ||
      !read(reply, "process", told.process)) {
    return std::nullopt;
  }
  told.instance = textOf(reply, "instance");
  told.refused = textOf(reply, "refused");
  return told;
}

std::optional<Continuity> readContinuity(Session& session) {
  const std::optional<Message> reply = session.ask(action("continuity"));
  return reply ? continuityOf(*reply) : std::nullopt;
}

bool isAnswerOf(const sorvane::SystemProcess& process, const Continuity& told) {
  if (told.process == process.number) {
    return true;
  }
  const auto other = sorvane::systemProcess(told.process);
  return other && other->parent == process.number;
}

}  // namespace sorvctl
