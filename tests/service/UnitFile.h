// The directives of a unit of systemd.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace sorvane::test {

/// A unit file, read as far as the project's own unit goes: no continued lines.
class UnitFile {
 public:
  /// Fails the running test if the file cannot be read.
  explicit UnitFile(const std::filesystem::path& file);

  /// The directives of a section, such as "Service", each with its values in their order.
  [[nodiscard]] const std::map<std::string, std::vector<std::string>>& section(
      const std::string& name) const {
    return sections_.at(name);
  }
  /// The values of a directive; none if it is absent.
  [[nodiscard]] std::vector<std::string> values(const std::string& section,
                                                const std::string& directive) const;
  /// The words of all values of a directive.
  [[nodiscard]] std::vector<std::string> words(const std::string& section,
                                               const std::string& directive) const;
  /// The value of a directive that has one; fails the running test otherwise.
  [[nodiscard]] std::string value(const std::string& section, const std::string& directive) const;

 private:
  std::map<std::string, std::map<std::string, std::vector<std::string>>> sections_;
};

/// The unit of the name server.
[[nodiscard]] const UnitFile& unitOfNameServer();

/// A file in packaging/.
[[nodiscard]] std::filesystem::path packagingFile(const std::string& name);

}  // namespace sorvane::test
