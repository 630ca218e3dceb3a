// What a handler returns for a request.
#pragma once

#include <cstdint>

namespace sorvane {

/// The kind of a reply. A written reply lies in the connection's output already.
class [[nodiscard]] Reply {
 public:
  enum class Kind : std::uint8_t {
    none,     ///< nil: no dictionary
    written,  ///< what `replyWriter` wrote; the empty dictionary when it wrote nothing
    request,  ///< the request itself, byte for byte
  };

  static Reply none() { return Reply(Kind::none); }
  static Reply written() { return Reply(Kind::written); }
  static Reply request() { return Reply(Kind::request); }

  [[nodiscard]] Kind kind() const { return kind_; }
  bool operator==(const Reply&) const = default;

 private:
  explicit Reply(Kind kind) : kind_(kind) {}
  Kind kind_;
};

}  // namespace sorvane
