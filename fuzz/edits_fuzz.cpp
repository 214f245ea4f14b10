// A parameter from the document after an edit script: keyframes added,
// removed, written and moved in any order, a value asked after each edit.
// The evaluation cache takes the edits in place; every value it gives must
// be the one the walk over the keyframes' XML gives, bit for bit.
#include <fuzzer/FuzzedDataProvider.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qdcore/xml.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"
#include "quiet.h"

using namespace qdcore;

namespace {

constexpr std::size_t kBytesPerEdit = 8;

// An active keyframed parameter's GetValueDouble read live: the public
// getters, walk and limits. Without a static value keyframes fall back to 0.
double LiveValue(const CParam& param, double time, double duration) {
  double v = 0.0;
  param.GetValueDouble(v);
  return EnforceRestricitionsDouble(
      param, InterpolateParamDouble(time, param, duration, param.GetMinDuration(), v));
}

bool Same(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) ||
         (std::isnan(a) && std::isnan(b));
}

void Edit(FuzzedDataProvider& script, CParam& param, double duration) {
  const unsigned int count = param.GetSize();
  const auto index = script.ConsumeIntegralInRange<unsigned int>(0, count);
  const double fraction = script.ConsumeIntegralInRange(-20, 120) * 0.01;
  const double value = script.ConsumeIntegralInRange(-100, 200) * 0.5;
  const unsigned int kind = INTERPOLATION_HOLD << script.ConsumeIntegralInRange(0, 5);
  CKeyFrame* kf = count ? param.Get(index % count) : nullptr;
  switch (script.ConsumeIntegralInRange(0, 5)) {
    case 0: {
      CKeyFrame added(param);
      added.SetPosition(fraction);
      added.SetValueDouble(value);
      added.SetInterpolation(kind);
      param.Insert(added, index, duration, script.ConsumeBool());
      break;
    }
    case 1:
      if (kf) param.Remove(index % count);
      break;
    case 2:
      if (kf) kf->SetValueDouble(value);
      break;
    case 3:
      if (kf) kf->SetPosition(fraction);
      break;
    case 4:
      if (kf) kf->SetInterpolation(kind);
      break;
    default:
      break;  // a value asked twice in a row
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qdfuzz::Silence();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const double duration = in.ConsumeIntegralInRange(1, 400) * 0.05;
  const auto edits = in.ConsumeIntegralInRange<std::size_t>(0, 64);
  const std::vector<std::uint8_t> bytes = in.ConsumeBytes<std::uint8_t>(edits * kBytesPerEdit);
  const std::string text = in.ConsumeRemainingBytesAsString();
  CXMLDoc doc;
  if (doc.OpenDocMemory(std::string_view(text)) != 0) return 0;
  CParam param;
  param.Load(doc.GetContentElement());
  // Edits never change these; the static and inactive values have their
  // own fallbacks, which are not what is fuzzed here.
  bool inactive = false;
  if (param.GetType() != PARAM_DOUBLE || !param.GetKeyFrameStatus() ||
      (param.GetInactiveStatus(inactive) && inactive)) {
    return 0;
  }
  FuzzedDataProvider script(bytes.data(), bytes.size());
  param.GetValueDouble(0.0, duration, -7.0);  // the cache is built before the first edit
  while (script.remaining_bytes() > 0) {
    Edit(script, param, duration);
    const double time = script.ConsumeIntegralInRange(-20, 120) * 0.01 * duration;
    param.GetMinDuration();  // both read the same minimum duration
    if (!Same(param.GetValueDouble(time, duration, -7.0), LiveValue(param, time, duration)))
      std::abort();
  }
  return 0;
}
