// A parameter from the document after a few bytes of knobs: value arrays
// with start, step and count from the input (NaN, infinities and huge
// steps included) must match single evaluations, and the integral must
// hold up at any time.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qdcore/xml.h"
#include "qdparam/param.h"
#include "quiet.h"

using namespace qdcore;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qdfuzz::Silence();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const double duration = in.ConsumeFloatingPoint<double>();
  const double start = in.ConsumeFloatingPoint<double>();
  const double step = in.ConsumeBool() ? in.ConsumeFloatingPoint<double>()
                                       : in.ConsumeIntegralInRange(-100, 100) * 0.01;
  const auto count = in.ConsumeIntegralInRange<unsigned long>(0, 512);
  const std::string text = in.ConsumeRemainingBytesAsString();
  CXMLDoc doc;
  if (doc.OpenDocMemory(std::string_view(text)) != 0) return 0;
  CParam param;
  param.Load(doc.GetContentElement());
  std::vector<double> reals(count);
  std::vector<long> wholes(count);
  if (param.GetValueArrayDouble(duration, start, step, reals.data(), count)) {
    for (unsigned long i = 0; i < count; ++i) {
      const double single = param.GetValueDouble(start + double(i) * step, duration, 0.0);
      // The same number, bit for bit, or both not numbers.
      if (!(single == reals[i] || (std::isnan(single) && std::isnan(reals[i])))) std::abort();
    }
  }
  param.GetValueArrayLong(duration, start, step, wholes.data(), count);
  param.GetIntegralDouble(start, duration);
  param.GetIntegralDouble(start + step, duration);
  return 0;
}
