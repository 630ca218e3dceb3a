#include "registry/Continuity.h"

#include <utility>

#include "platform/Utf8.h"

namespace sorvane {

void Continuity::noteUpgradeAttempt() {
  figures_.with([](Figures& figures) {
    ++figures.attempts;
    figures.refused.clear();
  });
}

void Continuity::noteRefused(std::string_view reason) {
  const std::string readable = escapeControls(reason);
  std::string cut(utf8Beginning(readable, kLongestReason));
  figures_.with([&](Figures& figures) { figures.refused.swap(cut); });
}

void Continuity::noteUpgraded() {
  figures_.with([](Figures& figures) { ++figures.upgrades; });
}

void Continuity::goOn(Figures figures) {
  figures_.with([&](Figures& now) { now = std::move(figures); });
}

Continuity::Figures Continuity::figures() const {
  return figures_.with([](const Figures& figures) { return figures; });
}

// A further member does not compile until these two know it.
void Continuity::keep(KeptWriter& writer) const {
  const auto& [guarded] = *this;
  guarded.with([&](const Figures& figures) {
    const auto& [upgrades, crashes, attempts, refused] = figures;
    writer.number(upgrades);
    writer.number(crashes);
    writer.number(attempts);
    writer.text(refused);
  });
}

void Continuity::restore(KeptReader& reader) {
  auto& [guarded] = *this;
  Figures read;
  auto& [upgrades, crashes, attempts, refused] = read;
  upgrades = reader.number();
  crashes = reader.number();
  attempts = reader.number();
  refused = reader.text();
  if (refused.size() > kLongestReason || escapeControls(refused) != refused) {
    throw KeptFault("what was kept has a reason that cannot be");
  }
  guarded.with([&](Figures& figures) { figures = std::move(read); });
}

}  // namespace sorvane
