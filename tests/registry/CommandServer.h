// The commands alone: a server that dispatches every request, without locks and without a socket.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/TimeSource.h"
#include "registry/Dispatch.h"
#include "registry/Peer.h"
#include "registry/Registry.h"
#include "registry/WatchCommands.h"
#include "support/ConsoleLines.h"

namespace sorvane::test {

inline std::vector<std::string> loggedLines;
inline std::atomic<double> movedTime = 1000.0;

class CommandServer : public NetConnectionDelegate {
 public:
  explicit CommandServer(const RegistryLimits& limits = {}) : registry(limits) {}

  void startCommunication(NetConnection& connection) override {
    connection.setContextObject(std::make_shared<PortDescriptor>());
  }
  /// Writes what the command wants written, then raises what it raised.
  Reply deliverCommunication(const Message& request, NetConnection& sender) override {
    static const std::string version = "9.8.7 (build #6) 1.2.2003";
    static const std::string system = "test system";
    static constexpr ServerServices services{
        .sorvaneVersion = []() -> const std::string& { return version; },
        .platformName = []() -> const std::string& { return system; },
    };
    Notes notes;
    CommandContext context{registry, continuity, request, sender, sender.replyWriter(),
                           host,     services,   verbose, notes};
    const DispatchRule& rule = ruleFor(request);
    lastMayWait = rule.mayWait(context);
    Outcome outcome = Reply::none();
    try {
      if (prepare(rule, context)) {
        outcome = rule.command(context);
      }
    } catch (const NSException&) {
      write(notes, request);
      throw;
    }
    write(notes, request);
    lastKind = outcome.kind();
    lastLogLine = outcome.logLine();
    return outcome.reply();
  }
  Reply deliverHeld(NetConnection& sender, bool isLastTime) override {
    return answerAwaiting(registry, sender, sender.replyWriter(), isLastTime);
  }
  void endCommunication(NetConnection& connection) override {
    registry.watchingPortsList().remove(*connection.context<PortDescriptor>());
  }

  void write(const Notes& notes, const Message& request) {
    EXPECT_TRUE(!notes.any() || lastMayWait)
        << "what is written on a serving thread may hold it up";
    warnings.write(notes.warning);
    if (notes.logLine != nullptr) {
      loggedLines.push_back(notes.logLine(request, host));
    }
  }

  Registry registry;
  Continuity continuity;
  Warnings warnings;
  HostFacts host;
  bool verbose = false;
  bool lastMayWait = false;
  Outcome::Kind lastKind = Outcome::Kind::reply;
  std::string lastLogLine;
};

/// Makes the clock one that the test moves.
struct MovedClock {
  MovedClock() {
    movedTime = 1000.0;
    setTimeSource([] { return movedTime.load(); });
  }
};

/// A host of the test's own making, a clock that the test moves, and the lines that were written.
class CommandTest : public testing::Test {
 protected:
  CommandTest() {
    loggedLines.clear();
    hostIs("10.1.2.3", false);
  }

  void hostIs(std::string_view address, bool dynamic) {
    server_.host = {.name = "testhost",
                    .address = std::string(address),
                    .ethernetAddress = "00:11:22:33:44:55",
                    .hasOnlyLoopbackAddress = address == "127.0.0.1" && !dynamic,
                    .basePort = 5000,
                    .aliasOf = [](std::string_view asker) {
                      return asker == "10.9.9.9" ? std::optional<std::string>("outside")
                                                 : std::nullopt;
                    }};
  }

  ConsoleLines console_;
  MovedClock clock_;  // before the server, which asks it when it is made
  CommandServer server_;
};

}  // namespace sorvane::test
