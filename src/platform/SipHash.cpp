#include "platform/SipHash.h"

#include <random>

namespace sorvane {
namespace {

SipKey drawnKey() {
  std::random_device random;
  const auto word = [&] { return std::uint64_t{random()} << 32 | random(); };
  return {word(), word()};
}

}  // namespace

const SipKey& SipKey::ofThisProcess() {
  static const SipKey key = drawnKey();
  return key;
}

}  // namespace sorvane
