// A few texts, each of which may be nil, in one heap block: what a record costs is what its texts
// are long.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/NSException.h"

namespace sorvane {

/// `count` texts. Takes one pointer, and nothing else while all of them are nil. A view that `text`
/// answers is valid until the block is changed. Not synchronised.
template <std::size_t count>
class TextBlock {
 public:
  /// Nothing stands for nil, which is not the empty text.
  using Texts = std::array<std::optional<std::string_view>, count>;

  [[nodiscard]] std::optional<std::string_view> text(std::size_t index) const {
    if (block_ == nullptr) {
      return std::nullopt;
    }
    const std::uint32_t end = mark(index);
    if ((end & kNil) != 0) {
      return std::nullopt;
    }
    const std::uint32_t begin = index == 0 ? 0 : mark(index - 1) & ~kNil;
    return std::string_view(block_.get() + kMarksBytes + begin, end - begin);
  }

  /// Replaces all texts; they may be views into this block. Raises NSException when they are longer
  /// than 2 GiB together; the block is then as it was.
  void setAll(const Texts& texts) {
    std::size_t bytes = 0;
    bool allNil = true;
    for (const auto& each : texts) {
      bytes += each ? each->size() : 0;
      allNil = allNil && !each;
    }
    if (bytes >= kNil) {
      throw NSException("the texts of a port record are too long");
    }
    block_ = allNil ? nullptr : built(texts, bytes);
  }

  /// Replaces one text.
  void set(std::size_t index, std::optional<std::string_view> text) {
    Texts texts;
    for (std::size_t each = 0; each < count; ++each) {
      texts[each] = this->text(each);
    }
    texts[index] = text;
    setAll(texts);
  }

 private:
  // The block begins with a mark for each text: where it ends, counted from the first text, and
  // whether it is nil (then it ends where it begins).
  static constexpr std::uint32_t kNil = 0x80000000U;
  static constexpr std::size_t kMarksBytes = count * sizeof(std::uint32_t);

  [[nodiscard]] std::uint32_t mark(std::size_t index) const {
    std::uint32_t value = 0;
    std::memcpy(&value, block_.get() + index * sizeof value, sizeof value);
    return value;
  }

  [[nodiscard]] static std::unique_ptr<char[]> built(const Texts& texts, std::size_t bytes) {
    std::unique_ptr<char[]> block(new char[kMarksBytes + bytes]);
    std::uint32_t end = 0;
    for (std::size_t index = 0; index < count; ++index) {
      const auto& text = texts[index];
      if (text && !text->empty()) {
        std::memcpy(block.get() + kMarksBytes + end, text->data(), text->size());
        end += static_cast<std::uint32_t>(text->size());
      }
      const std::uint32_t value = text ? end : end | kNil;
      std::memcpy(block.get() + index * sizeof value, &value, sizeof value);
    }
    return block;
  }

  std::unique_ptr<char[]> block_;
};

}  // namespace sorvane
