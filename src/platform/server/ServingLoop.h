// The loop of one serving thread: it waits for its connections and serves those that are ready.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/Message.h"
#include "platform/NetConnection.h"
#include "platform/server/DeadlineQueue.h"
#include "platform/server/Poller.h"
#include "platform/server/WaitingThreads.h"
#include "platform/wire/ByteBuffer.h"

namespace sorvane {

class Acceptor;
class ServerConnection;

/// What the loops of a server share.
struct ServerContext {
  NetConnectionDelegate& delegate;
  WaitingThreads& deliveries;  ///< for requests that have to wait
  std::size_t maximumBodyBytes;
  std::chrono::milliseconds partialMessageTimeout;
  std::atomic<int> connections{0};  ///< open on all loops
};

/// `run` belongs to the loop's thread, and so does everything that has no other word here.
class ServingLoop {
 public:
  static constexpr std::size_t kInputBytes = 64 * 1024;
  /// How long a connection that was refused may still send into the void.
  static constexpr std::chrono::milliseconds kLinger{1000};

  explicit ServingLoop(ServerContext& context);
  ~ServingLoop();
  ServingLoop(const ServingLoop&) = delete;
  ServingLoop& operator=(const ServingLoop&) = delete;

  /// Serves for ever. `acceptor` (one loop has it) is told when its listening socket is ready; null
  /// elsewhere.
  [[noreturn]] void run(Acceptor* acceptor);

  /// Begins to serve a connection: calls `startCommunication` on the calling thread, then watches
  /// it. Any thread.
  void adopt(int descriptor);

  /// Hands a connection back whose request a waiting thread has delivered. Any thread.
  void delivered(ServerConnection& connection);

  /// How many connections the loop has. Any thread.
  [[nodiscard]] int load() const { return load_.load(std::memory_order_relaxed); }

  /// Ends the life of a connection.
  void forget(ServerConnection& connection);

  [[nodiscard]] ServerContext& context() { return context_; }
  [[nodiscard]] Poller& poller() { return poller_; }
  [[nodiscard]] char* input() { return input_.get(); }
  [[nodiscard]] ByteBuffer& output() { return output_; }
  [[nodiscard]] Message& request() { return request_; }
  [[nodiscard]] DeadlineQueue& partialFrames() { return partialFrames_; }
  [[nodiscard]] DeadlineQueue& lingerers() { return lingerers_; }

  /// True on a thread that runs a loop.
  [[nodiscard]] static bool isServingThread();

 private:
  [[nodiscard]] int millisecondsToNextDeadline(const Acceptor* acceptor) const;
  void expireDeadlines();
  void resumeDelivered();

  ServerContext& context_;
  Poller poller_;
  DeadlineQueue partialFrames_;
  DeadlineQueue lingerers_;
  const std::unique_ptr<char[]> input_;
  ByteBuffer output_;
  Message request_;
  std::atomic<int> load_{0};

  std::mutex mutex_;
  std::vector<ServerConnection*> delivered_;                    // guarded by mutex_
  std::vector<std::unique_ptr<ServerConnection>> connections_;  // by descriptor; guarded by mutex_
};

}  // namespace sorvane
