// Host primitives on the evaluation path: string copies, interning, number
// parsing and the wide formatter.
#include <benchmark/benchmark.h>

#include "qdcore/core.h"
#include "qdcore/log.h"

using namespace qdcore;

static void BM_PoolStringCopy(benchmark::State& state) {
  const CZPoolString text(u"0.500000000000");
  for (auto _ : state) {
    CZPoolString copy = text;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_PoolStringCopy);

static void BM_InternExisting(benchmark::State& state) {
  CStringPool::GetStringRef(u"interpolation");
  for (auto _ : state) benchmark::DoNotOptimize(CStringPool::GetStringRef(u"interpolation"));
}
BENCHMARK(BM_InternExisting);

static void BM_ParseDouble(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ParseDouble(u"0.333333333333"));
}
BENCHMARK(BM_ParseDouble);

static void BM_FormatReal(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(FormatString(u"%.12f", 0.333333333333));
}
BENCHMARK(BM_FormatReal);

static void BM_TraceGate(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(wPrintf_IsUserLevelActive(398, 10));
}
BENCHMARK(BM_TraceGate);
