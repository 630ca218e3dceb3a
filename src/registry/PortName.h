// Names of ports with their hashes.
#pragma once

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/SipHash.h"

namespace sorvane {

/// A name, which must outlive it, and its hash. Hashing a long name takes time, so a name is made
/// where no lock is held. Strangers choose the names: without the key of the hash nobody can choose
/// names that meet.
class PortName {
 public:
  using Hash = std::size_t;
  /// No name has a hash below this.
  static constexpr Hash kLeastHash = 2;

  // NOLINTNEXTLINE(google-explicit-constructor): a name is a text
  template <std::convertible_to<std::string_view> Text>
  PortName(const Text& text, const SipKey& key = SipKey::ofThisProcess())
      : text_(text), hash_(hashOf(text_, key)) {}

  [[nodiscard]] std::string_view text() const { return text_; }
  [[nodiscard]] Hash hash() const { return hash_; }

 private:
  friend class OwnedPortName;
  PortName(std::string_view text, Hash hash) : text_(text), hash_(hash) {}

  static Hash hashOf(std::string_view text, const SipKey& key) {
    const auto hash = static_cast<Hash>(sipHash13(key, text));
    return hash < kLeastHash ? hash + kLeastHash : hash;
  }

  std::string_view text_;
  Hash hash_;
};

/// A name that has its text itself, ready to be entered.
class OwnedPortName {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor): a name is a text
  template <std::convertible_to<std::string_view> Text>
  OwnedPortName(const Text& text) : text_(std::string_view(text)), hash_(PortName(text_).hash()) {}

  // NOLINTNEXTLINE(google-explicit-constructor): the same name
  operator PortName() const { return {std::string_view(text_), hash_}; }
  [[nodiscard]] const std::string& text() const { return text_; }
  /// Hands the text out. The name is not to be used afterwards.
  [[nodiscard]] std::string takeText() { return std::move(text_); }

 private:
  std::string text_;
  PortName::Hash hash_;
};

}  // namespace sorvane
