// A request, written as it goes over the wire.
#pragma once

#include <string>
#include <string_view>

namespace sorvane::client::detail {

/// The frame of a dictionary of texts.
class Request {
 public:
  Request() : frame_("SV\x01\x01\0\0\0\0", 8) {}
  /// The request that a text under "action" names.
  [[nodiscard]] static Request action(std::string_view name);

  /// Adds an entry: a key that is not there yet, and a text (see `isText`).
  Request& with(std::string_view key, std::string_view text);

  [[nodiscard]] const std::string& frame() const { return frame_; }

 private:
  std::string frame_;
};

/// True for what can be sent as a text: UTF-8 without a NUL, short enough that a name server takes
/// a request with it.
[[nodiscard]] bool isText(std::string_view bytes);

}  // namespace sorvane::client::detail
