// Curve simplification of a recorded curve: 100,000 keyframes, one a frame
// at 25 fps (a smooth signal with a little noise), thinned at several
// tolerances to straight or cubic pieces. Counters: keyframes kept and the
// largest difference measured.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "qdparam/qdparam.hpp"

namespace {

constexpr int kFrames = 100000;
constexpr double kFps = 25.0;

std::string Recorded() {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> noise(-0.001, 0.001);
  std::string text =
      "<Property><Parameter id=\"1\" name=\"curve\" value=\"0\" useKeyframe=\"True\">";
  char key[160];
  for (int i = 0; i < kFrames; ++i) {
    const double t = i / kFps;
    const double v = 10.0 * std::sin(0.2 * t) + 0.5 * std::sin(1.3 * t + 1.0) + noise(random);
    std::snprintf(key, sizeof key,
                  "<Keyframe position=\"%.17g\" value=\"%.17g\" interpolation=\"Linear\"/>",
                  static_cast<double>(i) / (kFrames - 1), v);
    text += key;
  }
  return text + "</Parameter></Property>";
}

const qd::Set& Original() {
  static const qd::Set set = [] {
    auto parsed = qd::Set::parse(Recorded());
    if (!parsed) std::abort();
    parsed->set_clip(0.0, (kFrames - 1) / kFps);
    return std::move(*parsed);
  }();
  return set;
}

// range(0): the tolerance in thousandths; range(1): 0 Linear, 1 Bezier.
void BM_Simplify100kFrames(benchmark::State& state) {
  const double tolerance = state.range(0) / 1000.0;
  const auto shape = state.range(1) ? qd::Interpolation::Bezier : qd::Interpolation::Linear;
  qd::SimplifyReport report;
  for (auto _ : state) {
    state.PauseTiming();
    const qd::Set copy = Original().snapshot();
    qd::Param param = *copy.param("curve");
    param.keys();  // the copy made private before the clock runs
    state.ResumeTiming();
    const auto done = param.simplify(tolerance, shape);
    if (!done) state.SkipWithError(done.error().message.c_str());
    if (done) report = *done;
  }
  state.counters["keys_kept"] = static_cast<double>(report.keys_after);
  state.counters["max_deviation"] = report.max_deviation;
  state.SetLabel(std::string(name_of(shape)));
}
BENCHMARK(BM_Simplify100kFrames)
    ->ArgsProduct({{5, 20, 100}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace
