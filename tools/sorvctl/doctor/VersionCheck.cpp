#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

Report checkVersion(const Environment& environment) {
  constexpr const char* kRemoved = " (deleted)";  // the system's mark on the path: see proc(5)
  const std::string& theirs = environment.answer.version;
  Report report{"this command is " + environment.version +
                    (theirs.empty() ? "" : ", the name server " + theirs),
                {},
                {}};
  if (!theirs.empty() && theirs != environment.version) {
    report.findings.push_back(
        finding(kinds::versionDiffers, {{"server", theirs}, {"command", environment.version}}));
  }
  const sorvane::SystemProcess* const server = environment.server();
  if (server != nullptr && server->executable.ends_with(kRemoved)) {
    report.findings.push_back(finding(kinds::programReplaced));
  }
  if (environment.answer.answered && theirs.empty()) {
    report.unseen.push_back({"the version of the name server", "it does not tell it"});
  }
  return report;
}

}  // namespace sorvctl::doctor
