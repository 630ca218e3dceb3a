#include "registry/RetiredTexts.h"

#include <algorithm>
#include <array>
#include <utility>

namespace sorvane {
namespace {

struct Retired {
  std::unique_ptr<char[]> block;
  std::size_t bytes = 0;
};

// The first `retiredTexts` of them are in use, the oldest one first.
thread_local std::array<Retired, kRetiredBlocks> blocks;
thread_local std::size_t totalBytes = 0;

void freeOldest() {
  totalBytes -= blocks.front().bytes;
  std::move(blocks.begin() + 1, blocks.begin() + retiredTexts, blocks.begin());
  --retiredTexts;
  blocks[retiredTexts] = {};
}

}  // namespace

constinit thread_local std::uint32_t retiredTexts = 0;

void retireText(std::unique_ptr<char[]> block, std::size_t bytes) {
  while (retiredTexts > 0 &&
         (retiredTexts == kRetiredBlocks || totalBytes + bytes > kRetiredBytes)) {
    freeOldest();
  }
  blocks[retiredTexts] = {std::move(block), bytes};
  totalBytes += bytes;
  ++retiredTexts;
}

void freeRetiredTexts() {
  while (retiredTexts > 0) {
    freeOldest();
  }
}

}  // namespace sorvane
