#include <pwd.h>

#include <string>
#include <vector>

#include "platform/SystemProcess.h"

namespace sorvane {

std::string userName(uid_t user) {
  std::vector<char> texts(std::size_t{16} << 10);
  passwd entry{};
  passwd* found = nullptr;
  getpwuid_r(user, &entry, texts.data(), texts.size(), &found);
  return found != nullptr ? found->pw_name : std::to_string(user);
}

}  // namespace sorvane
