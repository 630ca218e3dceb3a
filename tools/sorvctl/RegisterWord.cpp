// "register": a name that is held as long as this process, or the command that it starts, runs.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "platform/VNHost.h"
#include "sorvctl/ChildCommand.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"
#include "sorvctl/StopSignals.h"
#include "sorvctl/Words.h"

namespace sorvctl {

using sorvane::Message;

namespace {

// How often the server is asked whether it is still there.
constexpr std::chrono::milliseconds kPingInterval{1000};

struct Registration {
  std::string name;
  std::string type = "database";
  std::optional<std::string> host;
  std::string address;
  std::vector<std::string> command;
};

std::string newNumber(Session& session, const Registration& wanted) {
  Message request{{"newPort", wanted.name},
                  {"portName", wanted.name},
                  {"portHost", wanted.host ? *wanted.host : sorvane::VNHost::currentHost().name()},
                  {"portType", wanted.type}};
  if (!wanted.address.empty()) {
    request.setText("portHostAddress", wanted.address);
  }
  const Message reply = session.askForDictionary(request);
  if (!reply.contains("portNumber")) {
    throw Failure(Status::saidNo, "the server handed out no port number");
  }
  return textOf(reply, "portNumber");
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

std::vector<std::string> commandWithPort(std::vector<std::string> command,
                                         const std::string& number) {
  for (std::string& word : command) {
    replaceAll(word, "{port}", number);
  }
  return command;
}

/// Holds the registration until a signal; fails when the server goes away.
int holdUntilSignal(Session& session, StopSignals& signals) {
  while (true) {
    const std::optional<Signal> signal = signals.wait(kPingInterval);
    if (signal && signal->number != SIGCHLD) {
      return 0;
    }
    if (!signal) {
      (void)session.askForDictionary({{"ping", "ping"}});
    }
  }
}

/// Holds the registration until the command ends.
int holdForCommand(Session& session, StopSignals& signals, const std::vector<std::string>& words) {
  ChildCommand command(words);
  while (true) {
    if (const std::optional<int> status = command.status()) {
      return *status;
    }
    const std::optional<Signal> signal = signals.wait(kPingInterval);
    if (signal && signal->number != SIGCHLD && signal->sentByProcess) {
      command.signal(signal->number);  // the terminal's own reach the command without help
    }
    if (!signal) {
      (void)session.askForDictionary({{"ping", "ping"}});
    }
  }
}

int registerName(Session& session, const Registration& wanted) {
  StopSignals signals;
  const std::string number = newNumber(session, wanted);
  (void)session.askForDictionary({{"acceptPort", wanted.name}});
  if (session.json()) {
    printJson({{"name", wanted.name}, {"number", number}});
  } else {
    print(escaped(number) + "\n");
  }
  return wanted.command.empty()
             ? holdUntilSignal(session, signals)
             : holdForCommand(session, signals, commandWithPort(wanted.command, number));
}

}  // namespace

Handler declareRegister(CLI::App& word) {
  auto wanted = std::make_shared<Registration>();
  word.add_option("NAME", wanted->name, "Name to register")->required();
  word.add_option("--type", wanted->type, "Type of the port (default: database)");
  word.add_option("--host", wanted->host,
                  "Host to register (default: this host's name); the name server's host is given "
                  "before the word");
  word.add_option("--address", wanted->address, "Address to register");
  word.add_option("COMMAND", wanted->command,
                  "Command to run meanwhile, after \"--\"; {port} in it is replaced by the number. "
                  "Its status becomes that of sorvctl (128 and the number of a signal that ended "
                  "it, 127 when it cannot be started); it is ended when the server goes away");
  return [wanted](Session& session) { return registerName(session, *wanted); };
}

}  // namespace sorvctl
