// The connection to the Avahi daemon, made again for as long as it takes.
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
  /// The daemon can be used. Comes again after each of the two below.
  virtual void avahiIsRunning(AvahiClient& client) = 0;
  /// The daemon is settling the host's name; records that hold it are to be withdrawn.
  virtual void hostNameIsChanging() {}
  /// The connection is lost; all objects made with its client are to be freed now.
  virtual void avahiIsGone() = 0;
};

/// One a process, for the run loop's thread. Whatever is missing (D-Bus, the Avahi daemon, or
/// either of them for a while) is waited for: by the library where it can, else by a timer of 1 s
/// doubling to 30 s. A client that has lost its daemon is of no use any more; it is freed, and
/// another one made. There is one console line for each time that Avahi is missing.
class AvahiLink {
 public:
  static constexpr std::chrono::seconds kFirstRetry{1};
  static constexpr std::chrono::seconds kLastRetry{30};

  explicit AvahiLink(AvahiRunLoop& runLoop) : runLoop_(runLoop) {}
  AvahiLink(const AvahiLink&) = delete;
  AvahiLink& operator=(const AvahiLink&) = delete;

  [[nodiscard]] AvahiRunLoop& runLoop() { return runLoop_; }

  /// The participant is told on a later pass when the daemon can be used. Connects when nobody has
  /// joined before.
  void join(AvahiParticipant& participant);
  /// To be called before a participant goes.
  void leave(AvahiParticipant& participant);

  /// A participant's call has succeeded, so the daemon is well.
  void worked();
  /// A participant's call has failed, though not for its arguments: the connection is made anew.
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
  CancellableCalls reports_;  // those of the client at hand
  bool retrying_ = false;
};

}  // namespace sorvane
