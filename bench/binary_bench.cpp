// Binary blending per payload kind at typical sizes: the pure blends over
// bytes, and the whole path a host takes through a keyframed parameter (the
// size, then the blended payload).
#include <benchmark/benchmark.h>

#include <vector>

#include "qdblend.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"

using namespace qdcore;

namespace {

using Payload = std::vector<unsigned char>;

struct Writer {
  Payload bytes;
  void U32(std::uint32_t v) {
    bytes.resize(bytes.size() + 4);
    WriteU32(bytes.data() + bytes.size() - 4, v);
  }
  void F32(float v) { U32(std::bit_cast<std::uint32_t>(v)); }
};

// Four curves of `points` points; `shift` moves the inner points so that two
// tone curves share only their ends and every inner point needs a spline.
Payload ToneCurve(int points, float shift) {
  Writer w;
  for (int c = 0; c < 4; ++c) {
    w.U32(static_cast<std::uint32_t>(2 * points));
    for (int i = 0; i < points; ++i) {
      const float x = static_cast<float>(i) / static_cast<float>(points - 1);
      const bool inner = i > 0 && i + 1 < points;
      w.F32(inner ? x + shift : x);
      w.F32(x * x);
    }
  }
  return w.bytes;
}

Payload MultiPolygon(int polygons, int points, float offset) {
  Writer w;
  w.U32(0);
  w.U32(0);
  for (float f : {offset, offset, 1.5f, 2.5f}) w.F32(f);
  w.U32(static_cast<std::uint32_t>(polygons));
  for (int p = 0; p < polygons; ++p) {
    w.U32(static_cast<std::uint32_t>(points));
    for (int i = 0; i < 2 * points; ++i) w.F32(offset + 0.01f * static_cast<float>(i));
  }
  return w.bytes;
}

Payload GeometryMask(int shapes, int values, float offset) {
  Writer w;
  w.U32(static_cast<std::uint32_t>(shapes));
  for (int s = 0; s < shapes; ++s) {
    w.U32(s % 2);  // kinds 0 and 1 in turn
    w.U32(2);
    for (int i = 0; i < (s % 2 ? 9 : 7); ++i) w.F32(offset + static_cast<float>(i));
    w.U32(0);
  }
  w.U32(static_cast<std::uint32_t>(values));
  for (int i = 0; i < values; ++i) w.F32(offset * static_cast<float>(i));
  return w.bytes;
}

Payload SplitGraph(int values, float offset) {
  Writer w;
  w.U32(2);
  for (int i = 0; i < 10; ++i) w.F32(offset + static_cast<float>(i));
  w.U32(static_cast<std::uint32_t>(values));
  for (int i = 0; i < values; ++i) w.F32(offset * static_cast<float>(i));
  return w.bytes;
}

Payload ColorWheel(int shift) {
  Writer w;
  for (int i = 0; i < 5; ++i) {
    w.U32(1);
    w.U32(static_cast<std::uint32_t>(60 * i + shift));
    w.U32(80);
    w.U32(static_cast<std::uint32_t>(10 * i));
  }
  return w.bytes;
}

CParam Keyframed(const char16_t* kind, const Payload& a, const Payload& b) {
  CParam param(PARAM_BINARY, u"bench", 1);
  param.SetValue(CStringPool::GetStringRef(u"binaryInterpolationType"), kind);
  param.SetKeyFrameStatus(true);
  for (const Payload* p : {&a, &b}) {
    CKeyFrame kf(param);
    kf.SetPosition(p == &a ? 0.0 : 1.0);
    kf.SetInterpolation(INTERPOLATION_LINEAR);
    kf.SetValueBinary(p->data(), static_cast<unsigned int>(p->size()));
    param.Add(kf, 1.0, false);
  }
  return param;
}

void ThroughParameter(benchmark::State& state, const CParam& param) {
  Payload out(param.GetValueBinary(3.0, 10.0, nullptr, 0));
  for (auto _ : state) {
    const unsigned int size = param.GetValueBinary(3.0, 10.0, nullptr, 0);
    benchmark::DoNotOptimize(param.GetValueBinary(3.0, 10.0, out.data(), size));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * out.size()));
}

}  // namespace

// ---- pure blends

static void BM_BlendToneCurve(benchmark::State& state) {
  const int points = static_cast<int>(state.range(0));
  const float shift = state.range(1) ? 0.02f : 0.0f;  // 1: inner points need splines
  const Payload a = ToneCurve(points, 0), b = ToneCurve(points, shift);
  Payload out(BlendToneCurve(a, b, 3.0, 0.0, 10.0, nullptr, 0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        BlendToneCurve(a, b, 3.0, 0.0, 10.0, out.data(), static_cast<unsigned int>(out.size())));
  }
}
BENCHMARK(BM_BlendToneCurve)->Args({16, 0})->Args({16, 1})->Args({256, 1});

static void BM_BlendMaskMultiPolygon(benchmark::State& state) {
  const Payload a = MultiPolygon(static_cast<int>(state.range(0)), 64, 0.0f);
  const Payload b = MultiPolygon(static_cast<int>(state.range(0)), 64, 1.0f);
  Payload out(a.size());
  for (auto _ : state) benchmark::DoNotOptimize(BlendMaskMultiPolygon(a, b, 0.3, out));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * a.size()));
}
BENCHMARK(BM_BlendMaskMultiPolygon)->Arg(8)->Arg(64);

static void BM_BlendGeometryMask(benchmark::State& state) {
  const Payload a = GeometryMask(8, static_cast<int>(state.range(0)), 0.0f);
  const Payload b = GeometryMask(8, static_cast<int>(state.range(0)), 1.0f);
  Payload out(a.size());
  for (auto _ : state) benchmark::DoNotOptimize(BlendGeometryMask(a, b, 0.3, out));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * a.size()));
}
BENCHMARK(BM_BlendGeometryMask)->Arg(64)->Arg(1024);

static void BM_BlendSplitGraph(benchmark::State& state) {
  const Payload a = SplitGraph(static_cast<int>(state.range(0)), 0.0f);
  const Payload b = SplitGraph(static_cast<int>(state.range(0)), 1.0f);
  Payload out(a.size());
  for (auto _ : state) benchmark::DoNotOptimize(BlendSplitGraph(a, b, 0.3, out));
}
BENCHMARK(BM_BlendSplitGraph)->Arg(0)->Arg(64);

static void BM_BlendColorWheel(benchmark::State& state) {
  const Payload a = ColorWheel(0), b = ColorWheel(200);
  unsigned char out[kColorWheelBytes];
  for (auto _ : state) benchmark::DoNotOptimize(BlendColorWheel(a, b, 0.3, out, sizeof out));
}
BENCHMARK(BM_BlendColorWheel);

// ---- the host's path: size query and blend through a keyframed parameter

static void BM_ParamToneCurve(benchmark::State& state) {
  ThroughParameter(state, Keyframed(u"ToneCurve", ToneCurve(16, 0), ToneCurve(16, 0.02f)));
}
BENCHMARK(BM_ParamToneCurve);

static void BM_ParamMaskMultiPolygon(benchmark::State& state) {
  ThroughParameter(
      state, Keyframed(u"MaskMultiPolygon", MultiPolygon(8, 64, 0.0f), MultiPolygon(8, 64, 1.0f)));
}
BENCHMARK(BM_ParamMaskMultiPolygon);

static void BM_ParamGeometryMask(benchmark::State& state) {
  ThroughParameter(
      state, Keyframed(u"GeometryMask", GeometryMask(8, 64, 0.0f), GeometryMask(8, 64, 1.0f)));
}
BENCHMARK(BM_ParamGeometryMask);

static void BM_ParamSplitGraph(benchmark::State& state) {
  ThroughParameter(state, Keyframed(u"SplitGraph", SplitGraph(64, 0.0f), SplitGraph(64, 1.0f)));
}
BENCHMARK(BM_ParamSplitGraph);

static void BM_ParamColorWheel(benchmark::State& state) {
  ThroughParameter(state, Keyframed(u"ColorWheel", ColorWheel(0), ColorWheel(200)));
}
BENCHMARK(BM_ParamColorWheel);
