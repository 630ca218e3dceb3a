// The info server: the second message handler, which keeps the preferences of users and groups.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "infoserver/PreferenceStore.h"
#include "platform/NetConnection.h"
#include "platform/VNThreadLock.h"

namespace sorvane {

/// Answers the requests that the name server does not recognise. One instance, made when the name
/// server starts to serve, living as long as the process.
///
/// Commands (the word in "action"; "key" is required, without it the reply is nil):
///   get_userpreferences_key   "result": "group:application", or an empty dictionary once a key
///                             setting is stored
///   set_userpreferences_key   stores "key" as the key setting; "result": "succeed"
///   set_userpreferences       stores the entry "key" with what the request carries of
///                             "changePreferences", "startDatabases", "loginDisplay", "databases";
///                             "result": "succeed"
///   get_userpreferences       those of the entry "key", or else of the entry "*"; "result": "none"
///                             when neither is there
/// Any other request is answered with an empty dictionary.
///
/// All operations may be called from any thread. One request is handled at a time, and its change
/// is on the disk before it is answered: deliveries and ends of connections may wait.
class InfoserverController : public NetConnectionDelegate {
 public:
  /// The instance, or null before there is one.
  [[nodiscard]] static InfoserverController* globalObject();

  /// Becomes the instance, then loads the preferences from `VNGlobalPath::sorvaneUserFilePath()`.
  InfoserverController();
  /// The same with another file.
  explicit InfoserverController(std::string preferenceFile);
  ~InfoserverController() override;
  InfoserverController(const InfoserverController&) = delete;
  InfoserverController& operator=(const InfoserverController&) = delete;

  /// Sets whether failures are written to the console; may be called again at any time.
  void runConnection(bool verbose);

  /// Takes the lock and handles the request. A command that raises NSException is answered with an
  /// empty dictionary, and with a console line when verbose; other exceptions pass.
  Reply deliverCommunication(const Message& request, NetConnection& sender) override;

  /// Handles the request; `commLock` must be held by the caller. Raises NSException when a value
  /// that the command needs is missing or of another kind: nothing is then changed and nothing
  /// written to the reply. Gives the sender's port record, if it has one, its info dictionary.
  Reply deliverLockedCommunication(const Message& request, NetConnection& sender);

  /// Waits for the request that is being handled; changes no preference. Called on a serving
  /// thread, it leaves the waiting to another thread, and keeps the connection's record until then.
  void endCommunication(NetConnection& connection) override;

  // Nothing to do, and nothing to reconnect to.
  void startCommunication(NetConnection&) override {}
  void cleanupAfterMessage() override {}
  void ping() {}
  [[nodiscard]] bool reconnect() override { return false; }
  [[nodiscard]] bool lazyreconnect() override { return false; }

  /// Serialises all message handling.
  [[nodiscard]] VNThreadLock& commLock() { return commLock_; }

 private:
  VNThreadLock commLock_;
  std::atomic<bool> verboseMode_ = false;
  std::optional<PreferenceStore> userPreferences_;  // guarded by commLock_; empty only while the
                                                    // constructor makes the instance known
};

}  // namespace sorvane
