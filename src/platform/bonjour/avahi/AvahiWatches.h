// The descriptors and times for which the Avahi library waits.
#pragma once

#include <avahi-common/watch.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace sorvane {

/// The library's interface to a run loop, on poll(2). The library has an implementation of its own,
/// but programs that this process starts would inherit that one's descriptors. All of it belongs to
/// one thread.
class AvahiWatches {
 public:
  AvahiWatches();
  ~AvahiWatches();
  AvahiWatches(const AvahiWatches&) = delete;
  AvahiWatches& operator=(const AvahiWatches&) = delete;

  /// Returns the functions that the library calls, avahi-common/watch.h.
  [[nodiscard]] const AvahiPoll* functions() const { return &functions_; }

  /// Waits until something happens for which the library waits, at most for `limit`; nullopt means
  /// no limit. Then makes the library's calls for it. Returns false if the system cannot wait.
  [[nodiscard]] bool wait(std::optional<std::chrono::milliseconds> limit);

 private:
  friend AvahiWatch;
  friend AvahiTimeout;

  /// Returns `limit`, or the time until the library's next timeout if that is shorter.
  [[nodiscard]] int pollTime(std::optional<std::chrono::milliseconds> limit) const;
  void reportEvents();
  void reportTimeouts();

  AvahiPoll functions_{};
  // What the library has freed stays until the calls of one pass have been made.
  std::vector<std::unique_ptr<AvahiWatch>> watches_;
  std::vector<std::unique_ptr<AvahiTimeout>> timeouts_;
};

}  // namespace sorvane
