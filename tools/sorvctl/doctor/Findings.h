// What the doctor can find, and what it has found.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace sorvctl::doctor {

/// How bad a finding is.
enum class Severity : std::uint8_t {
  wrong,     ///< something does not work
  doubtful,  ///< it may be meant like this
};

[[nodiscard]] constexpr const char* severityName(Severity severity) {
  return severity == Severity::wrong ? "wrong" : "doubtful";
}

/// One kind of finding. `what` and `remedy` hold words in braces, for which a finding has values.
struct FindingKind {
  Severity severity;
  const char* id;      ///< never changes: scripts and documents refer to it
  const char* what;    ///< without a full stop
  const char* remedy;  ///< without a full stop
};

/// The kinds, by their names in the code. FindingKinds.inc is their table.
namespace kinds {
#define DOCTOR_FINDING(name, severity, id, what, remedy) \
  inline constexpr FindingKind name{Severity::severity, id, what, remedy};
#include "sorvctl/doctor/FindingKinds.inc"
#undef DOCTOR_FINDING
}  // namespace kinds

/// All kinds, in the order of the table.
inline constexpr FindingKind kAllKinds[] = {
#define DOCTOR_FINDING(name, severity, id, what, remedy) kinds::name,
#include "sorvctl/doctor/FindingKinds.inc"
#undef DOCTOR_FINDING
};

/// Something that was found, in whole sentences without a full stop.
struct Finding {
  Severity severity;
  std::string id;
  std::string what;
  std::string remedy;
};

/// The values of the words in braces: a word and its text, such as {"port", "20221"}.
using Values = std::initializer_list<std::pair<const char*, std::string>>;

/// Makes a finding. A text of more than 300 bytes, which a peer or a file may have chosen, is cut.
/// Throws std::logic_error if a word has no value.
[[nodiscard]] Finding finding(const FindingKind& kind, Values values = {});

/// Returns texts with "and" between them.
[[nodiscard]] std::string joined(const std::vector<std::string>& texts);

/// Something that could not be looked at.
struct Unseen {
  std::string what;    ///< such as "the open files of process 4711"; empty: all of the check
  std::string reason;  ///< such as "only root may look"
};

/// What a check has to tell.
struct Report {
  std::string seen;  ///< what it saw, on one line
  std::vector<Finding> findings;
  std::vector<Unseen> unseen;
};

}  // namespace sorvctl::doctor
