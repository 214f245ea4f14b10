// Side by side with GStreamer's GstInterpolationControlSource: the same keys
// and the same query times, each round timing both in turn, so that a busy
// machine slows both alike. The counters are nanoseconds per value for each
// and GStreamer's time over ours ("x_linear": against its linear mode, "x_peer":
// against its nearest mode - step for Hold, cubic for the curved kinds).
// Built only when pkg-config finds gstreamer-controller-1.0.
#include <benchmark/benchmark.h>
#include <gst/controller/gstinterpolationcontrolsource.h>
#include <gst/controller/gsttimedvaluecontrolsource.h>
#include <gst/gst.h>

#include <chrono>
#include <cmath>
#include <vector>

#include "keyframed.h"

using namespace qdcore;
using namespace qdbench;

namespace {

constexpr double kNanoseconds = 1e9;

GstClockTime Ns(double seconds) {
  return static_cast<GstClockTime>(std::llround(seconds * kNanoseconds));
}

// An interpolation control source in `mode` holding `keys`; unref when done.
GstControlSource* Source(const std::vector<Key>& keys, GstInterpolationMode mode) {
  static const bool started = (gst_init(nullptr, nullptr), true);
  (void)started;
  GstControlSource* source = gst_interpolation_control_source_new();
  g_object_set(source, "mode", mode, nullptr);
  for (const Key& key : keys) {
    gst_timed_value_control_source_set(GST_TIMED_VALUE_CONTROL_SOURCE(source),
                                       Ns(key.position * kDuration), key.value);
  }
  return source;
}

struct OwnedSource {
  explicit OwnedSource(GstControlSource* owned) : source(owned) {}
  OwnedSource(const OwnedSource&) = delete;
  OwnedSource& operator=(const OwnedSource&) = delete;
  ~OwnedSource() { gst_object_unref(source); }
  GstControlSource* source;
};

template <typename Work>
double Seconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

GstInterpolationMode PeerMode(unsigned int kind) {
  switch (kind) {
    case INTERPOLATION_HOLD:
      return GST_INTERPOLATION_MODE_NONE;
    case INTERPOLATION_LINEAR:
      return GST_INTERPOLATION_MODE_LINEAR;
    default:
      return GST_INTERPOLATION_MODE_CUBIC;
  }
}

void Report(benchmark::State& state, double ours, double linear, double peer, double count) {
  state.counters["qd_ns"] = ours / count * kNanoseconds;
  state.counters["gst_linear_ns"] = linear / count * kNanoseconds;
  state.counters["gst_peer_ns"] = peer / count * kNanoseconds;
  state.counters["x_linear"] = linear / ours;
  state.counters["x_peer"] = peer / ours;
}

// ---- one value at a random time

void BM_VsGStreamerValue(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  const auto kind = static_cast<unsigned int>(state.range(1));
  const std::vector<Key> keys = EvenKeys(count);
  const CParam param = KeyframedParam(keys, kind);
  const OwnedSource linear(Source(keys, GST_INTERPOLATION_MODE_LINEAR));
  const OwnedSource peer(Source(keys, PeerMode(kind)));
  const std::vector<double> times = RandomTimes();
  std::vector<GstClockTime> stamps;
  for (double t : times) stamps.push_back(Ns(t));

  // Both must be doing the same work: linear values agree (GStreamer's times
  // are whole nanoseconds, ours are not).
  double check = 0.0;
  gst_control_source_get_value(linear.source, stamps[0], &check);
  if (kind == INTERPOLATION_LINEAR &&
      std::fabs(check - param.GetValueDouble(times[0], kDuration, 0.0)) > 1e-4) {
    state.SkipWithError("GStreamer and qdparam disagree");
    return;
  }
  const auto ask = [&](GstControlSource* source) {
    double sum = 0.0, v = 0.0;
    for (GstClockTime t : stamps) sum += gst_control_source_get_value(source, t, &v) ? v : 0.0;
    benchmark::DoNotOptimize(sum);
  };
  double ours = 0.0, gstLinear = 0.0, gstPeer = 0.0;
  for (auto _ : state) {
    ours += Seconds([&] {
      double sum = 0.0;
      for (double t : times) sum += param.GetValueDouble(t, kDuration, 0.0);
      benchmark::DoNotOptimize(sum);
    });
    gstLinear += Seconds([&] { ask(linear.source); });
    gstPeer += Seconds([&] { ask(peer.source); });
  }
  Report(state, ours, gstLinear, gstPeer, double(state.iterations()) * double(times.size()));
  state.SetLabel(KindName(kind));
}
BENCHMARK(BM_VsGStreamerValue)
    ->ArgsProduct({{2, 8, 64, 1024},
                   {INTERPOLATION_LINEAR, INTERPOLATION_HOLD, INTERPOLATION_BEZIER,
                    INTERPOLATION_SPLINE, INTERPOLATION_LINLOG}})
    ->Unit(benchmark::kMicrosecond);

// ---- value arrays: 1,000,000 samples across the keys

void BM_VsGStreamerArray(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  const auto kind = static_cast<unsigned int>(state.range(1));
  constexpr unsigned long kSamples = 1000000;
  const std::vector<Key> keys = EvenKeys(count);
  const CParam param = KeyframedParam(keys, kind);
  const OwnedSource linear(Source(keys, GST_INTERPOLATION_MODE_LINEAR));
  const OwnedSource peer(Source(keys, PeerMode(kind)));
  std::vector<double> values(kSamples);
  const double step = kDuration / kSamples;

  const auto ask = [&](GstControlSource* source) {
    gst_control_source_get_value_array(source, 0, Ns(step), kSamples, values.data());
    benchmark::DoNotOptimize(values.data());
  };
  double ours = 0.0, gstLinear = 0.0, gstPeer = 0.0;
  for (auto _ : state) {
    ours += Seconds([&] {
      param.GetValueArrayDouble(kDuration, 0.0, step, values.data(), kSamples);
      benchmark::DoNotOptimize(values.data());
    });
    gstLinear += Seconds([&] { ask(linear.source); });
    gstPeer += Seconds([&] { ask(peer.source); });
  }
  Report(state, ours, gstLinear, gstPeer, double(state.iterations()) * double(kSamples));
  state.SetLabel(KindName(kind));
}
BENCHMARK(BM_VsGStreamerArray)
    ->ArgsProduct({{2, 8, 64, 1024},
                   {INTERPOLATION_LINEAR, INTERPOLATION_HOLD, INTERPOLATION_BEZIER,
                    INTERPOLATION_SPLINE, INTERPOLATION_LINLOG}})
    ->Unit(benchmark::kMillisecond);

// ---- an editor's drag: one key's value set, then one value read

// Each side's time per round in ns, and how many times ours is faster.
void ReportEdits(benchmark::State& state, double ours, double gst) {
  const double n = double(state.iterations());
  state.counters["qd_ns"] = ours / n * kNanoseconds;
  state.counters["gst_ns"] = gst / n * kNanoseconds;
  state.counters["x_gst"] = gst / ours;
}

// The same linear keys on both sides, the middle one to edit at, and random
// times to read, ours evaluated once so that its cache is built before timing.
struct EditedKeys {
  explicit EditedKeys(benchmark::State& state)
      : keys(EvenKeys(static_cast<unsigned int>(state.range(0)))),
        param(KeyframedParam(keys, INTERPOLATION_LINEAR)),
        linear(Source(keys, GST_INTERPOLATION_MODE_LINEAR)),
        timed(GST_TIMED_VALUE_CONTROL_SOURCE(linear.source)),
        middle(static_cast<unsigned int>(keys.size() / 2)) {
    param.GetValueDouble(times[0], kDuration, 0.0);
  }
  const std::vector<Key> keys;
  CParam param;
  const OwnedSource linear;
  GstTimedValueControlSource* timed;
  const unsigned int middle;
  const std::vector<double> times = RandomTimes();
};

void BM_VsGStreamerEdit(benchmark::State& state) {
  EditedKeys edited(state);
  CParam& param = edited.param;
  const double at = edited.keys[edited.middle].position * kDuration;
  double ours = 0.0, gst = 0.0, sum = 0.0, v = 0.0;
  std::size_t i = 0;
  for (auto _ : state) {
    const double value = double(i % 100), t = edited.times[i++ % edited.times.size()];
    ours += Seconds([&] {
      param.Get(edited.middle)->SetValueDouble(value);
      sum += param.GetValueDouble(t, kDuration, 0.0);
    });
    gst += Seconds([&] {
      gst_timed_value_control_source_set(edited.timed, Ns(at), value);
      sum += gst_control_source_get_value(edited.linear.source, Ns(t), &v) ? v : 0.0;
    });
  }
  benchmark::DoNotOptimize(sum);
  ReportEdits(state, ours, gst);
}
BENCHMARK(BM_VsGStreamerEdit)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// ---- a key added in the middle and removed again, then one value read

void BM_VsGStreamerAddRemove(benchmark::State& state) {
  EditedKeys edited(state);
  CParam& param = edited.param;
  const unsigned int middle = edited.middle;
  // Halfway between two keys, so that the added one is new to both.
  const double position = (edited.keys[middle - 1].position + edited.keys[middle].position) / 2;
  CKeyFrame added(param);
  added.SetPosition(position);
  added.SetValueDouble(1.0);
  added.SetInterpolation(INTERPOLATION_LINEAR);
  double ours = 0.0, gst = 0.0, sum = 0.0, v = 0.0;
  std::size_t i = 0;
  for (auto _ : state) {
    const double t = edited.times[i++ % edited.times.size()];
    ours += Seconds([&] {
      param.Insert(added, middle, kDuration, false);
      param.Remove(middle);
      sum += param.GetValueDouble(t, kDuration, 0.0);
    });
    gst += Seconds([&] {
      gst_timed_value_control_source_set(edited.timed, Ns(position * kDuration), 1.0);
      gst_timed_value_control_source_unset(edited.timed, Ns(position * kDuration));
      sum += gst_control_source_get_value(edited.linear.source, Ns(t), &v) ? v : 0.0;
    });
  }
  benchmark::DoNotOptimize(sum);
  ReportEdits(state, ours, gst);
}
BENCHMARK(BM_VsGStreamerAddRemove)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
