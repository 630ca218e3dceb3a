// Tells which of many descriptors can be read or written now.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

namespace sorvane {

/// Level-triggered: an event comes again as long as its cause lasts. One thread calls `wait`; any
/// thread may call the other operations. EpollPollerLinux.cpp and PollPoller.cpp implement the
/// class on different system calls; the build chooses one.
class Poller {
 public:
  enum class Interest : std::uint8_t { none, readable, writable };

  struct Event {
    void* owner;    ///< as given to `add`; null for a wake-up
    bool readable;  ///< can be read, has ended or has failed
    bool writable;  ///< can be written or has failed
  };

  static constexpr int kEventsAtOnce = 256;
  static constexpr int kForever = -1;

  Poller();
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  /// Begins to watch a descriptor. `owner` must not be null. Returns false if the system refuses
  /// (no memory).
  [[nodiscard]] bool add(int descriptor, Interest interest, void* owner);
  /// Watches for something else from now on. Returns false if the system refuses: what was watched
  /// for before still is.
  [[nodiscard]] bool modify(int descriptor, Interest interest, void* owner);
  /// Ends the watching.
  void remove(int descriptor);

  /// Waits for events, at most `milliseconds`, or for ever if that is `kForever`. The events that
  /// it returns are valid until the next call.
  [[nodiscard]] std::span<const Event> wait(int milliseconds);

  /// Makes the current or next `wait` return with a wake-up event.
  void wake();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace sorvane
