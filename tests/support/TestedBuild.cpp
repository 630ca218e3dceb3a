#include "support/TestedBuild.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace sorvane::test {
namespace {

// Returns what the build was configured with.
std::string configured(const std::filesystem::path& build, const std::string& name) {
  std::ifstream cache(build / "CMakeCache.txt");
  const std::string beginning = name + ":STRING=";
  for (std::string line; std::getline(cache, line);) {
    if (line.starts_with(beginning)) {
      return line.substr(beginning.size());
    }
  }
  throw std::runtime_error(build.string() + " is no build: it has no " + name);
}

}  // namespace

std::filesystem::path testedBuild() {
  const char* const named = std::getenv("SORVANE_TESTED_BUILD");
  return named == nullptr ? SORVANE_BINARY_DIR : named;
}

const std::string& testedSanitizers() {
  static const std::string sanitizers = configured(testedBuild(), "SORVANE_SANITIZERS");
  return sanitizers;
}

}  // namespace sorvane::test
