#include "client/wire/Request.h"

#include <cstddef>
#include <cstdint>

#include "platform/Utf8.h"

namespace sorvane::client::detail {
namespace {

constexpr std::size_t kLongestText = std::size_t{1} << 20;
constexpr std::size_t kHeaderBytes = 8;

void appendBigEndian(std::string& bytes, std::size_t number, int count) {
  while (--count >= 0) {
    bytes += static_cast<char>(number >> (8 * count) & 0xFF);
  }
}

}  // namespace

Request Request::action(std::string_view name) {
  Request request;
  request.with("action", name);
  return request;
}

Request& Request::with(std::string_view key, std::string_view text) {
  appendBigEndian(frame_, key.size(), 2);
  appendBigEndian(frame_, text.size() + 1, 4);
  frame_.append(key).append(text).append(1, '\0');
  std::string length;
  appendBigEndian(length, frame_.size() - kHeaderBytes, 4);
  frame_.replace(4, 4, length);
  return *this;
}

bool isText(std::string_view bytes) {
  return bytes.size() <= kLongestText && bytes.find('\0') == std::string_view::npos &&
         isUtf8(bytes);
}

}  // namespace sorvane::client::detail
