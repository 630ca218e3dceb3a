#include "client/Worker.h"

#include <cstdint>

#include "client/net/Thread.h"
#include "client/net/Wait.h"

namespace sorvane::client::detail {
namespace {

/// From 0 to `most`, other ones in each process and at each call.
std::uint64_t randomNumber(std::uint64_t most) {
  static std::atomic<std::uint64_t> calls{0};
  const auto time = static_cast<std::uint64_t>(Clock::now().time_since_epoch().count());
  std::uint64_t mixed = time + ++calls * 0x9E3779B97F4A7C15U + static_cast<std::uint64_t>(getpid());
  mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9U;
  mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBU;
  return (mixed ^ mixed >> 31) % (most + 1);
}

}  // namespace

Result<void> Worker::start(const std::shared_ptr<Worker>& worker) {
  if (worker->isReady_) {
    worker->thread_ = startThread([worker] {
      worker->number_ = std::this_thread::get_id();
      worker->run();
    });
  }
  if (!worker->thread_.joinable()) {
    return Error{ErrorCode::system, "no descriptor or thread is left"};
  }
  return {};
}

void Worker::stop() {
  if (getpid() != process_) {
    // A fork has left the thread behind, and what that thread shares stays with this process.
    return;
  }
  stopping_ = true;
  stopped_.wake();
  wakeToStop();
  if (isOwnThread()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void Worker::pauseBeforeRetry() const {
  pauseUntil(after(std::chrono::milliseconds(200 + randomNumber(1800))));
}

void Worker::pauseUntil(std::chrono::steady_clock::time_point time) const {
  static_cast<void>(waitForReading(-1, {time, stopDescriptor()}));
}

}  // namespace sorvane::client::detail
