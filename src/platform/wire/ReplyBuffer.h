// Replies on their way to a client: bytes of their own and, between them, texts that are shared.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/wire/ByteBuffer.h"

namespace sorvane {

/// The output of a connection. Nearly all of it is bytes of its own. A long text that many clients
/// ask for can stand between them without being copied: the buffer keeps a share in it. Can be
/// moved but not copied; a buffer that was moved away is empty. Raises std::bad_alloc if there is
/// no memory.
class ReplyBuffer {
 public:
  struct SharedText {
    std::size_t place;  ///< how many of the buffer's own bytes go before the text
    std::shared_ptr<const std::string> text;

    /// The text with its terminating NUL, as it travels.
    [[nodiscard]] std::string_view bytes() const { return {text->c_str(), text->size() + 1}; }
  };

  ReplyBuffer() = default;
  ReplyBuffer(ReplyBuffer&& other) noexcept { swap(other); }
  ReplyBuffer& operator=(ReplyBuffer&& other) noexcept {
    ReplyBuffer(std::move(other)).swap(*this);
    return *this;
  }
  ~ReplyBuffer() = default;

  /// The bytes of its own, in their order. Append to them; cut them with `truncate`.
  [[nodiscard]] ByteBuffer& own() { return own_; }
  [[nodiscard]] const ByteBuffer& own() const { return own_; }
  /// The shared texts, in their order.
  [[nodiscard]] const std::vector<SharedText>& shared() const { return shared_; }

  /// Appends a text with its terminating NUL.
  void share(std::shared_ptr<const std::string> text) {
    sharedBytes_ += text->size() + 1;
    shared_.push_back({own_.size(), std::move(text)});
  }

  /// Length of everything, bytes.
  [[nodiscard]] std::size_t size() const { return own_.size() + sharedBytes_; }
  [[nodiscard]] bool empty() const { return size() == 0; }
  /// Length of the shared texts that stand after own bytes from `place` on.
  [[nodiscard]] std::size_t sharedBytesBeyond(std::size_t place) const {
    return shared_.empty() ? 0 : countSharedBeyond(place);
  }

  /// Calls `use` with each run of bytes, in the order in which they are sent.
  template <typename Use>
  void forEachPiece(Use&& use) const {
    const std::string_view own = own_.view();
    std::size_t done = 0;
    for (const SharedText& each : shared_) {
      use(own.substr(done, each.place - done));
      use(each.bytes());
      done = each.place;
    }
    use(own.substr(done));
  }

  /// Cuts off the own bytes from `place` on and the shared texts among them. A text that stands
  /// right before `place` stays. Keeps the memory of the own bytes.
  void truncate(std::size_t place) {
    own_.truncate(place);
    while (!shared_.empty() && shared_.back().place > place) {
      sharedBytes_ -= shared_.back().bytes().size();
      shared_.pop_back();
    }
  }
  /// Cuts off everything. Keeps the memory of the own bytes.
  void clear() {
    own_.clear();
    shared_.clear();
    sharedBytes_ = 0;
  }

  void swap(ReplyBuffer& other) noexcept {
    own_.swap(other.own_);
    shared_.swap(other.shared_);
    std::swap(sharedBytes_, other.sharedBytes_);
  }

 private:
  [[nodiscard]] std::size_t countSharedBeyond(std::size_t place) const;

  ByteBuffer own_;
  std::vector<SharedText> shared_;
  std::size_t sharedBytes_ = 0;  // of all of shared_
};

}  // namespace sorvane
