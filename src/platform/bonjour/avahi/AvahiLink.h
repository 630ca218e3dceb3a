// The connection to the Avahi daemon. It is made anew whenever it is lost.
#pragma once

#include <avahi-client/client.h>

#include <chrono>
#include <string>
#include <vector>

#include "platform/bonjour/avahi/AvahiRunLoop.h"

namespace sorvane {

/// Something that keeps objects in the Avahi daemon. Called on the run loop, never from inside a
/// call of the Avahi library.
class AvahiParticipant {
 public:
  virtual ~AvahiParticipant() = default;
  /// The daemon can be used. Called again after each of the two calls below.
  virtual void avahiIsRunning(AvahiClient& client) = 0;
  /// The daemon is choosing the host's name. Withdraw the records that contain it.
  virtual void hostNameIsChanging() {}
  /// The connection is lost. Free all objects that were made with its client now.
  virtual void avahiIsGone() = 0;
};

/// There is one for the process. It belongs to the run loop's thread.
///
/// If D-Bus or the Avahi daemon is missing, at the start or later, the link waits for it. The
/// library waits where it can. Otherwise the link tries again after 1 s, then doubles the time up
/// to 30 s. A client that has lost its daemon cannot be used again; the link frees it and makes
/// another one. There is one console line for each time that Avahi is missing.
class AvahiLink {
 public:
  static constexpr std::chrono::seconds kFirstRetry{1};
  static constexpr std::chrono::seconds kLastRetry{30};

  explicit AvahiLink(AvahiRunLoop& runLoop) : runLoop_(runLoop) {}
  AvahiLink(const AvahiLink&) = delete;
  AvahiLink& operator=(const AvahiLink&) = delete;

  [[nodiscard]] AvahiRunLoop& runLoop() { return runLoop_; }

  /// Adds a participant. If the daemon can be used, the participant is told on a later pass,
  /// otherwise as soon as it can be used. Connects to the daemon if that was not done yet.
  void join(AvahiParticipant& participant);
  /// Removes a participant. Call this before the participant is destroyed.
  void leave(AvahiParticipant& participant);

  /// A participant's call of the library has succeeded, so the daemon works.
  void worked();
  /// A participant's call of the library has failed for another reason than its arguments. The
  /// connection is made anew.
  void failed();

 private:
  void connect();
  void disconnect();
  void retryLater();
  void enter(AvahiClientState state);
  void reportMissing(const std::string& reason);
  static void stateChanged(AvahiClient* client, AvahiClientState state, void* link);

  AvahiRunLoop& runLoop_;
  std::vector<AvahiParticipant*> participants_;
  AvahiClient* client_ = nullptr;
  bool running_ = false;
  bool missingReported_ = false;
  std::chrono::seconds retryDelay_ = kFirstRetry;
  CancellableCalls reports_;  // reports of the present client
  bool retrying_ = false;
};

}  // namespace sorvane
