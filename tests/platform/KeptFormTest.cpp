#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "platform/KeptForm.h"

namespace sorvane {
namespace {

std::string whole(const KeptWriter& writer) { return writer.header() + std::string(writer.body()); }

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

TEST(KeptForm, ReadsEachKindOfValueThatWasWritten) {
  KeptWriter writer;
  const std::uint64_t numbers[] = {0, 1, 127, 128, 16383, 16384, kMost - 1, kMost};
  for (const std::uint64_t each : numbers) {
    writer.number(each);
  }
  writer.flag(true);
  writer.flag(false);
  for (const double each : {0.0, -0.0, 781234567.25, std::numeric_limits<double>::infinity()}) {
    writer.real(each);
  }
  writer.real(std::numeric_limits<double>::quiet_NaN());
  writer.text("");
  writer.text(std::string("a\0b", 3));
  writer.text(std::string(1000, 'x'));
  writer.optionalText(std::nullopt);
  writer.optionalText("");
  writer.descriptor(3);
  writer.descriptor(70000);
  const std::string description = whole(writer);

  KeptReader reader(description);
  EXPECT_EQ(reader.version(), kKeptVersion);
  for (const std::uint64_t each : numbers) {
    EXPECT_EQ(reader.number(), each);
  }
  EXPECT_TRUE(reader.flag());
  EXPECT_FALSE(reader.flag());
  EXPECT_EQ(reader.real(), 0.0);
  EXPECT_TRUE(std::signbit(reader.real()));
  EXPECT_EQ(reader.real(), 781234567.25);
  EXPECT_EQ(reader.real(), std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(reader.real()));
  EXPECT_EQ(reader.text(), "");
  EXPECT_EQ(reader.text(), std::string("a\0b", 3));
  EXPECT_EQ(reader.text(), std::string(1000, 'x'));
  EXPECT_EQ(reader.optionalText(), std::nullopt);
  EXPECT_EQ(reader.optionalText(), "");
  EXPECT_EQ(reader.descriptor(), 3);
  EXPECT_EQ(reader.descriptor(), 70000);
  EXPECT_NO_THROW(reader.end());
  EXPECT_EQ(writer.descriptors(), (std::vector<int>{3, 70000}));
}

TEST(KeptForm, RefusesADescriptionOfWhichAnyByteHasChanged) {
  KeptWriter writer;
  writer.text("db1");
  writer.number(5001);
  const std::string description = whole(writer);
  for (std::size_t place = 0; place < description.size(); ++place) {
    std::string damaged = description;
    damaged[place] = static_cast<char>(damaged[place] ^ 0x10);
    EXPECT_THROW(KeptReader{damaged}, KeptFault) << place;
  }
}

TEST(KeptForm, RefusesADescriptionThatIsCutOrLonger) {
  KeptWriter writer;
  writer.text("db1");
  const std::string description = whole(writer);
  for (std::size_t length = 0; length < description.size(); ++length) {
    EXPECT_THROW(KeptReader(std::string_view(description).substr(0, length)), KeptFault) << length;
  }
  EXPECT_THROW(KeptReader(description + "x"), KeptFault);
}

TEST(KeptForm, RefusesVersionsThatItDoesNotKnow) {
  std::string description = whole(KeptWriter());
  constexpr std::size_t kVersionAt = 8;
  for (const std::uint32_t version : {std::uint32_t{0}, kKeptVersion + 1}) {
    description[kVersionAt] = static_cast<char>(version);
    try {
      const KeptReader reader(description);
      FAIL() << version;
    } catch (const KeptFault& fault) {
      EXPECT_NE(std::string(fault.what()).find("version " + std::to_string(version)),
                std::string::npos);
    }
  }
}

// What follows has a right check sum, as from a program that writes something else.
class KeptFormOfAnother : public testing::Test {
 protected:
  KeptReader reader(const KeptWriter& writer) {
    description_ = whole(writer);
    return KeptReader(description_);
  }

 private:
  std::string description_;
};

TEST_F(KeptFormOfAnother, EndsBeforeEachValue) {
  const KeptWriter nothing;
  EXPECT_THROW((void)reader(nothing).number(), KeptFault);
  EXPECT_THROW((void)reader(nothing).flag(), KeptFault);
  EXPECT_THROW((void)reader(nothing).real(), KeptFault);
  EXPECT_THROW((void)reader(nothing).text(), KeptFault);
  EXPECT_THROW((void)reader(nothing).count(), KeptFault);
  EXPECT_THROW((void)reader(nothing).descriptor(), KeptFault);
}

TEST_F(KeptFormOfAnother, HasANumberBeyondWhatMayBe) {
  KeptWriter writer;
  writer.number(2);
  EXPECT_THROW((void)reader(writer).number(1), KeptFault);
  EXPECT_THROW((void)reader(writer).flag(), KeptFault);
  EXPECT_THROW((void)reader(writer).descriptor(), KeptFault);
  EXPECT_EQ(reader(writer).number(2), 2U);
}

TEST_F(KeptFormOfAnother, HasANumberOfTooManyGroups) {
  KeptWriter writer;
  writer.real(std::bit_cast<double>(kMost));  // eight groups, of which none is the last
  writer.real(std::bit_cast<double>(kMost));
  EXPECT_THROW((void)reader(writer).number(), KeptFault);
}

TEST_F(KeptFormOfAnother, HasATextLongerThanWhatIsLeft) {
  KeptWriter writer;
  writer.number(4);
  writer.number(1);
  writer.number(1);
  EXPECT_THROW((void)reader(writer).text(), KeptFault);
  KeptWriter endless;
  endless.number(kMost);
  EXPECT_THROW((void)reader(endless).text(), KeptFault);
}

TEST_F(KeptFormOfAnother, PromisesMoreThingsThanItHasRoomFor) {
  KeptWriter writer;
  writer.number(2);
  writer.number(1);
  writer.number(1);
  writer.number(1);
  EXPECT_EQ(reader(writer).count(1), 2U);
  EXPECT_THROW((void)reader(writer).count(2), KeptFault);
}

TEST_F(KeptFormOfAnother, HasMoreThanIsRead) {
  KeptWriter writer;
  writer.number(1);
  EXPECT_THROW(reader(writer).end(), KeptFault);
}

}  // namespace
}  // namespace sorvane
