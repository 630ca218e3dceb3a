#include "sorvctl/doctor/Findings.h"

#include <stdexcept>
#include <string_view>

#include "sorvctl/TerminalText.h"

namespace sorvctl::doctor {

namespace {

constexpr std::size_t kLongestValue = 300;

std::string valueOf(std::string_view word, Values values) {
  for (const auto& [name, value] : values) {
    if (word == name) {
      return shortened(value, kLongestValue);
    }
  }
  throw std::logic_error("no value for " + std::string(word));
}

std::string filledIn(std::string_view text, Values values) {
  std::string result;
  for (std::size_t open = text.find('{'); open != std::string_view::npos; open = text.find('{')) {
    const std::size_t close = text.find('}', open);
    result += text.substr(0, open);
    result += valueOf(text.substr(open + 1, close - open - 1), values);
    text.remove_prefix(close + 1);
  }
  return result.append(text);
}

}  // namespace

Finding finding(const FindingKind& kind, Values values) {
  return {kind.severity, kind.id, filledIn(kind.what, values), filledIn(kind.remedy, values)};
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& each : texts) {
    all += (all.empty() ? "" : " and ") + each;
  }
  return all;
}

}  // namespace sorvctl::doctor
