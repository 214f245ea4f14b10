// Evaluation of a keyframed Double parameter: one value at a random time, by
// keyframe count and interpolation kind, and value arrays per sample.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/param.h"

using namespace qdcore;

namespace {

constexpr double kDuration = 10.0;

const char* KindName(unsigned int kind) {
  switch (kind) {
    case INTERPOLATION_HOLD: return "Hold";
    case INTERPOLATION_LINEAR: return "Linear";
    case INTERPOLATION_BEZIER: return "Bezier";
    case INTERPOLATION_LINLOG: return "LinLog";
    default: return "Spline";
  }
}

// `count` keyframes spread evenly over the clip at relative positions, each
// with the given kind; Bezier keyframes carry handles and Spline keyframes
// an anchor in the middle of their segment, as edited effects do.
CParam KeyframedParam(unsigned int count, unsigned int kind) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> value(0.0, 100.0);
  CParam param(PARAM_DOUBLE, u"gain", 1);
  param.SetKeyFrameStatus(true);
  param.SetMinValueDouble(0.0);
  param.SetMaxValueDouble(100.0);
  for (unsigned int i = 0; i < count; ++i) {
    const double position = static_cast<double>(i) / (count - 1);
    CKeyFrame kf(param);
    kf.SetPosition(position);
    kf.SetValueDouble(value(random));
    kf.SetInterpolation(kind);
    const double segment = 1.0 / (count - 1);
    const Anchor handles[] = {{0.3 * segment, 5.0}, {-0.3 * segment, -5.0}};
    const Anchor middle{position + 0.5 * segment, value(random)};
    if (kind == INTERPOLATION_BEZIER) kf.SetAnchors(handles, 2);
    if (kind == INTERPOLATION_SPLINE) kf.SetAnchors(&middle, 1);
    param.Add(kf, kDuration, false);
  }
  return param;
}

std::vector<mtime> RandomTimes() {
  std::mt19937 random(2);
  std::uniform_real_distribution<double> time(0.0, kDuration);
  std::vector<mtime> times(4096);
  for (mtime& t : times) t = time(random);
  return times;
}

void BM_GetValueDouble(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  const auto kind = static_cast<unsigned int>(state.range(1));
  const CParam param = KeyframedParam(count, kind);
  const std::vector<mtime> times = RandomTimes();
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(param.GetValueDouble(times[i], kDuration, 0.0));
    i = (i + 1) % times.size();
  }
  state.SetLabel(KindName(kind));
}
BENCHMARK(BM_GetValueDouble)->ArgsProduct({{2, 8, 64, 1024}, {1, 2, 4, 8, 16}});

// One frame per sample across the whole clip; the time per item is the time
// per sample.
void BM_GetValueArrayDouble(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  const CParam param = KeyframedParam(count, INTERPOLATION_LINEAR);
  constexpr unsigned long kSamples = 250;  // 10 s at 25 frames a second
  std::vector<double> values(kSamples);
  for (auto _ : state) {
    param.GetValueArrayDouble(kDuration, 0.0, kDuration / kSamples, values.data(), kSamples);
    benchmark::DoNotOptimize(values.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kSamples);
}
BENCHMARK(BM_GetValueArrayDouble)->Arg(2)->Arg(8)->Arg(64)->Arg(1024);

}  // namespace
