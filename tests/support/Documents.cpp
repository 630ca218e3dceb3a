#include "support/Documents.h"

#include <algorithm>
#include <sstream>

#include "support/TestFiles.h"

namespace sorvane::test {

Lines documentLines(const std::filesystem::path& document) {
  std::istringstream stream(readFile(document));
  Lines lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

Lines chapter(const Lines& document, const std::string& heading) {
  const auto at = std::find(document.begin(), document.end(), heading);
  if (at == document.end()) {
    return {};
  }
  const auto isHeading = [](const std::string& line) {
    return line.rfind("# ", 0) == 0 || line.rfind("## ", 0) == 0;
  };
  return {at + 1, std::find_if(at + 1, document.end(), isHeading)};
}

std::vector<std::string> fencedBlocks(const Lines& lines, const std::string& kind) {
  std::vector<std::string> blocks;
  bool inside = false;
  bool wanted = false;
  for (const std::string& line : lines) {
    if (line.rfind("```", 0) != 0) {
      if (inside && wanted) {
        blocks.back() += line + "\n";
      }
      continue;
    }
    inside = !inside;
    wanted = inside && line == "```" + kind;
    if (wanted) {
      blocks.emplace_back();
    }
  }
  return blocks;
}

}  // namespace sorvane::test
