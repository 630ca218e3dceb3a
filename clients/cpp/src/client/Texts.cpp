#include "client/Texts.h"

namespace sorvane::client::detail {
namespace {

Error invalid(const char* reason) { return {ErrorCode::invalidArgument, reason}; }

}  // namespace

Result<void> checkServer(const NameServer& server) {
  if (server.host.empty() || !isText(server.host)) {
    return invalid("the host of the name server has no name");
  }
  if (server.port == 0) {
    return invalid("no name server has the port 0");
  }
  return {};
}

Result<void> checkName(std::string_view name) {
  if (name.empty()) {
    return invalid("the name is empty");
  }
  return checkText(name);
}

Result<void> checkText(std::string_view text) {
  if (!isText(text)) {
    return invalid("a text is too long, is not UTF-8 or contains a NUL");
  }
  return {};
}

Result<void> checkTexts(std::string_view name, std::string_view text) {
  const auto checked = checkName(name);
  return checked ? checkText(text) : checked;
}

bool isLoopbackHost(std::string_view host) {
  return host.empty() || host == "localhost" || host.starts_with("localhost.") ||
         host.starts_with("127.") || host == "::1";
}

Request stateRequest(std::string_view name, std::string_view state) {
  return Request::action("setDatabaseState").with("databaseName", name).with("state", state);
}

Request alertRequest(std::string_view name, std::string_view text) {
  return Request::action("setAlertState").with("databaseName", name).with("state", text);
}

}  // namespace sorvane::client::detail
