// A few texts, each of which may be nil, in one heap block.
//
// The block begins with a 32-bit word for each text: the offset at which the text ends, counted
// from the first text, and in the top bit whether the text is nil (it then ends where it begins).
// The texts follow back to back. A text that has a key is the entry of a message, ready to copy
// into a reply; one without a key is its bytes alone:
//
//   | end[0] | ... | end[n-1] | 10 | 5 | portNumber | 5001\0 | ... | db1@hostA | ...
//   |<--- a word a text ----->|<- text 0, an entry: lengths, |     |<- a text
//                             |   key, value --------------->|     |   without a key
//                             ^ offset 0                     ^ end[0]
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/Message.h"
#include "platform/NSException.h"
#include "registry/RetiredTexts.h"

namespace sorvane {

/// Holds as many texts as `keys` has elements. A text whose key is not empty lies in the block as
/// the entry of a message under that key. The object is one pointer, which is null while all texts
/// are nil. A view that `text` or `entries` returns is valid while the block is not changed, and
/// then for as long as RetiredTexts.h says. Not synchronised.
template <const auto& keys>
class TextBlock {
 public:
  static constexpr std::size_t kCount = std::size(keys);
  /// An empty optional is nil, which differs from the empty text.
  using Texts = std::array<std::optional<std::string_view>, kCount>;

  TextBlock() = default;
  /// Raises NSException when the texts are longer than 2 GiB together.
  explicit TextBlock(const Texts& texts) {
    const std::size_t needed = bytesWith(texts);
    if (needed >= kNil) {
      throw NSException("the texts of a port record are too long");
    }
    block_ = needed == 0 ? nullptr : built(texts, needed);
  }

  [[nodiscard]] std::optional<std::string_view> text(std::size_t index) const {
    if (block_ == nullptr || isNil(index)) {
      return std::nullopt;
    }
    const std::size_t begin = beginOf(index) + bytesBefore(index);
    return std::string_view(contents() + begin, endOf(index) - bytesAfter(index) - begin);
  }

  /// Returns the texts from `first` to `last` as the entries of a message, without those that are
  /// nil. All of them must have keys.
  [[nodiscard]] std::string_view entries(std::size_t first, std::size_t last) const {
    if (block_ == nullptr) {
      return {};
    }
    const std::size_t begin = beginOf(first);
    return {contents() + begin, endOf(last) - begin};
  }

  /// Has the processor fetch the block, which is about to be read.
  void prefetch() const { __builtin_prefetch(block_.get()); }

  /// Returns all texts, as `setAll` takes them.
  [[nodiscard]] Texts texts() const {
    Texts texts;
    for (std::size_t index = 0; index < kCount; ++index) {
      texts[index] = text(index);
    }
    return texts;
  }

  /// Returns the size of the block; 0 while all texts are nil.
  [[nodiscard]] std::size_t bytes() const {
    return block_ == nullptr ? 0 : kEndsBytes + endOf(kCount - 1);
  }
  /// Returns what `bytes` would return with these texts.
  [[nodiscard]] static std::size_t bytesWith(const Texts& texts) {
    std::size_t bytes = 0;
    bool allNil = true;
    for (std::size_t index = 0; index < kCount; ++index) {
      if (texts[index]) {
        bytes += bytesBefore(index) + texts[index]->size() + bytesAfter(index);
        allNil = false;
      }
    }
    return allNil ? 0 : kEndsBytes + bytes;
  }

  /// Replaces all texts by those of another block.
  void replaceWith(TextBlock&& other) {
    const std::size_t replacedBytes = bytes();
    block_.swap(other.block_);
    if (other.block_ != nullptr) {
      retireText(std::move(other.block_), replacedBytes);
    }
  }
  /// Replaces all texts. They may be views into this block. Raises NSException and changes nothing
  /// when they are longer than 2 GiB together.
  void setAll(const Texts& texts) { replaceWith(TextBlock(texts)); }

  /// Replaces one text.
  void set(std::size_t index, std::optional<std::string_view> text) {
    Texts all = texts();
    all[index] = text;
    setAll(all);
  }

 private:
  static constexpr std::uint32_t kNil = 0x80000000U;
  static constexpr std::size_t kEndsBytes = kCount * sizeof(std::uint32_t);

  static constexpr std::size_t bytesBefore(std::size_t index) {
    return keys[index].empty() ? 0 : kEntryHeaderBytes + keys[index].size();
  }
  static constexpr std::size_t bytesAfter(std::size_t index) { return keys[index].empty() ? 0 : 1; }

  [[nodiscard]] const char* contents() const { return block_.get() + kEndsBytes; }
  [[nodiscard]] std::uint32_t endWord(std::size_t index) const {
    std::uint32_t value = 0;
    std::memcpy(&value, block_.get() + index * sizeof value, sizeof value);
    return value;
  }
  [[nodiscard]] bool isNil(std::size_t index) const { return (endWord(index) & kNil) != 0; }
  [[nodiscard]] std::size_t endOf(std::size_t index) const { return endWord(index) & ~kNil; }
  [[nodiscard]] std::size_t beginOf(std::size_t index) const {
    return index == 0 ? 0 : endOf(index - 1);
  }

  [[nodiscard]] static std::unique_ptr<char[]> built(const Texts& texts, std::size_t bytes) {
    std::unique_ptr<char[]> block(new char[bytes]);
    char* const contents = block.get() + kEndsBytes;
    char* out = contents;
    for (std::size_t index = 0; index < kCount; ++index) {
      const auto& text = texts[index];
      if (text) {
        out = keys[index].empty() ? std::copy_n(text->data(), text->size(), out)
                                  : writeTextEntry(out, keys[index], *text);
      }
      const auto end = static_cast<std::uint32_t>(out - contents);
      const std::uint32_t value = text ? end : end | kNil;
      std::memcpy(block.get() + index * sizeof value, &value, sizeof value);
    }
    return block;
  }

  std::unique_ptr<char[]> block_;
};

}  // namespace sorvane
