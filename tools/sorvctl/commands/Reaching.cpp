// "wait", "url" and "exec": what scripts and units do with a database.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>

#include "sorvctl/Arguments.h"
#include "sorvctl/ChangeWait.h"
#include "sorvctl/Command.h"
#include "sorvctl/DatabaseList.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Placeholders.h"
#include "sorvctl/PortRequests.h"
#include "sorvctl/Progress.h"
#include "sorvctl/Seconds.h"
#include "sorvctl/Session.h"

namespace sorvctl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kNotStarted = 127;
constexpr milliseconds kBetweenAttempts{500};   // to reach the name server
constexpr milliseconds kBetweenQuestions{200};  // to one that does not tell of changes at once
constexpr milliseconds kLongestLook{60000};     // of a wait without a time limit

/// What a database is waited for.
struct Wanted {
  std::string name;
  std::optional<std::string> state;
  bool gone = false;
  std::optional<double> seconds;

  [[nodiscard]] std::string words() const {
    if (state) {
      return "state \"" + *state + "\" of \"" + name + "\"";
    }
    return gone ? "the end of \"" + name + "\"" : "\"" + name + "\"";
  }
};

bool isThere(Session& session, DatabaseReader& databases, const Wanted& wanted) {
  if (!wanted.state) {
    return portOfReply(session.askForDictionary(findRequest(session, wanted.name))).has_value() !=
           wanted.gone;
  }
  for (const Database& each : databases.read(session)) {
    if (each.port.name == wanted.name) {
      return each.state == *wanted.state;
    }
  }
  return false;
}

/// A wait that may begin before the name server does, and that outlives its restarts.
class Waiting {
 public:
  Waiting(Session& session, const Wanted& wanted)
      : session_(session),
        wanted_(wanted),
        end_(limited(session, wanted)),
        changes_(session, kBetweenQuestions) {}

  /// Returns when it has come. Throws a Failure when the time is over: of status `saidNo` when the
  /// name server answered last, and of `notReached` when it did not.
  void untilThere() {
    const Progress progress("waiting for " + wanted_.words());
    while (!look()) {
      if (isOver() && answered_) {
        throw Failure(Status::saidNo, "the time is over: still waiting for " + wanted_.words());
      }
      if (isOver()) {
        throw Failure(Status::notReached, unreached_);
      }
    }
  }

 private:
  /// Returns when the time is over, and lets nothing that the session asks take longer.
  static std::optional<Clock::time_point> limited(Session& session, const Wanted& wanted) {
    if (!wanted.seconds) {
      return std::nullopt;
    }
    session.endBy(Clock::now() + inMilliseconds(*wanted.seconds));
    return session.end();
  }

  [[nodiscard]] milliseconds left() const {
    return end_ ? std::min(std::chrono::ceil<milliseconds>(*end_ - Clock::now()), kLongestLook)
                : kLongestLook;
  }
  [[nodiscard]] bool isOver() const { return left() <= milliseconds(0); }

  /// Waits for a change and looks whether it was the wanted one.
  bool look() {
    try {
      // After a question that failed, nothing tells once more of the change that led to it.
      if (!isDue_ && changes_.wait(left()) != ChangeWait::End::changed) {
        if (!answered_ && unreached_.empty()) {
          unreached_ = "the name server of " + session_.hostName() + " does not answer";
        }
        return false;
      }
      isDue_ = true;
      const bool there = isThere(session_, databases_, wanted_);
      isDue_ = false;
      answered_ = true;
      unreached_.clear();
      return there;
    } catch (const Failure& failure) {
      if (failure.status() != Status::notReached) {
        throw;
      }
      // A question that the end of the time has cut short tells nothing about the name server.
      if (!isOver() || !answered_) {
        notReached(failure.what());
      }
      return false;
    }
  }

  void notReached(const std::string& reason) {
    const bool isNew = reason != unreached_;
    answered_ = false;
    unreached_ = reason;
    if (isOver()) {
      return;
    }
    if (isNew) {
      printError(reason + "; trying again");
    }
    std::this_thread::sleep_for(std::min(left(), kBetweenAttempts));
  }

  Session& session_;
  const Wanted& wanted_;
  const std::optional<Clock::time_point> end_;
  ChangeWait changes_;
  DatabaseReader databases_;
  bool isDue_ = false;     // a change was told, and it was not looked what it was
  bool answered_ = false;  // the last question that was not cut short
  std::string unreached_;  // why it was not answered
};

Target find(Session& session, const std::string& name) {
  const std::optional<Port> port =
      portOfReply(session.askForDictionary(findRequest(session, name)));
  if (!port) {
    throw Failure(Status::saidNo, "no port is registered as \"" + name + "\"");
  }
  return targetOf(session, *port);
}

/// What the server tells can do no harm on a terminal, and the rest is the caller's own.
int url(Session& session, const std::string& name, const std::string& format) {
  const std::string text = filledIn(format, find(session, name));
  printText(session, {{"name", name}, {"url", text}}, text + "\n");
  return 0;
}

/// Becomes the program, so that signals and statuses are the program's own.
int exec(Session& session, const std::string& name, std::vector<std::string> program) {
  const Target target = find(session, name);
  std::vector<char*> arguments;
  for (std::string& argument : program) {
    argument = filledIn(argument, target);
    arguments.push_back(argument.data());
  }
  arguments.push_back(nullptr);
  session.close();  // the program must not inherit the connection
  execvp(arguments[0], arguments.data());
  printError(program[0] + ": " + std::strerror(errno));
  return kNotStarted;
}

Handler declareWait(CLI::App& command) {
  auto wanted = std::make_shared<Wanted>();
  addDatabaseName(command, wanted->name);
  auto* const state = command.add_option("--state", wanted->state, "Wait until it has this state");
  command.add_flag("--gone", wanted->gone, "Wait until no such database is registered")
      ->excludes(state);
  command
      .add_option("--timeout", wanted->seconds,
                  "Seconds to wait (default: for ever); if the time is over, the status is 1, or 3 "
                  "if the name server is not reached at the end")
      ->check(CLI::Range(0.001, 86400.0));
  return [wanted](Session& session) {
    Waiting(session, *wanted).untilThere();
    return 0;
  };
}

Handler declareUrl(CLI::App& command) {
  struct Arguments {
    std::string name;
    std::string format = "tcp://{host}:{number}/";
  };
  auto arguments = std::make_shared<Arguments>();
  addDatabaseName(command, arguments->name);
  command.add_option("--format", arguments->format,
                     "What to print, with {host}, {number} and {address} for the host to connect "
                     "to, the port number, and the address by which the name server's host was "
                     "called (default: tcp://{host}:{number}/)");
  return [arguments](Session& session) { return url(session, arguments->name, arguments->format); };
}

Handler declareExec(CLI::App& command) {
  struct Arguments {
    std::string name;
    std::vector<std::string> program;
  };
  auto arguments = std::make_shared<Arguments>();
  addDatabaseName(command, arguments->name);
  command
      .add_option("COMMAND", arguments->program,
                  "Program to run in place of sorvctl, with its arguments, after \"--\"; in them "
                  "{host}, {number} and {address} are replaced as in \"sorvctl url\"; the status "
                  "is that of the program, or 127 when it cannot be started")
      ->required();
  return
      [arguments](Session& session) { return exec(session, arguments->name, arguments->program); };
}

}  // namespace

std::vector<Command> commands::reaching() {
  return {
      {"wait", "Wait until a database is registered, has a state, or is gone",
       "sorvctl wait db1 --state running --timeout 60", &declareWait},
      {"url", "Print where a database is reached", "sorvctl url db1 --format '{host} {number}'",
       &declareUrl},
      {"exec", "Run a program with the host and port of a database",
       "sorvctl exec db1 -- my-client --host {host} --port {number}", &declareExec},
  };
}

}  // namespace sorvctl
