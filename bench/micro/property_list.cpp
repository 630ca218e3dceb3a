// Property lists: reading and writing a preference file, and the UTF-8 check of a request's texts.
#include <benchmark/benchmark.h>

#include <string>

#include "platform/PropertyList.h"
#include "platform/Utf8.h"

namespace {

using sorvane::PropertyList;

/// A preference file of that many users.
PropertyList preferences(int users) {
  PropertyList::Dictionary all;
  for (int user = 0; user < users; ++user) {
    PropertyList::Dictionary one;
    for (int entry = 0; entry < 10; ++entry) {
      one["Preference_" + std::to_string(entry)] = "a value with blanks, \"quotes\" and \u00e4";
    }
    all["user" + std::to_string(user)] = std::move(one);
  }
  return all;
}

void BM_Parse(benchmark::State& state) {
  const std::string text = preferences(static_cast<int>(state.range(0))).description();
  for (auto _ : state) {
    benchmark::DoNotOptimize(PropertyList::parse(text));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Parse)->Arg(1)->Arg(100)->Arg(10000);

void BM_Description(benchmark::State& state) {
  const PropertyList value = preferences(static_cast<int>(state.range(0)));
  std::size_t length = 0;
  for (auto _ : state) {
    const std::string text = value.description();
    length = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * length));
}
BENCHMARK(BM_Description)->Arg(1)->Arg(100)->Arg(10000);

void checkUtf8(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(sorvane::isUtf8(text));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_IsUtf8OfAPortName(benchmark::State& state) { checkUtf8(state, "accounts_2026"); }
BENCHMARK(BM_IsUtf8OfAPortName);

void BM_IsUtf8Ascii(benchmark::State& state) { checkUtf8(state, std::string(64 << 10, 'a')); }
BENCHMARK(BM_IsUtf8Ascii);

void BM_IsUtf8Umlauts(benchmark::State& state) {
  std::string text;
  for (int i = 0; i < 8 << 10; ++i) {
    text += "M\u00fcller ";
  }
  checkUtf8(state, text);
}
BENCHMARK(BM_IsUtf8Umlauts);

/// What a careless reader takes quadratic time for: the time per byte must not grow with the size.
void BM_ParseHostile(benchmark::State& state, const char* begin, const char* piece,
                     const char* end) {
  std::string text = begin;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    text += piece;
  }
  text += end;
  for (auto _ : state) {
    try {
      benchmark::DoNotOptimize(PropertyList::parse(text));
    } catch (const sorvane::PropertyListError&) {
      continue;  // a refusal takes its time, too
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK_CAPTURE(BM_ParseHostile, Comments, "", "/**/", "a")->Arg(1000)->Arg(1000000);
BENCHMARK_CAPTURE(BM_ParseHostile, OpenComments, "", "/*", "")->Arg(1000)->Arg(1000000);
BENCHMARK_CAPTURE(BM_ParseHostile, Escapes, "\"", "\\n", "\"")->Arg(1000)->Arg(1000000);
BENCHMARK_CAPTURE(BM_ParseHostile, SameKey, "", "a=b;", "")->Arg(1000)->Arg(1000000);
BENCHMARK_CAPTURE(BM_ParseHostile, Lists, "(", "(),", ")")->Arg(1000)->Arg(1000000);
BENCHMARK_CAPTURE(BM_ParseHostile, NestedRefusals, "", "(", "")->Arg(1000)->Arg(1000000);

}  // namespace
