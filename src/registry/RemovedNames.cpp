#include "registry/RemovedNames.h"

#include <algorithm>
#include <bit>
#include <new>
#include <utility>

#include "registry/HeapBytes.h"

namespace sorvane {
namespace {

constexpr std::size_t kLeastNames = 64;
constexpr std::size_t kMostIndices = std::size_t{1} << 31;

std::size_t bytesOf(const std::string& name) {
  const bool isShort = name.capacity() <= std::string().capacity();
  return RemovedNames::kNameBytes + (isShort ? 0 : heapBytes(name.capacity() + 1));
}

}  // namespace

void RemovedNames::add(std::string&& name, PortName::Hash hash, Number number) noexcept {
  const auto shortHash = static_cast<std::uint32_t>(hash);
  if (!names_.empty()) {
    if (const Index index = find(name, shortHash); index != kNone) {
      order_.makeNewest(index, number);
      return;
    }
  }
  const std::size_t bytes = bytesOf(name);
  while (count_ > 0 && (count_ >= limits_.names || bytes_ + bytes > limits_.bytes)) {
    forgetOldest();
  }
  if (limits_.names == 0 || bytes > limits_.bytes) {
    forgottenUpTo_ = number;
    return;
  }
  try {
    const Index index = take();
    Index& chain = chainOf(shortHash);
    names_[index] = {std::move(name), shortHash, std::exchange(chain, index)};
    order_.makeNewest(index, number);
  } catch (const std::bad_alloc&) {
    forgetAll(number);
    return;
  }
  ++count_;
  bytes_ += bytes;
}

RemovedNames::Index RemovedNames::find(std::string_view name, std::uint32_t hash) {
  Index index = chainOf(hash);
  while (index != kNone && (names_[index].hash != hash || names_[index].text != name)) {
    index = names_[index].next;
  }
  return index;
}

RemovedNames::Index RemovedNames::take() {
  if (free_ == kNone) {
    growTo(std::max(kLeastNames, names_.size() * 2));
  }
  return std::exchange(free_, names_[free_].next);
}

// Changes nothing that is remembered if there is no memory.
void RemovedNames::growTo(std::size_t size) {
  std::vector<Index> chains(size, kNone);
  order_.growTo(size);
  names_.resize(size);
  chains_.swap(chains);
  for (auto index = static_cast<Index>(size); index-- > 0;) {
    Index& chain = order_.contains(index) ? chainOf(names_[index].hash) : free_;
    names_[index].next = std::exchange(chain, index);
  }
}

// Where a name stands is kept, too: a client that is in the midst of a reply of several pages tells
// it.
void RemovedNames::keep(KeptWriter& writer) const {
  const auto& [limits, names, chains, order, free, count, bytes, forgottenUpTo] = *this;
  writer.number(forgottenUpTo);
  writer.number(names.size());
  order.keep(writer, forgottenUpTo);
  for (Index index = order.oldest(); index != kNone; index = order.newerThan(index)) {
    [[maybe_unused]] const auto& [text, hash, next] = names[index];
    writer.text(text);
  }
  for (Index index = free; index != kNone; index = names[index].next) {
    writer.number(index);
  }
}

void RemovedNames::restore(KeptReader& reader, Number last, const SipKey& key) {
  auto& [limits, names, chains, order, free, count, bytes, forgottenUpTo] = *this;
  forgottenUpTo = reader.number(last);
  const std::size_t size = reader.count();
  if (size > 0 && (size < kLeastNames || size > kMostIndices || !std::has_single_bit(size))) {
    throw KeptFault("what was kept has a number of removed names that cannot be");
  }
  names.resize(size);
  chains.assign(size, kNone);
  order.growTo(size);
  order.restore(reader, forgottenUpTo, last);
  for (Index index = order.oldest(); index != kNone; index = order.newerThan(index)) {
    const PortName name(reader.text(), key);
    const auto hash = static_cast<std::uint32_t>(name.hash());
    if (find(name.text(), hash) != kNone) {
      throw KeptFault("what was kept has a removed name twice");
    }
    names[index] = {std::string(name.text()), hash, std::exchange(chainOf(hash), index)};
    ++count;
    bytes += bytesOf(names[index].text);
  }
  std::vector<bool> isSeen(size);
  Index* place = &free;
  for (std::size_t left = size - count; left > 0; --left) {
    const auto index = static_cast<Index>(reader.number(size - 1));
    if (order.contains(index) || isSeen[index]) {
      throw KeptFault("what was kept has a place for a removed name twice");
    }
    isSeen[index] = true;
    *place = index;
    place = &names[index].next;
  }
  while (isTooMuch()) {
    forgetOldest();
  }
}

bool RemovedNames::isTooMuch() const {
  return count_ > 0 && (count_ > limits_.names || bytes_ > limits_.bytes);
}

void RemovedNames::forgetOldest() {
  const Index index = order_.oldest();
  Name& name = names_[index];
  Index* place = &chainOf(name.hash);
  while (*place != index) {
    place = &names_[*place].next;
  }
  *place = name.next;
  forgottenUpTo_ = order_.numberOf(index);
  order_.remove(index);
  --count_;
  bytes_ -= bytesOf(name.text);
  std::string().swap(name.text);  // assigned another text, it might keep the block of this one
  name.next = std::exchange(free_, index);
}

void RemovedNames::forgetAll(Number number) {
  while (count_ > 0) {
    forgetOldest();
  }
  forgottenUpTo_ = number;
}

}  // namespace sorvane
