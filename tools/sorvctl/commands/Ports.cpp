// "find", "register" and "forget". A registration lasts as long as this process, or the program
// that it starts, runs.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "platform/VNHost.h"
#include "sorvctl/Arguments.h"
#include "sorvctl/ChildProgram.h"
#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/PortRequests.h"
#include "sorvctl/Session.h"
#include "sorvctl/StopSignals.h"

namespace sorvctl {

using sorvane::Message;

namespace {

int find(Session& session, const std::string& name) {
  const std::optional<Port> port =
      portOfReply(session.askForDictionary(findRequest(session, name)));
  if (!port) {
    throw Failure(Status::saidNo, "no port is registered as \"" + name + "\"");
  }
  printFields(session, {{"name", port->name},
                        {"number", port->number},
                        {"host", port->host},
                        {"address", port->address},
                        {"type", port->type}});
  return 0;
}

// How long "register" waits between two pings, which tell whether the server is still there.
constexpr std::chrono::milliseconds kPingInterval{1000};

struct Registration {
  std::string name;
  std::string type = "database";
  std::optional<std::string> host;
  std::string address;
  std::vector<std::string> program;  // with its arguments; empty: none
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

std::vector<std::string> programWithPort(std::vector<std::string> program,
                                         const std::string& number) {
  for (std::string& argument : program) {
    replaceAll(argument, "{port}", number);
  }
  return program;
}

/// Holds the registration until a signal ends it. Throws a Failure when the server goes away.
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

/// Holds the registration until the program ends, and returns the program's status.
int holdForProgram(Session& session, StopSignals& signals,
                   const std::vector<std::string>& arguments) {
  ChildProgram program(arguments);
  while (true) {
    if (const std::optional<int> status = program.status()) {
      return *status;
    }
    const std::optional<Signal> signal = signals.wait(kPingInterval);
    if (signal && signal->number != SIGCHLD && signal->sentByProcess) {
      program.signal(signal->number);  // the terminal sends its signals to the program itself
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
  printLine(session, {{"name", wanted.name}, {"number", number}}, number);
  return wanted.program.empty()
             ? holdUntilSignal(session, signals)
             : holdForProgram(session, signals, programWithPort(wanted.program, number));
}

/// Why the server does not forget a name.
std::string whyNotForgotten(Session& session, const std::string& name) {
  if (name == "VN_nameserver" || name == "VN_infoserver") {
    return "\"" + name + "\" is the name server itself";
  }
  if (!portOfReply(session.askForDictionary(findRequest(session, name)))) {
    return "no port is registered as \"" + name + "\"";
  }
  return "\"" + name + "\" was not left behind: the connection that registered it is there";
}

int forget(Session& session, const std::string& name) {
  const Message reply = session.askForDictionary({{"action", "forgetPort"}, {"name", name}});
  if (!reply.contains("result")) {
    throw Failure(Status::saidNo, "this name server is of an earlier version: it forgets no names");
  }
  if (textOf(reply, "result") != "success") {
    throw Failure(Status::saidNo, whyNotForgotten(session, name));
  }
  return 0;
}

Handler declareFind(CLI::App& command) {
  auto name = std::make_shared<std::string>();
  addDatabaseName(command, *name);
  return [name](Session& session) { return find(session, *name); };
}

Handler declareForget(CLI::App& command) {
  auto name = std::make_shared<std::string>();
  addDatabaseName(command, *name, NamesOf::leftBehind);
  return [name](Session& session) { return forget(session, *name); };
}

Handler declareRegister(CLI::App& command) {
  auto wanted = std::make_shared<Registration>();
  command.add_option("NAME", wanted->name, "Name to register")->required();
  command.add_option("--type", wanted->type, "Type of the port (default: database)");
  command.add_option(
      "--host", wanted->host,
      "Host to register (default: this host's name); the name server's host is given "
      "before \"register\"");
  command.add_option("--address", wanted->address, "Address to register");
  command.add_option(
      "PROGRAM", wanted->program,
      "Program to run meanwhile, after \"--\"; {port} in it is replaced by the number. "
      "Its status becomes that of sorvctl (128 and the number of a signal that ended "
      "it, 127 when it cannot be started); it is ended when the server goes away");
  return [wanted](Session& session) { return registerName(session, *wanted); };
}

}  // namespace

std::vector<Command> commands::ports() {
  return {
      {"find", "Find a port by its name", "sorvctl find db1", &declareFind},
      {"register", "Register a name, and hold it until ended or until PROGRAM ends",
       "sorvctl register db1 --type database -- my-server --port {port}", &declareRegister},
      {"forget", "Take out a name that was left behind by a connection that has closed",
       "sorvctl forget db1", &declareForget},
  };
}

}  // namespace sorvctl
