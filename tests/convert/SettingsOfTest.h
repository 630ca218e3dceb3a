// The display settings and the defaults file of a test.
#pragma once

#include <string_view>

#include "convert/VNConvertTypes.h"
#include "platform/Settings.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// A date or time style by its first character.
[[nodiscard]] inline DisplaySettings dateStyle(char style) {
  DisplaySettings settings;
  settings.pDate[0] = style;
  return settings;
}
[[nodiscard]] inline DisplaySettings timeStyle(char style) {
  DisplaySettings settings;
  settings.pTime[0] = style;
  return settings;
}

/// A server configuration folder of the test's own, and conversions that have loaded nothing.
class DefaultsFileOfTest {
 public:
  explicit DefaultsFileOfTest(std::string_view content) {
    Settings settings;
    settings.serverConfigDirectory = folder_.path().string();
    Settings::replaceForTest(settings);
    write(content);
    VNConvertTypes::resetForTest();
  }
  DefaultsFileOfTest(const DefaultsFileOfTest&) = delete;
  DefaultsFileOfTest& operator=(const DefaultsFileOfTest&) = delete;

  void write(std::string_view content) { writeFile(folder_ / "SorvDefaults", content); }

 private:
  TemporaryFolder folder_;
};

}  // namespace sorvane::test
