#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>

#include "convert/IntegerText.h"
#include "convert/VNConvertTypes.h"
#include "platform/Ascii.h"
#include "sorvctl/Command.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Output.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using sorvane::VNConvertTypes;

namespace {

constexpr std::size_t kLongestText = 200;
constexpr std::size_t kRoomToGrow = 128;

[[noreturn]] void refuse(const std::string& text, const char* what) {
  throw Failure(Status::wrongUsage, "\"" + text + "\" is not " + what);
}

/// Applies a conversion that changes the text in its buffer.
std::string inPlace(const std::string& text, char* (*conversion)(char*)) {
  std::vector<char> buffer(text.begin(), text.end());
  buffer.resize(text.size() + kRoomToGrow);
  return conversion(buffer.data());
}

std::int64_t integerOf(const std::string& text, int base, const char* what) {
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, base);
  if (error != std::errc() || stop != end) {
    refuse(text, what);
  }
  return value;
}

std::int64_t storedInteger(const std::string& text) {
  return integerOf(text, 10, "a 64-bit integer");
}

bool hasDigit(const std::string& text) {
  return text.find_first_of("0123456789") != std::string::npos;
}

// The conversions, from the display form to the stored form and back.

std::string dateText(const std::string& text) {
  return inPlace(text,
                 text.front() == '@' ? &VNConvertTypes::preFilter : &VNConvertTypes::postFilter);
}

std::string timeText(const std::string& text) {
  return inPlace(
      text, text.front() == '#' ? &VNConvertTypes::preTimeFilter : &VNConvertTypes::postTimeFilter);
}

std::string hundredths(const std::string& text) {
  if (!hasDigit(text) || text.size() > 50) {
    refuse(text, "an amount of money");
  }
  return std::to_string(VNConvertTypes::MoneyToLongLong(text.c_str()));
}

std::string moneyText(const std::string& text) {
  char buffer[kRoomToGrow];
  return VNConvertTypes::LongLongToMoney(storedInteger(text), buffer);
}

std::string plainInteger(const std::string& text) {
  std::string digits = text;
  std::erase(digits, ',');
  return std::to_string(storedInteger(digits));
}

std::string groupedInteger(const std::string& text) {
  char buffer[kRoomToGrow];
  sorvane::vn_lltoas(storedInteger(text), buffer, ',');
  return buffer;
}

std::string integerOfHex(const std::string& text) {
  std::string digits = sorvane::lowerCase(text);
  if (const std::size_t mark = digits.find("0x"); mark == 0 || (mark == 1 && digits[0] == '-')) {
    digits.erase(mark, 2);
  }
  (void)integerOf(digits, 16, "a hexadecimal number of 64 bits");
  return std::to_string(sorvane::vn_ahextoll(digits.c_str()));
}

std::string hexOfInteger(const std::string& text) {
  return fmt::format("{:x}", storedInteger(text));
}

std::string instant(const std::string& text) {
  return fmt::format("{:.0f}", VNConvertTypes::dateTimeToFloat(text.c_str()));
}

std::string instantText(const std::string& text) {
  char* stop = nullptr;
  const double value = std::strtod(text.c_str(), &stop);
  if (*stop != '\0') {
    refuse(text, "a number of seconds");
  }
  char buffer[kRoomToGrow];
  return VNConvertTypes::floatToDateTime(value, buffer);
}

using Conversion = std::string (*)(const std::string& text);

/// The conversions of one kind of value.
struct Conversions {
  Conversion read;  ///< from the display form to the stored form
  Conversion
      show;  ///< back; null where `read` does both, because the stored form begins with a mark
};

int convert(Session& session, const std::string& text, Conversion conversion) {
  if (text.empty() || text.size() > kLongestText) {
    throw Failure(Status::wrongUsage, "a text of 1 to 200 bytes is needed");
  }
  if (!session.host().empty()) {
    VNConvertTypes::setDefaultHost(session.host().c_str());
  }
  const std::string result = conversion(text);
  printLine(session, {{"text", text}, {"result", result}}, result);
  return 0;
}

Handler declare(CLI::App& command, const Conversions& conversions) {
  struct Arguments {
    std::string text;
    bool stored = false;
  };
  auto arguments = std::make_shared<Arguments>();
  command.add_option("TEXT", arguments->text, "What is converted")->required();
  if (conversions.show != nullptr) {
    command.add_flag("--from-stored", arguments->stored, "TEXT is the stored form: show it");
  }
  return [arguments, conversions](Session& session) {
    return convert(session, arguments->text,
                   arguments->stored ? conversions.show : conversions.read);
  };
}

Handler declareConvertDate(CLI::App& command) { return declare(command, {&dateText, nullptr}); }
Handler declareConvertTime(CLI::App& command) { return declare(command, {&timeText, nullptr}); }
Handler declareConvertMoney(CLI::App& command) {
  return declare(command, {&hundredths, &moneyText});
}
Handler declareConvertInteger(CLI::App& command) {
  return declare(command, {&plainInteger, &groupedInteger});
}
Handler declareConvertHex(CLI::App& command) {
  return declare(command, {&integerOfHex, &hexOfInteger});
}
Handler declareConvertInstant(CLI::App& command) {
  return declare(command, {&instant, &instantText});
}

}  // namespace

std::vector<Command> commands::conversions() {
  return {
      {"convert", "Convert values between their stored form and the host's display forms"},
      {"convert date", "A date to its stored form, or back from \"@YYYY-MM-DD\"",
       "sorvctl convert date @2004-05-06", &declareConvertDate},
      {"convert time", "A time to its stored form, or back from \"#HH:MM\"",
       "sorvctl convert time '7:05 PM'", &declareConvertTime},
      {"convert money", "An amount of money to hundredths, or back",
       "sorvctl convert money --from-stored -123456", &declareConvertMoney},
      {"convert integer", "An integer with groups of digits to plain digits, or back",
       "sorvctl convert integer 1,234,567", &declareConvertInteger},
      {"convert hex", "A hexadecimal number to an integer, or back", "sorvctl convert hex ff",
       &declareConvertHex},
      {"convert instant", "A date and time to seconds since the reference date, or back",
       "sorvctl convert instant --from-stored 0", &declareConvertInstant},
  };
}

}  // namespace sorvctl
