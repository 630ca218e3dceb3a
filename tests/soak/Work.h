// The clients of a soak: what each kind of client does again and again.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "siege/Peer.h"

namespace sorvane::soak {

/// The databases and watchers that stay for the whole soak, and what all clients share. For several
/// threads.
class Scene {
 public:
  explicit Scene(int port) : port_(port) {}

  /// Registers the databases and makes the watchers' connections; once.
  void set();

  [[nodiscard]] int port() const { return port_; }
  /// The databases that stay, "staying0" to "staying199".
  static constexpr int kStaying = 200;
  [[nodiscard]] static std::string nameOf(int database);
  [[nodiscard]] const std::string& numberOf(int database) const { return numbers_.at(database); }
  /// Connections that have become watchers. Only one client may use them.
  [[nodiscard]] std::vector<siege::Peer>& watchers() { return watchers_; }

  /// Notes what a client saw go wrong; the first complaint is kept.
  void expect(bool well, const std::string& what);
  [[nodiscard]] std::string complaint() const;

  /// The times of the lookups since the last call, in microseconds.
  [[nodiscard]] std::vector<double> takeTimes();
  void addTime(double microseconds);

 private:
  const int port_;
  std::vector<siege::Peer> databases_;
  std::vector<std::string> numbers_;
  std::vector<siege::Peer> watchers_;
  mutable std::mutex lock_;  // guards what follows
  std::string complaint_;
  std::vector<double> times_;
};

/// One kind of client.
struct Work {
  std::string_view what;
  std::chrono::microseconds pause;  ///< between two steps
  /// Makes a client. The result makes one step of it, and closes within it whatever connection it
  /// opens.
  std::function<void()> (*begin)(Scene& scene);
};

/// All kinds.
[[nodiscard]] std::span<const Work> works();

/// The clients at work, a thread each.
class Load {
 public:
  explicit Load(Scene& scene);
  ~Load() { stop(); }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

  void start();
  /// Lets each client end its step. The connections of their steps are closed then.
  void stop();
  /// The steps of each kind so far, in the order of `works`.
  [[nodiscard]] std::vector<long> steps() const;

 private:
  std::vector<std::function<void()>> clients_;
  std::vector<std::atomic<long>> steps_;
  std::atomic<bool> over_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace sorvane::soak
