// The texts of records that were replaced, kept until the message that replaced them has ended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace sorvane {

/// A thread keeps at most this many blocks, and of the older ones at most this many bytes. The last
/// block is kept whatever its size. So a message that replaces the texts of one record keeps them
/// all. A walk that drops the alerts of many records keeps the last of them.
inline constexpr std::size_t kRetiredBlocks = 8;
inline constexpr std::size_t kRetiredBytes = std::size_t{4} << 20;

/// How many blocks this thread keeps.
extern constinit thread_local std::uint32_t retiredTexts;

/// Keeps a block of texts that was replaced. When there are too many, the oldest ones are freed.
void retireText(std::unique_ptr<char[]> block, std::size_t bytes);

/// Frees all blocks of this thread.
void freeRetiredTexts();

/// Call this when a message has ended, on the thread that has delivered it.
inline void releaseRetiredTexts() {
  if (retiredTexts > 0) {
    freeRetiredTexts();
  }
}

}  // namespace sorvane
