#include "client/wire/Reply.h"

#include <algorithm>
#include <cstdint>

#include "platform/Utf8.h"

namespace sorvane::client::detail {
namespace {

std::size_t bigEndian(std::string_view bytes) {
  std::size_t number = 0;
  for (const char byte : bytes) {
    number = number << 8 | static_cast<unsigned char>(byte);
  }
  return number;
}

constexpr std::string_view kMark = "SV\x01";

bool hasRepeatedKey(const Entries& entries) {
  std::vector<std::string_view> keys;
  keys.reserve(entries.size());
  for (const auto& entry : entries) {
    keys.push_back(entry.first);
  }
  std::sort(keys.begin(), keys.end());
  return std::adjacent_find(keys.begin(), keys.end()) != keys.end();
}

}  // namespace

bool mayBeginAHeader(std::string_view bytes) {
  return kMark.starts_with(bytes.substr(0, kMark.size()));
}

std::optional<Header> readHeader(std::string_view bytes) {
  const auto kind = static_cast<unsigned char>(bytes[3]);
  const Header header{kind == 1, bigEndian(bytes.substr(4, 4))};
  if (!mayBeginAHeader(bytes) || kind > 1 || header.bodyBytes > kMostBodyBytes ||
      (kind == 0 && header.bodyBytes != 0)) {
    return std::nullopt;
  }
  return header;
}

std::optional<Entries> readEntries(std::string_view bytes) {
  Entries entries;
  while (!bytes.empty()) {
    if (bytes.size() < 6) {
      return std::nullopt;
    }
    const std::size_t keyBytes = bigEndian(bytes.substr(0, 2));
    const std::size_t valueBytes = bigEndian(bytes.substr(2, 4));
    bytes.remove_prefix(6);
    if (keyBytes > bytes.size() || valueBytes > bytes.size() - keyBytes) {
      return std::nullopt;
    }
    const std::string_view key = bytes.substr(0, keyBytes);
    if (key.find('\0') != std::string_view::npos || !isUtf8(key)) {
      return std::nullopt;
    }
    entries.emplace_back(key, bytes.substr(keyBytes, valueBytes));
    bytes.remove_prefix(keyBytes + valueBytes);
  }
  if (hasRepeatedKey(entries)) {
    return std::nullopt;
  }
  return entries;
}

std::optional<std::string_view> textOf(std::string_view value) {
  const std::string_view text = value.substr(0, value.find('\0'));
  return isUtf8(text) ? std::optional(text) : std::nullopt;
}

std::optional<Reply> Reply::ofBody(std::vector<char> body) {
  Reply reply;
  reply.isDictionary_ = true;
  reply.body_ = std::move(body);
  auto entries = readEntries({reply.body_.data(), reply.body_.size()});
  if (!entries) {
    return std::nullopt;
  }
  reply.entries_ = std::move(*entries);
  return reply;
}

std::optional<std::string_view> Reply::text(std::string_view key) const {
  const auto entry = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const auto& each) { return each.first == key; });
  return entry == entries_.end() ? std::nullopt : textOf(entry->second);
}

}  // namespace sorvane::client::detail
