#include "platform/wire/Frame.h"

#include "platform/wire/WireInteger.h"

namespace sorvane {
namespace {

constexpr char kMark0 = 'S';
constexpr char kMark1 = 'V';
constexpr char kVersion = 1;

void appendHeader(ByteBuffer& buffer, FrameKind kind, std::size_t bodyBytes) {
  char* const header = buffer.extend(kFrameHeaderBytes);
  header[0] = kMark0;
  header[1] = kMark1;
  header[2] = kVersion;
  header[3] = static_cast<char>(kind);
  storeBigEndian32(header + 4, static_cast<std::uint32_t>(bodyBytes));
}

}  // namespace

FrameHeader readFrameHeader(std::string_view bytes, std::size_t maximumBodyBytes) {
  FrameHeader header;
  const std::size_t have = bytes.size();
  if ((have > 0 && bytes[0] != kMark0) || (have > 1 && bytes[1] != kMark1)) {
    header.fault = "wrong mark";
  } else if (have > 2 && bytes[2] != kVersion) {
    header.fault = "wrong version";
  } else if (have > 3 && bytes[3] != static_cast<char>(FrameKind::none) &&
             bytes[3] != static_cast<char>(FrameKind::dictionary)) {
    header.fault = "wrong kind";
  } else if (have >= kFrameHeaderBytes) {
    header.complete = true;
    header.kind = static_cast<FrameKind>(bytes[3]);
    header.bodyBytes = loadBigEndian32(bytes.data() + 4);
    if (header.kind == FrameKind::none && header.bodyBytes != 0) {
      header.fault = "a body without a dictionary";
    } else if (header.bodyBytes > maximumBodyBytes) {
      header.fault = "a body above the limit";
    }
  }
  return header;
}

std::size_t beginFrame(ByteBuffer& buffer) {
  const std::size_t begin = buffer.size();
  appendHeader(buffer, FrameKind::dictionary, 0);
  return begin;
}

void endFrame(ByteBuffer& buffer, std::size_t begin, std::size_t bytesElsewhere) {
  storeBigEndian32(
      buffer.data() + begin + 4,
      static_cast<std::uint32_t>(buffer.size() - begin - kFrameHeaderBytes + bytesElsewhere));
}

void appendFrame(ByteBuffer& buffer, std::string_view body) {
  appendHeader(buffer, FrameKind::dictionary, body.size());
  buffer.append(body);
}

void appendEmptyFrame(ByteBuffer& buffer) { appendHeader(buffer, FrameKind::none, 0); }

}  // namespace sorvane
