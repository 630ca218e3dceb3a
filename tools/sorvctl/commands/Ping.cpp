#include <fmt/format.h>

#include <chrono>
#include <nlohmann/json.hpp>

#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::Message;

namespace {

int ping(Session& session) {
  session.connection();
  const auto begin = std::chrono::steady_clock::now();
  const Message reply = session.askForDictionary({{"ping", "ping"}});
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
  if (!reply.entries().empty()) {
    throw Failure(Status::saidNo, "what listens there is no name server");
  }
  printLine(
      session,
      {{"host", session.hostName()}, {"port", session.basePort()}, {"milliseconds", took.count()}},
      fmt::format("{} port {} answers ({:.2f} ms)", session.hostName(), session.basePort(),
                  took.count()));
  return 0;
}

Handler declarePing(CLI::App& /*command*/) { return &ping; }

}  // namespace

std::vector<Command> commands::ping() {
  return {
      {"ping", "Ask whether the name server answers", "sorvctl --host hostB ping", &declarePing}};
}

}  // namespace sorvctl
