// Points in time as replies tell them.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>

namespace sorvane {

/// Seconds as decimal text with six decimals.
class SecondsText {
 public:
  explicit SecondsText(double seconds)
      : length_(static_cast<std::size_t>(std::snprintf(text_, sizeof text_, "%f", seconds))) {}

  /// A view into this.
  [[nodiscard]] std::string_view view() const { return {text_, length_}; }

 private:
  char text_[400];  // the longest number of "%f" has 317 characters
  std::size_t length_;
};

}  // namespace sorvane
