// A launcher of the tests' own, on the project's server side, in a process of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/NetConnection.h"
#include "support/ForkedPart.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// Serves the "sorvexec" port of 127.0.0.1 and makes the settings of this process lead there. Keeps
/// its defaults in a file and takes new ones only with its password. It ends with the object.
class Launcher {
 public:
  static constexpr const char* kPassword = "open sesame";

  /// How it replies to a request; runs in the launcher's process.
  using Answer = std::function<Reply(const Message& request, NetConnection& sender)>;

  /// A launcher that keeps `defaults`, a text.
  explicit Launcher(std::string_view defaults);
  /// A launcher that replies whatever the test wants.
  explicit Launcher(Answer answer);
  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  /// The defaults that it keeps now.
  [[nodiscard]] std::string defaults() const { return readFile(defaultsFile()); }
  /// The bodies of the requests that it has received, as they travelled.
  [[nodiscard]] std::vector<std::string> requests() const;

 private:
  void start(const Answer& answer);
  [[nodiscard]] Reply keepDefaults(const Message& request, NetConnection& sender) const;
  [[nodiscard]] std::filesystem::path defaultsFile() const { return folder_ / "SorvDefaults"; }

  TemporaryFolder folder_;
  std::optional<ForkedPart> process_;
};

}  // namespace sorvane::test
