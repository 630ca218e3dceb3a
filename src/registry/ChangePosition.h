// How far a client has been told what changed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "registry/ChangeOrder.h"

namespace sorvane {

/// Between two requests it travels as the text "sequence". A client may send any text, so the
/// indices are believed only where they fit.
struct ChangePosition {
  using Index = ChangeOrder::Index;
  using Number = ChangeOrder::Number;

  /// All changes up to this number were told.
  Number number = 0;
  /// While a client is told everything from the start: the number of the last change when that
  /// began. Names that were removed before are not told. Otherwise 0.
  Number begun = 0;
  // Where to go on, for a reply that was cut; kNone if that is not known.
  Index slot = ChangeOrder::kNone;  ///< of the table: the next entry
  Index gone = ChangeOrder::kNone;  ///< the next removed name
  /// How often the slots had got other places, as PortTable tells it.
  std::uint32_t moves = 0;

  /// The number since which all removals must be remembered.
  [[nodiscard]] Number removalsKnownUpTo() const { return begun > number ? begun : number; }
  /// Returns true if nothing but the number says where to go on.
  [[nodiscard]] bool isAtRest() const {
    return begun == 0 && slot == ChangeOrder::kNone && gone == ChangeOrder::kNone;
  }

  /// Returns it as decimal digits, 64 at most.
  [[nodiscard]] std::string text() const;
  /// Reads what `text` returns. Returns nothing for any other text.
  static std::optional<ChangePosition> from(std::string_view text);
};

}  // namespace sorvane
