#include "daemon/Succession.h"

#include <signal.h>
#include <stdlib.h>

#include <charconv>
#include <cstdio>
#include <string_view>
#include <system_error>
#include <vector>

#include "daemon/Arguments.h"
#include "daemon/ServiceManager.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/ProductVersion.h"
#include "platform/ProgramFile.h"
#include "platform/Settings.h"
#include "platform/Utf8.h"

namespace sorvane {
namespace {

constexpr const char* kKept = "SORVINFO_KEPT";
constexpr std::size_t kLongestLine = 400;  // bytes

std::string understands(std::string_view version) {
  return "understands " + std::string(version) + '\n';
}
std::string doesNotUnderstand(std::string_view version) {
  return "does not understand " + std::string(version) + '\n';
}

sigset_t upgradeSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR2);
  return signals;
}

/// Returns the reason for which the process could not run the program file.
int becomeProgramFile(std::vector<std::string> variables, const std::vector<int>& descriptors) {
  std::vector<std::string> words;
  for (int index = 0; index < VN_parameterCount(); ++index) {
    words.emplace_back(VN_parameter(index));
  }
  for (std::string& each : serviceManagerVariables()) {
    variables.push_back(std::move(each));
  }
  return becomeProgram(programFile(), std::move(words), variables, descriptors);
}

/// Returns the last line in a form for the console and for replies.
std::string lastLine(std::string_view text) {
  while (text.ends_with('\n')) {
    text.remove_suffix(1);
  }
  text.remove_prefix(text.rfind('\n') + 1);  // nothing if there is no other line
  return std::string(utf8Beginning(escapeControls(text), kLongestLine));
}

std::string textOf(int reason) { return std::generic_category().message(reason); }

}  // namespace

void holdUpgradeSignalBack() {
  const sigset_t signals = upgradeSignal();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void waitForUpgradeSignal() {
  const sigset_t signals = upgradeSignal();
  int came = 0;
  while (sigwait(&signals, &came) != 0) {
  }
}

std::string whyNoSuccessor() {
  const std::string version = std::to_string(kKeptVersion);
  const ProgramAnswer answer = askProgram(programFile(), {"-understands", version}, kAnswerLimit);
  if (!answer.fault.empty()) {
    return programFile() + ": " + answer.fault;
  }
  if (answer.text.starts_with(understands(version))) {
    return {};
  }
  // Such as that its settings are bad, or that a library is missing.
  const std::string told = answer.text.empty() ? lastLine(answer.errors) : "";
  return told.empty() ? programFile() + " does not understand what this program keeps"
                      : "the new program says: " + told;
}

namespace {

std::string finish(KeptFile& kept) {
  const std::error_code failure = kept.finish();
  return failure ? "what is kept cannot be written: " + failure.message() : std::string();
}

std::string becomeSuccessor(int memoryFile, std::vector<int> descriptors) {
  descriptors.push_back(memoryFile);
  const int reason =
      becomeProgramFile({std::string(kKept) + '=' + std::to_string(memoryFile)}, descriptors);
  return programFile() + " cannot be run: " + textOf(reason);
}

}  // namespace

std::string handOver(KeptFile& kept) {
  const std::string failure = finish(kept);
  return failure.empty() ? becomeSuccessor(kept.descriptor(), kept.descriptors()) : failure;
}

std::string leaveForSuccessor(KeptFile& kept) {
  std::string failure = finish(kept);
  if (failure.empty()) {
    leaveOpenInNextProgram(kept.descriptors());
  }
  return failure;
}

std::string handOverFile(int memoryFile) { return becomeSuccessor(memoryFile, {}); }

void answerWhetherUnderstood(const char* version) {
  static_cast<void>(Settings::current());  // ends the process if they are bad
  int number = 0;
  const std::string_view asked = version == nullptr ? "" : version;
  const auto [stop, failure] = std::from_chars(asked.data(), asked.data() + asked.size(), number);
  const bool isKnown = failure == std::errc() && stop == asked.data() + asked.size() &&
                       number >= 1 && number <= static_cast<int>(kKeptVersion);
  const std::string answer = isKnown ? understands(asked) : doesNotUnderstand(asked);
  std::fputs((answer + productVersion() + '\n').c_str(), stdout);
  endProcess();
}

int takeKept() {
  const char* const text = getenv(kKept);
  if (text == nullptr) {
    return -1;
  }
  const std::string_view value = text;
  int number = -1;
  std::from_chars(value.data(), value.data() + value.size(), number);
  unsetenv(kKept);
  return number;
}

void startAnew() {
  closeDescriptorsWhenReplaced();
  const int reason = becomeProgramFile({}, {});
  consoleLine("the name server cannot be started anew: " + textOf(reason));
  endProcess();
}

}  // namespace sorvane
