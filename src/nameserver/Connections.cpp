// What the server calls for each connection.
#include <memory>
#include <string>

#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "registry/ConnectionEnd.h"
#include "registry/Dispatch.h"

namespace sorvane {
namespace {

constexpr std::string_view kPing = "ping";

// About twelve microseconds: a turn of requests of the common kind is over by then.
constexpr int kTriesWithoutWaiting = 600;

bool tryLockBriefly(VNThreadLock& lock) {
  for (int tries = 0; tries < kTriesWithoutWaiting; ++tries) {
    if (lock.tryLock()) {
      return true;
    }
  }
  return false;
}

void writeToLog(std::string_view line) { sorvkeyController::logMessage(line); }

constexpr ServerServices kServices{
    .log = writeToLog,
    .sorvaneVersion = sorvkeyController::sorvaneVersion,
    .platformName = sorvkeyController::platformName,
};

}  // namespace

CommandContext sorvkeyController::context(const Message& request, NetConnection& sender) {
  return {registry_, request, sender, sender.replyWriter(), host_, kServices, sorvkey_verbose != 0};
}

void sorvkeyController::startCommunication(NetConnection& connection) {
  connection.setContextObject(std::make_shared<PortDescriptor>());
}

std::optional<Reply> sorvkeyController::deliverWithoutWaiting(const Message& request,
                                                              NetConnection& sender, Turn& turn) {
  if (request.contains(kPing)) {
    return Reply::written();
  }
  CommandContext command = context(request, sender);
  const DispatchRule& rule = ruleFor(request);
  if (rule.mayWait(command)) {
    return std::nullopt;
  }
  if (!turn.holdsLocks()) {
    if (!tryLockBriefly(serverLock_)) {
      return std::nullopt;
    }
    turn.keep(serverLock_);
    registry_.lock();
    turn.keep(registry_);
  }
  try {
    return carryOut(rule, command).reply();
  } catch (const NSException&) {
    // A command that raises has changed nothing, so it can be delivered a second time. Reporting it
    // may wait for a console and a disk.
    return std::nullopt;
  }
}

// The lock is released by hand: an exception of another class deliberately passes on with the lock
// held, and the server then ends the process.
Reply sorvkeyController::deliverCommunication(const Message& request, NetConnection& sender) {
  if (request.contains(kPing)) {
    return Reply::written();
  }
  Reply reply = Reply::none();
  serverLock_.lock();
  try {
    reply = deliverCommunicationLocked(request, sender);
  } catch (const NSException&) {
    const std::string text =
        "Exception detected. Command could not be executed\n" + request.description() + "\n";
    consoleLine(text);
    logMessage(text);
    reply = Reply::none();
  }
  serverLock_.unlock();
  return reply;
}

Reply sorvkeyController::deliverCommunicationLocked(const Message& request, NetConnection& sender) {
  CommandContext command = context(request, sender);
  const Outcome outcome = carryOut(ruleFor(request), command);
  switch (outcome.kind()) {
    case Outcome::Kind::reply:
      break;
    case Outcome::Kind::notRecognised:
      return infoserver_ ? infoserver_->deliverCommunication(request, sender) : Reply::none();
    case Outcome::Kind::endProcess:
      logMessage(outcome.logLine());
      endProcess();
  }
  return outcome.reply();
}

void sorvkeyController::endCommunication(NetConnection& connection) {
  const auto record = connection.contextObject<PortDescriptor>();
  const ConnectionEnd end = endConnection(registry_, record.get());
  if (end.removedHost) {
    NetConnection::performWaiting([line = "REMOVE HOST " + *end.removedHost + " \n"] {
      sorvkeyController::logMessage(line);
    });
  }
  if (end.droppedPorts > 0) {
    NetConnection::performWaiting([this, ports = end.droppedPorts] {
      droppedPortsConsole_.line(std::to_string(ports) +
                                " ports that ended connections had left behind were dropped: all "
                                "of them together may not take that much memory");
    });
  }
  if (record != nullptr && record->info() != nullptr && infoserver_ != nullptr) {
    infoserver_->endCommunication(connection);
  }
}

}  // namespace sorvane
