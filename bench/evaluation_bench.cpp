// Evaluation of a keyframed Double parameter: one value at a random time, by
// keyframe count and interpolation kind, and value arrays per sample.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "keyframed.h"
#include "qdbezierinverse.h"

using namespace qdcore;
using namespace qdbench;

namespace {

// `ask(param, time)` at random times of a parameter of range(0) keyframes
// of kind range(1).
template <typename Ask>
void AtRandomTimes(benchmark::State& state, Ask ask) {
  const auto count = static_cast<unsigned int>(state.range(0));
  const auto kind = static_cast<unsigned int>(state.range(1));
  const CParam param = KeyframedParam(EvenKeys(count), kind);
  const std::vector<double> times = RandomTimes();
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ask(param, times[i]));
    i = (i + 1) % times.size();
  }
  state.SetLabel(KindName(kind));
}

void BM_GetValueDouble(benchmark::State& state) {
  AtRandomTimes(state,
                [](const CParam& p, double t) { return p.GetValueDouble(t, kDuration, 0.0); });
}
BENCHMARK(BM_GetValueDouble)->ArgsProduct({{2, 8, 64, 1024}, {1, 2, 4, 8, 16}});

// The slope at a random time: the same walk, the kind's derivative beside its value.
void BM_GetDerivativeDouble(benchmark::State& state) {
  AtRandomTimes(state,
                [](const CParam& p, double t) { return p.GetDerivativeDouble(t, kDuration); });
}
BENCHMARK(BM_GetDerivativeDouble)->ArgsProduct({{8, 1024}, {2, 4, 8, 16}});

// A value in the two clips' lengths after the last keyframe of a parameter
// that extrapolates (Linear, Cycle, CycleWithOffset): the span found on
// the time line, the time mapped into it, then the usual walk.
void BM_ExtrapolatedValue(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  CParam param = KeyframedParam(EvenKeys(count), INTERPOLATION_LINEAR);
  param.SetExtrapolationAfter(static_cast<unsigned int>(state.range(1)));
  std::vector<double> times = RandomTimes();
  for (double& t : times) t = kDuration + 2.0 * t;
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(param.GetValueDouble(times[i], kDuration, 0.0));
    i = (i + 1) % times.size();
  }
}
BENCHMARK(BM_ExtrapolatedValue)->ArgsProduct({{8, 1024}, {1, 2, 3}});

// One frame per sample across the whole clip; the time per item is the time
// per sample.
void BM_GetValueArrayDouble(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  const CParam param = KeyframedParam(EvenKeys(count), INTERPOLATION_LINEAR);
  constexpr unsigned long kSamples = 250;  // 10 s at 25 frames a second
  std::vector<double> values(kSamples);
  for (auto _ : state) {
    param.GetValueArrayDouble(kDuration, 0.0, kDuration / kSamples, values.data(), kSamples);
    benchmark::DoNotOptimize(values.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kSamples);
}
BENCHMARK(BM_GetValueArrayDouble)->Arg(2)->Arg(8)->Arg(64)->Arg(1024);

// Value arrays of each curved kind, 64 keys, a sample every 0.1 ms across
// the clip; beside them the floor: the libm calls a sample of that kind
// cannot do without (LinLog: one exp; Bezier: one acos and one cos to solve
// its time curve), on the same count of arguments.
constexpr unsigned long kArraySamples = 100000;

// One array of kArraySamples across the clip per round.
void TimeValueArrays(benchmark::State& state, const CParam& param) {
  std::vector<double> values(kArraySamples);
  for (auto _ : state) {
    param.GetValueArrayDouble(kDuration, 0.0, kDuration / kArraySamples, values.data(),
                              kArraySamples);
    benchmark::DoNotOptimize(values.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kArraySamples);
}

void BM_ValueArrayByKind(benchmark::State& state) {
  const auto kind = static_cast<unsigned int>(state.range(0));
  const CParam param = KeyframedParam(EvenKeys(64), kind);
  TimeValueArrays(state, param);
  state.SetLabel(KindName(kind));
}
BENCHMARK(BM_ValueArrayByKind)->Arg(INTERPOLATION_LINLOG)->Arg(INTERPOLATION_BEZIER);

void BM_FloorExp(benchmark::State& state) {
  std::vector<double> values(kArraySamples);
  for (auto _ : state) {
    for (unsigned long i = 0; i < kArraySamples; ++i) values[i] = std::exp(double(i) * 1e-5);
    benchmark::DoNotOptimize(values.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kArraySamples);
}
BENCHMARK(BM_FloorExp);

// Floors write their results into a block that stays in the nearest cache,
// as the samplers' scratch does, so that they count the calls alone.
constexpr std::size_t kFloorBlock = 128;

// LinLog's floor on the arguments its array gives exp: the logarithms'
// blend at each sample's fraction of its segment.
void BM_FloorLinLogCalls(benchmark::State& state) {
  const std::vector<Key> keys = EvenKeys(64);
  std::vector<double> arguments(kArraySamples);
  double out[kFloorBlock];
  std::size_t next = 1;
  for (unsigned long i = 0; i < kArraySamples; ++i) {
    const double t = static_cast<double>(i) * (kDuration / kArraySamples);
    while (next + 1 < keys.size() && t >= keys[next].position * kDuration) ++next;
    const double t0 = keys[next - 1].position * kDuration, t1 = keys[next].position * kDuration;
    const double l0 = std::log(keys[next - 1].value + 1.0), l1 = std::log(keys[next].value + 1.0);
    arguments[i] = (l1 - l0) * ((t - t0) / (t1 - t0)) + l0;
  }
  for (auto _ : state) {
    for (unsigned long i = 0; i < kArraySamples; ++i) out[i % kFloorBlock] = std::exp(arguments[i]);
    benchmark::DoNotOptimize(out);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kArraySamples);
}
BENCHMARK(BM_FloorLinLogCalls);

void BM_FloorAcosCos(benchmark::State& state) {
  std::vector<double> values(kArraySamples);
  for (auto _ : state) {
    for (unsigned long i = 0; i < kArraySamples; ++i) {
      values[i] = std::cos(std::acos(double(i) * 9e-6 - 0.45) / 3.0);
    }
    benchmark::DoNotOptimize(values.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kArraySamples);
}
BENCHMARK(BM_FloorAcosCos);

// Bezier segments by the bend of their time curve: handles 0.3 of the
// segment long (the arrays above) leave the solve's cubic three real roots,
// an acos and a cosine per sample; the strong ease of 0.42 leaves one, a
// cube root; a third keeps time straight, solved without a library call.
struct BezierCase {
  const char* name;
  double handleTime;  // a fraction of the segment
};
constexpr BezierCase kBezierCases[] = {
    {"three roots", 0.3}, {"one root", 0.42}, {"straight", 1.0 / 3.0}};

void BM_BezierValueArray(benchmark::State& state) {
  const BezierCase& bezier = kBezierCases[state.range(0)];
  const CParam param = KeyframedParam(EvenKeys(64), INTERPOLATION_BEZIER, bezier.handleTime);
  TimeValueArrays(state, param);
  state.SetLabel(bezier.name);
}
BENCHMARK(BM_BezierValueArray)->DenseRange(0, std::size(kBezierCases) - 1);

// The arguments of every library call the solve makes for one array.
struct LibmArguments {
  std::vector<double> acos, cos, cubeRoot;
};

// The library's own solve with its calls written down as they are made.
struct RecordingLibm {
  static inline LibmArguments* record = nullptr;
  static double Acos(double v) { return record->acos.push_back(v), std::acos(v); }
  static double Cos(double v) { return record->cos.push_back(v), std::cos(v); }
  static double CubeRoot(double v) {
    return record->cubeRoot.push_back(v), bezierinverse::Libm::CubeRoot(v);
  }
};

// The calls of BM_BezierValueArray's array, each sample solved on its
// segment's time curve as the evaluation cache prepares it.
LibmArguments RecordBezierArray(const BezierCase& bezier) {
  const std::vector<Key> keys = EvenKeys(64);
  const double handle = bezier.handleTime / (keys.size() - 1) * kDuration;
  LibmArguments record;
  RecordingLibm::record = &record;
  std::size_t next = 1;
  for (unsigned long i = 0; i < kArraySamples; ++i) {
    const double t = static_cast<double>(i) * (kDuration / kArraySamples);
    while (next + 1 < keys.size() && t >= keys[next].position * kDuration) ++next;
    const double t0 = keys[next - 1].position * kDuration, t1 = keys[next].position * kDuration;
    const BezierInverse curve = PrepareBezierInverse(t0, handle + t0, -handle + t1, t1);
    double u = 0.0;
    TrySolveBezierInverseWith<RecordingLibm>(curve, t, u);
  }
  RecordingLibm::record = nullptr;
  return record;
}

// The floor of a Bezier array: its library calls alone, on the very
// arguments the solve gives them, each function in a loop of its own.
void BM_FloorBezierCalls(benchmark::State& state) {
  const BezierCase& bezier = kBezierCases[state.range(0)];
  const LibmArguments calls = RecordBezierArray(bezier);
  double out[kFloorBlock];
  const auto replay = [&](const std::vector<double>& arguments, auto function) {
    for (std::size_t i = 0; i < arguments.size(); ++i)
      out[i % kFloorBlock] = function(arguments[i]);
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
  };
  for (auto _ : state) {
    replay(calls.acos, [](double v) { return std::acos(v); });
    replay(calls.cos, [](double v) { return std::cos(v); });
    replay(calls.cubeRoot, [](double v) { return bezierinverse::Libm::CubeRoot(v); });
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kArraySamples);
  const auto perSample = [](std::size_t n) { return static_cast<double>(n) / kArraySamples; };
  state.counters["acos"] = perSample(calls.acos.size());
  state.counters["cos"] = perSample(calls.cos.size());
  state.counters["cbrt"] = perSample(calls.cubeRoot.size());
  state.SetLabel(bezier.name);
}
BENCHMARK(BM_FloorBezierCalls)->DenseRange(0, std::size(kBezierCases) - 1);

}  // namespace
