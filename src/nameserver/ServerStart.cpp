// The start, step by step. The order is part of the behaviour.
#include <stdio.h>

#include <memory>
#include <string>
#include <thread>

#include "daemon/ProcessSetup.h"
#include "nameserver/ShellWord.h"
#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/VNHost.h"
#include "system/Files.h"
#include "system/Processes.h"

namespace sorvane {
namespace {

constexpr const char* kServiceType = "_sorvane._tcp";
constexpr std::int32_t kServicePort = 20221;

void print(const char* text) {
  fputs(text, stdout);
  fflush(stdout);
}

}  // namespace

void sorvkeyController::begin(bool verbose) {
  sorvkey_verbose = verbose ? 1 : 0;
  if (verbose) {
    NetConnection::setVerbose();
  }
  startInfoserver(verbose);
  // The first call reads a file, which no command may wait for.
  static_cast<void>(platformName());
  raiseResourceLimits();
}

void sorvkeyController::runConnection(bool verbose) {
  shareProcessLock();
  begin(verbose);
  if (verbose) {
    const bool localOnly = VNHost::currentHost().isLocalAccessOnly();
    print(localOnly ? "isLocalAccessOnly = 1\n" : "isLocalAccessOnly = 0\n");
  }
  publish();
  registerOwnPorts();
  startupFlag_ = true;
  giveWayToOtherHost();
  const int socket = openServerSocket();
  std::thread([this] { runGlobalLook(); }).detach();
  startupFlag_ = false;
  ignoreHangupAndInterrupt();
  NetConnection::runServerForSocket(socket, *this);
}

void sorvkeyController::startInfoserver(bool verbose) {
  if (infoserver_ == nullptr) {
    infoserver_ = std::make_unique<InfoserverController>();
  }
  infoserver_->runConnection(verbose);
}

void sorvkeyController::publish() {
  const VNHost& host = VNHost::currentHost();
  if (host.isLocalAccessOnly() || host.isBonjourDisabled()) {
    return;
  }
  // The publisher lives on the thread of its run loop until the process ends; nobody keeps it.
  ServiceDiscovery::current().runLoop().perform([this] {
    auto* const publisher = new ARendezvousController("", kServiceType, kServicePort);
    publisher->setDelegate(this);
    publisher->activatePublishing(true);
  });
}

// Both have the same number: the info server is reached through the name server's socket.
void sorvkeyController::registerOwnPorts() {
  const VNHost& host = VNHost::currentHost();
  const std::string number = std::to_string(NetConnection::basePortNumber());
  for (const char* name : {"VN_infoserver", "VN_nameserver"}) {
    auto record = std::make_shared<PortDescriptor>();
    const std::string key = joinedKey(name, host.name());
    record->setRegistration({.portKey = key,
                             .portName = name,
                             .portHostAddress = host.address(),
                             .portHost = host.name(),
                             .portNumber = number,
                             .portType = std::nullopt});
    registry_.enterPort(name, std::move(record));
  }
}

void sorvkeyController::giveWayToOtherHost() {
  constexpr const char* kFound = "nameserver TCPIP socket found on another computer";
  NetConnection connection;
  bool fileFound = false;
  if (NetConnection::hostFileSearchForNameServer(connection, &fileFound)) {
    print(kFound);
    logMessage(kFound);
    endProcess();
  }
  connection.invalidate();
  const char* const path = NetConnection::nameserverHostFilePath();
  if (VN_directoryExists(path)) {
    QB_system(("/bin/chmod a+r " + shellWord(path)).c_str());
  }
}

int sorvkeyController::openServerSocket() {
  constexpr const char* kFailed = "nameserver could not connect to socket";
  const int socket = NetConnection::createServerSocketForPort(NetConnection::basePortNumber());
  if (socket == 0 || socket == -1) {
    print(kFailed);
    consoleLine("nameserver could not connect to socket\n");
    logMessage(kFailed);
    endProcess();
  }
  return socket;
}

}  // namespace sorvane
