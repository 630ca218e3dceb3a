// A name server in this process, with an installation of its own and no socket.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/Settings.h"
#include "platform/TimeSource.h"
#include "platform/VNHost.h"
#include "registry/Peer.h"
#include "support/ConsoleLines.h"
#include "support/ProcessState.h"
#include "support/TestFiles.h"

namespace sorvane::test {

inline const ResetWithProcessState verboseState([] { sorvkey_verbose = 0; });

/// The controller, with the steps of its start within reach.
class NameServer : public sorvkeyController {
 public:
  using sorvkeyController::giveWayToOtherHost;
  using sorvkeyController::openServerSocket;
  using sorvkeyController::publish;
  using sorvkeyController::registerOwnPorts;
  using sorvkeyController::startInfoserver;
};

class NameServerTest : public testing::Test {
 protected:
  NameServerTest() {
    std::filesystem::create_directory(folder_ / "Logs");
    settings_.basePort = 5000;
    settings_.installationDirectory = folder_.path();
    settings_.serverConfigDirectory = folder_ / "Config";
    settings_.userPreferenceFile = folder_ / "SorvPreferences";
    settings_.nameServerHostFile = folder_ / "SorvNameServerHost";
    settings_.lockDirectory = folder_ / "locks";
    settings_.hostName = "testhost";
    settings_.address = "10.1.2.3";
    settings_.ethernetAddress = "00:11:22:33:44:55";
    settings_.dynamicAddress = false;
    settingsChanged();
  }

  void settingsChanged() {
    Settings::replaceForTest(settings_);
    VNHost::resetForTest();
  }
  std::string log() const { return readFile(folder_ / "Logs" / "infoserver_log"); }

  const ConsoleLines console_;
  TemporaryFolder folder_;
  Settings settings_;
};

/// The same, with the server made.
class ServerTest : public NameServerTest {
 protected:
  ServerTest() { server_.startInfoserver(false); }
  NameServer server_;
};

}  // namespace sorvane::test
