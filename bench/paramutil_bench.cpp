// Motion paths: one point on the path through two parameters, by keyframe
// count of the first one.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "keyframed.h"
#include "qdparam/paramset.h"
#include "qdparam/paramutil.h"

using namespace qdcore;
using namespace qdbench;

namespace {

void BM_InterpolateParamsSpline(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  CParamSet set;
  CParam x = KeyframedParam(EvenKeys(count), INTERPOLATION_LINEAR);
  CParam y = KeyframedParam(EvenKeys(count + 1), INTERPOLATION_LINEAR);
  x.SetName(CStringPool::GetStringRef(u"x"));
  y.SetName(CStringPool::GetStringRef(u"y"));
  set.Add(x);
  set.Add(y);
  set.SetDuration(kDuration);
  const CZPoolString names[] = {CStringPool::GetStringRef(u"x"), CStringPool::GetStringRef(u"y")};
  const std::vector<double> times = RandomTimes();
  std::size_t i = 0;
  double point[2];
  for (auto _ : state) {
    benchmark::DoNotOptimize(CParamUtil::InterpolateParamsSpline(set, names, 2, times[i], point));
    i = (i + 1) % times.size();
  }
}
BENCHMARK(BM_InterpolateParamsSpline)->Arg(2)->Arg(64)->Arg(1024);

}  // namespace
