// The frame around a message on the wire: "SV", version, kind, length of the body.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/wire/ByteBuffer.h"
#include "platform/wire/WireInteger.h"

namespace sorvane {

/// Kinds of frame.
enum class FrameKind : std::uint8_t {
  none = 0,  ///< no dictionary: the reply of a handler that returned nil
  dictionary = 1,
};

inline constexpr std::size_t kFrameHeaderBytes = 8;
/// Largest body of a reply, bytes: a server sends none that is longer, a client accepts none.
inline constexpr std::size_t kMaximumReplyBytes = std::size_t{64} << 20;

/// The header of a frame, as far as its bytes have come.
struct FrameHeader {
  const char* fault = nullptr;  ///< why this cannot be a frame (a static text), or null
  bool complete = false;        ///< all eight bytes of the header have come
  FrameKind kind = FrameKind::none;
  std::size_t bodyBytes = 0;
};

/// Does what `readFrameHeader` does, without its short way for common headers.
[[nodiscard]] FrameHeader readUnusualFrameHeader(std::string_view bytes,
                                                 std::size_t maximumBodyBytes);

/// "SV" and the version of the wire form. The kind of frame follows.
inline constexpr std::string_view kFrameMark("SV\1", 3);

/// Reads the header at the start of `bytes`, which may end before the header does. Reports a fault
/// at the first byte that shows it. A body above `maximumBodyBytes` is a fault.
[[nodiscard]] inline FrameHeader readFrameHeader(std::string_view bytes,
                                                 std::size_t maximumBodyBytes) {
  if (bytes.size() >= kFrameHeaderBytes && bytes.starts_with(kFrameMark) &&
      bytes[3] == static_cast<char>(FrameKind::dictionary)) {
    const std::size_t bodyBytes = loadBigEndian32(bytes.data() + 4);
    if (bodyBytes <= maximumBodyBytes) {
      return {nullptr, true, FrameKind::dictionary, bodyBytes};
    }
  }
  return readUnusualFrameHeader(bytes, maximumBodyBytes);
}

/// Appends the header of a frame whose body has that many bytes.
inline void appendFrameHeader(ByteBuffer& buffer, FrameKind kind, std::size_t bodyBytes) {
  char* const header = buffer.extend(kFrameHeaderBytes);
  std::memcpy(header, kFrameMark.data(), kFrameMark.size());
  header[3] = static_cast<char>(kind);
  storeBigEndian32(header + 4, static_cast<std::uint32_t>(bodyBytes));
}

/// Appends the header of a dictionary whose length is not known yet. Returns where the frame
/// begins.
[[nodiscard]] inline std::size_t beginFrame(ByteBuffer& buffer) {
  const std::size_t begin = buffer.size();
  appendFrameHeader(buffer, FrameKind::dictionary, 0);
  return begin;
}
/// Writes the length of what was appended after the header into the header at `begin`, with
/// `bytesElsewhere` added: those that go with the body but stand in another place.
inline void endFrame(ByteBuffer& buffer, std::size_t begin, std::size_t bytesElsewhere = 0) {
  storeBigEndian32(
      buffer.data() + begin + 4,
      static_cast<std::uint32_t>(buffer.size() - begin - kFrameHeaderBytes + bytesElsewhere));
}
/// Appends a whole frame with this body.
void appendFrame(ByteBuffer& buffer, std::string_view body);
/// Appends the frame of "no dictionary".
void appendEmptyFrame(ByteBuffer& buffer);

}  // namespace sorvane
