#include "platform/KeptForm.h"

#include <bit>
#include <limits>

#include "platform/KeptFile.h"

namespace sorvane {
namespace {

constexpr std::string_view kMark = "sorvkept";
constexpr std::size_t kVersionBytes = 4;
constexpr std::size_t kLengthBytes = 8;
static_assert(kKeptHeaderBytes == kMark.size() + kVersionBytes + 2 * kLengthBytes);
constexpr int kGroupBits = 7;
constexpr std::uint64_t kGroup = (1 << kGroupBits) - 1;
constexpr int kFirstDescriptor = 3;
constexpr std::size_t kShortBody = 65536;

// Against damage, not against people: who can write a description has the process already.
constexpr SipKey kCheckKey = {.low = 0x736f7276616e6521U, .high = 0x6b65707420666f72U};

void appendFixed(std::string& out, std::uint64_t value, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i) {
    out += static_cast<char>(value >> (8 * i));
  }
}

std::uint64_t readFixed(std::string_view bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

}  // namespace

SipHash13 beginKeptCheckSum() { return SipHash13(kCheckKey); }

std::string keptHeader(const SipHash13& checkSum) {
  std::string header(kMark);
  appendFixed(header, kKeptVersion, kVersionBytes);
  appendFixed(header, checkSum.bytes(), kLengthBytes);
  appendFixed(header, checkSum.value(), kLengthBytes);
  return header;
}

std::string keptHeader(std::string_view body) {
  SipHash13 checkSum = beginKeptCheckSum();
  checkSum.add(body);
  return keptHeader(checkSum);
}

void KeptWriter::real(double value) {
  appendFixed(body_, std::bit_cast<std::uint64_t>(value), sizeof value);
  handOnPiece();
}

void KeptWriter::descriptor(int number) {
  this->number(static_cast<std::uint64_t>(number));
  descriptors_.push_back(number);
}

void KeptWriter::handOn(std::string_view next) {
  file_->take(body_);
  body_.clear();
  file_->take(next);
}

void KeptWriter::clear() {
  descriptors_.clear();
  if (body_.capacity() > kShortBody) {
    body_ = std::string();
  } else {
    body_.clear();
  }
}

KeptReader KeptReader::ofBody(std::string_view body) {
  KeptReader reader;
  reader.rest_ = body;
  reader.version_ = kKeptVersion;
  return reader;
}

KeptReader::KeptReader(std::string_view description) {
  if (description.size() < kKeptHeaderBytes || !description.starts_with(kMark)) {
    throw KeptFault("this is no description of what was kept");
  }
  std::string_view header = description.substr(kMark.size());
  const auto take = [&](std::size_t bytes) {
    const std::uint64_t value = readFixed(header.substr(0, bytes));
    header.remove_prefix(bytes);
    return value;
  };
  const std::uint64_t version = take(kVersionBytes);
  const std::uint64_t bytes = take(kLengthBytes);
  const std::uint64_t checkSum = take(kLengthBytes);
  rest_ = description.substr(kKeptHeaderBytes);
  if (version < 1 || version > kKeptVersion) {
    throw KeptFault("what was kept has version " + std::to_string(version) +
                    ", which this program does not know");
  }
  if (bytes != rest_.size() || checkSum != sipHash13(kCheckKey, rest_)) {
    throw KeptFault("what was kept is damaged");
  }
  version_ = static_cast<std::uint32_t>(version);
}

std::uint64_t KeptReader::number(std::uint64_t most) {
  std::uint64_t value = 0;
  for (int shift = 0; !rest_.empty(); shift += kGroupBits) {
    const auto byte = static_cast<unsigned char>(rest_.front());
    const std::uint64_t group = byte & kGroup;
    if (shift >= std::numeric_limits<std::uint64_t>::digits || group << shift >> shift != group) {
      break;
    }
    rest_.remove_prefix(1);
    value |= group << shift;
    if (byte <= kGroup) {
      if (value > most) {
        break;
      }
      return value;
    }
  }
  throw KeptFault("what was kept has a number that cannot be");
}

double KeptReader::real() {
  if (rest_.size() < sizeof(double)) {
    throw KeptFault("what was kept ends too early");
  }
  const std::uint64_t bits = readFixed(rest_.substr(0, sizeof(double)));
  rest_.remove_prefix(sizeof(double));
  return std::bit_cast<double>(bits);
}

std::string_view KeptReader::text() {
  const std::size_t bytes = count();
  const std::string_view text = rest_.substr(0, bytes);
  rest_.remove_prefix(bytes);
  return text;
}

std::optional<std::string_view> KeptReader::optionalText() {
  return flag() ? std::optional(text()) : std::nullopt;
}

std::size_t KeptReader::count(std::size_t leastBytes) {
  const std::uint64_t count = number();
  if (count > rest_.size() / leastBytes) {
    throw KeptFault("what was kept ends too early");
  }
  return static_cast<std::size_t>(count);
}

int KeptReader::descriptor() {
  const std::uint64_t value = number(std::numeric_limits<int>::max());
  if (value < kFirstDescriptor) {
    throw KeptFault("what was kept has a descriptor that cannot be");
  }
  return static_cast<int>(value);
}

void KeptReader::end() const {
  if (!rest_.empty()) {
    throw KeptFault("what was kept has more than it should have");
  }
}

}  // namespace sorvane
