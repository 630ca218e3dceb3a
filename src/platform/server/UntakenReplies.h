// Replies that clients have not taken yet, and what all of them together hold in memory.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_map>

#include "platform/server/ByteSum.h"
#include "platform/server/KeptServer.h"
#include "platform/wire/ReplyBuffer.h"

namespace sorvane {

/// The sum over all connections, with a limit. Bytes of a connection's own count with the memory
/// that is kept for them. A text that connections share counts once, as long as one of them holds
/// it: that is what it costs. Any thread.
class UntakenTotal {
 public:
  explicit UntakenTotal(std::size_t limit) : sum_(limit) {}

  /// Adds replies that are kept from now on. Returns false and adds nothing if the sum would pass
  /// the limit.
  [[nodiscard]] bool add(const ReplyBuffer& replies);
  /// Adds replies even beyond the limit.
  void addAnyway(const ReplyBuffer& replies);
  /// Takes away replies that were added and have not been changed since.
  void subtract(const ReplyBuffer& replies);

  [[nodiscard]] std::size_t bytes() const { return sum_.now(); }

 private:
  /// Adds or removes a holder of each shared text. Returns the bytes of those that had no holder
  /// before, or have none any more. mutex_ is held.
  [[nodiscard]] std::size_t addHolders(const ReplyBuffer& replies);
  [[nodiscard]] std::size_t removeHolders(const ReplyBuffer& replies);

  ByteSum sum_;
  std::mutex mutex_;  // taken for replies with shared texts only
  std::unordered_map<const std::string*, std::size_t> holders_;  // of each text; guarded by mutex_
};

/// The replies of one connection that its client has not taken yet. Not synchronised.
class UntakenReplies {
 public:
  explicit UntakenReplies(UntakenTotal& total) : total_(total) {}
  ~UntakenReplies() { drop(); }
  UntakenReplies(const UntakenReplies&) = delete;
  UntakenReplies& operator=(const UntakenReplies&) = delete;

  [[nodiscard]] bool empty() const { return replies_.empty(); }
  /// How many bytes of the replies are sent.
  [[nodiscard]] std::size_t sent() const { return sent_; }

  /// Takes over replies of which the first `sent` bytes are sent; there must be none so far.
  /// Returns false and keeps nothing if all connections' replies would pass the limit.
  [[nodiscard]] bool keep(ReplyBuffer replies, std::size_t sent);
  /// Sends as much as one call takes; drops the replies when all is sent. Returns how many bytes
  /// were sent, or -1 with the reason in `errno`.
  [[nodiscard]] ssize_t send(int descriptor);
  void drop();

  /// Describes what is not sent yet. Valid until the replies change.
  [[nodiscard]] KeptReplies kept() const;
  /// Takes over replies that another program has kept, even beyond the limit; there must be none so
  /// far.
  void restore(const KeptReplies& kept);

 private:
  UntakenTotal& total_;
  ReplyBuffer replies_;
  std::size_t sent_ = 0;
};

}  // namespace sorvane
