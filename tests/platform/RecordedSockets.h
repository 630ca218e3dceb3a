// The sockets that this test program opens, as they were asked for.
#pragma once

#include <optional>
#include <vector>

namespace sorvane::test {

/// What a call of socket(2) asked for.
struct SocketRequest {
  int family = 0;
  int type = 0;  ///< with its flags
};

/// From its construction to its end it notes all calls of socket(2), which go on to the C library.
/// One at a time.
class RecordedSockets {
 public:
  RecordedSockets();
  ~RecordedSockets();
  RecordedSockets(const RecordedSockets&) = delete;
  RecordedSockets& operator=(const RecordedSockets&) = delete;

  /// From now on, calls for that family fail with the error.
  void refuse(int family, int error);

  [[nodiscard]] std::vector<SocketRequest> all() const;
  /// Those of one family.
  [[nodiscard]] std::vector<SocketRequest> of(int family) const;
};

}  // namespace sorvane::test
