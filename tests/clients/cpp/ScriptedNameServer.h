// A name server that says what a test wants, to several connections at a time.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace sorvane::test {

/// A request as its texts by their keys.
using RequestTexts = std::map<std::string, std::string>;

/// Listens on a free port of 127.0.0.1. Each connection has a thread; the answers are asked for one
/// at a time.
class ScriptedNameServer {
 public:
  /// Returns the bytes of a reply; none: the connection stays silent until it is closed.
  using Answer = std::function<std::string(const RequestTexts& request)>;

  explicit ScriptedNameServer(Answer answer);
  ~ScriptedNameServer();
  ScriptedNameServer(const ScriptedNameServer&) = delete;
  ScriptedNameServer& operator=(const ScriptedNameServer&) = delete;

  [[nodiscard]] int port() const { return port_; }
  /// Another answer from the next request on.
  void answersBy(Answer answer);
  /// Closes all connections.
  void hangUp();
  /// Waits until it has had so many requests that have this key or this action; false if it has
  /// not within `kPatience`.
  [[nodiscard]] bool isAsked(const std::string& what, int times = 1);
  /// How many connections are open.
  [[nodiscard]] std::size_t connections();
  /// How many requests it has had that have this key or this action.
  [[nodiscard]] int timesAsked(const std::string& what);

 private:
  void accept();
  void serve(int socket);
  [[nodiscard]] std::string answer(const RequestTexts& request);

  int port_ = 0;
  int listener_ = -1;
  std::mutex mutex_;
  std::condition_variable asked_;
  // Guarded by mutex_.
  Answer answer_;
  std::map<std::string, int> counts_;
  std::vector<int> sockets_;
  std::list<std::thread> threads_;
  bool ending_ = false;
  std::thread accepting_;
};

}  // namespace sorvane::test
