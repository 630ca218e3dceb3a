#include "system/Streams.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

constexpr mode_t kDataFilePermissions = 0666;  // less the process's mask

void endTextAtFirst(char* text, char mark) {
  if (char* found = strchr(text, mark); found != nullptr) {
    *found = '\0';
  }
}

}  // namespace

FILE* VN_fopen(const char* path, const char* mode) {
  char modeCopy[16];
  snprintf(modeCopy, sizeof modeCopy, "%s", mode);
  SystemLock lock;
  FILE* stream = fopen(path, modeCopy);
  if (stream != nullptr) {
    fcntl(fileno(stream), F_SETFD, FD_CLOEXEC);
  }
  return stream;
}

int VN_fclose(FILE* stream) {
  SystemLock lock;
  fclose(stream);
  return lock.release();
}

char* VN_fgets(char* buffer, int size, FILE* stream) { return fgets(buffer, size, stream); }

char* VN_fgets_nocr(char* buffer, int size, FILE* stream) {
  if (VN_fgets(buffer, size, stream) == nullptr) {
    return nullptr;
  }
  endTextAtFirst(buffer, '\n');
  endTextAtFirst(buffer, '\r');
  return buffer;
}

int VN_fgetc(FILE* stream) {
  unsigned char byte = 0;
  return fread(&byte, 1, 1, stream) == 1 ? byte : -1;
}

int VN_read(FILE* stream, void* buffer, int count) {
  if (count < 0) {
    return 0;
  }
  return static_cast<int>(fread(buffer, 1, static_cast<size_t>(count), stream));
}

int VN_ropen(const char* path) {
  SystemLock lock;
  return withoutInterruption(
      [path] { return open(path, O_RDWR | O_CREAT | O_CLOEXEC, kDataFilePermissions); });
}

int VN_rclose(int descriptor) {
  SystemLock lock;
  close(descriptor);  // never repeated: after an interruption another file may have the number
  return lock.release();
}

int VN_rread(int descriptor, void* buffer, std::uint32_t length) {
  return withoutInterruption([=] { return read(descriptor, buffer, length); }) < 0 ? 0 : 1;
}

int VN_rwrite(int descriptor, const void* buffer, std::uint32_t length) {
  const ssize_t written = withoutInterruption([=] { return write(descriptor, buffer, length); });
  return written == static_cast<ssize_t>(length) ? 1 : 0;
}

int VN_rseek(int descriptor, std::int64_t offset) {
  return lseek(descriptor, offset, SEEK_SET) < 0 ? 0 : 1;
}

int VN_rflush() { return 1; }

}  // namespace sorvane
