#include "platform/server/UntakenReplies.h"

#include <algorithm>
#include <utility>

#include "platform/server/SocketCalls.h"

namespace sorvane {
namespace {

// A buffer of which less than this part is still to be sent is not worth keeping: a few bytes must
// not hold the memory of a long reply that another connection had before.
constexpr std::size_t kLeastPartInUse = 4;

/// Returns `replies` without the first `sent` bytes, which are set to 0, if that saves much memory.
ReplyBuffer withoutSpareMemory(ReplyBuffer replies, std::size_t& sent) {
  const bool isWorthIt = replies.shared().empty() &&
                         (replies.size() - sent) < replies.own().capacity() / kLeastPartInUse;
  if (!isWorthIt) {
    return replies;
  }
  ReplyBuffer rest;
  rest.own().append(replies.own().view().substr(std::exchange(sent, 0)));
  return rest;
}

}  // namespace

std::size_t UntakenTotal::addHolders(const ReplyBuffer& replies) {
  std::size_t bytes = 0;
  for (const ReplyBuffer::SharedText& each : replies.shared()) {
    if (++holders_[each.text.get()] == 1) {
      bytes += each.text->capacity();
    }
  }
  return bytes;
}

std::size_t UntakenTotal::removeHolders(const ReplyBuffer& replies) {
  std::size_t bytes = 0;
  for (const ReplyBuffer::SharedText& each : replies.shared()) {
    const auto holders = holders_.find(each.text.get());
    if (--holders->second == 0) {
      holders_.erase(holders);
      bytes += each.text->capacity();
    }
  }
  return bytes;
}

bool UntakenTotal::add(const ReplyBuffer& replies) {
  const std::size_t own = replies.own().capacity();
  if (replies.shared().empty()) {
    return sum_.add(own, own);
  }
  const std::lock_guard<std::mutex> hold(mutex_);
  const std::size_t bytes = own + addHolders(replies);
  if (sum_.add(bytes, bytes)) {
    return true;
  }
  static_cast<void>(removeHolders(replies));
  return false;
}

void UntakenTotal::addAnyway(const ReplyBuffer& replies) {
  const std::lock_guard<std::mutex> hold(mutex_);
  sum_.addAnyway(replies.own().capacity() + addHolders(replies));
}

void UntakenTotal::subtract(const ReplyBuffer& replies) {
  const std::size_t own = replies.own().capacity();
  if (replies.shared().empty()) {
    sum_.subtract(own);
    return;
  }
  const std::lock_guard<std::mutex> hold(mutex_);
  sum_.subtract(own + removeHolders(replies));
}

bool UntakenReplies::keep(ReplyBuffer replies, std::size_t sent) {
  replies = withoutSpareMemory(std::move(replies), sent);
  if (!total_.add(replies)) {
    return false;
  }
  replies_ = std::move(replies);
  sent_ = sent;
  return true;
}

ssize_t UntakenReplies::send(int descriptor) {
  const ssize_t sent = sendReplies(descriptor, replies_, sent_);
  if (sent > 0) {
    sent_ += static_cast<std::size_t>(sent);
    if (sent_ == replies_.size()) {
      drop();
    }
  }
  return sent;
}

void UntakenReplies::drop() {
  if (!empty()) {
    total_.subtract(replies_);
    replies_ = ReplyBuffer();
    sent_ = 0;
  }
}

KeptReplies UntakenReplies::kept() const {
  const auto& [total, replies, sent] = *this;  // the total is counted anew
  KeptReplies kept;
  std::size_t ownSent = 0;
  std::size_t left = sent;
  auto each = replies.shared().begin();
  for (; each != replies.shared().end(); ++each) {
    const std::size_t ownBefore = each->place - ownSent;
    if (left < ownBefore + each->bytes().size()) {
      kept.sentOfFirst = left - std::min(left, ownBefore);
      break;
    }
    left -= ownBefore + each->bytes().size();
    ownSent = each->place;
  }
  ownSent += left - kept.sentOfFirst;
  kept.own = replies.own().view().substr(ownSent);
  for (; each != replies.shared().end(); ++each) {
    kept.shared.push_back({each->place - ownSent, each->text});
  }
  return kept;
}

void UntakenReplies::restore(const KeptReplies& kept) {
  auto& [total, replies, sent] = *this;
  std::size_t done = 0;
  for (const ReplyBuffer::SharedText& each : kept.shared) {
    replies.own().append(kept.own.substr(done, each.place - done));
    replies.share(each.text);
    done = each.place;
  }
  replies.own().append(kept.own.substr(done));
  sent = kept.sentOfFirst;
  total.addAnyway(replies);
}

}  // namespace sorvane
