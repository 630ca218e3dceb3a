// The held requests of one serving loop: which are to be asked for their reply, and when their time
// is over.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>

#include "platform/Reply.h"

namespace sorvane {

class ServerConnection;

/// A place in a ring of places. Alone, it is a ring of its own. It leaves its ring at its end.
/// `Kind` keeps the rings of one object apart.
template <typename Kind>
class RingPlace {
 public:
  RingPlace() = default;
  ~RingPlace() { leave(); }
  RingPlace(const RingPlace&) = delete;
  RingPlace& operator=(const RingPlace&) = delete;

  [[nodiscard]] bool isAlone() const { return after_ == this; }
  /// The place behind this one.
  [[nodiscard]] RingPlace& next() { return *after_; }

  void leave() {
    before_->after_ = after_;
    after_->before_ = before_;
    before_ = after_ = this;
  }
  /// Leaves its ring and goes before `other`, into that one's ring.
  void goBefore(RingPlace& other) {
    leave();
    before_ = other.before_;
    after_ = &other;
    before_->after_ = this;
    other.before_ = this;
  }
  /// Takes over the ring of `other`, which is alone then. This one must be alone.
  void takeRingOf(RingPlace& other) {
    goBefore(other);
    other.leave();
  }

 private:
  RingPlace* before_ = this;
  RingPlace* after_ = this;
};

/// A request that is held, or was: a connection keeps the object for its next one. It is in no ring
/// unless it is held. It leaves them at its end.
struct HeldRequest : RingPlace<struct ToAsk>, RingPlace<struct ToEnd> {
  using AskPlace = RingPlace<ToAsk>;
  using EndPlace = RingPlace<ToEnd>;
  using Clock = std::chrono::steady_clock;

  explicit HeldRequest(ServerConnection& theConnection) : connection(theConnection) {}

  ServerConnection& connection;
  Clock::time_point due;
};

static_assert(sizeof(HeldRequest) <= 48, "a held request is small: ten thousand of them wait");
// It has bases with members, so a structured binding cannot name them all.
static_assert(sizeof(HeldRequest) == sizeof(HeldRequest::AskPlace) + sizeof(HeldRequest::EndPlace) +
                                         sizeof(void*) + sizeof(HeldRequest::Clock::time_point),
              "what becomes of a further member when a held request is handed on?");

/// Belongs to one serving thread. Each operation takes the same time however many requests are
/// held. Requests of one holding time end in the order in which they came, so there is a ring for
/// each time, and none is kept waiting by those of another.
class HeldRequests {
 public:
  using Clock = HeldRequest::Clock;

  /// Adds a request that has just been asked for its reply on this thread.
  void add(HeldRequest& request, std::chrono::seconds time);
  /// Adds one that was asked on another thread: it is asked again soon.
  void addToAsk(HeldRequest& request, std::chrono::seconds time);
  /// Adds one that was held elsewhere and has `left`, at most `Reply::kLongestHold`: it is asked
  /// soon. Before any other, and in the order of their ends.
  void addToAsk(HeldRequest& request, std::chrono::milliseconds left);
  /// Takes a request out, if it is there.
  static void remove(HeldRequest& request) {
    request.HeldRequest::AskPlace::leave();
    request.HeldRequest::EndPlace::leave();
  }
  [[nodiscard]] bool empty() const { return asked_.isAlone() && toAsk_.isAlone(); }

  // ---- Changes

  /// From now on all requests are to be asked. Call it while none is.
  void beginAsking() { toAsk_.takeRingOf(asked_); }
  /// True while some are to be asked.
  [[nodiscard]] bool isAsking() const { return !toAsk_.isAlone(); }
  /// Returns the next request that is to be asked, which counts as asked then; null if there is
  /// none.
  [[nodiscard]] HeldRequest* nextToAsk();

  // ---- Time

  /// Returns when the next request may be over, or earlier; `time_point::max()` if none is held.
  [[nodiscard]] Clock::time_point nextDue() const {
    return empty() ? Clock::time_point::max() : due_;
  }
  /// Returns a request whose time is over, or null. Remove it before the next call.
  [[nodiscard]] HeldRequest* over(Clock::time_point now);

 private:
  using AskRing = HeldRequest::AskPlace;
  using EndRing = HeldRequest::EndPlace;

  /// `ring` is of a holding time that is not shorter than `left`.
  void setTime(HeldRequest& request, std::chrono::milliseconds left, std::chrono::seconds ring);
  /// Returns the request of a ring that ends first; null for an empty ring.
  [[nodiscard]] static HeldRequest* firstOf(EndRing& ring) {
    return ring.isAlone() ? nullptr : static_cast<HeldRequest*>(&ring.next());
  }

  AskRing asked_;  // since the last change that this loop knows of
  AskRing toAsk_;
  std::array<EndRing, Reply::kLongestHold.count() + 1> ends_;  // by holding time, seconds
  Clock::time_point due_ = Clock::time_point::max();           // nothing ends before
  std::size_t mayBeOver_ = 0;  // the rings before this one were looked through
};

}  // namespace sorvane
