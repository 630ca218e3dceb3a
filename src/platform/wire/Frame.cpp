#include "platform/wire/Frame.h"

namespace sorvane {

FrameHeader readUnusualFrameHeader(std::string_view bytes, std::size_t maximumBodyBytes) {
  FrameHeader header;
  const std::size_t have = bytes.size();
  if ((have > 0 && bytes[0] != kFrameMark[0]) || (have > 1 && bytes[1] != kFrameMark[1])) {
    header.fault = "wrong mark";
  } else if (have > 2 && bytes[2] != kFrameMark[2]) {
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

void appendFrame(ByteBuffer& buffer, std::string_view body) {
  appendFrameHeader(buffer, FrameKind::dictionary, body.size());
  buffer.append(body);
}

void appendEmptyFrame(ByteBuffer& buffer) { appendFrameHeader(buffer, FrameKind::none, 0); }

}  // namespace sorvane
