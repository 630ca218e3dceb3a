#include "sorvane/client.h"

#include <algorithm>

#include "client/Changes.h"
#include "client/Texts.h"
#include "client/net/Connection.h"

namespace sorvane::client {
namespace detail {

/// What a Client has.
class Session {
 public:
  explicit Session(const NameServer& server) : connection(server), host(server.host) {}

  Connection connection;
  const std::string host;

  /// The connection, open. One that has ended unnoticed is opened again.
  Result<void> ready() {
    if (!connection.isQuiet()) {
      connection.close();
    }
    return connection.open();
  }

  Result<Reply> ask(const Request& request) {
    const auto opened = ready();
    return opened ? connection.ask(request) : opened.error();
  }

  /// Asks for a change whose reply says under "result" whether it was made.
  Result<void> change(const Request& request, const std::string& refusal) {
    const auto reply = ask(request);
    if (!reply) {
      return reply.error();
    }
    const auto result = reply->text("result");
    if (result == "success") {
      return {};
    }
    if (reply->isDictionary() && !result) {
      return Error{ErrorCode::unsupported, "the name server lacks this command"};
    }
    return Error{ErrorCode::refused, refusal};
  }

  /// The databases with what is known of each, or with their states alone.
  Result<std::vector<Entry>> list(bool statesAreEnough) {
    if (const auto opened = ready(); !opened) {
      return opened.error();
    }
    Picture picture([](const Change&) {});
    Changes changes;
    auto brought = changes.bringByPages(picture, connection);
    if (brought) {
      return picture.entries();
    }
    if (brought.error().code != ErrorCode::unsupported) {
      return brought.error();
    }
    return statesAreEnough ? listStates(connection) : listByNames(connection);
  }
};

}  // namespace detail

using detail::Request;

Result<Client> Client::connect(const NameServer& server) {
  if (auto checked = detail::checkServer(server); !checked) {
    return checked.error();
  }
  auto session = std::make_unique<detail::Session>(server);
  if (auto opened = session->connection.open(); !opened) {
    return opened.error();
  }
  return Client(std::move(session));
}

Client::Client(std::unique_ptr<detail::Session> session) : session_(std::move(session)) {}
Client::~Client() = default;
Client::Client(Client&& other) noexcept = default;
Client& Client::operator=(Client&& other) noexcept = default;

Result<void> Client::ping() {
  const auto reply = session_->ask(Request().with("ping", ""));
  if (!reply) {
    return reply.error();
  }
  if (!reply->isDictionary() || !reply->entries().empty()) {
    return Error{ErrorCode::protocol, "the reply is none to a ping"};
  }
  return {};
}

Result<Entry> Client::find(std::string_view name) {
  if (auto checked = detail::checkName(name); !checked) {
    return checked.error();
  }
  // How this host calls itself is known when the connection is there.
  if (const auto opened = session_->ready(); !opened) {
    return opened.error();
  }
  const auto reply = session_->connection.ask(detail::findRequest(session_->connection, name));
  return reply ? detail::readFound(*reply, name) : reply.error();
}

std::string Client::reachableHost(const Entry& entry) const {
  return detail::isLoopbackHost(entry.host) ? session_->host : entry.host;
}

Result<std::vector<Entry>> Client::list() {
  auto listed = session_->list(false);
  if (listed) {
    std::sort(listed->begin(), listed->end(),
              [](const Entry& one, const Entry& other) { return one.name < other.name; });
  }
  return listed;
}

Result<std::vector<DatabaseState>> Client::states() {
  auto listed = session_->list(true);
  if (!listed) {
    return listed.error();
  }
  std::vector<DatabaseState> states;
  states.reserve(listed->size());
  for (Entry& each : *listed) {
    states.push_back(
        {std::move(each.name), each.state.empty() ? "running" : std::move(each.state)});
  }
  std::sort(states.begin(), states.end(),
            [](const auto& one, const auto& other) { return one.name < other.name; });
  return states;
}

Result<void> Client::setState(std::string_view name, std::string_view state) {
  if (auto checked = detail::checkTexts(name, state); !checked) {
    return checked;
  }
  return session_->change(detail::stateRequest(name, state),
                          "the name server has not taken the state");
}

Result<void> Client::setAlert(std::string_view name, std::string_view text) {
  if (auto checked = detail::checkTexts(name, text); !checked) {
    return checked;
  }
  return session_->change(detail::alertRequest(name, text),
                          "the name server has not taken the alert");
}

Result<HostInfo> Client::hostInfo() {
  if (const auto opened = session_->ready(); !opened) {
    return opened.error();
  }
  const auto reply = session_->connection.ask(
      Request::action("hostInfo").with("hostAddress", session_->connection.ownHost().address));
  if (!reply) {
    return reply.error();
  }
  const auto result = reply->text("result");
  if (!result || result == "local only") {
    return Error{ErrorCode::refused, "the name server tells this host nothing about its own"};
  }
  HostInfo info;
  std::string* const members[] = {&info.name, &info.hardwareAddress, &info.address, &info.version,
                                  &info.platform};
  std::string_view rest = *result;
  for (std::string* const member : members) {
    // The last one has what is left.
    const std::size_t end = member == &info.platform ? rest.size() : rest.find('|');
    if (end == std::string_view::npos) {
      return Error{ErrorCode::protocol, "the name server's reply about its host has too few parts"};
    }
    *member = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return info;
}

Result<void> Client::forget(std::string_view name) {
  if (auto checked = detail::checkName(name); !checked) {
    return checked;
  }
  return session_->change(Request::action("forgetPort").with("name", name),
                          "\"" + std::string(name) + "\" was not left behind");
}

}  // namespace sorvane::client
