// Upgrades in place: another program goes on in this process with everything that this one keeps.
#include <chrono>
#include <new>
#include <string>
#include <thread>
#include <utility>

#include "daemon/ProcessSetup.h"
#include "daemon/Succession.h"
#include "daemon/Watch.h"
#include "nameserver/SingleInstance.h"
#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/RunningServer.h"

namespace sorvane {
namespace {

// A request that waits for a disk or a lock is waited for so long.
constexpr std::chrono::seconds kPauseLimit{5};

}  // namespace

void sorvkeyController::takeUpgrades(RunningServer& server) {
  processLockIsTaken_.wait(false);
  for (;;) {
    waitForUpgradeSignal();
    try {
      continuity_.noteUpgradeAttempt();
      noteFigures();
      reportPutOff(upgrade(server));
    } catch (const std::bad_alloc&) {
      consoleLine("the upgrade in place was put off: there is no memory for it");
    }
  }
}

void sorvkeyController::reportPutOff(const std::string& reason) {
  continuity_.noteRefused(reason);
  const std::string line = "the upgrade in place was put off: " + reason;
  consoleLine(line);
  logMessage(line);
}

std::string sorvkeyController::upgrade(RunningServer& server) {
  std::string reason = whyNoSuccessor();
  if (!reason.empty()) {
    return reason;
  }
  if (!server.pause(std::chrono::steady_clock::now() + kPauseLimit)) {
    return "a request has waited for a lock or a disk for too long";
  }
  try {
    KeptFile file;
    keep(file.writer(), server);
    reason = lastWish_ == nullptr ? handOver(file) : handOverToWatching(file);
  } catch (const std::bad_alloc&) {
    reason = "there is no memory for what is to be kept";
  }
  server.goOn();
  return reason;
}

// Another program would leave the table of descriptors that is shared with the watching process,
// which would then hold each connection open for ever. So that one is replaced.
std::string sorvkeyController::handOverToWatching(KeptFile& file) {
  std::string failure = leaveForSuccessor(file);
  if (failure.empty()) {
    lastWish_->handOver(file.descriptor());
  }
  return failure;
}

// A member that is added later does not compile here until somebody has decided what becomes of it.
void sorvkeyController::keep(KeptWriter& writer, RunningServer& server) {
  const auto& [host, registry, continuity, serverLock, waitingForServerLock, droppedPortsConsole,
               warnings, raisedRequests, processLockIsTaken, infoserver, startupFlag, processLock,
               keptRecords, restoredRecords, replayedRecords, kept, survival, lastWish, journal] =
      *this;
  writer.text(sorvaneVersion());
  writer.descriptor(processLock->descriptor());
  continuity.keep(writer);
  infoserver->keep(writer);
  keptRecords_ = std::make_unique<KeptRecords>();
  registry.keep(writer, *keptRecords_);
  server.keep(writer);
  keptRecords_.reset();
}

void sorvkeyController::keepConnection(NetConnection& connection, KeptWriter& writer) {
  keptRecords_->keepRecord(writer, *connection.context<PortDescriptor>());
}

void sorvkeyController::restoreConnection(NetConnection& connection, KeptReader& reader) {
  give(connection, restoredRecords_->restoreRecord(reader));
}

void sorvkeyController::give(NetConnection& connection, std::shared_ptr<PortDescriptor> record) {
  if (journal_ != nullptr) {
    journal_->bind(connection.descriptor(), *record);
  }
  connection.setContextObject(std::move(record));
}

void sorvkeyController::endContinuation() {
  if (restoredRecords_ == nullptr) {
    return;
  }
  for (const auto& record : restoredRecords_->unclaimed()) {
    if (record->portName() != "VN_nameserver" && record->portName() != "VN_infoserver") {
      throw KeptFault("what was kept has an entry whose connection is not there");
    }
  }
  restoredRecords_.reset();
  kept_.reset();
}

void sorvkeyController::continueConnection(bool verbose, std::unique_ptr<MappedFile> kept,
                                           const std::string& whyHandedBack) {
  kept_ = std::move(kept);
  KeptReader reader(kept_->bytes());
  const std::string before(reader.text());
  takeHeldLock(reader.descriptor());
  continuity_.restore(reader);
  infoserver_ = std::make_unique<InfoserverController>(reader);
  restoredRecords_ = std::make_unique<RestoredRecords>();
  registry_.restore(reader, *restoredRecords_);
  beginAsBefore(verbose);
  if (whyHandedBack.empty()) {
    continuity_.noteUpgraded();
    logMessage("Upgraded in place from " + before + " to " + sorvaneVersion());
  } else {
    reportPutOff(whyHandedBack);
  }
  NetConnection::continueServer(reader, *this);
}

void sorvkeyController::takeHeldLock(int descriptor) {
  processLock_ = VNFileLock::heldLock(kProcessLockName, Descriptor(descriptor));
  if (processLock_ == nullptr) {
    throw KeptFault("what was kept has a process lock that is none");
  }
  noteLockTaken();
}

void sorvkeyController::beginAsBefore(bool verbose) {
  begin(verbose);
  publish();
  std::thread([this] { runGlobalLook(); }).detach();
  ignoreHangupAndInterrupt();
}

}  // namespace sorvane
