// The host API's value arrays over the example set: the figures the Python
// module's arrays are measured against (python/bench_values.py).
// per_value is the time of one value, in seconds (shown as ns).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "qdparam/qdparam.hpp"

namespace {

const char* const kCurves[] = {"position_x", "size", "rotation",
                               "opacity"};  // Bezier, LinLog, Spline, Linear

// A million times evenly from 0 to 10 s, as numpy.linspace(0, 10, 1_000_000).
std::vector<double> Linspace(double from, double to, std::size_t count) {
  std::vector<double> times(count);
  const double step = (to - from) / static_cast<double>(count - 1);
  for (std::size_t i = 0; i < count; ++i) times[i] = from + static_cast<double>(i) * step;
  times.back() = to;
  return times;
}

void BM_HostApiValuesAtTimes(benchmark::State& state) {
  auto set = qd::Set::load(std::string(QD_EXAMPLES_DIR) + "/pip.xml");
  if (!set) {
    state.SkipWithError(set.error().describe().c_str());
    return;
  }
  set->set_clip(0.0, 10.0);
  const auto param = set->param(kCurves[state.range(0)]);
  const std::vector<double> times = Linspace(0.0, 10.0, 1'000'000);
  std::vector<double> out(times.size());
  for (auto _ : state) {
    param->values(times, out);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetLabel(kCurves[state.range(0)]);
  state.counters["per_value"] = benchmark::Counter(
      static_cast<double>(times.size()) * static_cast<double>(state.iterations()),
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_HostApiValuesAtTimes)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

}  // namespace
