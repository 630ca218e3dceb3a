// The info server: the second message handler. It keeps the preferences of users and groups.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "infoserver/PreferenceStore.h"
#include "platform/Console.h"
#include "platform/KeptForm.h"
#include "platform/NetConnection.h"
#include "platform/VNThreadLock.h"

namespace sorvane {

/// Handles the requests that are no name server commands. The name server makes one instance when
/// it starts to serve; it lives as long as the process.
///
/// Commands, by the text of "action" ("key" is required; without it the reply is nil):
///   get_userpreferences_key   "result": "group:application", or an empty dictionary once a key
///                             setting is stored
///   set_userpreferences_key   stores "key" as the key setting; "result": "succeed"
///   set_userpreferences       stores the entry "key" with what the request carries of
///                             "changePreferences", "startDatabases", "loginDisplay", "databases";
///                             "result": "succeed"
///   get_userpreferences       those of the entry "key", or else of the entry "*"; "result": "none"
///                             when neither is there
/// The reply to any other request is an empty dictionary.
///
/// Any thread may call anything, without `serverLock`. One request is handled at a time, and its
/// change is on the disk before the reply: deliveries and ends of connections may wait. A request
/// that only reads waits for the change before it, too, so that nobody is told of a change that is
/// not on the disk yet.
class InfoserverController : public NetConnectionDelegate {
 public:
  /// The instance, or null before there is one.
  [[nodiscard]] static InfoserverController* globalObject();

  /// Becomes the instance, then loads the preferences from `VNGlobalPath::sorvaneUserFilePath()`.
  InfoserverController();
  /// Does the same with another file.
  explicit InfoserverController(std::string preferenceFile);
  /// Becomes the instance and goes on with what another had in memory, written by its `keep`.
  explicit InfoserverController(KeptReader& kept);
  /// Call it while no request is handled.
  void keep(KeptWriter& writer) const;
  ~InfoserverController() override;
  InfoserverController(const InfoserverController&) = delete;
  InfoserverController& operator=(const InfoserverController&) = delete;

  /// Sets whether requests that raise are told on the console; may be called again at any time.
  void runConnection(bool verbose);

  /// Takes the lock and handles the request. When the command raises NSException, the reply is an
  /// empty dictionary, and the console gets a line when verbose. Other exceptions pass.
  Reply deliverCommunication(const Message& request, NetConnection& sender) override;

  /// Handles the request; the caller must hold `commLock`. Raises NSException when a value that the
  /// command needs is missing or of the wrong kind; it has then changed nothing and written nothing
  /// to the reply. Makes the info dictionary of the sender's port record, if there is a record.
  Reply deliverLockedCommunication(const Message& request, NetConnection& sender);

  /// Waits for the request that is being handled; changes no preference. On a serving thread it
  /// leaves the waiting to another thread.
  void endCommunication(NetConnection& connection) override;

  // Nothing to do.
  void startCommunication(NetConnection&) override {}
  void cleanupAfterMessage() override {}
  void ping() {}
  [[nodiscard]] bool reconnect() override { return false; }
  [[nodiscard]] bool lazyreconnect() override { return false; }

  /// Serialises all message handling.
  [[nodiscard]] VNThreadLock& commLock() { return commLock_; }

 private:
  const bool remoteRegistration_;  // other machines may change the preferences
  VNThreadLock commLock_;
  ConsoleRateLimit raisedRequests_;
  std::atomic<bool> verboseMode_ = false;
  std::optional<PreferenceStore> userPreferences_;  // guarded by commLock_; empty only while the
                                                    // constructor makes the instance known
};

}  // namespace sorvane
