// Messages: the dictionary of a request or a reply, in the form in which it travels.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/NSException.h"
#include "platform/Utf8.h"
#include "platform/wire/ByteBuffer.h"
#include "platform/wire/Frame.h"
#include "platform/wire/ReplyBuffer.h"
#include "platform/wire/WireInteger.h"

namespace sorvane {

/// One entry of a message. Both are views into the message's bytes.
struct MessageEntry {
  std::string_view key;    ///< UTF-8, no NUL; may be empty
  std::string_view value;  ///< any bytes; a text carries its terminating NUL
};

/// An entry on the wire: the length of the key in two bytes, that of the value in four, both.
inline constexpr std::size_t kEntryHeaderBytes = 6;

/// Writes an entry in wire form to `out` and returns where it ends. `out` must have room for
/// `kEntryHeaderBytes + key.size() + value.size()` bytes. The key must be UTF-8 without a NUL and
/// have at most 65,535 bytes; this is not checked.
inline char* writeEntry(char* out, std::string_view key, std::string_view value) {
  storeBigEndian16(out, static_cast<std::uint16_t>(key.size()));
  storeBigEndian32(out + 2, static_cast<std::uint32_t>(value.size()));
  out = std::copy_n(key.data(), key.size(), out + kEntryHeaderBytes);
  return std::copy_n(value.data(), value.size(), out);
}

/// Does the same for a text. Its value is one byte longer: the terminating NUL.
inline char* writeTextEntry(char* out, std::string_view key, std::string_view text) {
  char* const end = writeEntry(out, key, text);
  storeBigEndian32(out + 2, static_cast<std::uint32_t>(text.size() + 1));
  *end = '\0';
  return end + 1;
}

/// The longest key of an entry, in bytes, and the longest value: their lengths have two and four
/// bytes on the wire.
inline constexpr std::size_t kMaximumKeyBytes = 65535;
inline constexpr std::uint64_t kMaximumValueBytes = 4294967295;

[[noreturn]] void raiseEntryTooLong(std::string_view key);

/// Raises NSException if the key or the value is too long to travel. `valueBytes` includes the
/// terminating NUL of a text.
inline void requireEntryLengths(std::string_view key, std::uint64_t valueBytes) {
  if (key.size() > kMaximumKeyBytes || valueBytes > kMaximumValueBytes) {
    raiseEntryTooLong(key);
  }
}

/// Returns how many bytes `writeTextEntry` writes for a text of that length.
[[nodiscard]] constexpr std::size_t textEntryBytes(std::string_view key, std::size_t textBytes) {
  return kEntryHeaderBytes + key.size() + textBytes + 1;
}

/// Appends entries in wire form to a buffer that the caller owns. No key may be written twice; this
/// is not checked. A key or value that is too long, or an entry with which more than `mostBytes`
/// would have been written, raises NSException and writes nothing.
class MessageWriter {
 public:
  /// A shorter text is copied by `sharedText`: sending it from another place would cost more.
  static constexpr std::size_t kLeastSharedBytes = 16384;

  explicit MessageWriter(ByteBuffer& buffer, std::size_t mostBytes = ~std::size_t{0})
      : buffer_(buffer), bytesLeft_(mostBytes) {}
  explicit MessageWriter(ReplyBuffer& replies, std::size_t mostBytes = ~std::size_t{0})
      : buffer_(replies.own()), bytesLeft_(mostBytes), replies_(&replies) {}

  /// Appends a text value: the bytes of `text` and one NUL.
  void text(std::string_view key, std::string_view text) {
    requireEntryLengths(key, std::uint64_t{text.size()} + 1);
    writeTextEntry(extend(textEntryBytes(key, text.size())), key, text);
  }
  /// Appends a text value, like `text`. A long one is not copied if the writer has a ReplyBuffer,
  /// which keeps a share in it. Nobody may change the text from now on.
  void sharedText(std::string_view key, std::shared_ptr<const std::string> text);
  /// Appends a data value: exactly these bytes.
  void data(std::string_view key, std::string_view bytes) {
    requireEntryLengths(key, bytes.size());
    writeEntry(extend(kEntryHeaderBytes + key.size() + bytes.size()), key, bytes);
  }
  /// Appends entries that are in wire form already.
  void entries(std::string_view inWireForm) {
    std::copy_n(inWireForm.data(), inWireForm.size(), extend(inWireForm.size()));
  }
  /// Appends entries that are in wire form already, a text value, and further such entries.
  void textBetween(std::string_view entriesBefore, std::string_view key, std::string_view text,
                   std::string_view entriesAfter) {
    requireEntryLengths(key, std::uint64_t{text.size()} + 1);
    char* out =
        extend(entriesBefore.size() + textEntryBytes(key, text.size()) + entriesAfter.size());
    out = std::copy_n(entriesBefore.data(), entriesBefore.size(), out);
    out = writeTextEntry(out, key, text);
    std::copy_n(entriesAfter.data(), entriesAfter.size(), out);
  }

 private:
  /// Makes room for `bytes`, which `sharedBytes` of a shared text will follow.
  [[nodiscard]] char* extend(std::size_t bytes, std::size_t sharedBytes = 0) {
    if (bytes + sharedBytes > bytesLeft_) {
      throw NSException("the message would be too long");
    }
    bytesLeft_ -= bytes + sharedBytes;
    return buffer_.extend(bytes);
  }

  ByteBuffer& buffer_;
  std::size_t bytesLeft_;
  ReplyBuffer* replies_ = nullptr;  // whose own bytes buffer_ has; null for a mere ByteBuffer
};

/// True when the keys are equal. Keys of one length often differ in their first byte; comparing it
/// first saves a call.
[[nodiscard]] inline bool areEqualKeys(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         (left.empty() || (left.front() == right.front() && left == right));
}

/// A dictionary from text keys to bytes. Keys are unique, and the entries keep the order in which
/// they came. A message either owns its bytes (it was built with `setText` and `setData`, or read
/// from a reply) or is a view of a buffer (a request that is being delivered). It can be moved;
/// `owned` copies it.
class Message {
 public:
  Message() = default;
  Message(std::initializer_list<std::pair<std::string_view, std::string_view>> texts);
  Message(Message&& other) noexcept;
  Message& operator=(Message&& other) noexcept;
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;
  ~Message() = default;

  /// Returns a message of the same entries that owns its bytes.
  [[nodiscard]] Message owned() const;

  /// Adds an entry, or replaces the value of the key in its place. Raises NSException and changes
  /// nothing if the key has more than `kMaximumKeyBytes` bytes, or if the value or all entries
  /// together would have more than `kMaximumValueBytes`.
  Message& setText(std::string_view key, std::string_view text);
  Message& setData(std::string_view key, std::string_view bytes);

  /// Makes this message a view of the dictionary in `body`, which must outlive it. Copies nothing,
  /// and allocates nothing once the entry list has grown to its working size. Returns null, or why
  /// `body` is no dictionary (a static text); the message is then empty.
  [[nodiscard]] const char* readBody(std::string_view body);

  /// Returns the entries in the order in which they came.
  [[nodiscard]] const std::vector<MessageEntry>& entries() const { return entries_; }
  /// Returns all entries in wire form, back to back.
  [[nodiscard]] std::string_view body() const { return body_; }

  [[nodiscard]] bool contains(std::string_view key) const { return find(key) != nullptr; }
  /// Returns the bytes under a key, or nothing when the key is missing.
  [[nodiscard]] std::optional<std::string_view> data(std::string_view key) const;
  /// Returns the text under a key, up to its first NUL. Returns nothing when the key is missing or
  /// its value is no text: it has no bytes at all or is not UTF-8.
  [[nodiscard]] std::optional<std::string_view> text(std::string_view key) const;
  /// Returns the text under a key. Raises NSException when the key is missing or its value is no
  /// text.
  [[nodiscard]] std::string_view requiredText(std::string_view key) const;
  /// Returns the text under a key, or nothing when the key is missing. Raises NSException when its
  /// value is no text.
  [[nodiscard]] std::optional<std::string_view> optionalText(std::string_view key) const;

  /// Returns the message as the text of a property list: texts as strings, other values as data.
  [[nodiscard]] std::string description() const;

 private:
  // Inline, so that a search for a constant key compares without a call.
  [[nodiscard]] const MessageEntry* find(std::string_view key) const {
    for (const MessageEntry& entry : entries_) {
      if (areEqualKeys(entry.key, key)) {
        return &entry;
      }
    }
    return nullptr;
  }
  [[noreturn]] static void raiseNoText(std::string_view key, bool isMissing);
  Message& set(std::string_view key, std::string_view value, bool terminated);
  /// Moves the views of the entries from the bytes at `before` to the same places in `owned_`.
  void viewOwned(const char* before);

  std::string owned_;  // empty while the bytes are somebody else's
  std::string_view body_;
  std::vector<MessageEntry> entries_;  // views into body_
};

/// Returns the text of a value that is a text and nothing else: UTF-8 whose only NUL is its last
/// byte. Use it to show a value; `textOfValue` leaves out what follows the first NUL.
[[nodiscard]] std::optional<std::string_view> wholeTextOfValue(std::string_view bytes);

/// Does what `textOfValue` does, without its short way for common texts.
[[nodiscard]] std::optional<std::string_view> textOfUnusualValue(std::string_view bytes);

/// Returns the text of a value: its bytes up to the first NUL, or all of them when it has none.
/// Returns nothing when the value has no bytes or is not UTF-8.
[[nodiscard]] inline std::optional<std::string_view> textOfValue(std::string_view bytes) {
  if (!bytes.empty() && bytes.back() == '\0') {
    const std::string_view text = bytes.substr(0, bytes.size() - 1);
    if (isAsciiWithoutNul(text)) {
      return text;
    }
  }
  return textOfUnusualValue(bytes);
}

inline std::string_view Message::requiredText(std::string_view key) const {
  const MessageEntry* const entry = find(key);
  if (entry != nullptr) {
    if (const auto text = textOfValue(entry->value)) {
      return *text;
    }
  }
  raiseNoText(key, entry == nullptr);
}

inline std::optional<std::string_view> Message::optionalText(std::string_view key) const {
  return contains(key) ? std::optional(requiredText(key)) : std::nullopt;
}

}  // namespace sorvane
