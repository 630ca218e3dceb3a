#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/SipHash.h"

namespace sorvane {
namespace {

// The bytes 0, 1, 2 and so on.
std::string counting(std::size_t length) {
  std::string bytes;
  for (std::size_t i = 0; i < length; ++i) {
    bytes += static_cast<char>(i);
  }
  return bytes;
}

constexpr SipKey kCountingKey = {.low = 0x0706050403020100U, .high = 0x0f0e0d0c0b0a0908U};

// The same function, written as it was published: byte by byte.
std::uint64_t plainHash(const SipKey& key, const std::string& text, int blockRounds,
                        int endRounds) {
  std::uint64_t v[4] = {key.low ^ 0x736f6d6570736575U, key.high ^ 0x646f72616e646f6dU,
                        key.low ^ 0x6c7967656e657261U, key.high ^ 0x7465646279746573U};
  const auto rotate = [](std::uint64_t value, int bits) {
    return value << bits | value >> (64 - bits);
  };
  const auto rounds = [&](int count) {
    for (int i = 0; i < count; ++i) {
      v[0] += v[1], v[2] += v[3];
      v[1] = rotate(v[1], 13), v[3] = rotate(v[3], 16);
      v[1] ^= v[0], v[3] ^= v[2];
      v[0] = rotate(v[0], 32);
      v[2] += v[1], v[0] += v[3];
      v[1] = rotate(v[1], 17), v[3] = rotate(v[3], 21);
      v[1] ^= v[2], v[3] ^= v[0];
      v[2] = rotate(v[2], 32);
    }
  };
  std::uint64_t block = 0;
  const auto absorb = [&] {
    v[3] ^= block;
    rounds(blockRounds);
    v[0] ^= block;
    block = 0;
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    block |= std::uint64_t{static_cast<unsigned char>(text[i])} << (8 * (i % 8));
    if (i % 8 == 7) {
      absorb();
    }
  }
  block |= std::uint64_t{text.size() % 256} << 56;
  absorb();
  v[2] ^= 0xff;
  rounds(endRounds);
  return v[0] ^ v[1] ^ v[2] ^ v[3];
}

// The example of the paper, appendix A. It is for two rounds a block and four at the end.
TEST(SipHash, GivesWhatThePaperCalculates) {
  EXPECT_EQ((sip::hash<2, 4>(kCountingKey, counting(15))), 0xa129ca6149be45e5U);
  EXPECT_EQ(plainHash(kCountingKey, counting(15), 2, 4), 0xa129ca6149be45e5U);
}

// Calculated by another program that uses the variant with one round and three.
TEST(SipHash, OfOneAndThreeRoundsGivesWhatOthersCalculate) {
  const SipKey zero;
  const struct {
    std::size_t length;
    std::uint64_t hash;
  } vectors[] = {{1, 0x68a914128e01e473U},  {3, 0x4d4c9a4a8ef6e0adU},  {7, 0x2f098ab0c751325aU},
                 {8, 0xead411e67ebe2eeaU},  {9, 0x75927f9d95124362U},  {15, 0xf30eb725bb91c9eaU},
                 {16, 0x8972188433a5c5b7U}, {20, 0x639e355ae68c0100U}, {63, 0x385d3e39e5f37359U}};
  for (const auto& [length, hash] : vectors) {
    EXPECT_EQ(sipHash13(zero, counting(length)), hash) << length;
  }
}

TEST(SipHash, ReadsTextsOfEveryLengthAndPlaceAsTheyAre) {
  const std::string bytes = "\xff" + counting(80) + "\xff";
  for (std::size_t begin = 0; begin < 8; ++begin) {
    for (std::size_t length = 0; begin + length <= bytes.size(); ++length) {
      const std::string text = bytes.substr(begin, length);
      const std::string_view view = std::string_view(bytes).substr(begin, length);
      EXPECT_EQ(sipHash13(kCountingKey, view), plainHash(kCountingKey, text, 1, 3)) << length;
    }
  }
}

TEST(SipHash, IsTheSameForATextThatComesInPieces) {
  const std::string text = counting(41);
  const auto cut = [&](std::size_t begin, std::size_t end) {
    return std::string_view(text).substr(begin, end - begin);
  };
  for (std::size_t length = 0; length <= text.size(); ++length) {
    const std::uint64_t whole = sipHash13(kCountingKey, cut(0, length));
    for (std::size_t first = 0; first <= length; ++first) {
      for (std::size_t second = first; second <= length; ++second) {
        SipHash13 hash(kCountingKey);
        hash.add(cut(0, first));
        EXPECT_EQ(hash.value(), sipHash13(kCountingKey, cut(0, first)));
        hash.add(cut(first, second));
        hash.add(cut(second, length));
        EXPECT_EQ(hash.value(), whole) << first << ' ' << second << ' ' << length;
        EXPECT_EQ(hash.bytes(), length);
      }
    }
    SipHash13 byteByByte(kCountingKey);
    for (std::size_t i = 0; i < length; ++i) {
      byteByByte.add(cut(i, i + 1));
    }
    EXPECT_EQ(byteByByte.value(), whole) << length;
  }
}

TEST(SipHash, CountsTheLengthOfAText) {
  EXPECT_NE(sipHash13(kCountingKey, std::string(3, '\0')),
            sipHash13(kCountingKey, std::string(4, '\0')));
}

TEST(SipHash, HasOneKeyInAProcess) {
  EXPECT_EQ(&SipKey::ofThisProcess(), &SipKey::ofThisProcess());
  const SipKey& key = SipKey::ofThisProcess();
  EXPECT_TRUE(key.low != 0 || key.high != 0);
}

TEST(SipHash, KeepsTheKeyOfAProcessThatIsInUse) {
  const SipKey key = SipKey::ofThisProcess();
  EXPECT_TRUE(SipKey::setOfThisProcess(key)) << "the same key";
  EXPECT_FALSE(SipKey::setOfThisProcess({.low = key.low, .high = key.high + 1}));
  EXPECT_FALSE(SipKey::setOfThisProcess({.low = key.low + 1, .high = key.high}));
  EXPECT_EQ(SipKey::ofThisProcess(), key);
}

TEST(SipHash, HasTheKeyThatWasSetBeforeItWasUsed) {
  // The test runs in a process that was started for it: nothing has used a key there.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const bool isSet = SipKey::setOfThisProcess(kCountingKey);
        std::exit(isSet && SipKey::ofThisProcess() == kCountingKey ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace sorvane
