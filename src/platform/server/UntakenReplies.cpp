#include "platform/server/UntakenReplies.h"

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

}  // namespace sorvane
