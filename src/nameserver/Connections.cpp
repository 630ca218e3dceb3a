// What the server calls for each connection.
#include <memory>
#include <string>

#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "registry/ConnectionEnd.h"
#include "registry/Dispatch.h"
#include "registry/WatchCommands.h"

namespace sorvane {
namespace {

constexpr std::string_view kPing = "ping";

// About twelve microseconds: a turn of requests of the common kind is over by then.
constexpr int kTriesWithoutWaiting = 600;

constexpr ServerServices kServices{
    .sorvaneVersion = sorvkeyController::sorvaneVersion,
    .platformName = sorvkeyController::platformName,
};

}  // namespace

inline CommandContext sorvkeyController::context(const Message& request, NetConnection& sender,
                                                 Notes& notes) {
  return {registry_, continuity_,          request, sender, sender.replyWriter(), host_,
          kServices, sorvkey_verbose != 0, notes};
}

// Those that wait for the lock come first: a connection that takes it again and again would leave
// them none of it.
bool sorvkeyController::tryServerLock() {
  for (int tries = 0; tries < kTriesWithoutWaiting; ++tries) {
    if (waitingForServerLock_.load(std::memory_order_relaxed) == 0 && serverLock_.tryLock()) {
      return true;
    }
  }
  return false;
}

void sorvkeyController::waitForServerLock() {
  waitingForServerLock_.fetch_add(1, std::memory_order_relaxed);
  serverLock_.lock();
  waitingForServerLock_.fetch_sub(1, std::memory_order_relaxed);
}

void sorvkeyController::startCommunication(NetConnection& connection) {
  connection.setContextObject(std::make_shared<PortDescriptor>());
}

std::optional<Reply> sorvkeyController::deliverWithoutWaiting(const Message& request,
                                                              NetConnection& sender, Turn& turn) {
  if (request.contains(kPing)) {
    return Reply::written();
  }
  Notes none;  // a command that leaves some may wait
  CommandContext command = context(request, sender, none);
  const DispatchRule& rule = ruleFor(request);
  if (rule.mayWait(command)) {
    return std::nullopt;
  }
  if (!turn.holdsLocks()) {
    if (!tryServerLock()) {
      return std::nullopt;
    }
    turn.keep(serverLock_);
    registry_.lock();
    turn.keep(registry_);
  }
  try {
    return prepare(rule, command) ? rule.command(command).reply() : Reply::none();
  } catch (const NSException&) {
    // A command that raises has changed nothing, so it can be delivered a second time. Reporting it
    // waits for a disk.
    return std::nullopt;
  }
}

Reply sorvkeyController::deliverCommunication(const Message& request, NetConnection& sender) {
  Delivery delivery = deliverWithoutDisk(request, sender);
  return delivery.isComplete() ? delivery.reply() : delivery.takeRest()(request);
}

// The lock is released by hand: an exception of another class deliberately passes on with the lock
// held, and the server then ends the process.
Delivery sorvkeyController::deliverWithoutDisk(const Message& request, NetConnection& sender) {
  if (request.contains(kPing)) {
    return Reply::written();
  }
  Notes notes;
  CommandContext command = context(request, sender, notes);
  const DispatchRule& rule = ruleFor(request);
  Outcome outcome = Reply::none();
  bool raised = false;
  try {
    if (!prepare(rule, command)) {
      return Reply::none();
    }
  } catch (const NSException&) {
    raised = true;
  }
  if (!raised) {
    waitForServerLock();
    try {
      outcome = deliverCommunicationLocked(rule, command);
    } catch (const NSException&) {
      raised = true;
    }
    serverLock_.unlock();
  }
  switch (outcome.kind()) {
    case Outcome::Kind::reply:
      break;
    case Outcome::Kind::notRecognised:
      if (infoserver_ == nullptr) {
        return Reply::none();
      }
      return {Disk::preferences, [this, &sender](const Message& sameRequest) {
                return infoserver_->deliverCommunication(sameRequest, sender);
              }};
    case Outcome::Kind::endProcess:
      // Not behind the requests that wait for the log.
      logMessage(outcome.logLine());
      endProcess();
  }
  if (!raised && !notes.any()) {
    return outcome.reply();
  }
  return {Disk::log, [this, notes, raised, reply = outcome.reply()](const Message& sameRequest) {
            write(notes, raised, sameRequest);
            return reply;
          }};
}

Outcome sorvkeyController::deliverCommunicationLocked(const DispatchRule& rule,
                                                      CommandContext& command) {
  return rule.command(command);
}

Reply sorvkeyController::deliverHeld(NetConnection& sender, bool isLastTime) {
  return answerAwaiting(registry_, sender, sender.replyWriter(), isLastTime);
}

void sorvkeyController::write(const Notes& notes, bool raised, const Message& request) {
  warnings_.write(notes.warning);
  if (notes.logLine != nullptr) {
    logMessage(notes.logLine(request, host_));
  }
  if (raised) {
    const std::string text =
        "Exception detected. Command could not be executed\n" + request.description() + "\n";
    raisedRequests_.line(text);
    logMessage(text);
  }
}

void sorvkeyController::endCommunication(NetConnection& connection) {
  const auto record = connection.contextObject<PortDescriptor>();
  forget(record.get(), connection.descriptor());
  const bool goesOn = restoredRecords_ != nullptr || replayedRecords_ != nullptr;
  if (goesOn && journal_ != nullptr) {
    journal_->unbind(connection.descriptor());  // the poller has refused it
  }
  if (record != nullptr && record->info() != nullptr && infoserver_ != nullptr) {
    infoserver_->endCommunication(connection);
  }
}

void sorvkeyController::forget(PortDescriptor* record, int connection) {
  const ConnectionEnd end = endConnection(registry_, record, connection);
  if (end.removedHost) {
    // Only a key that stands in the host list is removed, so the line has no text of a peer's own.
    NetConnection::performWaiting(Disk::log, [line = "REMOVE HOST " + *end.removedHost + " \n"] {
      sorvkeyController::logMessage(line);
    });
  }
  if (end.droppedPorts > 0) {
    droppedPortsConsole_.line(std::to_string(end.droppedPorts) +
                              " ports that ended connections had left behind were dropped: all of "
                              "them together may not take that much memory");
  }
}

}  // namespace sorvane
