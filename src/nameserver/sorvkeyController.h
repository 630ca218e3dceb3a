// The name server: the one object that holds its state and serves its connections.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "discovery/ARendezvousController.h"
#include "infoserver/InfoserverController.h"
#include "platform/NetConnection.h"
#include "platform/VNFileLock.h"
#include "platform/VNThreadLock.h"
#include "registry/CommandContext.h"
#include "registry/HostLists.h"
#include "registry/Registry.h"

namespace sorvane {

/// 1 while the name server logs verbosely. Set once by `runConnection`, before there are threads.
extern int sorvkey_verbose;

/// Made once, by the entry point, and living until the process ends. It is the delegate of the
/// server socket and of the Bonjour publisher.
///
/// Locks. `serverLock` is held around every command except a ping, so one command runs at a time.
/// Opening and closing a connection take no lock of the controller's: the registry protects itself.
class sorvkeyController : public NetConnectionDelegate, public ARendezvousDelegate {
 public:
  /// Becomes the process-wide instance and opens the log. Cannot fail: a log that cannot be opened
  /// costs its lines only.
  sorvkeyController();
  ~sorvkeyController() override;
  sorvkeyController(const sorvkeyController&) = delete;
  sorvkeyController& operator=(const sorvkeyController&) = delete;

  // ---- Of the process

  /// The instance, or null before there is one. Any thread.
  [[nodiscard]] static sorvkeyController* globalObject();
  /// Writes a line to the log; nil writes nothing. Any thread.
  static void logMessage(std::optional<std::string_view> text);
  /// The product's version, as "1.0.0 (build #1) 11.20.2026". Made once. Any thread.
  [[nodiscard]] static const std::string& sorvaneVersion();
  /// The version text of the operating system, or "MacOS X 10.?" where the system does not tell.
  /// Made once. Any thread.
  [[nodiscard]] static const std::string& platformName();

  // ---- Serving

  /// Takes every step of the start and serves on this thread. Comes back only if serving ends.
  /// Raises std::system_error when the system has no descriptors or threads for it.
  void runConnection(bool verbose);

  /// Gives the connection a fresh port record.
  void startCommunication(NetConnection& connection) override;
  /// Carries the request out on a serving thread; nothing when it would have to wait for
  /// `serverLock`, a disk or a console, and when the command raised, which is then reported by the
  /// second delivery.
  std::optional<Reply> deliverWithoutWaiting(const Message& request, NetConnection& sender,
                                             Turn& turn) override;
  /// Answers a ping at once, and carries any other request out with `serverLock` held. A command
  /// that raises NSException costs a console line and a log line and has no reply; an exception of
  /// another class passes on with the lock held.
  Reply deliverCommunication(const Message& request, NetConnection& sender) override;
  /// Recognises the request and carries it out; `serverLock` must be held. What is no command of
  /// the name server goes to the info server.
  Reply deliverCommunicationLocked(const Message& request, NetConnection& sender);
  /// Forgets what the connection had registered and tells the watchers. Takes no `serverLock`, so
  /// that a long command delays no closing.
  void endCommunication(NetConnection& connection) override;
  void cleanupAfterMessage() override {}
  [[nodiscard]] bool reconnect() override { return false; }
  [[nodiscard]] bool lazyreconnect() override { return false; }

  // ---- Changes

  /// See `Registry`: all watchers, tried and left out while a marking is under way; the marking
  /// itself; the forced-refresh number.
  void setWatchToDirty() { registry_.setWatchToDirty(); }
  void _setWatchToDirty() { registry_.markWatchers(); }
  void setForceRefreshToDirty() { registry_.setForceRefreshToDirty(); }

  // ---- Hosts

  /// The launcher hosts, the very list; null until a command first needs it. Read it with
  /// `serverLock` held and no launcher leaving.
  [[nodiscard]] const HostLists::List* hostList();
  /// Notes a launcher host; see `HostLists::connect`. Always 1.
  std::int32_t sorvexecConnectHost(std::string_view hostName, std::string_view ipAddress);

  // ---- One name server for each host

  /// Body of the watcher thread: takes the process lock, and on a host with a dynamic address ends
  /// the process when that changes.
  void runGlobalLook();
  /// Takes the process lock, or ends the process when another one holds it.
  void _startupLockConnection();
  /// Tells the name server of another host to terminate. `host` is cut at its last underscore.
  /// Nothing happens when it cannot be reached.
  static void terminateOtherNameserver(const char* host);
  /// The address of this host.
  [[nodiscard]] static const std::string& nameServerIPAddress();

  // ---- Bonjour

  /// Does nothing: the name server publishes and does not browse.
  void discoveredServicesDidChange(ARendezvousController& /*sender*/) override {}

  // ---- What it is made of

  [[nodiscard]] VNThreadLock& serverLock() { return serverLock_; }
  [[nodiscard]] Registry& registry() { return registry_; }
  /// Null before `runConnection`.
  [[nodiscard]] InfoserverController* infoserver() { return infoserver_.get(); }
  /// True while `runConnection` is between registering the own ports and starting the watcher
  /// thread.
  [[nodiscard]] bool startupFlag() const { return startupFlag_; }

 protected:
  // The steps of `runConnection`, for it and for tests.
  void startInfoserver(bool verbose);
  void publish();
  void registerOwnPorts();
  void giveWayToOtherHost();
  [[nodiscard]] int openServerSocket();

 private:
  [[nodiscard]] CommandContext context(const Message& request, NetConnection& sender);

  // Constant after construction.
  const HostFacts host_;
  // Protecting themselves.
  Registry registry_;
  VNThreadLock serverLock_;
  // Set during the start, before connections are served.
  std::unique_ptr<InfoserverController> infoserver_;
  bool startupFlag_ = false;
  // Used by the watcher thread alone; held until the process ends.
  std::shared_ptr<VNFileLock> processLock_;
};

}  // namespace sorvane
