// The form in which the name server hands what it keeps in memory to the program that goes on with
// it: a newer version of itself, or one that takes the place of one that has died.
//
// A description is a header and a body:
//
//   "sorvkept" | version | bytes of the body | check sum of the body | body
//      8 bytes |       4 |                 8 |                     8 |
//
// Its numbers are little-endian. The body is a row of values without names: whoever reads it asks
// for the same values in the same order. A number is written in groups of seven bits, the lowest
// first, each but the last with the top bit set. A text has its length before it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/NSException.h"
#include "platform/SipHash.h"

namespace sorvane {

class KeptFile;

/// The version that this program writes. It reads this one and all before it. Each change of what
/// is written gets a new one: docs/continuity.md tells how.
inline constexpr std::uint32_t kKeptVersion = 1;

/// A description is damaged, or from a version that this program does not know.
class KeptFault : public NSException {
 public:
  using NSException::NSException;
};

/// Length of each header, in bytes.
inline constexpr std::size_t kKeptHeaderBytes = 28;

/// Returns the check sum of a body that has no bytes yet; add them.
[[nodiscard]] SipHash13 beginKeptCheckSum();
/// Returns the header of a description whose body has that check sum.
[[nodiscard]] std::string keptHeader(const SipHash13& checkSum);
/// Returns the header of a description with that body.
[[nodiscard]] std::string keptHeader(std::string_view body);

/// Writes a description, in memory; the one of a `KeptFile` hands the body on to it in pieces.
/// Raises std::bad_alloc if there is no memory. One thread at a time.
class KeptWriter {
 public:
  /// A writer in memory.
  KeptWriter() = default;

  void number(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) {
      body_ += static_cast<char>(value | 0x80);
    }
    body_ += static_cast<char>(value);
    handOnPiece();
  }
  void flag(bool value) { number(value ? 1 : 0); }
  /// Any value, also one that is no number; read back bit by bit.
  void real(double value);
  void text(std::string_view value) {
    number(value.size());
    if (value.size() >= pieceBytes_) {
      handOn(value);
      return;
    }
    body_ += value;
    handOnPiece();
  }
  void optionalText(const std::optional<std::string_view>& value) {
    flag(value.has_value());
    if (value) {
      text(*value);
    }
  }
  /// An open descriptor, which the next program needs: see `descriptors`.
  void descriptor(int number);

  /// Takes memory for so many bytes at once.
  void reserve(std::size_t bytes) { body_.reserve(bytes); }
  /// Makes this like new, but keeps memory for another short description.
  void clear();

  /// Returns the descriptors that were written, in their order. The next program must inherit them.
  [[nodiscard]] const std::vector<int>& descriptors() const { return descriptors_; }
  /// Returns what is in memory: all of the body, unless pieces of it were handed on.
  [[nodiscard]] std::string_view body() const { return body_; }
  /// Returns the header that goes before the body. The caller writes both: a body may be long.
  [[nodiscard]] std::string header() const { return keptHeader(body_); }

 private:
  friend class KeptFile;

  KeptWriter(KeptFile& file, std::size_t pieceBytes) : file_(&file), pieceBytes_(pieceBytes) {}

  void handOnPiece() {
    if (body_.size() >= pieceBytes_) [[unlikely]] {
      handOn({});
    }
  }
  /// Hands on what is in memory, and a text behind it.
  void handOn(std::string_view next);

  std::string body_;
  std::vector<int> descriptors_;
  KeptFile* file_ = nullptr;
  std::size_t pieceBytes_ = std::numeric_limits<std::size_t>::max();
};

/// Reads a description, or a part of one. Believes nothing: each function raises KeptFault if there
/// is no such value, or none within the range. Owns nothing: a text that it returns is a view of
/// the description. One thread at a time.
class KeptReader {
 public:
  /// Checks header and check sum of a whole description, which must outlive the reader.
  explicit KeptReader(std::string_view description);
  /// Returns a reader of values that something else has checked already, of the present version.
  [[nodiscard]] static KeptReader ofBody(std::string_view body);

  /// The version of the description: 1 to `kKeptVersion`.
  [[nodiscard]] std::uint32_t version() const { return version_; }

  [[nodiscard]] std::uint64_t number(std::uint64_t most = ~std::uint64_t{0});
  [[nodiscard]] bool flag() { return number(1) != 0; }
  [[nodiscard]] double real();
  [[nodiscard]] std::string_view text();
  [[nodiscard]] std::optional<std::string_view> optionalText();
  /// Reads how many things follow that take `leastBytes` each, or more. What is left must have room
  /// for them, so a reader may reserve memory for so many.
  [[nodiscard]] std::size_t count(std::size_t leastBytes = 1);
  /// Reads the number of a descriptor: 3 to 2^31 - 1. Whether it is open is for the caller to see.
  [[nodiscard]] int descriptor();
  /// Raises KeptFault unless everything was read.
  void end() const;

 private:
  KeptReader() = default;

  std::string_view rest_;
  std::uint32_t version_ = 0;
};

}  // namespace sorvane
