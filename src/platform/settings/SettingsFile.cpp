#include "platform/settings/SettingsFile.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/PlainFile.h"
#include "platform/PropertyList.h"

namespace sorvane {
namespace {

std::string reasonOf(const PlainFileFailure& failure) {
  switch (failure.kind) {
    case PlainFileFailure::Kind::noPlainFile:
      return "cannot be read: it is no plain file";
    case PlainFileFailure::Kind::tooLong:
      return "is longer than " + std::to_string(PropertyList::kMaximumBytes) + " bytes";
    case PlainFileFailure::Kind::systemError:
      break;
  }
  return "cannot be read: " + failure.error.message();
}

}  // namespace

std::string readSettingsFile(const char* path) {
  auto file = readPlainFile(path, PropertyList::kMaximumBytes);
  if (const auto* failure = std::get_if<PlainFileFailure>(&file)) {
    throw NSException(reasonOf(*failure));
  }
  return std::get<std::string>(std::move(file));
}

bool settingsFileExists(const char* path) {
  struct stat status {};
  // What cannot be looked at is there as far as anybody can tell: passing it over would be a guess.
  return stat(path, &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

std::string defaultLockDirectory() {
  return access("/run/lock", W_OK | X_OK) == 0 ? "/run/lock" : "/tmp";
}

}  // namespace sorvane
