// A description of what is kept that goes into a file while it is written.
#pragma once

#include <cstddef>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/KeptForm.h"

namespace sorvane {

/// Holds a piece of the description in memory, never all of it. One thread at a time.
class KeptFile {
 public:
  /// A memory file.
  KeptFile();
  /// Any empty file that is open for writing. Owns it.
  explicit KeptFile(Descriptor file);
  KeptFile(const KeptFile&) = delete;
  KeptFile& operator=(const KeptFile&) = delete;

  /// Writes the values. It goes on when the file cannot take them: `finish` tells that. Valid as
  /// long as this object is.
  [[nodiscard]] KeptWriter& writer() { return writer_; }
  /// Writes what is not in the file yet, and the header. Call it once, behind the last value.
  /// Returns why the file is not whole: the first failure of all.
  [[nodiscard]] std::error_code finish();

  [[nodiscard]] int descriptor() const { return file_.number(); }
  /// Returns the descriptors that were written, in their order. The next program must inherit them.
  [[nodiscard]] const std::vector<int>& descriptors() const { return writer_.descriptors(); }

 private:
  friend class KeptWriter;

  /// Writes the next piece of the body.
  void take(std::string_view piece);
  void write(std::string_view bytes);

  Descriptor file_;
  KeptWriter writer_;
  SipHash13 checkSum_ = beginKeptCheckSum();
  std::error_code failure_;
};

}  // namespace sorvane
