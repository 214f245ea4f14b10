// Two documents from one input: a single parameter loaded from the first
// and updated from the second (merging and replacing), then stored, made a
// preset of and read at awkward times.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "qdcore/xml.h"
#include "qdparam/param.h"
#include "quiet.h"

using namespace qdcore;

namespace {

CXMLObject Parse(const std::string& text) {
  CXMLDoc doc;
  doc.OpenDocMemory(std::string_view(text));
  return doc.GetContentElement();
}

void ReadAt(const CParam& param, double time) {
  unsigned char buffer[64];
  param.GetValueDouble(time, 2.0, 0.0);
  param.GetValueLong(time, 2.0, 0);
  param.GetValueBool(time, 2.0, false);
  param.GetValueString(time, 2.0, CZPoolString());
  param.GetValueBinary(time, 2.0, buffer, sizeof buffer);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qdfuzz::Silence();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const bool replace = in.ConsumeBool();
  const std::string first = in.ConsumeRandomLengthString(size);
  const std::string second = in.ConsumeRemainingBytesAsString();
  CParam param;
  param.Load(Parse(first));
  param.Update(Parse(second), replace);
  const CParam copy(param);
  param.Update(copy, !replace);
  CXMLObject stored, preset;
  param.Store(stored);
  param.CreatePreset(preset);
  for (const double time :
       {0.0, 0.5, 1.0, -1.0, 1e300, std::nan(""), std::numeric_limits<double>::infinity()}) {
    ReadAt(param, time);
  }
  return 0;
}
