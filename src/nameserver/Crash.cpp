// Going on after the death of the serving process: the next one has the same descriptors, and all
// that was noted in memory that outlives a process.
#include "daemon/Watch.h"
#include "nameserver/SingleInstance.h"
#include "nameserver/Survival.h"
#include "nameserver/sorvkeyController.h"
#include "platform/RunningServer.h"
#include "platform/SurvivingSockets.h"

namespace sorvane {

void sorvkeyController::surviveCrashes(Survival& survival, LastWish& lastWish) {
  survival_ = &survival;
  lastWish_ = &lastWish;
  journal_ = std::make_unique<Journal>(survival.journal());
  continuity_.goOn(survival.figures());
}

void sorvkeyController::shareProcessLock() {
  if (survival_ != nullptr && survival_->lock() >= 0) {
    processLock_ = VNFileLock::heldLock(kProcessLockName, Descriptor(survival_->lock()));
  }
}

WorkMarks* sorvkeyController::workMarks() {
  return survival_ == nullptr ? nullptr : &survival_->marks();
}

void sorvkeyController::goOnAfterDeath(bool verbose, const SurvivingSockets& sockets) {
  shareProcessLock();
  if (sockets.listener < 0 || processLock_ == nullptr) {
    throw KeptFault("the serving process died before it served");
  }
  noteLockTaken();
  replayedRecords_ = std::make_unique<ReplayedRecords>();
  registry_.replay(survival_->journal(), *replayedRecords_);
  beginAsBefore(verbose);
  logMessage("Goes on after the death of the serving process");
  NetConnection::continueServer(sockets, *this);
}

void sorvkeyController::reviveConnection(NetConnection& connection) {
  give(connection, replayedRecords_->take(connection.descriptor()));
}

void sorvkeyController::noteFigures() {
  if (survival_ != nullptr) {
    survival_->note(continuity_.figures());
  }
}

void sorvkeyController::beginSurviving(const RunningServer& server) {
  noteFigures();
  if (replayedRecords_ != nullptr) {
    for (const auto& [connection, record] : replayedRecords_->rest()) {
      forget(record.get(), connection);
    }
    replayedRecords_.reset();
  }
  registry_.beginJournal(*journal_);
  survival_->noteListener(server.listener());
  lastWish_->letGoOfHandedOver();
}

}  // namespace sorvane
