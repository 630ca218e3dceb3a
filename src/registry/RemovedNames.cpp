#include "registry/RemovedNames.h"

#include <algorithm>
#include <new>
#include <utility>

#include "registry/HeapBytes.h"

namespace sorvane {
namespace {

constexpr std::size_t kLeastNames = 64;

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
