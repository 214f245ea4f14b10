// The host API at a renderer's pace: fifty parameters a frame by name, by id,
// through the object and through a Frame; and an editor's drag of one key
// followed by one evaluation, by the number of keys.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "qdcore/core.h"
#include "qdparam/paramset.h"
#include "qdparam/qdparam.hpp"

namespace {

constexpr int kParams = 50;

// `params` keyframed Double parameters of `keys` linear keys each.
std::string SetText(int params, int keys) {
  std::string text = "<Property>";
  for (int p = 0; p < params; ++p) {
    text += "<Parameter id=\"" + std::to_string(p) + "\" name=\"param" + std::to_string(p) +
            "\" value=\"0\" min=\"-1000\" max=\"1000\" useKeyframe=\"True\">";
    for (int k = 0; k < keys; ++k) {
      text += "<Keyframe position=\"" + std::to_string(double(k) / (keys - 1)) + "\" value=\"" +
              std::to_string((k * 37 + p) % 200 - 100) + "\" interpolation=\"Linear\"/>";
    }
    text += "</Parameter>";
  }
  return text + "</Property>";
}

qd::Set Loaded(int params, int keys) {
  auto set = qd::Set::parse(SetText(params, keys));
  if (!set) std::abort();
  set->set_clip(0.0, 10.0);
  return std::move(*set);
}

double TimeAt(std::int64_t i) { return double(i % 1000) * 0.01; }

void BM_FrameByName(benchmark::State& state) {
  const qd::Set set = Loaded(kParams, 16);
  std::vector<qdcore::CZPoolString> names;
  for (const qd::Param& p : set.params()) {
    std::u16string wide;
    qdcore::FromUtf8(p.name(), wide);
    names.push_back(qdcore::CStringPool::GetStringRef(std::u16string_view(wide)));
  }
  std::int64_t i = 0;
  for (auto _ : state) {
    const double t = TimeAt(i++);
    for (const auto& name : names)
      benchmark::DoNotOptimize(set.native().GetValueDouble(name, t, 0.0));
  }
  state.SetItemsProcessed(state.iterations() * kParams);
}
BENCHMARK(BM_FrameByName);

void BM_FrameById(benchmark::State& state) {
  const qd::Set set = Loaded(kParams, 16);
  std::int64_t i = 0;
  for (auto _ : state) {
    const double t = TimeAt(i++);
    for (unsigned long id = 0; id < kParams; ++id) {
      benchmark::DoNotOptimize(set.native().GetValueDouble(id, t, 0.0));
    }
  }
  state.SetItemsProcessed(state.iterations() * kParams);
}
BENCHMARK(BM_FrameById);

void BM_FrameThroughObject(benchmark::State& state) {
  const qd::Set set = Loaded(kParams, 16);
  std::vector<const qdcore::CParam*> params;
  for (const qd::Param& p : set.params()) params.push_back(p.native());
  std::int64_t i = 0;
  for (auto _ : state) {
    const double t = TimeAt(i++);
    for (const qdcore::CParam* p : params) {
      benchmark::DoNotOptimize(set.native().GetValueDouble(p, t, 0.0));
    }
  }
  state.SetItemsProcessed(state.iterations() * kParams);
}
BENCHMARK(BM_FrameThroughObject);

void BM_FrameHostApi(benchmark::State& state) {
  const qd::Set set = Loaded(kParams, 16);
  const qd::Frame frame = qd::Frame::numeric(set);
  std::vector<double> out(kParams);
  std::int64_t i = 0;
  for (auto _ : state) {
    frame.values(TimeAt(i++), out);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kParams);
}
BENCHMARK(BM_FrameHostApi);

// An editor drags one key of a dense curve and redraws: one edit, one value.
void BM_EditThenEvaluate(benchmark::State& state) {
  const int keys = static_cast<int>(state.range(0));
  qd::Set set = Loaded(1, keys);
  qd::Param param = *set.param("param0");
  const unsigned int middle = static_cast<unsigned int>(keys / 2);
  std::int64_t i = 0;
  for (auto _ : state) {
    param.set_key_value(middle, double(i % 100));
    benchmark::DoNotOptimize(param.value(TimeAt(i++)));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EditThenEvaluate)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace
