#include "service/UnitFile.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

#include "support/Documents.h"

namespace sorvane::test {

UnitFile::UnitFile(const std::filesystem::path& file) {
  std::string section;
  for (const std::string& line : documentLines(file)) {
    const std::size_t equals = line.find('=');
    if (line.starts_with('[')) {
      section = line.substr(1, line.find(']') - 1);
    } else if (!line.empty() && !line.starts_with('#') && equals != std::string::npos) {
      sections_[section][line.substr(0, equals)].push_back(line.substr(equals + 1));
    }
  }
}

std::vector<std::string> UnitFile::values(const std::string& section,
                                          const std::string& directive) const {
  const auto& directives = sections_.at(section);
  const auto found = directives.find(directive);
  return found == directives.end() ? std::vector<std::string>() : found->second;
}

std::vector<std::string> UnitFile::words(const std::string& section,
                                         const std::string& directive) const {
  std::vector<std::string> all;
  for (const std::string& value : values(section, directive)) {
    std::istringstream stream(value);
    all.insert(all.end(), std::istream_iterator<std::string>(stream), {});
  }
  return all;
}

std::string UnitFile::value(const std::string& section, const std::string& directive) const {
  const std::vector<std::string> all = values(section, directive);
  EXPECT_EQ(all.size(), 1U) << directive;
  return all.empty() ? "" : all.front();
}

const UnitFile& unitOfNameServer() {
  static const auto* const unit = new UnitFile(packagingFile("sorvinfo.service"));
  return *unit;
}

std::filesystem::path packagingFile(const std::string& name) {
  return std::filesystem::path(SORVANE_SOURCE_DIR) / "packaging" / name;
}

}  // namespace sorvane::test
