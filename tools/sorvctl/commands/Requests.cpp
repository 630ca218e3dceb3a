#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>

#include "platform/Utf8.h"
#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::Message;

namespace {

constexpr std::size_t kLongestKey = 65535;

Message requestOf(const std::vector<std::string>& entries) {
  Message request;
  for (const std::string& entry : entries) {
    const std::size_t end = entry.find('=');
    const std::string_view key = std::string_view(entry).substr(0, end);
    if (end == std::string::npos) {
      throw Failure(Status::wrongUsage, "\"" + entry + "\" is not KEY=VALUE");
    }
    if (key.size() > kLongestKey || !sorvane::isUtf8(key)) {
      throw Failure(Status::wrongUsage, "a key is UTF-8 of at most 65535 bytes");
    }
    if (request.contains(key)) {
      throw Failure(Status::wrongUsage, "the key \"" + std::string(key) + "\" comes twice");
    }
    request.setText(key, std::string_view(entry).substr(end + 1));
  }
  return request;
}

int send(Session& session, const std::vector<std::string>& entries) {
  printMessage(session, session.askForDictionary(requestOf(entries)), "(an empty dictionary)");
  return 0;
}

Handler declareSend(CLI::App& command) {
  auto entries = std::make_shared<std::vector<std::string>>();
  command.add_option("ENTRY", *entries, "Entries of the request; none: the empty request")
      ->type_name("KEY=VALUE");
  return [entries](Session& session) { return send(session, *entries); };
}

}  // namespace

std::vector<Command> commands::requests() {
  return {
      {"send", "Send any request, its values as texts, and print the reply",
       "sorvctl send action=hostInfo hostAddress=localhost", &declareSend},
  };
}

}  // namespace sorvctl
