#include "platform/server/HeldRequests.h"

#include <algorithm>

namespace sorvane {

void HeldRequests::add(HeldRequest& request, std::chrono::seconds time) {
  request.HeldRequest::AskPlace::goBefore(asked_);
  setTime(request, time, time);
}

void HeldRequests::addToAsk(HeldRequest& request, std::chrono::seconds time) {
  request.HeldRequest::AskPlace::goBefore(toAsk_);
  setTime(request, time, time);
}

// Whatever comes into the ring of the longest time later ends later, too: so it stays in order.
void HeldRequests::addToAsk(HeldRequest& request, std::chrono::milliseconds left) {
  request.HeldRequest::AskPlace::goBefore(toAsk_);
  setTime(request, left, Reply::kLongestHold);
}

void HeldRequests::setTime(HeldRequest& request, std::chrono::milliseconds left,
                           std::chrono::seconds ring) {
  request.due = Clock::now() + left;
  request.HeldRequest::EndPlace::goBefore(ends_[static_cast<std::size_t>(ring.count())]);
  due_ = std::min(due_, request.due);
}

HeldRequest* HeldRequests::nextToAsk() {
  if (toAsk_.isAlone()) {
    return nullptr;
  }
  auto* const request = static_cast<HeldRequest*>(&toAsk_.next());
  request->HeldRequest::AskPlace::goBefore(asked_);
  return request;
}

// Many are over at the same time, most of them in one ring: the search goes on where it was.
HeldRequest* HeldRequests::over(Clock::time_point now) {
  if (due_ > now) {
    return nullptr;
  }
  for (; mayBeOver_ < ends_.size(); ++mayBeOver_) {
    HeldRequest* const first = firstOf(ends_[mayBeOver_]);
    if (first != nullptr && first->due <= now) {
      return first;
    }
  }
  mayBeOver_ = 0;
  due_ = Clock::time_point::max();
  for (EndRing& ring : ends_) {
    if (const HeldRequest* const first = firstOf(ring)) {
      due_ = std::min(due_, first->due);
    }
  }
  return nullptr;
}

}  // namespace sorvane
