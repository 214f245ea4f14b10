// Helpers for the binary blending tests: little-endian payloads built word by
// word and read back, and keyframed Binary parameters.
#pragma once

#include <vector>

#include "qdblend.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"

namespace qdtest {

using Payload = std::vector<unsigned char>;

struct PayloadBuilder {
  PayloadBuilder& U32(std::uint32_t v) {
    bytes.resize(bytes.size() + 4);
    qdcore::WriteU32(bytes.data() + bytes.size() - 4, v);
    return *this;
  }
  PayloadBuilder& I32(std::int32_t v) { return U32(static_cast<std::uint32_t>(v)); }
  PayloadBuilder& F32(float v) { return U32(std::bit_cast<std::uint32_t>(v)); }
  PayloadBuilder& Floats(std::initializer_list<float> values) {
    for (float v : values) F32(v);
    return *this;
  }
  operator Payload() const { return bytes; }  // NOLINT: a builder reads as its bytes
  Payload bytes;
};

inline std::uint32_t U32At(const Payload& p, std::size_t at) { return qdcore::ReadU32(&p[at]); }
inline std::int32_t I32At(const Payload& p, std::size_t at) { return qdcore::ReadI32(&p[at]); }
inline float F32At(const Payload& p, std::size_t at) { return qdcore::ReadF32(&p[at]); }
inline Payload Head(const Payload& p, std::size_t n) { return Payload(p.begin(), p.begin() + n); }

// Two numbers blended as every kind does: weighted in double, rounded once.
inline float Mix(float first, float second, double w) {
  return static_cast<float>(static_cast<double>(first) * w + static_cast<double>(second) * (1 - w));
}

// A keyframed Binary parameter of `kind` (null: no kind) whose own value is `own`.
inline qdcore::CParam BinaryParam(const char16_t* kind, const Payload& own = {0x0A, 0x0B}) {
  qdcore::CParam param(qdcore::PARAM_BINARY, u"blend", 7);
  if (kind) param.SetValue(qdcore::CStringPool::GetStringRef(u"binaryInterpolationType"), kind);
  param.SetValueBinary(own.data(), static_cast<unsigned int>(own.size()));
  param.SetKeyFrameStatus(true);
  return param;
}

// A keyframe at a relative position; `interpolation` 0 leaves the attribute
// out (which reads as Hold).
inline void AddKey(qdcore::CParam& param, double position, const Payload& payload,
                   unsigned int interpolation = qdcore::INTERPOLATION_LINEAR, unsigned int timeTranslation = 0) {
  qdcore::CKeyFrame kf(param);
  kf.SetPosition(position);
  kf.SetValueBinary(payload.data(), static_cast<unsigned int>(payload.size()));
  if (interpolation) kf.SetInterpolation(interpolation);
  kf.SetTimeTranslation(timeTranslation);
  param.Add(kf, 1.0, false);
}

// The value at `time` of a 10 s clip, asked for as a host does: the size,
// then a buffer of that size.
inline Payload ValueAt(const qdcore::CParam& param, double time) {
  Payload out(param.GetValueBinary(time, 10.0, nullptr, 0));
  out.resize(param.GetValueBinary(time, 10.0, out.data(), static_cast<unsigned int>(out.size())));
  return out;
}

}  // namespace qdtest
