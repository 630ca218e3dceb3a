// The name server: the one object that holds its state and serves its connections.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "discovery/ARendezvousController.h"
#include "infoserver/InfoserverController.h"
#include "platform/Console.h"
#include "platform/HandOver.h"
#include "platform/NetConnection.h"
#include "platform/VNFileLock.h"
#include "platform/VNThreadLock.h"
#include "registry/CommandContext.h"
#include "registry/Continuity.h"
#include "registry/Dispatch.h"
#include "registry/HostLists.h"
#include "registry/Journal.h"
#include "registry/KeptRecords.h"
#include "registry/Registry.h"
#include "registry/ReplayedRecords.h"
#include "registry/RetiredTexts.h"

namespace sorvane {

class KeptFile;
class LastWish;
class ServiceManager;
class Survival;
struct SurvivingSockets;

/// 1 while the name server logs verbosely. Set once by `runConnection`, before there are threads.
extern int sorvkey_verbose;

/// The entry point makes it once, and it lives until the process ends. It is the delegate of the
/// server socket and of the Bonjour publisher.
///
/// `serverLock` is held around every command except a ping, so one command runs at a time. Opening
/// and closing a connection take no lock of the controller: the registry protects itself.
class sorvkeyController : public NetConnectionDelegate, public ARendezvousDelegate {
 public:
  /// Becomes the process-wide instance and opens the log. Cannot fail: without a log its lines are
  /// dropped.
  sorvkeyController();
  ~sorvkeyController() override;
  sorvkeyController(const sorvkeyController&) = delete;
  sorvkeyController& operator=(const sorvkeyController&) = delete;

  // ---- The process (sorvkeyController.cpp, Version.cpp); any thread

  /// Returns the instance, or null before there is one.
  [[nodiscard]] static sorvkeyController* globalObject();
  /// Writes a line to the log. Nil writes nothing.
  static void logMessage(std::optional<std::string_view> text);
  /// Returns the product's version, such as "1.0.0 (build #1) 11.20.2026".
  [[nodiscard]] static const std::string& sorvaneVersion();
  /// Returns the version text of the operating system, or "MacOS X 10.?" when it has none.
  [[nodiscard]] static const std::string& platformName();

  // ---- Serving (ServerStart.cpp, Connections.cpp)

  /// Takes every step of the start, then serves on this thread. Returns only if serving ends.
  /// Raises std::system_error when the system has no descriptors or threads.
  void runConnection(bool verbose);
  /// Lets another process go on when this one has died, and leaves what is handed over to the
  /// watching one. Call it before one of the other functions here. Both must outlive this object.
  void surviveCrashes(Survival& survival, LastWish& lastWish);
  /// Goes on with what the program before in this process has kept, instead of taking the steps of
  /// the start: with its lock, its socket, its connections and all that they have registered
  /// (Continuation.cpp). Then serves as `runConnection` does. `whyHandedBack` is empty, or tells
  /// that it is the same program, which could not hand over. Raises KeptFault if the description is
  /// damaged; nothing is to be done with this object then.
  void continueConnection(bool verbose, std::unique_ptr<MappedFile> kept,
                          const std::string& whyHandedBack);
  /// Goes on with what is left of a serving process that has died, with the same exceptions
  /// (Crash.cpp). Needs `surviveCrashes`.
  void goOnAfterDeath(bool verbose, const SurvivingSockets& sockets);

  /// Begins to take upgrades in place, and to tell the service manager, if one listens, that this
  /// process serves (ServiceReports.cpp).
  void servingBegins(RunningServer& server) override;
  /// Gives the connection a new port record.
  void startCommunication(NetConnection& connection) override;
  /// Carries the request out on a serving thread. Returns nothing when it would have to wait for
  /// `serverLock`, a disk or a console. Also returns nothing when the command raised: the second
  /// delivery reports that.
  std::optional<Reply> deliverWithoutWaiting(const Message& request, NetConnection& sender,
                                             Turn& turn) override;
  /// Replies to a ping at once. Carries any other request out with `serverLock` held. What is left
  /// then needs a disk: a request that is no name server command goes to the info server, and what
  /// the command has to write goes to log and console. When the command raises NSException, both
  /// get the request, and the reply is nil. An exception of another class passes on with the lock
  /// held. A request to end the process ends it here.
  Delivery deliverWithoutDisk(const Message& request, NetConnection& sender) override;
  /// Does the same and what is left, too.
  Reply deliverCommunication(const Message& request, NetConnection& sender) override;
  /// Carries out a command that was prepared; `serverLock` must be held. Raises what the command
  /// raises. The caller acts on the outcome and on the notes when it has released the lock.
  static Outcome deliverCommunicationLocked(const DispatchRule& rule, CommandContext& command);
  /// Forgets what the connection had registered (`endConnection`), logs the removal of a launcher
  /// host, and tells the info server. Takes no `serverLock`.
  void endCommunication(NetConnection& connection) override;
  /// Counts how often the watchers were set dirty.
  [[nodiscard]] const std::atomic<std::uint64_t>& changes() const override {
    return registry_.watchingPortsList().timesSetDirty();
  }
  /// Answers a connection that waits for a change, if there was one or the time is over.
  Reply deliverHeld(NetConnection& sender, bool isLastTime) override;
  // The record of a connection, as a part of what is kept of the connection.
  void keepConnection(NetConnection& connection, KeptWriter& writer) override;
  void restoreConnection(NetConnection& connection, KeptReader& reader) override;
  [[nodiscard]] WorkMarks* workMarks() override;
  void reviveConnection(NetConnection& connection) override;
  /// Frees the texts that the message has replaced.
  void cleanupAfterMessage() override { releaseRetiredTexts(); }
  [[nodiscard]] bool reconnect() override { return false; }
  [[nodiscard]] bool lazyreconnect() override { return false; }

  // ---- Changes: see the functions of `Registry` that these call

  void setWatchToDirty() { registry_.setWatchToDirty(); }
  void _setWatchToDirty() { registry_.setWatchersDirty(); }
  void setForceRefreshToDirty() { registry_.setForceRefreshToDirty(); }

  // ---- Hosts (sorvkeyController.cpp)

  /// Returns the list of launcher hosts itself, not a copy; null until a command first needs it.
  /// Read it with `serverLock` held and while no launcher's connection ends.
  [[nodiscard]] const HostLists::List* hostList();
  /// Notes a launcher host; see `HostLists::connect`. Always returns 1.
  std::int32_t sorvexecConnectHost(std::string_view hostName, std::string_view ipAddress);

  // ---- One name server for each host (SingleInstance.cpp)

  /// The body of the watcher thread: takes the process lock. On a host with a dynamic address it
  /// then ends the process when the address changes.
  void runGlobalLook();
  /// Takes the process lock if it has not been taken already. Ends the process when another process
  /// holds it.
  void _startupLockConnection();
  /// Tells the name server of another host to terminate. `host` is cut at its last underscore. Does
  /// nothing when the host cannot be reached.
  static void terminateOtherNameserver(const char* host);
  /// Returns the address of this host.
  [[nodiscard]] static const std::string& nameServerIPAddress();

  // ---- Bonjour

  /// Does nothing: the name server publishes but does not browse.
  void discoveredServicesDidChange(ARendezvousController& /*sender*/) override {}

  // ---- Its parts

  [[nodiscard]] VNThreadLock& serverLock() { return serverLock_; }
  [[nodiscard]] Registry& registry() { return registry_; }
  [[nodiscard]] Continuity& continuity() { return continuity_; }
  /// Null before `runConnection`.
  [[nodiscard]] InfoserverController* infoserver() { return infoserver_.get(); }
  /// True while `runConnection` is between registering its own ports and starting the watcher
  /// thread.
  [[nodiscard]] bool startupFlag() const { return startupFlag_; }

 protected:
  // The steps of `runConnection`; protected for tests.
  void begin(bool verbose);
  void beginAsBefore(bool verbose);
  void startInfoserver(bool verbose);
  void publish();
  void registerOwnPorts();
  void giveWayToOtherHost();
  [[nodiscard]] int openServerSocket();

 private:
  /// Takes `serverLock` if it can be had in a few microseconds. Returns whether it was taken.
  [[nodiscard]] bool tryServerLock();
  /// Takes `serverLock`, however long that takes.
  void waitForServerLock();
  /// The body of the thread that reports to the service manager; begins when the process lock is
  /// taken.
  [[noreturn]] void reportTo(ServiceManager& manager, RunningServer& server);
  /// The body of the thread that waits for upgrades in place (Continuation.cpp); begins when the
  /// process lock is taken.
  [[noreturn]] void takeUpgrades(RunningServer& server);
  /// Makes the program file take the place of this program. Returns only when that was put off,
  /// with the reason in words; everything goes on as before then.
  [[nodiscard]] std::string upgrade(RunningServer& server);
  /// Lets go of what was read to continue with, once all connections have their records. An entry
  /// that belongs to none of them must not stay: raises KeptFault.
  void endContinuation();
  /// Leaves what was written to the watching process, which makes the program file take its place.
  /// Returns only on failure, as `upgrade` does.
  [[nodiscard]] std::string handOverToWatching(KeptFile& file);
  void noteLockTaken();
  /// Makes the lock that the watching process has taken its own, if there is one.
  void shareProcessLock();
  /// Makes the lock that is held by this descriptor its own. Raises KeptFault if it is none.
  void takeHeldLock(int descriptor);
  /// Gives the connection a record that is there already.
  void give(NetConnection& connection, std::shared_ptr<PortDescriptor> record);
  /// Notes the figures of the continuity for a process that goes on after a death, if one would.
  void noteFigures();
  /// Tells the console and the log why an upgrade was put off.
  void reportPutOff(const std::string& reason);
  /// Makes the registry forget what a connection had registered, which ends. Reports what that has
  /// removed. `connection` is its descriptor.
  void forget(PortDescriptor* record, int connection);
  /// Ends the connections that have not gone on after a death, and begins to note all that another
  /// process needs to go on (Crash.cpp).
  void beginSurviving(const RunningServer& server);
  /// Writes everything that is kept. The server must be paused.
  void keep(KeptWriter& writer, RunningServer& server);
  [[nodiscard]] CommandContext context(const Message& request, NetConnection& sender, Notes& notes);
  /// Writes what the command wants written, and reports the request if the command raised.
  void write(const Notes& notes, bool raised, const Message& request);

  // Constant after construction.
  const HostFacts host_;
  // Protect themselves.
  Registry registry_;
  Continuity continuity_;
  VNThreadLock serverLock_;
  std::atomic<int> waitingForServerLock_ = 0;  // threads
  ConsoleRateLimit droppedPortsConsole_;
  Warnings warnings_;
  ConsoleRateLimit raisedRequests_;  // console texts
  std::atomic<bool> processLockIsTaken_ = false;
  // Set during the start, before connections are served.
  std::unique_ptr<InfoserverController> infoserver_;
  bool startupFlag_ = false;
  // Set before the start, or by the watcher thread before it says `processLockIsTaken_`; held until
  // the process ends.
  std::shared_ptr<VNFileLock> processLock_;
  // Used while what is kept is written, or read before anything is served; null otherwise.
  std::unique_ptr<KeptRecords> keptRecords_;
  std::unique_ptr<RestoredRecords> restoredRecords_;
  std::unique_ptr<ReplayedRecords> replayedRecords_;
  std::unique_ptr<MappedFile> kept_;
  // Null unless another process goes on when this one dies. Set before the start.
  Survival* survival_ = nullptr;
  LastWish* lastWish_ = nullptr;
  std::unique_ptr<Journal> journal_;
};

}  // namespace sorvane
