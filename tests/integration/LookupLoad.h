// Clients that look names up without a pause, and look at every byte that they get.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "integration/Daemon.h"

namespace sorvane::test {

/// Each connection keeps some lookups under way, of the given names in turn, on a thread that
/// serves all of them. What comes must be the replies to them, in their order, byte by byte.
class LookupLoad {
 public:
  enum class WhenClosed : std::uint8_t {
    complains,  ///< a connection must not be closed
    comesAnew,  ///< it asks on another one for what was not answered
  };

  /// The names must be registered, and stay it.
  LookupLoad(const Daemon& server, int connections, const std::vector<std::string>& names,
             WhenClosed whenClosed = WhenClosed::complains);
  ~LookupLoad();
  LookupLoad(const LookupLoad&) = delete;
  LookupLoad& operator=(const LookupLoad&) = delete;

  /// Number of replies so far.
  [[nodiscard]] long replies() const { return replies_; }
  /// The longest time in which a connection that waited for replies got none. Begins anew.
  [[nodiscard]] std::chrono::microseconds takeLongestSilence();
  /// Lets the lookups that are under way end. Returns what was wrong first; empty if nothing was.
  [[nodiscard]] std::string end();

 private:
  struct Peer;
  void run();
  [[nodiscard]] bool send(Peer& peer);
  [[nodiscard]] bool receive(Peer& peer);
  /// Returns whether the peer goes on after its connection was closed.
  [[nodiscard]] bool goesOnClosed(Peer& peer, const std::string& complaint);
  void complain(const std::string& what);

  const Daemon& server_;
  const WhenClosed whenClosed_;
  std::vector<std::string> requests_;
  std::vector<std::string> replyBytes_;  // of each request
  std::vector<std::unique_ptr<Peer>> peers_;
  std::atomic<long> replies_ = 0;
  std::atomic<long long> longestSilence_ = 0;  // microseconds
  std::atomic<bool> ends_ = false;
  std::string complaint_;  // belongs to the thread until its end
  std::thread thread_;
};

}  // namespace sorvane::test
