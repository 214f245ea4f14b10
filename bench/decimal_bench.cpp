// Reading the numbers of a document: the plain decimal path against the
// general conversion it stands in for, on numbers as the library writes them.
#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <string>
#include <vector>

#include "qddecimal.h"

using namespace qdcore;

namespace {

// Keyframe values and times written with "%.12f", as UTF-16 the document holds.
const std::vector<std::u16string>& Numbers() {
  static const std::vector<std::u16string> numbers = [] {
    std::vector<std::u16string> out;
    char line[64];
    for (int i = 0; i < 4096; ++i) {
      std::snprintf(line, sizeof line, "%.12f", (i % 2 ? -1.0 : 1.0) * i * 0.0137);
      const std::string text(line);
      out.emplace_back(text.begin(), text.end());
    }
    return out;
  }();
  return numbers;
}

void BM_NumberPlainDecimal(benchmark::State& state) {
  const std::vector<std::u16string>& numbers = Numbers();
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ReadPlainDecimal(numbers[i]));
    i = (i + 1) % numbers.size();
  }
}
BENCHMARK(BM_NumberPlainDecimal);

// What the plain path saves: the text narrowed, then converted.
void BM_NumberGeneral(benchmark::State& state) {
  const std::vector<std::u16string>& numbers = Numbers();
  std::string narrow;
  std::size_t i = 0;
  for (auto _ : state) {
    const std::u16string& text = numbers[i];
    narrow.assign(text.begin(), text.end());
    double value = 0;
    benchmark::DoNotOptimize(std::from_chars(narrow.data(), narrow.data() + narrow.size(), value));
    benchmark::DoNotOptimize(value);
    i = (i + 1) % numbers.size();
  }
}
BENCHMARK(BM_NumberGeneral);

}  // namespace
