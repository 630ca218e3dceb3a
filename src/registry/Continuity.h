// How this name server has gone on: upgrades in place, and serving processes that were replaced.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Guarded.h"
#include "platform/KeptForm.h"

namespace sorvane {

/// Goes with the registry from one program to the next. Any thread.
class Continuity {
 public:
  static constexpr std::size_t kLongestReason = 200;  // bytes

  struct Figures {
    std::uint64_t upgrades = 0;  ///< how often a program has gone on in place of the one before
    std::uint64_t crashes = 0;   ///< how often a serving process was replaced after its death
    std::uint64_t attempts = 0;  ///< how often an upgrade was tried
    std::string refused;         ///< why the last one was put off or refused; empty: it was not
  };

  /// Notes that an upgrade is tried. What comes of it is noted later; until then it is not refused.
  void noteUpgradeAttempt();
  /// Notes why the upgrade that was tried was put off or refused: any bytes, at least one. Control
  /// characters and bytes that are not UTF-8 are escaped, and what is too long is cut.
  void noteRefused(std::string_view reason);
  /// Notes that this program goes on in place of the one that tried the upgrade.
  void noteUpgraded();
  /// Goes on with the figures of a serving process that has died.
  void goOn(Figures figures);

  /// All of them at one moment.
  [[nodiscard]] Figures figures() const;

  void keep(KeptWriter& writer) const;
  /// Raises KeptFault and changes nothing when that is nothing that was kept.
  void restore(KeptReader& reader);

 private:
  Guarded<Figures> figures_;
};

}  // namespace sorvane
