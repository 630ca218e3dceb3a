#include "support/ReferenceFrames.h"

#include "support/WireBytes.h"

namespace sorvane::fuzz {
namespace {

constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kEntryHeaderBytes = 6;

std::size_t numberAt(std::string_view bytes, std::size_t place, std::size_t count) {
  std::size_t number = 0;
  for (std::size_t i = 0; i < count; ++i) {
    number = number * 256 + static_cast<unsigned char>(bytes[place + i]);
  }
  return number;
}

// Shortest forms alone, no surrogates, U+10FFFF at most.
bool isUtf8(std::string_view text) {
  constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
  std::size_t at = 0;
  while (at < text.size()) {
    const auto first = static_cast<unsigned char>(text[at]);
    const std::size_t more = first < 0x80                     ? 0
                             : first >= 0xc0 && first < 0xe0  ? 1
                             : first >= 0xe0 && first < 0xf0  ? 2
                             : first >= 0xf0 && first <= 0xf7 ? 3
                                                              : text.size();
    if (text.size() - at <= more) {
      return false;
    }
    char32_t code = more == 0 ? first : first & (0x3fU >> more);
    for (std::size_t i = 1; i <= more; ++i) {
      const auto next = static_cast<unsigned char>(text[at + i]);
      if (next < 0x80 || next > 0xbf) {
        return false;
      }
      code = code * 64 + next % 64;
    }
    if (code < kLeast[more] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) {
      return false;
    }
    at += more + 1;
  }
  return true;
}

}  // namespace

std::optional<Entries> readReferenceBody(std::string_view body) {
  Entries entries;
  while (!body.empty()) {
    if (body.size() < kEntryHeaderBytes) {
      return std::nullopt;
    }
    const std::size_t keyBytes = numberAt(body, 0, 2);
    const std::size_t valueBytes = numberAt(body, 2, 4);
    body.remove_prefix(kEntryHeaderBytes);
    if (keyBytes > body.size() || valueBytes > body.size() - keyBytes) {
      return std::nullopt;
    }
    const std::string key(body.substr(0, keyBytes));
    if (!isUtf8(key) || key.find('\0') != std::string::npos || find(entries, key) != nullptr) {
      return std::nullopt;
    }
    entries.push_back({key, std::string(body.substr(keyBytes, valueBytes))});
    body.remove_prefix(keyBytes + valueBytes);
  }
  return entries;
}

ReferenceFrame readReferenceFrame(std::string_view stream, std::size_t mostBodyBytes) {
  constexpr std::string_view kStart("SV\x01", 3);
  const std::string_view start = stream.substr(0, kStart.size());
  if (start != kStart.substr(0, start.size()) ||
      (stream.size() > 3 && numberAt(stream, 3, 1) > 1)) {
    return {ReferenceFrame::Kind::fault, 0, {}};
  }
  if (stream.size() < kHeaderBytes) {
    return {};
  }
  const bool isDictionary = stream[3] == '\x01';
  const std::size_t bodyBytes = numberAt(stream, 4, 4);
  if (bodyBytes > (isDictionary ? mostBodyBytes : 0)) {
    return {ReferenceFrame::Kind::fault, 0, {}};
  }
  if (stream.size() - kHeaderBytes < bodyBytes) {
    return {};
  }
  auto entries = readReferenceBody(stream.substr(kHeaderBytes, bodyBytes));
  if (!entries) {
    return {ReferenceFrame::Kind::fault, 0, {}};
  }
  return {isDictionary ? ReferenceFrame::Kind::dictionary : ReferenceFrame::Kind::none,
          kHeaderBytes + bodyBytes, std::move(*entries)};
}

std::optional<std::string> textOf(std::string_view value) {
  const std::string_view text = value.substr(0, value.find('\0'));
  return value.empty() || !isUtf8(text) ? std::nullopt : std::optional(std::string(text));
}

const std::string* find(const Entries& entries, std::string_view key) {
  for (const ReferenceEntry& entry : entries) {
    if (entry.key == key) {
      return &entry.value;
    }
  }
  return nullptr;
}

std::string bodyOf(const Entries& entries) {
  std::string body;
  for (const auto& [key, value] : entries) {
    body += test::entry(key, value);
  }
  return body;
}

Entries entriesOf(const Message& message) {
  Entries entries;
  for (const MessageEntry& entry : message.entries()) {
    entries.push_back({std::string(entry.key), std::string(entry.value)});
  }
  return entries;
}

}  // namespace sorvane::fuzz
