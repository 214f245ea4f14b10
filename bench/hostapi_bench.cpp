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

// An editor works on one key of a dense curve and redraws: `edit` (given
// the parameter, its middle key and the round) and then one value.
template <typename Edit>
void EditThenEvaluate(benchmark::State& state, qd::Set& set, Edit edit) {
  qd::Param param = *set.param("param0");
  const unsigned int middle = static_cast<unsigned int>(param.keys().size() / 2);
  std::int64_t i = 0;
  for (auto _ : state) {
    edit(param, middle, i);
    benchmark::DoNotOptimize(param.value(TimeAt(i++)));
  }
  state.SetItemsProcessed(state.iterations());
}

void SetValue(qd::Param& param, unsigned int key, std::int64_t i) {
  param.set_key_value(key, double(i % 100));
}

void BM_EditThenEvaluate(benchmark::State& state) {
  qd::Set set = Loaded(1, static_cast<int>(state.range(0)));
  EditThenEvaluate(state, set, SetValue);
}
BENCHMARK(BM_EditThenEvaluate)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// The drag while a render thread's snapshot shares the keys and has
// evaluated them: its caches watch the same storage.
void BM_EditWithSnapshotThenEvaluate(benchmark::State& state) {
  qd::Set set = Loaded(1, static_cast<int>(state.range(0)));
  const qd::Set snapshot = set.snapshot();
  benchmark::DoNotOptimize(snapshot.param("param0")->value(1.0));
  EditThenEvaluate(state, set, SetValue);
}
BENCHMARK(BM_EditWithSnapshotThenEvaluate)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// The same drag in time: the key moves between its neighbours.
void BM_MoveThenEvaluate(benchmark::State& state) {
  const int keys = static_cast<int>(state.range(0));
  qd::Set set = Loaded(1, keys);
  const double at = set.param("param0")->keys()[keys / 2].time, room = 10.0 / (keys - 1) / 4;
  EditThenEvaluate(state, set, [&](qd::Param& param, unsigned int key, std::int64_t i) {
    (void)param.move_key(key, at + room * double(i % 3 - 1));
  });
}
BENCHMARK(BM_MoveThenEvaluate)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// A key added halfway between keys `after - 1` and `after` and removed
// again: the list changes length twice, moving the keys from `after` on.
void AddRemoveThenEvaluate(benchmark::State& state, std::int64_t after) {
  const int keys = static_cast<int>(state.range(0));
  qd::Set set = Loaded(1, keys);
  const double between = (double(after) - 0.5) * 10.0 / (keys - 1);
  EditThenEvaluate(state, set, [&](qd::Param& param, unsigned int, std::int64_t) {
    const auto added = param.add_key(between, 1.0);
    if (added) (void)param.remove_key(*added);
  });
}

// In the middle of the curve, half the keys move.
void BM_AddRemoveThenEvaluate(benchmark::State& state) {
  AddRemoveThenEvaluate(state, state.range(0) / 2);
}
BENCHMARK(BM_AddRemoveThenEvaluate)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond);

// Near the end, where a recording adds its keys, one key moves at any count.
void BM_AddRemoveAtEndThenEvaluate(benchmark::State& state) {
  AddRemoveThenEvaluate(state, state.range(0) - 1);
}
BENCHMARK(BM_AddRemoveAtEndThenEvaluate)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond);

// An edit of a small parameter, then a value of a large untouched one: the
// large one's cache must not look at its keys again.
void BM_OtherEditThenEvaluate(benchmark::State& state) {
  const int keys = static_cast<int>(state.range(0));
  qd::Set set = Loaded(1, keys);
  auto small = qd::Set::parse(SetText(1, 4));
  if (!small) std::abort();
  qd::Param edited = *small->param("param0");
  const qd::Param large = *set.param("param0");
  std::int64_t i = 0;
  for (auto _ : state) {
    edited.set_key_value(1, double(i % 100));
    benchmark::DoNotOptimize(edited.value(TimeAt(i)));
    benchmark::DoNotOptimize(large.value(TimeAt(i++)));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OtherEditThenEvaluate)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace
