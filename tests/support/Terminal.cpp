#include "support/Terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "support/WaitUntil.h"

namespace sorvane::test {

namespace {

int checked(int result, const char* call) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), call);
  }
  return result;
}

int countOf(std::string_view text, const std::string& all) {
  int count = 0;
  for (std::size_t at = all.find(text); at != std::string::npos;
       at = all.find(text, at + text.size())) {
    ++count;
  }
  return count;
}

}  // namespace

Terminal::Terminal(unsigned short columns, unsigned short rows)
    : master_(checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt")) {
  checked(grantpt(master_), "grantpt");
  checked(unlockpt(master_), "unlockpt");
  std::array<char, 64> name{};
  checked(-ptsname_r(master_, name.data(), name.size()), "ptsname_r");
  slave_ = checked(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open");
  const winsize size{rows, columns, 0, 0};
  checked(ioctl(slave_, TIOCSWINSZ, &size), "TIOCSWINSZ");
  checked(fcntl(master_, F_SETFL, O_NONBLOCK), "fcntl");
}

Terminal::~Terminal() {
  close(slave_);
  close(master_);
}

void Terminal::use(const std::vector<int>& descriptors) const {
  checked(setsid(), "setsid");
  checked(ioctl(slave_, TIOCSCTTY, 0), "TIOCSCTTY");
  for (const int descriptor : descriptors) {
    checked(dup2(slave_, descriptor), "dup2");
  }
}

void Terminal::type(std::string_view text) const {
  EXPECT_EQ(write(master_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

bool Terminal::shows(std::string_view text, int times) {
  const bool shown = waitUntil([&] { return countOf(text, this->text()) >= times; });
  EXPECT_TRUE(shown) << "the terminal shows: " << text_;
  return shown;
}

const std::string& Terminal::text() {
  std::array<char, 4096> buffer;
  for (ssize_t length = 1; length > 0;) {
    length = read(master_, buffer.data(), buffer.size());
    text_.append(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  }
  return text_;
}

}  // namespace sorvane::test
