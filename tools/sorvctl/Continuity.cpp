#include "sorvctl/Continuity.h"

#include <charconv>
#include <string_view>

namespace sorvctl {

using sorvane::Message;

namespace {

bool read(const Message& reply, std::string_view key, std::uint64_t& number) {
  const std::string text = textOf(reply, key);
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

}  // namespace

std::optional<Continuity> readContinuity(Session& session) {
  const std::optional<Message> reply = session.ask(action("continuity"));
  Continuity told;
  if (!reply || !read(*reply, "upgrades", told.upgrades) ||
      !read(*reply, "crashes", told.crashes) || !read(*reply, "attempts", told.attempts)) {
    return std::nullopt;
  }
  told.instance = textOf(*reply, "instance");
  told.refused = textOf(*reply, "refused");
  return told;
}

}  // namespace sorvctl
