// The inverse lookup beside the forward one: the first time a keyframed
// Double parameter reaches a value, by keyframe count and kind. Compare with
// BM_GetValueDouble at the same counts.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "keyframed.h"

using namespace qdcore;
using namespace qdbench;

namespace {

struct Question {
  double value, from;
};

// Values the parameter takes, asked from random times: most are found a
// segment or a few after `from`.
std::vector<Question> Questions() {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> value(0.0, 100.0), time(0.0, kDuration);
  std::vector<Question> questions(4096);
  for (Question& q : questions) q = {value(random), time(random)};
  return questions;
}

void BM_GetPositionFromValueDouble(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  const auto kind = static_cast<unsigned int>(state.range(1));
  const CParam param = KeyframedParam(EvenKeys(count), kind);
  const std::vector<Question> questions = Questions();
  std::size_t i = 0;
  for (auto _ : state) {
    mtime position;
    const Question& q = questions[i];
    benchmark::DoNotOptimize(
        param.GetPositionFromValueDouble(q.value, kDuration, position, q.from));
    i = (i + 1) % questions.size();
  }
  state.SetLabel(KindName(kind));
}
BENCHMARK(BM_GetPositionFromValueDouble)->ArgsProduct({{2, 64, 1024}, {1, 2, 4, 8, 16}});

// A value reached only at the very end: every segment before is passed over
// by its range alone.
void BM_GetPositionFromValueDoubleAtTheEnd(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  std::vector<Key> keys(count);
  for (unsigned int i = 0; i < count; ++i) keys[i] = {double(i) / (count - 1), i % 2 ? 40.0 : 20.0};
  keys.back().value = 90.0;
  const CParam param = KeyframedParam(keys, INTERPOLATION_LINEAR);
  for (auto _ : state) {
    mtime position;
    benchmark::DoNotOptimize(param.GetPositionFromValueDouble(80.0, kDuration, position));
  }
}
BENCHMARK(BM_GetPositionFromValueDoubleAtTheEnd)->Arg(2)->Arg(64)->Arg(1024);

}  // namespace
