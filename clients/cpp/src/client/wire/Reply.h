// A reply, read as it came over the wire.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace sorvane::client::detail {

inline constexpr std::size_t kHeaderBytes = 8;
inline constexpr std::size_t kMostBodyBytes = std::size_t{64} << 20;

/// What a frame begins with.
struct Header {
  bool isDictionary;
  std::size_t bodyBytes;  ///< at most kMostBodyBytes
};

/// Whether a header can begin with these bytes, the first ones of a reply.
[[nodiscard]] bool mayBeginAHeader(std::string_view bytes);

/// Reads the eight bytes of a header. Nothing when no name server sends such a one.
[[nodiscard]] std::optional<Header> readHeader(std::string_view bytes);

/// Entries in the order in which they came: key and value, both parts of what was read.
using Entries = std::vector<std::pair<std::string_view, std::string_view>>;

/// Reads entries that fill the bytes. Nothing when they do not, when a key occurs twice, and when a
/// key is not UTF-8 or has a NUL.
[[nodiscard]] std::optional<Entries> readEntries(std::string_view bytes);

/// The text of a value: what stands before its first NUL. Nothing when that is not UTF-8.
[[nodiscard]] std::optional<std::string_view> textOf(std::string_view value);

/// A whole reply. The entries are parts of its body, and stay so when it is moved.
class Reply {
 public:
  /// "No dictionary".
  Reply() = default;
  /// A dictionary; nothing when the body is none.
  [[nodiscard]] static std::optional<Reply> ofBody(std::vector<char> body);

  Reply(Reply&&) = default;
  Reply& operator=(Reply&&) = default;
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  [[nodiscard]] bool isDictionary() const { return isDictionary_; }
  [[nodiscard]] const Entries& entries() const { return entries_; }
  /// The text under a key; nothing when there is none.
  [[nodiscard]] std::optional<std::string_view> text(std::string_view key) const;

 private:
  bool isDictionary_ = false;
  std::vector<char> body_;
  Entries entries_;
};

}  // namespace sorvane::client::detail
