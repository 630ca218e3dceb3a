// What the framework calls for each connection.
#include <memory>
#include <string>

#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "registry/Dispatch.h"

namespace sorvane {
namespace {

// About two microseconds: a command of the common kind is over by then.
constexpr int kTriesWithoutWaiting = 100;

bool lockSoon(VNThreadLock& lock, Turn& turn) {
  if (turn.holds(lock)) {
    return true;
  }
  for (int tries = 0; tries < kTriesWithoutWaiting; ++tries) {
    if (lock.tryLock()) {
      turn.keep(lock);
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

CommandContext sorvkeyController::context(const RequestKeys& keys, NetConnection& sender) {
  return {registry_, keys, sender, kServices, sorvkey_verbose != 0};
}

void sorvkeyController::startCommunication(NetConnection& connection) {
  connection.setContextObject(std::make_shared<PortDescriptor>());
}

std::optional<Reply> sorvkeyController::deliverWithoutWaiting(const Message& request,
                                                              NetConnection& sender, Turn& turn) {
  const RequestKeys keys(request);
  if (keys.holds(Key::ping)) {
    return Reply::dictionary();
  }
  CommandContext command = context(keys, sender);
  const DispatchRule& rule = ruleFor(keys);
  if (rule.mayWait(command) || !lockSoon(serverLock_, turn)) {
    return std::nullopt;
  }
  try {
    return rule.carryOut(command).reply();
  } catch (const NSException&) {
    // A command raises before it changes anything, so it can be delivered a second time; reporting
    // it may wait for a console and a disk.
    return std::nullopt;
  }
}

// The lock is released by hand: an exception of a foreign class passes on with the lock held, on
// purpose, and the framework ends the process.
Reply sorvkeyController::deliverCommunication(const Message& request, NetConnection& sender) {
  if (request.contains("ping")) {
    return Reply::dictionary();
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
  const RequestKeys keys(request);
  CommandContext command = context(keys, sender);
  const Outcome outcome = ruleFor(keys).carryOut(command);
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
  if (record != nullptr) {
    registry_.watchingPortsList().remove(*record);
  }
  registry_.stampTime();
  if (record != nullptr) {
    forgetPort(*record);
    forgetLauncher(*record);
  }
  registry_.setWatchToDirty();
  if (record != nullptr && record->info() != nullptr && infoserver_ != nullptr) {
    infoserver_->endCommunication(connection);
  }
}

// By name alone, on purpose: an entry that another connection has put there since goes, too.
void sorvkeyController::forgetPort(const PortDescriptor& record) {
  if (record.portKey() && record.portName()) {
    registry_.removePort(*record.portName());
  }
}

void sorvkeyController::forgetLauncher(const PortDescriptor& record) {
  if (record.portName() != "sorvexec") {
    return;
  }
  std::string key =
      joinedKey(record.portHost().value_or(""), record.portHostAddress().value_or(""));
  if (registry_.with([&](RegistryState& state) { return state.hosts.remove(key); })) {
    NetConnection::performWaiting(
        [line = "REMOVE HOST " + key + " \n"] { sorvkeyController::logMessage(line); });
  }
}

}  // namespace sorvane
