#include "support/WireBytes.h"

namespace sorvane::test {

namespace {

void appendBigEndian(std::string& bytes, std::size_t value, int width) {
  for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<char>((value >> shift) & 0xFF));
  }
}

}  // namespace

std::string entry(std::string_view key, std::string_view value) {
  std::string bytes;
  appendBigEndian(bytes, key.size(), 2);
  appendBigEndian(bytes, value.size(), 4);
  return bytes.append(key).append(value);
}

std::string frameWith(std::string_view mark, int version, int kind, std::size_t length,
                      std::string_view body) {
  std::string bytes(mark);
  bytes.push_back(static_cast<char>(version));
  bytes.push_back(static_cast<char>(kind));
  appendBigEndian(bytes, length, 4);
  return bytes.append(body);
}

std::string frameOfBody(std::string_view body) { return frameWith("SV", 1, 1, body.size(), body); }

std::string frameOfTexts(
    std::initializer_list<std::pair<std::string_view, std::string_view>> texts) {
  std::string body;
  for (const auto& [key, text] : texts) {
    body += entry(key, std::string(text) + '\0');
  }
  return frameOfBody(body);
}

std::string nilFrame() { return frameWith("SV", 1, 0, 0, ""); }

std::size_t bodyLength(std::string_view header) {
  std::size_t length = 0;
  for (const char byte : header.substr(4, 4)) {
    length = length << 8 | static_cast<unsigned char>(byte);
  }
  return length;
}

}  // namespace sorvane::test
