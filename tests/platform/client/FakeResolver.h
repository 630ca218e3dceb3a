// Names that this test program resolves by itself, without asking any network.
#pragma once

#include <string>
#include <vector>

namespace sorvane::test {

/// Makes the C library's `getaddrinfo` answer these addresses for `name`, in this order; without
/// addresses the name is unknown. Any other name is asked of the system.
void resolveAs(const std::string& name, std::vector<std::string> addresses);

/// A name whose resolution takes until the end of this object's life.
class HangingName {
 public:
  explicit HangingName(std::string name);
  ~HangingName();
  HangingName(const HangingName&) = delete;
  HangingName& operator=(const HangingName&) = delete;

 private:
  std::string name_;
};

}  // namespace sorvane::test
