// What a name server is asked that cannot tell its changes.
#include <algorithm>
#include <map>

#include "client/Changes.h"

namespace sorvane::client::detail {
namespace {

// What is sent before the first reply is taken must fit into the buffers of the system.
constexpr std::size_t kMostAsked = 128;
constexpr std::size_t kMostBytesAsked = std::size_t{32} << 10;

struct NamedText {
  std::string_view name;
  std::string_view text;
};

/// Splits "NAME:TEXT|NAME:TEXT". The list escapes nothing: what follows a "|" and has no name of
/// its own in front of a ":" belongs to the text before it.
template <typename IsName>
std::vector<NamedText> split(std::string_view list, IsName isName) {
  std::vector<NamedText> parts;
  for (std::size_t begin = 0; begin < list.size();) {
    const std::size_t end = std::min(list.find('|', begin), list.size());
    const std::string_view part = list.substr(begin, end - begin);
    const std::size_t colon = part.find(':');
    if (colon != std::string_view::npos && isName(part.substr(0, colon))) {
      parts.push_back({part.substr(0, colon), part.substr(colon + 1)});
    } else if (!parts.empty()) {
      std::string_view& text = parts.back().text;
      text = {text.data(), static_cast<std::size_t>(list.data() + end - text.data())};
    }
    begin = end + 1;
  }
  return parts;
}

/// Asks for the entries from `next` on, as many as may go out together, and moves `next` behind
/// them. Those that are registered are appended to `found`.
Result<void> findSome(Connection& connection, const std::vector<Entry>& listed, std::size_t& next,
                      std::vector<Entry>& found) {
  const std::size_t first = next;
  for (std::size_t bytes = 0;
       next < listed.size() && next - first < kMostAsked && bytes < kMostBytesAsked; ++next) {
    const Request request = findRequest(connection, listed[next].name);
    bytes += request.frame().size();
    if (auto sent = connection.send(request); !sent) {
      return sent;
    }
  }
  for (std::size_t index = first; index < next; ++index) {
    const auto reply = connection.receive();
    if (!reply) {
      return reply.error();
    }
    auto entry = readFound(*reply, listed[index].name);
    if (entry) {
      entry->state = listed[index].state;
      entry->alert = listed[index].alert;
      found.push_back(std::move(*entry));
    } else if (entry.error().code != ErrorCode::notFound) {
      return entry.error();
    }
  }
  return {};
}

}  // namespace

Request findRequest(const Connection& connection, std::string_view name) {
  return Request()
      .with("findPort", name)
      .with("portHost", connection.ownHost().name)
      .with("portHostAddress", connection.ownHost().address);
}

Result<Entry> readFound(const Reply& reply, std::string_view name) {
  if (!reply.isDictionary()) {
    return Error{ErrorCode::refused, "the name server does not answer this host"};
  }
  if (reply.text("notFound")) {
    return Error{ErrorCode::notFound, "nothing is registered as \"" + std::string(name) + "\""};
  }
  const auto number = reply.text("portNumber");
  if (!number) {
    return Error{ErrorCode::protocol, "the name server's reply has no number"};
  }
  Entry entry;
  entry.name = name;
  entry.number = readPort(*number);
  entry.host = reply.text("portHost").value_or("");
  entry.type = reply.text("portType").value_or("");
  return entry;
}

Result<std::vector<Entry>> listStates(Connection& connection) {
  const auto reply = connection.ask(Request::action("databaseStates"));
  if (!reply) {
    return reply.error();
  }
  const auto states = reply->text("result");
  if (!states) {
    return Error{ErrorCode::refused, "the name server does not list its databases"};
  }
  std::vector<Entry> listed;
  std::map<std::string_view, std::size_t> places;
  for (const auto& [name, state] : split(*states, [](std::string_view) { return true; })) {
    if (places.emplace(name, listed.size()).second) {
      Entry& entry = listed.emplace_back();
      entry.name = name;
      entry.state = state;
    }
  }
  const std::string_view alerts = reply->text("alerts").value_or("");
  for (const auto& [name, alert] :
       split(alerts, [&](std::string_view name) { return places.contains(name); })) {
    listed[places[name]].alert = alert;
  }
  return listed;
}

Result<std::vector<Entry>> listByNames(Connection& connection) {
  auto listed = listStates(connection);
  if (!listed) {
    return listed;
  }
  std::vector<Entry> found;
  for (std::size_t next = 0; next < listed->size();) {
    if (const auto some = findSome(connection, *listed, next, found); !some) {
      return some.error();
    }
  }
  return found;
}

}  // namespace sorvane::client::detail
