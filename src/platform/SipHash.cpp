#include "platform/SipHash.h"

#include <random>

namespace sorvane {
namespace {

SipKey drawnKey() {
  std::random_device random;
  const auto word = [&] { return std::uint64_t{random()} << 32 | random(); };
  return {word(), word()};
}

// The first call decides.
const SipKey& keyOfThisProcess(const SipKey* given) {
  static const SipKey key = given == nullptr ? drawnKey() : *given;
  return key;
}

}  // namespace

const SipKey& SipKey::ofThisProcess() { return keyOfThisProcess(nullptr); }

bool SipKey::setOfThisProcess(const SipKey& key) { return keyOfThisProcess(&key) == key; }

}  // namespace sorvane
