#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <optional>
#include <string>
#include <utility>

#include "platform/HandOver.h"
#include "platform/KeptFile.h"
#include "support/ForkedPart.h"

namespace sorvane::test {
namespace {

/// Writes all kinds of values, some of them across the ends of pieces.
void writeValues(KeptWriter& writer) {
  for (std::uint64_t i = 0; i < 20000; ++i) {
    writer.number(i * i * i);
    writer.real(static_cast<double>(i));
    writer.text("database " + std::to_string(i));
    writer.optionalText(i % 2 == 0 ? std::optional<std::string_view>("even") : std::nullopt);
  }
  writer.descriptor(3);
  for (const std::size_t length : {65535U, 65536U, 65537U, 300001U}) {
    writer.text(std::string(length, 'x'));
    writer.flag(true);
  }
  writer.descriptor(70000);
}

TEST(KeptFile, HasWhatAWriterInMemoryHas) {
  KeptFile file;
  writeValues(file.writer());
  ASSERT_FALSE(file.finish());
  KeptWriter writer;
  writeValues(writer);
  const MappedFile mapped(file.descriptor());
  EXPECT_TRUE(mapped.bytes() == writer.header() + std::string(writer.body()));
  EXPECT_EQ(file.descriptors(), writer.descriptors());
  EXPECT_NO_THROW(KeptReader{mapped.bytes()});
}

TEST(KeptFile, MayHaveNothing) {
  KeptFile file;
  ASSERT_FALSE(file.finish());
  const MappedFile mapped(file.descriptor());
  EXPECT_EQ(mapped.bytes(), KeptWriter().header());
  EXPECT_EQ(mapped.bytes().size(), kKeptHeaderBytes);
}

TEST(KeptFile, IsNoDescriptionUntilItIsFinished) {
  KeptFile file;
  writeValues(file.writer());
  const MappedFile mapped(file.descriptor());
  ASSERT_GT(mapped.bytes().size(), kKeptHeaderBytes);
  EXPECT_THROW(KeptReader{mapped.bytes()}, KeptFault);
}

TEST(KeptFile, TakesNoMoreMemoryThanForAPiece) {
  inOwnProcess([] {
    const auto mostResident = [] {
      rusage used{};
      getrusage(RUSAGE_SELF, &used);
      return used.ru_maxrss;
    };
    constexpr std::size_t kBytes = 32 << 20;
    const std::string small(1000, 'x');
    const std::string large(kBytes, 'x');
    const long before = mostResident();
    KeptFile file;
    for (std::size_t bytes = 0; bytes < kBytes; bytes += small.size()) {
      file.writer().text(small);
    }
    file.writer().text(large);
    ASSERT_FALSE(file.finish());
    EXPECT_LE(mostResident() - before, 4096) << "KiB";
  });
}

TEST(KeptFile, TellsWhyItDoesNotTakeMore) {
  inOwnProcess([] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{.rlim_cur = 100000, .rlim_max = RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    KeptFile file;
    file.writer().text(std::string(70000, 'x'));
    file.writer().text(std::string(70000, 'x'));
    file.writer().text("more");
    EXPECT_EQ(file.finish(), std::errc::file_too_large);
    EXPECT_THROW(KeptReader{MappedFile(file.descriptor()).bytes()}, KeptFault);
  });
}

TEST(KeptFile, TellsThatItsEndDoesNotFit) {
  inOwnProcess([] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{.rlim_cur = 100, .rlim_max = RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    KeptFile file;
    file.writer().text(std::string(100, 'x'));
    EXPECT_EQ(file.finish(), std::errc::file_too_large);
  });
}

TEST(KeptFile, TellsThatThereIsNoneOrThatItHasNoBeginning) {
  KeptFile none{Descriptor()};
  EXPECT_TRUE(none.finish());
  PipeEnds pipe = openPipe();
  KeptFile notAFile(std::move(pipe.writing));
  EXPECT_EQ(notAFile.finish(), std::errc::invalid_seek);
}

}  // namespace
}  // namespace sorvane::test
