#include "platform/PlainFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Descriptor.h"
#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

// Opening a pipe without a writer would wait, and opening a terminal could make it the process's
// own.
constexpr int kOpenFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

PlainFileFailure lastError() {
  return {PlainFileFailure::Kind::systemError, {errno, std::generic_category()}};
}

}  // namespace

std::variant<std::string, PlainFileFailure> readPlainFile(const std::string& path,
                                                          std::size_t maximumBytes) {
  const Descriptor file(withoutInterruption([&] { return open(path.c_str(), kOpenFlags); }));
  // What was opened is examined, not the path: somebody may put something else there in between.
  struct stat status {};
  if (!file.isOpen() || fstat(file.number(), &status) != 0) {
    return lastError();
  }
  if (!S_ISREG(status.st_mode)) {
    return PlainFileFailure{PlainFileFailure::Kind::noPlainFile, {}};
  }
  std::string content;
  char block[16384];
  while (content.size() <= maximumBytes) {
    const ssize_t length =
        withoutInterruption([&] { return read(file.number(), block, sizeof block); });
    if (length < 0) {
      return lastError();
    }
    if (length == 0) {
      return content;
    }
    content.append(block, static_cast<std::size_t>(length));
  }
  return PlainFileFailure{PlainFileFailure::Kind::tooLong, {}};
}

}  // namespace sorvane
