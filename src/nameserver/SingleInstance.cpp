// One name server for each host, and one host to serve for others.
#include "nameserver/SingleInstance.h"

#include <string>
#include <string_view>

#include "nameserver/Survival.h"
#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/VNHost.h"
#include "system/Processes.h"

namespace sorvane {

void watchAddress(const std::function<bool()>& isStillValid,
                  const std::function<void(int seconds)>& sleep) {
  while (isStillValid()) {
    sleep(kAddressCheckSeconds);
  }
}

std::string_view hostOfNameserver(std::string_view text) { return text.substr(0, text.rfind('_')); }

void sorvkeyController::runGlobalLook() {
  if (!processLockIsTaken_) {
    _startupLockConnection();
    if (sorvkey_verbose != 0) {
      logMessage("succeeded. ");
      consoleLine("succeeded. ");
    }
  }
  if (!VNHost::currentHost().isDynamic()) {
    return;
  }
  watchAddress(VNHost::validateCurrentHost, VN_sleep);
  consoleLine("ipaddress changed.  Resetting sorvinfo.\n");
  endProcess();
}

void sorvkeyController::_startupLockConnection() {
  if (processLock_ == nullptr) {
    processLock_ = VNFileLock::fileLockWithSorvaneProcessName(kProcessLockName);
  }
  if (!processLock_->obtainLock()) {
    constexpr const char* kHeld =
        "Process lock reports that another infoserver is running on this host.\n";
    consoleLine(kHeld);
    logMessage(kHeld);
    endProcess();
  }
  noteLockTaken();
}

void sorvkeyController::noteLockTaken() {
  if (survival_ != nullptr) {
    survival_->noteLock(processLock_->descriptor());
  }
  processLockIsTaken_ = true;
  processLockIsTaken_.notify_all();
}

void sorvkeyController::terminateOtherNameserver(const char* host) {
  NetConnection connection;
  if (!connection.connectToServer("VN_nameserver", hostOfNameserver(host))) {
    return;
  }
  // The word is the value of "action", on purpose, although a name server ends on the key of that
  // name alone: neither side is changed to match the other.
  (void)connection.sendRequest(Message({{"action", "terminate"}}));
  connection.invalidate();
  logMessage("Process terminated by another nameserver. ");
}

const std::string& sorvkeyController::nameServerIPAddress() {
  return VNHost::currentHost().address();
}

}  // namespace sorvane
