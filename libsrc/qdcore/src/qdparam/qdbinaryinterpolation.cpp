// Binary values at a time: the keyframe pair that brackets the time, the
// pair's hold and easing rules, and the switch to the blend of the payload
// kind the parameter names. Every case a blend cannot serve ends in an
// unblended value: a keyframe's payload or the parameter's own value.
#include <utility>

#include "qdassert.h"
#include "qdblend.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"
#include "qdparam/qdcalc.h"
#include "qdminduration.h"

namespace qdcore {

// ---------------------------------------------------------------------------
// Payloads
// ---------------------------------------------------------------------------

std::vector<unsigned char> ReadPayload(const CKeyFrame& kf) {
  return ReadPayload(kf, kf.GetValueBinary(nullptr, 0, 0));
}

std::vector<unsigned char> ReadPayload(const CKeyFrame& kf, unsigned int size) {
  std::vector<unsigned char> payload(size);
  if (size) payload.resize(kf.GetValueBinary(payload.data(), size, 0));
  return payload;
}

// The working copies are vectors: released on every path, the declining ones
// included.
unsigned int BlendEqualSizes(const CParam& param, const CKeyFrame& prev, const CKeyFrame& next,
                             double w, unsigned char* buffer, unsigned int size,
                             EqualSizeBlend blend) {
  const unsigned int firstSize = prev.GetValueBinary(nullptr, 0, 0);
  if (firstSize != next.GetValueBinary(nullptr, 0, 0)) return param.GetValueBinary(buffer, size, 0);
  if (!buffer) return firstSize;
  if (firstSize != size) return param.GetValueBinary(buffer, size, 0);
  const std::vector<unsigned char> first = ReadPayload(prev, size);
  const std::vector<unsigned char> second = ReadPayload(next, size);
  if (const std::optional<unsigned int> length = blend(first, second, w, {buffer, size})) {
    return *length;
  }
  return param.GetValueBinary(buffer, size, 0);
}

// ---------------------------------------------------------------------------
// Dispatch
// ---------------------------------------------------------------------------

unsigned int CParam::InterpolateBinary(mtime time, mtime duration, const CKeyFrame* prev,
                                       mtime prevTime, const CKeyFrame* next, mtime nextTime,
                                       unsigned char* buffer, unsigned int size) const {
  if (!prev) return next ? next->GetValueBinary(buffer, size, 0) : GetValueBinary(buffer, size, 0);
  // Only the ease in and out flag applies to binary values.
  if (prev->GetTimeTranslation() & TIMETRANSLATION_EASEINOUT) {
    time = TimeTranslationEaseInOut(time, prevTime, nextTime);
  }
  if (!next) return prev->GetValueBinary(buffer, size, 0);
  // The keyframe that ends the segment decides the hold, unlike the scalar
  // path, where the one that starts it does.
  if (next->GetInterpolation() == INTERPOLATION_HOLD) return prev->GetValueBinary(buffer, size, 0);
  using Blend = unsigned int (CParam::*)(mtime, mtime, const CKeyFrame*, mtime, const CKeyFrame*,
                                          mtime, unsigned char*, unsigned int) const;
  static constexpr struct {
    unsigned int kind;
    Blend blend;
  } kBlends[] = {
      {BINARY_INTERPOLATION_SPLITGRAPH, &CParam::InterpolateBinary_SplitGraph},
      {BINARY_INTERPOLATION_GEOMETRYMASK, &CParam::InterpolateBinary_GeometryMask},
      {BINARY_INTERPOLATION_TONECURVE, &CParam::InterpolateBinary_ToneCurve},
      {BINARY_INTERPOLATION_COLORWHEEL, &CParam::InterpolateBinary_ColorWheel},
      {BINARY_INTERPOLATION_MASKMULTIPOLYGON, &CParam::InterpolateBinary_MaskMultiPolygon},
  };
  const unsigned int kind = GetBinaryInterpolationType();
  for (const auto& entry : kBlends) {
    if (entry.kind == kind) {
      return (this->*entry.blend)(time, duration, prev, prevTime, next, nextTime, buffer, size);
    }
  }
  // Shapes are picked, never blended; unknown kinds keep the parameter's value.
  if (kind == BINARY_INTERPOLATION_MASKSHAPEDROPPER) return prev->GetValueBinary(buffer, size, 0);
  return GetValueBinary(buffer, size, 0);
}

// The keyframes of `source` choose the pair; the kind and the fallback value
// are this parameter's.
unsigned int CParam::InterpolateBinary(mtime time, const CParam& source, mtime duration,
                                       mtime minDuration, unsigned char* buffer,
                                       unsigned int size) const {
  if (source.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) {
    time = TimeTranslationEaseInOut(time, 0.0, duration);
  }
  const CKeyFrame* prev = nullptr;
  const CKeyFrame* next = nullptr;
  mtime prevTime;  // zero until a keyframe is taken
  mtime nextTime;
  double integral = 0.0;
  DetermineKeyFrame(time, source, duration, minDuration, prev, prevTime, next, nextTime, false,
                    integral);
  return InterpolateBinary(time, duration, prev, prevTime, next, nextTime, buffer, size);
}

// ---------------------------------------------------------------------------
// Value at a time
// ---------------------------------------------------------------------------

unsigned int CParam::GetValueBinary(const mtime& time, const mtime& duration, unsigned char* buffer,
                                    unsigned int size) const {
  if (GetType() != PARAM_BINARY) {
    QD_ILLEGAL_CODE_POINT("GetValueBinary - parameter type mismatch",
                          "unsigned int __cdecl qdcore::CParam::GetValueBinary(const class "
                          "qdcore::mtime &,const class qdcore::mtime &,unsigned char *,unsigned "
                          "int) const");
    return 0;
  }
  if (!GetKeyFrameStatus()) return GetValueBinary(buffer, size, 0);
  // The cached minimum duration as it stands: reading it never allocates.
  return InterpolateBinary(time, *this, duration, CachedMinDuration(m_MinDuration), buffer, size);
}

}  // namespace qdcore
