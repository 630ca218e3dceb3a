#include "platform/KeptFile.h"

#include <errno.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "platform/HandOver.h"

namespace sorvane {
namespace {

// A system call each, which costs nothing beside what it writes; and what is written is still in
// the processor's cache.
constexpr std::size_t kPieceBytes = 65536;

}  // namespace

KeptFile::KeptFile() : KeptFile(openMemoryFile()) {}

KeptFile::KeptFile(Descriptor file) : file_(std::move(file)), writer_(*this, kPieceBytes) {
  if (!file_.isOpen()) {
    failure_ = {errno, std::generic_category()};
  }
  // The header comes last. Until then there is none, so an unfinished file is not believed.
  write(std::string(kKeptHeaderBytes, '\0'));
}

std::error_code KeptFile::finish() {
  writer_.handOn({});
  if (!failure_ && lseek(file_.number(), 0, SEEK_SET) != 0) {
    failure_ = {errno, std::generic_category()};
  }
  write(keptHeader(checkSum_));
  return failure_;
}

void KeptFile::take(std::string_view piece) {
  checkSum_.add(piece);
  write(piece);
}

void KeptFile::write(std::string_view bytes) {
  if (!failure_) {
    failure_ = writeAll(file_.number(), bytes);
  }
}

}  // namespace sorvane
