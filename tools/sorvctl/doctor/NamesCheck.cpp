#include <algorithm>
#include <string>
#include <vector>

#include "sorvctl/DatabaseList.h"
#include "sorvctl/PortPicture.h"
#include "sorvctl/Session.h"
#include "sorvctl/ShellWords.h"
#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

namespace {

constexpr const char* kThisHost = "127.0.0.1";
// What listens at the base port may be anything.
constexpr PictureBounds kBounds{200'000, std::size_t{64} << 20};
constexpr std::size_t kLongestReply = std::size_t{8} << 20;
constexpr std::size_t kMostShown = 3;

std::vector<std::string> leftNames(const std::vector<Database>& databases) {
  std::vector<std::string> names;
  for (const Database& each : databases) {
    if (each.left) {
      names.push_back(each.port.name);
    }
  }
  return names;
}

Finding leftBehind(const std::vector<std::string>& names) {
  std::vector<std::string> shown;
  for (std::size_t index = 0; index < std::min(names.size(), kMostShown); ++index) {
    shown.push_back('"' + names[index] + '"');
  }
  if (names.size() > kMostShown) {
    shown.push_back(std::to_string(names.size() - kMostShown) + " more");
  }
  return finding(kinds::namesLeftBehind,
                 {{"names", joined(shown)}, {"name", insertion(names.front(), {})}});
}

}  // namespace

Report checkNames(const Environment& environment) {
  if (!environment.answer.answered) {
    return {"there is no name server", {}, {}};
  }
  Options options;
  options.host = kThisHost;
  options.port = environment.basePort;
  options.maximumReplyBytes = kLongestReply;
  Session session(options, environment.lastMoment);
  PortPicture picture(kBounds);
  if (!bringUpToDate(picture, session)) {
    return {"", {}, {{"names that were left behind", "this name server does not tell them"}}};
  }
  const std::vector<Database> databases = picture.databases();
  const std::vector<std::string> left = leftNames(databases);
  Report report{"databases: " + std::to_string(databases.size()) +
                    ", left behind: " + std::to_string(left.size()),
                {},
                {}};
  if (!left.empty()) {
    report.findings.push_back(leftBehind(left));
  }
  return report;
}

}  // namespace sorvctl::doctor
