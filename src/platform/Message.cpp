#include "platform/Message.h"

#include <bit>
#include <cstring>
#include <utility>

#include "platform/PropertyList.h"
#include "platform/SipHash.h"

namespace sorvane {
namespace {

// Up to here keys are compared pair by pair; those of a longer list are put into a table, so that
// no request takes quadratic time.
constexpr std::size_t kPairwiseEntries = 16;
// A longer entry list is given back after use: one odd request must not be remembered in memory for
// months.
constexpr std::size_t kKeptEntries = 1024;

bool isKey(std::string_view key) {
  return isAsciiWithoutNul(key) || (isUtf8(key) && key.find('\0') == std::string_view::npos);
}

bool hasRepeatedKey(const std::vector<MessageEntry>& entries) {
  if (entries.size() <= kPairwiseEntries) {
    for (std::size_t i = 1; i < entries.size(); ++i) {
      for (std::size_t j = 0; j < i; ++j) {
        if (areEqualKeys(entries[i].key, entries[j].key)) {
          return true;
        }
      }
    }
    return false;
  }
  // Strangers choose the keys: so the hash is one whose collisions they cannot find.
  const SipKey& hashKey = SipKey::ofThisProcess();
  std::vector<const MessageEntry*> slots(std::bit_ceil(2 * entries.size()));
  const std::size_t mask = slots.size() - 1;
  for (const MessageEntry& entry : entries) {
    std::size_t index = sipHash13(hashKey, entry.key) & mask;
    for (; slots[index] != nullptr; index = (index + 1) & mask) {
      if (areEqualKeys(slots[index]->key, entry.key)) {
        return true;
      }
    }
    slots[index] = &entry;
  }
  return false;
}

}  // namespace

void raiseEntryTooLong(std::string_view key) {
  constexpr std::size_t kShownBytes = 40;
  throw NSException("\"" + std::string(key.substr(0, kShownBytes)) +
                    "\" or its value is too long for a message");
}

void MessageWriter::sharedText(std::string_view key, std::shared_ptr<const std::string> text) {
  if (replies_ == nullptr || text->size() < kLeastSharedBytes) {
    this->text(key, *text);
    return;
  }
  requireEntryLengths(key, std::uint64_t{text->size()} + 1);
  char* const header = extend(kEntryHeaderBytes + key.size(), text->size() + 1);
  writeEntry(header, key, {});
  storeBigEndian32(header + 2, static_cast<std::uint32_t>(text->size() + 1));
  replies_->share(std::move(text));
}

Message::Message(std::initializer_list<std::pair<std::string_view, std::string_view>> texts) {
  for (const auto& [key, text] : texts) {
    setText(key, text);
  }
}

Message::Message(Message&& other) noexcept { *this = std::move(other); }

Message& Message::operator=(Message&& other) noexcept {
  if (this != &other) {
    const bool owns = !other.owned_.empty();
    const char* const before = other.body_.data();
    owned_ = std::move(other.owned_);
    body_ = other.body_;
    entries_ = std::move(other.entries_);
    if (owns) {
      viewOwned(before);  // a short string moves with its bytes
    }
    other.owned_.clear();
    other.body_ = {};
    other.entries_.clear();
  }
  return *this;
}

Message Message::owned() const {
  Message message;
  message.owned_ = body_;
  message.entries_ = entries_;
  message.viewOwned(body_.data());
  return message;
}

void Message::viewOwned(const char* before) {
  for (MessageEntry& entry : entries_) {
    entry.key = {owned_.data() + (entry.key.data() - before), entry.key.size()};
    entry.value = {owned_.data() + (entry.value.data() - before), entry.value.size()};
  }
  body_ = owned_;
}

Message& Message::setText(std::string_view key, std::string_view text) {
  return set(key, text, true);
}

Message& Message::setData(std::string_view key, std::string_view bytes) {
  return set(key, bytes, false);
}

Message& Message::set(std::string_view key, std::string_view value, bool terminated) {
  const std::uint64_t newBytes = std::uint64_t{value.size()} + (terminated ? 1 : 0);
  requireEntryLengths(key, newBytes);
  const MessageEntry* const old = find(key);
  const std::size_t keptBytes =
      body_.size() - (old == nullptr ? 0 : kEntryHeaderBytes + key.size() + old->value.size());
  if (keptBytes + kEntryHeaderBytes + key.size() + newBytes > kMaximumValueBytes) {
    raiseEntryTooLong(key);
  }
  ByteBuffer encoded;
  MessageWriter writer(encoded);
  const auto write = [&] { terminated ? writer.text(key, value) : writer.data(key, value); };
  bool replaced = false;
  for (const MessageEntry& entry : entries_) {
    if (entry.key == key) {
      write();
      replaced = true;
    } else {
      writer.data(entry.key, entry.value);
    }
  }
  if (!replaced) {
    write();
  }
  owned_ = encoded.view();
  body_ = owned_;
  entries_.clear();
  for (const char* at = owned_.data(); at != owned_.data() + owned_.size();) {
    const std::size_t keyBytes = loadBigEndian16(at);
    const std::size_t valueBytes = loadBigEndian32(at + 2);
    at += kEntryHeaderBytes;
    entries_.push_back({{at, keyBytes}, {at + keyBytes, valueBytes}});
    at += keyBytes + valueBytes;
  }
  return *this;
}

const char* Message::readBody(std::string_view body) {
  owned_.clear();
  body_ = {};
  entries_.clear();
  if (entries_.capacity() > kKeptEntries) {
    entries_.shrink_to_fit();
  }
  const char* at = body.data();
  const char* const end = at + body.size();
  const char* fault = nullptr;
  while (at != end) {
    if (static_cast<std::size_t>(end - at) < kEntryHeaderBytes) {
      fault = "an entry runs past the body";
      break;
    }
    const std::size_t keyBytes = loadBigEndian16(at);
    const std::size_t valueBytes = loadBigEndian32(at + 2);
    at += kEntryHeaderBytes;
    const auto left = static_cast<std::size_t>(end - at);
    // Not as a sum: that of the two lengths may be too great for 32 bits.
    if (keyBytes > left || valueBytes > left - keyBytes) {
      fault = "an entry runs past the body";
      break;
    }
    entries_.push_back({{at, keyBytes}, {at + keyBytes, valueBytes}});
    if (!isKey(entries_.back().key)) {
      fault = "a key is not UTF-8 text";
      break;
    }
    at += keyBytes + valueBytes;
  }
  if (fault == nullptr && hasRepeatedKey(entries_)) {
    fault = "a key is repeated";
  }
  if (fault != nullptr) {
    entries_.clear();
    return fault;
  }
  body_ = body;
  return nullptr;
}

std::optional<std::string_view> Message::data(std::string_view key) const {
  const MessageEntry* const entry = find(key);
  return entry == nullptr ? std::nullopt : std::optional(entry->value);
}

std::optional<std::string_view> Message::text(std::string_view key) const {
  const MessageEntry* const entry = find(key);
  return entry == nullptr ? std::nullopt : textOfValue(entry->value);
}

void Message::raiseNoText(std::string_view key, bool isMissing) {
  throw NSException("\"" + std::string(key) + (isMissing ? "\" is missing" : "\" holds no text"));
}

std::string Message::description() const {
  PropertyList::Dictionary dictionary;
  for (const MessageEntry& entry : entries_) {
    const std::optional<std::string_view> text = wholeTextOfValue(entry.value);
    dictionary.emplace(std::string(entry.key),
                       text ? PropertyList(std::string(*text))
                            : PropertyList(PropertyList::Data{std::string(entry.value)}));
  }
  return PropertyList(std::move(dictionary)).description();
}

std::optional<std::string_view> wholeTextOfValue(std::string_view bytes) {
  const bool isText = !bytes.empty() && bytes.find('\0') == bytes.size() - 1 && isUtf8(bytes);
  return isText ? std::optional(bytes.substr(0, bytes.size() - 1)) : std::nullopt;
}

std::optional<std::string_view> textOfUnusualValue(std::string_view bytes) {
  if (bytes.empty()) {
    return std::nullopt;
  }
  const std::string_view text = bytes.substr(0, bytes.find('\0'));
  return isUtf8(text) ? std::optional(text) : std::nullopt;
}

}  // namespace sorvane
