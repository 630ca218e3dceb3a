#include "siege/Guest.h"

#include <algorithm>

namespace sorvane::siege {
namespace {

constexpr std::string_view kResult = "result";

std::string_view text(const std::optional<Message>& reply, std::string_view key) {
  return reply ? reply->text(key).value_or("") : std::string_view();
}

Message lookup(const std::string& name) { return Message({{"findPort", name}, {"portHost", "h"}}); }

}  // namespace

std::optional<Message> Guest::ask(Peer& peer, const Message& request) {
  const auto begin = std::chrono::steady_clock::now();
  const auto body = peer.ask(request);
  const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - begin;
  times_.push_back(took.count());
  ++requests_;
  if (!body || peer.lastReplyWasNil()) {
    return std::nullopt;
  }
  body_ = *body;
  Message reply;
  return reply.readBody(body_) == nullptr ? std::optional(reply.owned()) : std::nullopt;
}

void Guest::expect(bool well, const std::string& what) {
  if (!well && complaint_.empty()) {
    complaint_ = what;
  }
}

void Guest::visit(const std::string& name) {
  {
    Peer database(port_, test::kPatience);
    const auto number =
        ask(database, {{"newPort", ""}, {"portName", name}, {"portHost", "h"}, {"portType", "t"}});
    expect(number.has_value(), "no port number for " + name);
    expect(ask(database, {{"acceptPort", ""}}).has_value(), name + " was not accepted");
    const auto found = ask(tool_, lookup(name));
    expect(!text(found, "portNumber").empty() &&
               text(found, "portNumber") == text(number, "portNumber"),
           name + " was not found as it was registered");
    expect(text(ask(tool_, {{"action", "didPortsChange"}}), kResult) == "YES",
           "the coming of " + name + " was not told");
    expect(ask(database, {{"ping", ""}}).has_value(), "no reply to a ping of " + name);
  }
  expect(test::waitUntil([&] { return text(ask(tool_, lookup(name)), "notFound") == "notFound"; }),
         name + " was found after it had gone");
}

double Guest::takeSlowest() {
  if (times_.empty()) {
    return 0;
  }
  const auto hundredth = times_.begin() + static_cast<std::ptrdiff_t>(times_.size() * 99 / 100);
  std::nth_element(times_.begin(), hundredth, times_.end());
  const double slowest = *hundredth;
  times_.clear();
  return slowest;
}

}  // namespace sorvane::siege
