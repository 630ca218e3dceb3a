// A name server for tests of clients: it tells what has changed and holds replies, or lacks that.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Message.h"
#include "sorvctl/Session.h"
#include "support/ScriptedPeer.h"

namespace sorvctl::test {

using Texts = std::vector<std::pair<std::string, std::string>>;

/// A row of a reply to "portChanges": texts with their NUL.
[[nodiscard]] std::string rowOf(const Texts& texts);

/// Serves each connection on a thread of its own. Any thread may call it.
class FakeNameServer {
 public:
  enum class Version { now, earlier };

  explicit FakeNameServer(Version version = Version::now);
  ~FakeNameServer();
  FakeNameServer(const FakeNameServer&) = delete;
  FakeNameServer& operator=(const FakeNameServer&) = delete;

  [[nodiscard]] Options options() const;

  /// Registers a name, or changes it, with these texts besides.
  void has(const std::string& name, const Texts& texts = {});
  void loses(const std::string& name);
  /// Drops all texts of a name, which is no change.
  void lapses(const std::string& name);
  /// From now on it replies to nothing.
  void hang() { hangs_ = true; }
  /// How many requests with this action or key have come.
  [[nodiscard]] int asked(const std::string& what) const;
  /// How many connections there are.
  [[nodiscard]] int connections() const { return connections_; }

 private:
  struct Entry {
    std::uint64_t changed = 0;
    bool gone = false;
    Texts texts;
  };

  void accept();
  void serve(int socket);
  [[nodiscard]] std::string reply(sorvane::test::PeerConnection& client,
                                  const sorvane::Message& request, std::uint64_t& seen);
  [[nodiscard]] std::string awaited(sorvane::test::PeerConnection& client, std::uint64_t& seen);
  [[nodiscard]] std::string changes(const sorvane::Message& request);
  [[nodiscard]] std::string lists();
  void change(const std::string& name, Entry entry);

  const Version version_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> hangs_ = false;
  std::atomic<int> connections_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by the mutex.
  bool ending_ = false;
  std::uint64_t sequence_ = 0;
  std::map<std::string, Entry> entries_;
  std::map<std::string, int> asked_;
  std::list<std::pair<int, std::thread>> served_;
  std::thread thread_;
};

}  // namespace sorvctl::test
