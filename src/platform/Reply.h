// What a handler returns for a request.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace sorvane {

/// The kind of a reply. A written reply lies in the connection's output already. "Held" is no reply
/// yet: there will be one when something changes, or when the time is over.
class [[nodiscard]] Reply {
 public:
  enum class Kind : std::uint8_t {
    none,     ///< nil: no dictionary
    written,  ///< what `replyWriter` wrote; the empty dictionary when it wrote nothing
    request,  ///< the request itself, byte for byte
    held,     ///< none yet: see `NetConnectionDelegate::deliverHeld`
  };

  /// A request is held this long at most.
  static constexpr std::chrono::seconds kLongestHold{300};

  static Reply none() { return Reply(Kind::none); }
  static Reply written() { return Reply(Kind::written); }
  static Reply request() { return Reply(Kind::request); }
  /// The request is held for `time`, which is at most `kLongestHold`.
  static Reply held(std::chrono::seconds time) {
    const auto seconds = std::clamp(time, std::chrono::seconds(0), kLongestHold).count();
    return Reply(Kind::held, static_cast<std::uint16_t>(seconds));
  }

  [[nodiscard]] Kind kind() const { return kind_; }
  [[nodiscard]] bool isHeld() const { return kind_ == Kind::held; }
  /// How long a held request is held.
  [[nodiscard]] std::chrono::seconds time() const { return std::chrono::seconds(seconds_); }
  bool operator==(const Reply&) const = default;

 private:
  explicit Reply(Kind kind, std::uint16_t seconds = 0) : kind_(kind), seconds_(seconds) {}
  Kind kind_;
  std::uint16_t seconds_;
};

}  // namespace sorvane
