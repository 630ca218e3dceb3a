// The conversions beside well-known libraries that do the same work in the same run. Names read
// OPERATION/WHO.
#include <benchmark/benchmark.h>
#include <fmt/compile.h>
#include <fmt/format.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "convert/Calendar.h"
#include "convert/IntegerText.h"
#include "convert/VNConvertTypes.h"

namespace {

using sorvane::VNConvertTypes;

constexpr std::size_t kSamples = 1024;

// Numbers of every length, both signs, always the same ones.
const std::array<std::int64_t, kSamples>& integers() {
  static const auto samples = [] {
    std::array<std::int64_t, kSamples> values{};
    std::mt19937_64 random(1);
    for (std::int64_t& value : values) {
      value = static_cast<std::int64_t>(random()) >> (random() % 64);
    }
    return values;
  }();
  return samples;
}

// Date values from 1901 to 2100.
const std::array<double, kSamples>& dateValues() {
  static const auto samples = [] {
    std::array<double, kSamples> values{};
    std::mt19937_64 random(2);
    for (double& value : values) {
      value = static_cast<double>(random() % 6311433600) - 3155760000.0 + 0.5;
    }
    return values;
  }();
  return samples;
}

using Texts = std::array<char[64], kSamples>;

template <typename Write>
const Texts& textsBy(Write write) {
  static const auto samples = [&] {
    Texts texts{};
    for (std::size_t i = 0; i < kSamples; ++i) {
      write(texts[i], i);
    }
    return texts;
  }();
  return samples;
}

const Texts& integerTexts() {
  return textsBy([](char* text, std::size_t i) { sorvane::vn_lltoa(integers()[i], text); });
}

const Texts& dateTexts() {
  return textsBy([](char* text, std::size_t i) { sorvane::VN_formatDate(text, dateValues()[i]); });
}

const Texts& storedDates() {
  return textsBy([](char* text, std::size_t i) {
    std::memcpy(text, "@", 2);
    std::strncat(text, dateTexts()[i], 10);
  });
}

const Texts& moneyTexts() {
  return textsBy(
      [](char* text, std::size_t i) { VNConvertTypes::formatMoneyLL(integers()[i], text); });
}

const Texts& shownDates() {
  return textsBy([](char* text, std::size_t i) {
    std::strcpy(text, storedDates()[i]);
    VNConvertTypes::preFilter(text);
  });
}

// Runs the work over all samples in turn; a figure is the time of one.
template <typename Work>
void measure(benchmark::State& state, Work work) {
  sorvane::initGMTOffset(0);
  VNConvertTypes::useSettingsForTest({});
  std::size_t i = 0;
  for (auto _ : state) {
    work(i);
    i = (i + 1) % kSamples;
  }
}

// ---- Integers

void integerOwn(benchmark::State& state) {
  measure(state, [text = std::array<char, 32>{}](std::size_t i) mutable {
    sorvane::vn_lltoa(integers()[i], text.data());
    benchmark::DoNotOptimize(text);
  });
}

void integerToChars(benchmark::State& state) {
  measure(state, [text = std::array<char, 32>{}](std::size_t i) mutable {
    *std::to_chars(text.data(), text.data() + text.size(), integers()[i]).ptr = '\0';
    benchmark::DoNotOptimize(text);
  });
}

void integerFmt(benchmark::State& state) {
  measure(state, [text = std::array<char, 32>{}](std::size_t i) mutable {
    *fmt::format_to(text.data(), FMT_COMPILE("{}"), integers()[i]) = '\0';
    benchmark::DoNotOptimize(text);
  });
}

void groupedOwn(benchmark::State& state) {
  measure(state, [text = std::array<char, 32>{}](std::size_t i) mutable {
    sorvane::vn_lltoas(integers()[i], text.data(), ',');
    benchmark::DoNotOptimize(text);
  });
}

// Digits by the library, then the separators between them.
char* groupDigits(char* out, const char* digits, const char* end) {
  if (*digits == '-') {
    *out++ = *digits++;
  }
  while (digits != end) {
    *out++ = *digits++;
    if (digits != end && (end - digits) % 3 == 0) {
      *out++ = ',';
    }
  }
  return out;
}

void groupedToChars(benchmark::State& state) {
  measure(state, [text = std::array<char, 32>{}](std::size_t i) mutable {
    char digits[24];
    const char* const end = std::to_chars(digits, digits + sizeof(digits), integers()[i]).ptr;
    *groupDigits(text.data(), digits, end) = '\0';
    benchmark::DoNotOptimize(text);
  });
}

void readIntegerOwn(benchmark::State& state) {
  measure(state,
          [](std::size_t i) { benchmark::DoNotOptimize(sorvane::vn_atoll(integerTexts()[i])); });
}

void readIntegerFromChars(benchmark::State& state) {
  measure(state, [](std::size_t i) {
    const char* const text = integerTexts()[i];
    std::int64_t value = 0;
    std::from_chars(text, text + std::strlen(text), value);
    benchmark::DoNotOptimize(value);
  });
}

// ---- Money

void moneyOwn(benchmark::State& state) {
  measure(state, [text = std::array<char, 128>{}](std::size_t i) mutable {
    VNConvertTypes::formatMoneyLL(integers()[i], text.data());
    benchmark::DoNotOptimize(text);
  });
}

void moneyToChars(benchmark::State& state) {
  measure(state, [text = std::array<char, 128>{}](std::size_t i) mutable {
    char digits[24];
    const std::int64_t value = integers()[i];
    const auto distance = value < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(value)
                                    : static_cast<std::uint64_t>(value);
    char* out = text.data();
    *out++ = '$';
    if (value < 0) {
      *out++ = '-';
    }
    out = groupDigits(out, digits,
                      std::to_chars(digits, digits + sizeof(digits), distance / 100).ptr);
    *out++ = '.';
    *out++ = static_cast<char>('0' + distance % 100 / 10);
    *out++ = static_cast<char>('0' + distance % 10);
    *out = '\0';
    benchmark::DoNotOptimize(text);
  });
}

void moneyFmt(benchmark::State& state) {
  measure(state, [text = std::array<char, 128>{}](std::size_t i) mutable {
    char digits[24];
    const std::int64_t value = integers()[i];
    const auto distance = value < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(value)
                                    : static_cast<std::uint64_t>(value);
    char* const end = fmt::format_to(digits, FMT_COMPILE("{}"), distance / 100);
    char grouped[32];
    *groupDigits(grouped, digits, end) = '\0';
    *fmt::format_to(text.data(), FMT_COMPILE("${}{}.{:02}"), value < 0 ? "-" : "",
                    static_cast<const char*>(grouped), distance % 100) = '\0';
    benchmark::DoNotOptimize(text);
  });
}

void readMoneyOwn(benchmark::State& state) {
  measure(state, [](std::size_t i) {
    benchmark::DoNotOptimize(VNConvertTypes::MoneyToLongLong(moneyTexts()[i]));
  });
}

void readMoneyFromChars(benchmark::State& state) {
  measure(state, [](std::size_t i) {
    char digits[64];
    char* end = digits;
    for (const char* place = moneyTexts()[i]; *place != '\0'; ++place) {
      if (*place == '-' || (*place >= '0' && *place <= '9')) {
        *end++ = *place;
      }
    }
    std::int64_t value = 0;
    std::from_chars(digits, end, value);
    benchmark::DoNotOptimize(value);
  });
}

// ---- Date values

using Seconds = std::chrono::sys_seconds;
constexpr std::chrono::sys_days kReference{std::chrono::year{2001} / 1 / 1};

Seconds asTimePoint(double value) {
  return std::chrono::floor<std::chrono::seconds>(kReference +
                                                  std::chrono::duration<double>(value));
}

struct Fields {
  std::chrono::year_month_day date;
  std::chrono::hh_mm_ss<std::chrono::seconds> time;
};

Fields fieldsOf(double value) {
  const Seconds point = asTimePoint(value);
  const auto day = std::chrono::floor<std::chrono::days>(point);
  return {day, std::chrono::hh_mm_ss(point - day)};
}

void formatDateOwn(benchmark::State& state) {
  measure(state, [text = std::array<char, 64>{}](std::size_t i) mutable {
    sorvane::VN_formatDate(text.data(), dateValues()[i]);
    benchmark::DoNotOptimize(text);
  });
}

void formatDateChronoFmt(benchmark::State& state) {
  measure(state, [text = std::array<char, 64>{}](std::size_t i) mutable {
    const Fields fields = fieldsOf(dateValues()[i]);
    *fmt::format_to(text.data(), FMT_COMPILE("{:04}-{:02}-{:02} {:02}:{:02}:{:02} {}"),
                    static_cast<int>(fields.date.year()),
                    static_cast<unsigned>(fields.date.month()),
                    static_cast<unsigned>(fields.date.day()), fields.time.hours().count(),
                    fields.time.minutes().count(), fields.time.seconds().count(),
                    static_cast<const char*>(sorvane::gmtstring)) = '\0';
    benchmark::DoNotOptimize(text);
  });
}

void takeApartOwn(benchmark::State& state) {
  measure(state, [](std::size_t i) {
    double rest = dateValues()[i];
    const int year = sorvane::secondsToYear(&rest);
    // Not const here and below: DoNotOptimize of a constant is deprecated.
    int fields[] = {year, sorvane::secondsToMonth(&rest, sorvane::isLeapYear(year)),
                    sorvane::secondsToDays(&rest), sorvane::secondsToHours(&rest),
                    sorvane::secondsToMin(&rest)};
    benchmark::DoNotOptimize(fields);
  });
}

void takeApartChrono(benchmark::State& state) {
  measure(state, [](std::size_t i) {
    const Fields fields = fieldsOf(dateValues()[i]);
    int numbers[] = {static_cast<int>(fields.date.year()),
                     static_cast<int>(static_cast<unsigned>(fields.date.month())),
                     static_cast<int>(static_cast<unsigned>(fields.date.day())),
                     static_cast<int>(fields.time.hours().count()),
                     static_cast<int>(fields.time.minutes().count())};
    benchmark::DoNotOptimize(numbers);
  });
}

int number(const char* text, std::size_t digits) {
  int value = 0;
  std::from_chars(text, text + digits, value);
  return value;
}

void readDateOwn(benchmark::State& state) {
  measure(state,
          [](std::size_t i) { benchmark::DoNotOptimize(sorvane::dateToFloat(dateTexts()[i])); });
}

void readDateFromCharsChrono(benchmark::State& state) {
  measure(state, [](std::size_t i) {
    using namespace std::chrono;
    const char* const text = dateTexts()[i];
    const sys_days day = year{number(text, 4)} / number(text + 5, 2) / number(text + 8, 2);
    const auto point = day + hours(number(text + 11, 2)) + minutes(number(text + 14, 2)) +
                       seconds(number(text + 17, 2)) - hours(number(text + 21, 4) / 100);
    benchmark::DoNotOptimize(duration<double>(point - kReference).count());
  });
}

// ---- Stored and shown dates

void showDateOwn(benchmark::State& state) {
  measure(state, [](std::size_t i) {
    char text[64];
    std::memcpy(text, storedDates()[i], sizeof(text));
    VNConvertTypes::preFilter(text);
    benchmark::DoNotOptimize(text);
  });
}

void showDateFromCharsFmt(benchmark::State& state) {
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  measure(state, [](std::size_t i) {
    char text[64];
    std::memcpy(text, storedDates()[i], sizeof(text));
    const int year = number(text + 1, 4);
    const int month = number(text + 6, 2);
    const int day = number(text + 9, 2);
    *fmt::format_to(text, FMT_COMPILE("{} {}, {}"), kMonths[month - 1], day, year) = '\0';
    benchmark::DoNotOptimize(text);
  });
}

void storeDateOwn(benchmark::State& state) {
  measure(state, [](std::size_t i) {
    char text[64];
    std::memcpy(text, shownDates()[i], sizeof(text));
    VNConvertTypes::postFilter(text);
    benchmark::DoNotOptimize(text);
  });
}

}  // namespace

BENCHMARK(integerOwn)->Name("write integer/own");
BENCHMARK(integerToChars)->Name("write integer/to_chars");
BENCHMARK(integerFmt)->Name("write integer/fmt");
BENCHMARK(groupedOwn)->Name("write grouped integer/own");
BENCHMARK(groupedToChars)->Name("write grouped integer/to_chars");
BENCHMARK(readIntegerOwn)->Name("read integer/own");
BENCHMARK(readIntegerFromChars)->Name("read integer/from_chars");
BENCHMARK(moneyOwn)->Name("write money/own");
BENCHMARK(moneyToChars)->Name("write money/to_chars");
BENCHMARK(moneyFmt)->Name("write money/fmt");
BENCHMARK(readMoneyOwn)->Name("read money/own");
BENCHMARK(readMoneyFromChars)->Name("read money/from_chars");
BENCHMARK(takeApartOwn)->Name("date value to fields/own");
BENCHMARK(takeApartChrono)->Name("date value to fields/chrono");
BENCHMARK(formatDateOwn)->Name("write date value/own");
BENCHMARK(formatDateChronoFmt)->Name("write date value/chrono and fmt");
BENCHMARK(readDateOwn)->Name("read date value/own");
BENCHMARK(readDateFromCharsChrono)->Name("read date value/from_chars and chrono");
BENCHMARK(showDateOwn)->Name("show stored date/own");
BENCHMARK(showDateFromCharsFmt)->Name("show stored date/from_chars and fmt");
BENCHMARK(storeDateOwn)->Name("store shown date/own");
