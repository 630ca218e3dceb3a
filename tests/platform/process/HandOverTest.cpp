#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "platform/HandOver.h"
#include "platform/ProgramFile.h"
#include "support/ForkedPart.h"
#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kEnough{20000};

ProgramAnswer answerOf(const std::string& script, milliseconds limit = kEnough) {
  return askProgram("/bin/sh", {"-c", script}, limit);
}

bool closesOnExec(int descriptor) { return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0; }

TEST(AskedProgram, TellsWhatItHasPrinted) {
  const ProgramAnswer answer = answerOf("echo understands 1; exit 3");
  EXPECT_EQ(answer.text, "understands 1\n");
  EXPECT_EQ(answer.fault, "");
}

TEST(AskedProgram, TellsWhatItHasPrintedOnStandardErrorByItself) {
  const ProgramAnswer answer = answerOf("echo no >&2; echo understands 1; echo never >&2");
  EXPECT_EQ(answer.text, "understands 1\n");
  EXPECT_EQ(answer.errors, "no\nnever\n");
  EXPECT_EQ(answerOf("exec >&-; echo no >&2").errors, "no\n");
}

TEST(AskedProgram, MayDieWithoutAnAnswer) {
  const ProgramAnswer answer = answerOf("kill -KILL $$");
  EXPECT_EQ(answer.text, "");
  EXPECT_EQ(answer.fault, "");
}

TEST(AskedProgram, IsEndedWhenItTakesTooLong) {
  const auto begin = std::chrono::steady_clock::now();
  const ProgramAnswer answer = answerOf("echo $$; exec sleep 1000", milliseconds(1000));
  EXPECT_EQ(answer.fault, "it did not answer in time");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kEnough);
  EXPECT_NE(kill(std::stoi("0" + answer.text), 0), 0) << "and nothing of it is left";
}

TEST(AskedProgram, IsEndedWhenItGoesOnAfterItsAnswer) {
  const ProgramAnswer answer = answerOf("echo $$; exec >&-; exec sleep 1000", milliseconds(1000));
  EXPECT_EQ(answer.fault, "it did not answer in time");
  EXPECT_NE(kill(std::stoi("0" + answer.text), 0), 0);
}

TEST(AskedProgram, IsNotWaitedForWhenAnotherHoldsItsOutput) {
  const ProgramAnswer answer = answerOf("sleep 3 & echo understands 1", milliseconds(1000));
  EXPECT_EQ(answer.text, "understands 1\n");
  EXPECT_EQ(answer.fault, "it did not answer in time");
}

TEST(AskedProgram, FillsNoMoreMemoryThanItsAnswerMay) {
  TemporaryFolder folder;
  const std::string whole = folder / "whole";
  const ProgramAnswer answer =
      answerOf("head -c 1000000 /dev/zero && head -c 1000000 /dev/zero >&2 && : > " + whole);
  EXPECT_EQ(answer.text.size(), 4096U);
  EXPECT_EQ(answer.errors.size(), 4096U);
  EXPECT_EQ(answer.fault, "");
  EXPECT_EQ(access(whole.c_str(), F_OK), 0) << "what it prints beyond that is read";
}

// The name server holds SIGUSR2 back in all its threads.
TEST(AskedProgram, BeginsWithNoSignalHeldBack) {
  inOwnProcess([] {
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
    EXPECT_EQ(answerOf("kill -USR2 $$; echo held back").text, "");
  });
}

TEST(AskedProgram, MayBeNone) {
  TemporaryFolder folder;
  writeFile(folder / "text", "no program\n");
  chmod((folder / "text").c_str(), 0755);
  EXPECT_THAT(askProgram(folder / "text", {}, kEnough).fault,
              testing::HasSubstr("cannot be launched: Exec format error"));
  EXPECT_THAT(askProgram(folder / "missing", {}, kEnough).fault,
              testing::HasSubstr("cannot be launched: No such file"));
}

TEST(MemoryFile, KeepsWhatIsWrittenForWhoeverHasItsDescriptor) {
  Descriptor file = openMemoryFile();
  ASSERT_TRUE(file.isOpen());
  EXPECT_TRUE(closesOnExec(file.number()));
  const std::string bytes(300000, 'x');
  ASSERT_FALSE(writeAll(file.number(), bytes));
  ASSERT_FALSE(writeAll(file.number(), "end"));
  const MappedFile mapped(std::move(file));
  EXPECT_EQ(mapped.bytes(), bytes + "end");
}

TEST(MemoryFile, MayBeEmptyOrNone) {
  EXPECT_EQ(MappedFile(openMemoryFile()).bytes(), "");
  EXPECT_EQ(MappedFile(Descriptor()).bytes(), "");
}

TEST(HandedOverProcess, RunsTheProgramWithItsWordsVariablesAndDescriptors) {
  TemporaryFolder folder;
  const Descriptor kept(open((folder / "kept").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  const Descriptor own(open((folder / "own").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ForkedPart part([&] {
    setenv("OWN", "6", 1);
    const std::string script = "echo \"$0 $1 $KEPT $OWN\" >&" + std::to_string(kept.number()) +
                               "; if [ -e /dev/fd/" + std::to_string(own.number()) +
                               " ]; then echo own >&" + std::to_string(kept.number()) + "; fi";
    FAIL() << becomeProgram("/bin/sh", {"sh", "-c", script, "name", "word"}, {"KEPT=5"},
                            {kept.number()});
  });
  EXPECT_EQ(part.wait(), 0);
  EXPECT_EQ(readFile(folder / "kept"), "name word 5 6\n");
}

TEST(HandedOverProcess, GoesOnAsBeforeWhenTheProgramCannotBeRun) {
  const Descriptor kept = openMemoryFile();
  EXPECT_EQ(becomeProgram("/nowhere/program", {"program"}, {}, {kept.number()}), ENOENT);
  EXPECT_TRUE(closesOnExec(kept.number()));
}

TEST(HandedOverProcess, CanKeepAllButTheStandardDescriptorsFromTheNextProgram) {
  TemporaryFolder folder;
  const std::string file = folder / "file";
  ForkedPart part([&] {
    const int open = ::open(file.c_str(), O_RDWR | O_CREAT, 0600);
    dup2(::open((folder / "report").c_str(), O_RDWR | O_CREAT, 0600), STDOUT_FILENO);
    closeDescriptorsWhenReplaced();
    const std::string script =
        "if [ -e /dev/fd/" + std::to_string(open) + " ]; then echo open; fi; echo end";
    FAIL() << becomeProgram("/bin/sh", {"sh", "-c", script}, {}, {});
  });
  EXPECT_EQ(part.wait(), 0);
  EXPECT_EQ(readFile(folder / "report"), "end\n");
}

TEST(ProgramFile, IsThatOfTheRunningProgram) {
  EXPECT_THAT(programFile(), testing::EndsWith("/platform_tests"));
  EXPECT_EQ(access(programFile().c_str(), X_OK), 0);
}

}  // namespace
}  // namespace sorvane::test
