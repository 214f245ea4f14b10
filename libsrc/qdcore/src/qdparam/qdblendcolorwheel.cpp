// ColorWheel: five colour wheels, each a hue, a saturation and a level.
//
//   5 records of 16 bytes: u32 enabled, i32 hue (degrees), i32 saturation
//   (percent), i32 level
//
// Hue and saturation are not blended as numbers: both wheels become colours,
// the colours are mixed, and the mix becomes hue and saturation again, so that
// hues blend the short way round through real intermediate colours. The level
// blends linearly; `enabled` is recomputed from the blended saturation.
#include <algorithm>
#include <cstring>

#include "qdblend.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"

namespace qdcore {

namespace {

constexpr std::size_t kWheels = 5;
constexpr std::size_t kWheelBytes = 16;
// Wheels are turned into colours at mid lightness, where saturation is
// widest; the lightness of the mix is not kept.
constexpr float kLightness = 0.5f;

struct Wheel {
  std::int32_t hue, saturation, level;
};

struct Rgb {
  float r, g, b;
};

struct HueSaturation {
  float hue, saturation;  // hue in turns
};

Wheel ReadWheel(const unsigned char* record) {
  return {ReadI32(record + 4), ReadI32(record + 8), ReadI32(record + 12)};
}

// The textbook HSL helper; its thresholds are double constants, and its
// falling edge is computed in double.
float HueToChannel(float p, float q, float t) {
  if (t < 0) t += 1;
  if (t > 1) t -= 1;
  if (t < 1.0 / 6.0) return p + (q - p) * 6 * t;
  if (t < 0.5) return q;
  if (t < 2.0 / 3.0) return static_cast<float>(p + (q - p) * (2.0 / 3.0 - t) * 6);
  return p;
}

Rgb HslToRgb(float h, float s, float l) {
  if (s == 0) return {l, l, l};
  const float q = l < 0.5f ? l * (1 + s) : l + s - l * s;
  const float p = 2 * l - q;
  return {HueToChannel(p, q, static_cast<float>(h + 1.0 / 3.0)), HueToChannel(p, q, h),
          HueToChannel(p, q, static_cast<float>(h - 1.0 / 3.0))};
}

// Red wins a tie for the largest channel, then green.
HueSaturation RgbToHueSaturation(const Rgb& c) {
  const float max = std::max({c.r, c.g, c.b});
  const float min = std::min({c.r, c.g, c.b});
  if (max == min) return {0, 0};
  const float lightness = (max + min) * 0.5f;
  const float d = max - min;
  const float saturation = lightness > 0.5f ? d / (2 - max - min) : d / (max + min);
  float hue = 0;
  if (max == c.r) {
    hue = (c.g - c.b) / d + (c.b > c.g ? 6 : 0);
  } else if (max == c.g) {
    hue = (c.b - c.r) / d + 2;
  } else if (max == c.b) {
    hue = (c.r - c.g) / d + 4;
  }
  return {hue / 6, saturation};
}

Rgb ColourOf(const Wheel& wheel) {
  return HslToRgb(static_cast<float>(wheel.hue) / 360, static_cast<float>(wheel.saturation) / 100,
                  kLightness);
}

float MixChannel(float a, float b, double w) { return BlendF32(a, b, w); }

// Truncation toward zero; a number beyond 32 bits, or none at all (from a
// weight that is not a number), gives the lowest whole number.
Wheel BlendWheels(const Wheel& a, const Wheel& b, double w) {
  const Rgb ca = ColourOf(a);
  const Rgb cb = ColourOf(b);
  const Rgb mixed{MixChannel(ca.r, cb.r, w), MixChannel(ca.g, cb.g, w), MixChannel(ca.b, cb.b, w)};
  const HueSaturation hs = RgbToHueSaturation(mixed);
  return {TruncateToInt32(hs.hue * 360), TruncateToInt32(hs.saturation * 100),
          TruncateToInt32(a.level * w + b.level * (1 - w))};
}

void WriteWheel(unsigned char* record, const Wheel& wheel) {
  WriteU32(record, wheel.saturation != 0 ? 1 : 0);
  WriteI32(record + 4, wheel.hue);
  WriteI32(record + 8, wheel.saturation);
  WriteI32(record + 12, wheel.level);
}

// The first 80 bytes of a payload; a shorter one reads its missing wheels as
// zeros, a longer one is cut.
void CopyWheels(Bytes payload, unsigned char (&block)[kColorWheelBytes]) {
  std::memset(block, 0, sizeof block);
  if (payload.empty()) return;  // an empty span may hold no address at all
  std::memcpy(block, payload.data(), std::min<std::size_t>(payload.size(), sizeof block));
}

}  // namespace

unsigned int BlendColorWheel(Bytes first, Bytes second, double w, unsigned char* buffer,
                             unsigned int size) {
  if (first.empty() && second.empty()) return 0;
  if (!buffer || size != kColorWheelBytes) return kColorWheelBytes;
  unsigned char a[kColorWheelBytes];
  unsigned char b[kColorWheelBytes];
  CopyWheels(first, a);
  CopyWheels(second, b);
  for (std::size_t i = 0; i < kWheels; ++i) {
    const std::size_t at = i * kWheelBytes;
    WriteWheel(buffer + at, BlendWheels(ReadWheel(a + at), ReadWheel(b + at), w));
  }
  return kColorWheelBytes;
}

// The payloads are read cut to their first 80 bytes straight into the stack:
// nothing else of them is used.
unsigned int CParam::InterpolateBinary_ColorWheel(mtime time, mtime, const CKeyFrame* prev,
                                                  mtime prevTime, const CKeyFrame* next,
                                                  mtime nextTime, unsigned char* buffer,
                                                  unsigned int size) const {
  unsigned char a[kColorWheelBytes];
  unsigned char b[kColorWheelBytes];
  const unsigned int sizeA = prev->GetValueBinary(a, kColorWheelBytes, 0);
  const unsigned int sizeB = next->GetValueBinary(b, kColorWheelBytes, 0);
  return BlendColorWheel({a, std::min(sizeA, kColorWheelBytes)},
                         {b, std::min(sizeB, kColorWheelBytes)},
                         FirstWeight(time, prevTime, nextTime), buffer, size);
}

}  // namespace qdcore
