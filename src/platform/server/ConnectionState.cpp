#include "platform/server/ConnectionState.h"

#include <algorithm>
#include <utility>

#include "platform/server/ServingLoop.h"

namespace sorvane {
namespace {

// More memory of leftover input is given back when half of it is not in use.
constexpr std::size_t kKeptInput = 4096;

}  // namespace

ConnectionState::Leftover::Leftover(ServerContext& context)
    : inputShare(context.unfinishedInput), output(context.untakenReplies) {}

void ConnectionState::Input::takeOff(std::size_t bytes) {
  handled_ += bytes;
  completeBytes_ -= std::min(bytes, completeBytes_);
  if (size() <= handled_) {
    bytes_.erase(0, std::exchange(handled_, 0));
    if (bytes_.capacity() > kKeptInput && bytes_.size() < bytes_.capacity() / 2) {
      bytes_.shrink_to_fit();
    }
  }
}

std::optional<FrameHeader> ConnectionState::Input::firstUnfinished(std::size_t maximumBodyBytes) {
  while (completeBytes_ < size()) {
    const std::string_view rest = view().substr(completeBytes_);
    const FrameHeader header = readFrameHeader(rest, maximumBodyBytes);
    if (header.fault != nullptr || !header.complete ||
        rest.size() - kFrameHeaderBytes < header.bodyBytes) {
      return header;
    }
    completeBytes_ += kFrameHeaderBytes + header.bodyBytes;
  }
  return std::nullopt;
}

std::string_view ConnectionState::Input::kept() const {
  const auto& [bytes, handled, completeBytes] = *this;  // the last is found again
  return std::string_view(bytes).substr(handled);
}

}  // namespace sorvane
