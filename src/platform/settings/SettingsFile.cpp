#include "platform/settings/SettingsFile.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>

#include "platform/PropertyList.h"

namespace sorvane {
namespace {

class OpenFile {
 public:
  /// Without waiting: a FIFO without a writer must not hold up the start.
  explicit OpenFile(const char* path)
      : descriptor_(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~OpenFile() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

[[noreturn]] void failUnreadable(int error) {
  throw NSException("cannot be read: " + std::generic_category().message(error));
}

}  // namespace

std::string readSettingsFile(const char* path) {
  const OpenFile file(path);
  if (file.descriptor() < 0) {
    failUnreadable(errno);
  }
  struct stat status {};
  if (fstat(file.descriptor(), &status) != 0) {
    failUnreadable(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    throw NSException("cannot be read: it is no plain file");
  }
  std::string content;
  char buffer[16384];
  while (content.size() <= PropertyList::kMaximumBytes) {
    const ssize_t length = read(file.descriptor(), buffer, sizeof buffer);
    if (length == 0) {
      return content;
    }
    if (length > 0) {
      content.append(buffer, static_cast<std::size_t>(length));
    } else if (errno != EINTR) {
      failUnreadable(errno);
    }
  }
  throw NSException("is longer than " + std::to_string(PropertyList::kMaximumBytes) + " bytes");
}

bool settingsFileExists(const char* path) {
  struct stat status {};
  // What cannot be looked at is there as far as anybody can tell: passing it over would be a guess.
  return stat(path, &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

std::string defaultLockDirectory() {
  return access("/run/lock", W_OK | X_OK) == 0 ? "/run/lock" : "/tmp";
}

bool isIPv4Address(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

}  // namespace sorvane
