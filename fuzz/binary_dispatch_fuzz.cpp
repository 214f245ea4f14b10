// Fuzzes a keyframed Binary parameter end to end: any kind, two keyframes
// with arbitrary payloads, positions, interpolations and eases, read at any
// time the way a host reads it: the size, then a buffer of that size (which
// must hold the answer), then a buffer of some other size.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <vector>

#include "qdcore/core.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"

using namespace qdcore;

namespace {

bool Quiet(const AssertReport&, void*) { return false; }

const char16_t* const kKinds[] = {
    u"SplitGraph",       u"GeometryMask",     u"ToneCurve",  u"ColorWheel",
    u"MaskMultiPolygon", u"MaskShapeDropper", u"splitgraph", u""};

struct Key {
  double position;
  unsigned int interpolation, timeTranslation;
};

Key ReadKey(FuzzedDataProvider& in) {
  return {in.ConsumeFloatingPointInRange(-0.5, 1.5), 1u << in.ConsumeIntegralInRange(0, 5),
          in.ConsumeIntegralInRange(0u, 15u)};
}

void AddKey(CParam& param, const Key& key, const std::vector<unsigned char>& payload) {
  CKeyFrame kf(param);
  kf.SetPosition(key.position);
  kf.SetValueBinary(payload.data(), static_cast<unsigned int>(payload.size()));
  kf.SetInterpolation(key.interpolation);
  kf.SetTimeTranslation(key.timeTranslation);
  param.Add(kf, 1.0, false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SetAssertHandler(Quiet);
  FuzzedDataProvider in(data, size);
  CParam param(PARAM_BINARY, u"fuzz", 1);
  param.SetValue(CStringPool::GetStringRef(u"binaryInterpolationType"),
                 kKinds[in.ConsumeIntegralInRange<std::size_t>(0, std::size(kKinds) - 1)]);
  param.SetKeyFrameStatus(true);
  param.SetTimeTranslation(in.ConsumeBool() ? TIMETRANSLATION_EASEINOUT : 0);
  const double time = in.ConsumeBool() ? in.ConsumeFloatingPoint<double>()
                                       : in.ConsumeFloatingPointInRange(-2.0, 12.0);
  const double duration = in.ConsumeBool() ? 10.0 : in.ConsumeFloatingPoint<double>();
  const auto otherSize = in.ConsumeIntegralInRange(0u, 256u);
  const Key first = ReadKey(in), second = ReadKey(in);
  const std::vector<unsigned char> own =
      in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange(0, 64));
  param.SetValueBinary(own.data(), static_cast<unsigned int>(own.size()));
  AddKey(param, first,
         in.ConsumeBytes<unsigned char>(
             in.ConsumeIntegralInRange<std::size_t>(0, in.remaining_bytes())));
  AddKey(param, second, in.ConsumeRemainingBytes<unsigned char>());

  const unsigned int needed = param.GetValueBinary(time, duration, nullptr, 0);
  std::vector<unsigned char> exact(needed);
  if (param.GetValueBinary(time, duration, exact.data(), needed) > needed) std::abort();
  std::vector<unsigned char> other(otherSize);
  param.GetValueBinary(time, duration, other.data(), otherSize);
  return 0;
}
