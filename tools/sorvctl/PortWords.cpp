#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>

#include "platform/Utf8.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/PortRequests.h"
#include "sorvctl/Session.h"
#include "sorvctl/Words.h"

namespace sorvctl {

using sorvane::Message;

namespace {

constexpr std::size_t kLongestKey = 65535;

int ping(Session& session) {
  session.connection();
  const auto begin = std::chrono::steady_clock::now();
  const Message reply = session.askForDictionary({{"ping", "ping"}});
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
  if (!reply.entries().empty()) {
    throw Failure(Status::saidNo, "what listens there is no name server");
  }
  if (session.json()) {
    printJson({{"host", session.hostName()},
               {"port", session.basePort()},
               {"milliseconds", took.count()}});
  } else {
    print(fmt::format("{} port {} answers ({:.2f} ms)\n", escaped(session.hostName()),
                      session.basePort(), took.count()));
  }
  return 0;
}

int find(Session& session, const std::string& name) {
  const std::optional<Port> port =
      portOfReply(session.askForDictionary(findRequest(session, name)));
  if (!port) {
    throw Failure(Status::saidNo, "no port is registered as \"" + name + "\"");
  }
  if (session.json()) {
    printJson({{"name", port->name},
               {"number", port->number},
               {"host", port->host},
               {"address", port->address},
               {"type", port->type}});
  } else {
    print(pairLines({{"name", port->name},
                     {"number", port->number},
                     {"host", port->host},
                     {"address", port->address},
                     {"type", port->type}}));
  }
  return 0;
}

Message requestOfWords(const std::vector<std::string>& words) {
  Message request;
  for (const std::string& word : words) {
    const std::size_t end = word.find('=');
    const std::string_view key = std::string_view(word).substr(0, end);
    if (end == std::string::npos) {
      throw Failure(Status::wrongUsage, "\"" + word + "\" is not KEY=VALUE");
    }
    if (key.size() > kLongestKey || !sorvane::isUtf8(key)) {
      throw Failure(Status::wrongUsage, "a key is UTF-8 of at most 65535 bytes");
    }
    if (request.contains(key)) {
      throw Failure(Status::wrongUsage, "the key \"" + std::string(key) + "\" comes twice");
    }
    request.setText(key, std::string_view(word).substr(end + 1));
  }
  return request;
}

int send(Session& session, const std::vector<std::string>& words) {
  const Message reply = session.askForDictionary(requestOfWords(words));
  if (session.json()) {
    printJson(jsonOfMessage(reply));
    return 0;
  }
  std::vector<std::pair<std::string, std::string>> lines;
  for (const sorvane::MessageEntry& entry : reply.entries()) {
    lines.emplace_back(entry.key, readable(entry.value));
  }
  print(lines.empty() ? "(an empty dictionary)\n" : pairLines(lines));
  return 0;
}

}  // namespace

Handler declarePing(CLI::App& /*word*/) { return &ping; }

Handler declareFind(CLI::App& word) {
  auto name = std::make_shared<std::string>();
  word.add_option("NAME", *name, "Name under which it is registered")->required();
  return [name](Session& session) { return find(session, *name); };
}

Handler declareSend(CLI::App& word) {
  auto words = std::make_shared<std::vector<std::string>>();
  word.add_option("KEY=VALUE", *words, "Entries of the request; none: the empty request");
  return [words](Session& session) { return send(session, *words); };
}

}  // namespace sorvctl
