// How the cost of reading grows with the size of what is read: one element
// with many attributes, a set with many parameters updated from a preset,
// a parameter with many keys. Each runs at 1e4 and at 1e5 (and 1e6
// attributes); the time per item (the "per_item" counter) should stay flat.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "qdcore/xml.h"
#include "qdparam/param.h"
#include "qdparam/paramset.h"

using namespace qdcore;

namespace {

CXMLObject Parse(const std::string& text) {
  CXMLDoc doc;
  if (doc.OpenDocMemory(std::string_view(text)) != 0) std::abort();
  return doc.GetContentElement();
}

// A parameter with `count` extra attributes, as a hostile file would carry.
std::string ManyAttributes(long count) {
  std::string out = "<Parameter id=\"1\" name=\"wide\" type=\"Double\" value=\"0.5\"";
  char item[64];
  for (long i = 0; i < count; ++i) {
    std::snprintf(item, sizeof item, " a%ld=\"%ld\"", i, i);
    out += item;
  }
  return out + "/>";
}

// A set of `count` parameters; with `preset`, a preset of new values for
// every one of them, in reverse order so that no lookup is lucky.
std::string ManyParameters(long count, bool preset) {
  std::string out = preset ? "<Preset>" : "<Property name=\"big\">";
  char item[160];
  for (long i = 0; i < count; ++i) {
    const long id = preset ? count - 1 - i : i;
    if (preset) {
      std::snprintf(item, sizeof item, "<Value id=\"%ld\" value=\"%ld.5\"/>", id, id);
    } else {
      std::snprintf(item, sizeof item,
                    "<Parameter id=\"%ld\" name=\"p%ld\" type=\"Double\" value=\"%ld\"/>", id, id,
                    id);
    }
    out += item;
  }
  return out + (preset ? "</Preset>" : "</Property>");
}

std::string ManyKeys(long count) {
  std::string out =
      "<Parameter id=\"1\" name=\"keyed\" type=\"Double\" value=\"0\" useKeyframe=\"True\">";
  char item[128];
  for (long i = 0; i < count; ++i) {
    std::snprintf(item, sizeof item, "<Keyframe position=\"%.9f\" value=\"%ld\"/>",
                  double(i) / double(count), i % 100);
    out += item;
  }
  return out + "</Parameter>";
}

void PerItem(benchmark::State& state) {
  state.counters["per_item"] =
      benchmark::Counter(double(state.iterations()) * double(state.range(0)),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Text to parameter: the parse and the parameter's merge of its attributes.
void BM_ScalingAttributesLoad(benchmark::State& state) {
  const std::string text = ManyAttributes(state.range(0));
  for (auto _ : state) {
    CParam param;
    if (!param.Load(Parse(text))) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(param.GetID());
  }
  PerItem(state);
}
BENCHMARK(BM_ScalingAttributesLoad)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

// Text to set, then the set updated from a preset of every parameter.
void BM_ScalingParametersLoadAndPreset(benchmark::State& state) {
  const std::string setText = ManyParameters(state.range(0), false);
  const CXMLObject preset = Parse(ManyParameters(state.range(0), true));
  for (auto _ : state) {
    CParamSet set;
    if (!set.Load(Parse(setText))) state.SkipWithError("load failed");
    if (!set.Update(preset, false)) state.SkipWithError("update failed");
    benchmark::DoNotOptimize(set.GetSize());
  }
  PerItem(state);
}
BENCHMARK(BM_ScalingParametersLoadAndPreset)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

// Lookups by name on a set that has stopped changing.
void BM_ScalingParametersLookupByName(benchmark::State& state) {
  CParamSet set;
  if (!set.Load(Parse(ManyParameters(state.range(0), false)))) std::abort();
  long i = 0;
  for (auto _ : state) {
    std::string name = "p";
    name += std::to_string((i++ * 7919) % state.range(0));
    const CZPoolString wanted(std::u16string(name.begin(), name.end()));
    benchmark::DoNotOptimize(set.Get(wanted));
  }
  state.counters["per_item"] = benchmark::Counter(
      double(state.iterations()), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ScalingParametersLookupByName)->Arg(10000)->Arg(100000);

void BM_ScalingKeysLoad(benchmark::State& state) {
  const std::string text = ManyKeys(state.range(0));
  for (auto _ : state) {
    CParam param;
    if (!param.Load(Parse(text))) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(param.GetValueDouble(0.5, 1.0, 0.0));
  }
  PerItem(state);
}
BENCHMARK(BM_ScalingKeysLoad)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
