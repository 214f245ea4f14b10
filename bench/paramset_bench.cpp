// Loading and storing a large parameter set: pugixml's own parse and write of
// the same document as the yardstick, then text to set and set to text, and
// how loading scales with the number of parameters.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "paramsetdoc.h"
#include "qdcore/xml.h"
#include "qdparam/keyframe.h"
#include "qdparam/paramset.h"

using namespace qdcore;
using qdbench::MakeDocument;

namespace {

constexpr int kParameters = 6848;
constexpr int kKeyframes = 16;

const std::string& Document() {
  static const std::string text = MakeDocument(kParameters, kKeyframes);
  return text;
}

CXMLObject Parse(const std::string& text) {
  CXMLDoc doc;
  if (doc.OpenDocMemory(std::string_view(text)) != 0) std::abort();
  return doc.GetContentElement();
}

const CParamSet& LoadedSet() {
  static const CParamSet set = [] {
    CParamSet loaded;
    if (!loaded.Load(Parse(Document())) || loaded.GetSize() != kParameters) std::abort();
    return loaded;
  }();
  return set;
}

struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, size_t size) override {
    text.append(static_cast<const char*>(data), size);
  }
};

// ---- pugixml's own speed on the same document

void BM_ParamSetPugixmlParse(benchmark::State& state) {
  const std::string& text = Document();
  for (auto _ : state) {
    pugi::xml_document doc;
    if (!doc.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8)) {
      state.SkipWithError("pugixml failed");
    }
    benchmark::DoNotOptimize(doc.first_child());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ParamSetPugixmlParse)->Unit(benchmark::kMillisecond);

void BM_ParamSetPugixmlWrite(benchmark::State& state) {
  pugi::xml_document doc;
  doc.load_buffer(Document().data(), Document().size());
  std::size_t bytes = 0;
  for (auto _ : state) {
    StringWriter writer;
    doc.save(writer, "", pugi::format_raw, pugi::encoding_utf8);
    bytes = writer.text.size();
    benchmark::DoNotOptimize(writer.text.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_ParamSetPugixmlWrite)->Unit(benchmark::kMillisecond);

// ---- text to set and set to text

// Heap bytes in use, for the memory a loaded set takes.
std::size_t HeapInUse() { return mallinfo2().uordblks; }

// Text to set. The set is released outside the timing (BM_ParamSetRelease
// times that); "memory" is the loaded set's heap use over the text's size.
void BM_ParamSetLoadFromText(benchmark::State& state) {
  const std::string& text = Document();
  double memory = 0.0;
  for (auto _ : state) {
    const std::size_t before = HeapInUse();
    auto set = std::make_unique<CParamSet>();
    if (!set->Load(Parse(text))) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(set->GetSize());
    state.PauseTiming();
    memory = double(HeapInUse() - before) / double(text.size());
    set.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
  state.counters["memory"] = memory;
}
BENCHMARK(BM_ParamSetLoadFromText)->Unit(benchmark::kMillisecond);

void BM_ParamSetRelease(benchmark::State& state) {
  const std::string& text = Document();
  for (auto _ : state) {
    state.PauseTiming();
    auto set = std::make_unique<CParamSet>();
    set->Load(Parse(text));
    state.ResumeTiming();
    set.reset();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ParamSetRelease)->Unit(benchmark::kMillisecond);

// The set's own share: the document is already an element tree.
void BM_ParamSetLoadFromTree(benchmark::State& state) {
  const CXMLObject tree = Parse(Document());
  for (auto _ : state) {
    auto set = std::make_unique<CParamSet>();
    if (!set->Load(tree)) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(set->GetSize());
    state.PauseTiming();
    set.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Document().size()));
}
BENCHMARK(BM_ParamSetLoadFromTree)->Unit(benchmark::kMillisecond);

void BM_ParamSetStoreToText(benchmark::State& state) {
  const CParamSet& set = LoadedSet();
  std::size_t chars = 0;
  for (auto _ : state) {
    CXMLObject stored;
    set.Store(stored);
    CXMLMemOut out;
    out.Open();
    if (!out.Write(stored)) state.SkipWithError("write failed");
    chars = out.View().size();
    benchmark::DoNotOptimize(out.View().data());
  }
  // The text is ASCII: one UTF-8 byte per character.
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * chars));
}
BENCHMARK(BM_ParamSetStoreToText)->Unit(benchmark::kMillisecond);

// The set's own share: the element tree, without writing text.
void BM_ParamSetStoreToTree(benchmark::State& state) {
  const CParamSet& set = LoadedSet();
  for (auto _ : state) {
    CXMLObject stored;
    set.Store(stored);
    benchmark::DoNotOptimize(stored);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Document().size()));
}
BENCHMARK(BM_ParamSetStoreToTree)->Unit(benchmark::kMillisecond);

// ---- values by name and by id, lookup included: 50 keyframed parameters,
// asked in turn, so that a lookup passes 25 parameters on average.

constexpr int kLookupParameters = 50;

// A name as a host passes it: its own string, not the pool's.
CZPoolString LookupName(int p) {
  const std::string text = "param" + std::to_string(p);
  return CZPoolString(std::u16string(text.begin(), text.end()));
}

CParamSet LookupSet() {
  CParamSet set;
  set.SetDuration(10.0);
  for (int p = 0; p < kLookupParameters; ++p) {
    CParam param(PARAM_DOUBLE, LookupName(p), p);
    param.SetKeyFrameStatus(true);
    for (int k = 0; k < 8; ++k) {
      CKeyFrame kf(param);
      kf.SetPosition(k / 7.0);
      kf.SetValueDouble(p + k);
      kf.SetInterpolation(INTERPOLATION_LINEAR);
      param.Add(kf, 10.0, false);
    }
    set.Add(param);
  }
  return set;
}

void BM_ParamSetValueByName(benchmark::State& state) {
  const CParamSet set = LookupSet();
  std::vector<CZPoolString> names;
  for (int p = 0; p < kLookupParameters; ++p) names.push_back(LookupName(p));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(set.GetValueDouble(names[i], 3.7, 0.0));
    i = (i + 1) % names.size();
  }
}
BENCHMARK(BM_ParamSetValueByName);

void BM_ParamSetValueById(benchmark::State& state) {
  const CParamSet set = LookupSet();
  unsigned long id = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(set.GetValueDouble(id, 3.7, 0.0));
    id = (id + 1) % kLookupParameters;
  }
}
BENCHMARK(BM_ParamSetValueById);

// The same values without the lookup, for the lookup's share.
void BM_ParamSetValueByObject(benchmark::State& state) {
  const CParamSet set = LookupSet();
  std::vector<const CParam*> params;
  for (const CParam* p = set.FindNextParam(nullptr); p; p = set.FindNextParam(p)) {
    params.push_back(p);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(set.GetValueDouble(params[i], 3.7, 0.0));
    i = (i + 1) % params.size();
  }
}
BENCHMARK(BM_ParamSetValueByObject);

// ---- scaling: parameters without keyframes, so that the list's growth and
// moves show rather than the keyframes' cost. Time per parameter should stay
// flat as the count grows.

void BM_ParamSetLoadScaling(benchmark::State& state) {
  const int parameters = static_cast<int>(state.range(0));
  const CXMLObject tree = Parse(MakeDocument(parameters, 0));
  for (auto _ : state) {
    CParamSet set;
    if (!set.Load(tree)) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(set.GetSize());
  }
  state.SetItemsProcessed(state.iterations() * parameters);
}
BENCHMARK(BM_ParamSetLoadScaling)
    ->Arg(12500)
    ->Arg(25000)
    ->Arg(50000)
    ->Arg(100000)
    ->Arg(200000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
