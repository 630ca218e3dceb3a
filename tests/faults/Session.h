// A scripted session of several clients, any of which the name server may lose when a call fails.
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "integration/Daemon.h"
#include "support/RawConnection.h"
#include "support/Texts.h"

namespace sorvane::test {

/// One client. Once the name server has closed its connection it does nothing any more.
class Guest {
 public:
  /// Connects.
  explicit Guest(const Daemon& server);
  /// Connects with buffers so small that long replies do not fit.
  [[nodiscard]] static Guest withSmallBuffers(const Daemon& server);

  [[nodiscard]] bool isLost() const { return !connection_.has_value(); }

  /// Sends bytes.
  void sends(const std::string& bytes);
  /// Takes a reply; nothing when the connection is lost, now or before.
  std::optional<RawFrame> takes();
  std::optional<RawFrame> asks(const Message& request);
  /// Asks, and expects that reply, if any comes.
  void gets(const Message& request, const std::optional<Texts>& reply);
  /// Asks, and expects a reply with that text under that key, if any comes.
  void getsText(const Message& request, std::string_view key, const std::string& text);
  /// Expects that the peer closes without another byte.
  void isClosed();
  /// Closes the connection, which counts as lost from then on.
  void leaves() { connection_.reset(); }

 private:
  explicit Guest(int socket) : connection_(RawConnection::ofSocket(socket)) {}

  std::optional<RawConnection> connection_;
};

/// Everything that the serving path does: registering, looking up, watching, reporting, requests in
/// pieces and in one go, a malformed one, requests for waiting threads and for both disks, replies
/// that do not fit. Each request is sent when the reply before it was taken.
class Session {
 public:
  /// `number` tells the texts of this session from those of others.
  Session(const Daemon& server, int number);

  /// Plays the session. A reply that comes must be the right one.
  void play();

  /// Expects that those who are connected are served, that their registrations are found, and that
  /// those of the others are gone. Returns how many connections the name server has closed that
  /// should have stayed.
  [[nodiscard]] int countLost();

  /// What the file of the preferences should hold under `kUser`, if it could be written.
  [[nodiscard]] const std::string& preference() const { return preference_; }
  static constexpr const char* kUser = "anna";
  /// Whether the client was told that it is stored.
  [[nodiscard]] bool isToldOfStoring() const { return isToldOfStoring_; }

  /// How many clients are connected as far as they know.
  [[nodiscard]] int connections() const;

  /// Lets everyone leave.
  void end() { guests_.clear(); }

 private:
  void registersAndReports();
  void watchesAndLooksUp();
  void sendsInPieces();
  void usesOtherThreads();
  void isRude();
  void readsLate();
  void comesAndGoes();

  /// Expects the state of the database in a reply, if it came and the database is there.
  void expectStates(const std::optional<RawFrame>& reply) const;

  Guest& comes() { return guests_.emplace_back(server_); }

  const Daemon& server_;
  const int number_;
  const std::string name_;
  const std::string preference_;
  std::deque<Guest> guests_;
  Guest* database_ = nullptr;  // of guests_
  Guest* watcher_ = nullptr;   // of guests_
  bool isToldOfStoring_ = false;
  int lostBefore_ = 0;  // guests that are not among guests_ any more
};

/// Asks until the log has the entry of a request that raises: entries may have been lost before.
[[nodiscard]] bool logGoesOn(const Daemon& server);

}  // namespace sorvane::test
