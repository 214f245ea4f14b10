// Blending two keyframes' binary payloads, one pure function per payload kind,
// and the little-endian byte readers they share.
//
// The blends see only bytes and numbers: the CParam members that dispatch to
// them read the keyframes' payloads and supply the parameter's own value where
// a blend declines. They are exported so that the tests and the fuzzers can
// drive them directly; no installed header declares them.
//
// Every blend checks each count it reads against the payload before it trusts
// it, so a hostile payload can never make it read or write outside the spans
// it was given.
#pragma once

#include <limits>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "qdcore/core.h"
#include "qdparam/export.h"

namespace qdcore {

class CKeyFrame;
class CParam;

using Bytes = std::span<const unsigned char>;
using MutableBytes = std::span<unsigned char>;

// ---------------------------------------------------------------------------
// Little-endian words
// ---------------------------------------------------------------------------

inline std::uint32_t ReadU32(const unsigned char* at) noexcept {
  return std::uint32_t{at[0]} | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 |
         std::uint32_t{at[3]} << 24;
}
inline std::int32_t ReadI32(const unsigned char* at) noexcept {
  return std::bit_cast<std::int32_t>(ReadU32(at));
}
inline float ReadF32(const unsigned char* at) noexcept { return std::bit_cast<float>(ReadU32(at)); }

inline void WriteU32(unsigned char* at, std::uint32_t value) noexcept {
  at[0] = static_cast<unsigned char>(value);
  at[1] = static_cast<unsigned char>(value >> 8);
  at[2] = static_cast<unsigned char>(value >> 16);
  at[3] = static_cast<unsigned char>(value >> 24);
}
inline void WriteI32(unsigned char* at, std::int32_t value) noexcept {
  WriteU32(at, std::bit_cast<std::uint32_t>(value));
}
inline void WriteF32(unsigned char* at, float value) noexcept {
  WriteU32(at, std::bit_cast<std::uint32_t>(value));
}

// ---------------------------------------------------------------------------
// Weights
// ---------------------------------------------------------------------------

// Rounds to single precision as the hardware does, overflowing to an
// infinity, without the out-of-range conversion C++ leaves undefined.
inline float NarrowToFloat(double value) noexcept {
  constexpr double kOverflow = 0x1.ffffffp+127;  // FLT_MAX plus half its last step
  if (value >= kOverflow) return std::numeric_limits<float>::infinity();
  if (value <= -kOverflow) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

// The first keyframe's share at `time`; the second gets 1 - w. Not clamped:
// a time outside the segment extrapolates.
inline double FirstWeight(double time, double prevTime, double nextTime) noexcept {
  return (nextTime - time) / (nextTime - prevTime);
}

// One number of two single-precision payloads: widened, weighted and summed
// in double, then rounded once to single precision. This order decides the
// bits of every blended number.
inline float BlendF32(float first, float second, double w) noexcept {
  return NarrowToFloat(static_cast<double>(first) * w + static_cast<double>(second) * (1 - w));
}

// ---------------------------------------------------------------------------
// Walking two payloads side by side
// ---------------------------------------------------------------------------

// A cursor over two payloads of equal size and the output they blend into,
// all three at the same offset. Each step checks that it fits before it reads
// and writes nothing when it fails, so a walk that stops early leaves exactly
// the steps that succeeded in the output.
class PairCursor {
 public:
  PairCursor(Bytes first, Bytes second, MutableBytes out, double w) noexcept
      : m_first(first.data()),
        m_second(second.data()),
        m_out(out.data()),
        m_size(first.size()),
        m_w(w) {}

  std::size_t offset() const noexcept { return m_offset; }

  // A word both payloads must agree on, copied. False on disagreement or at
  // the end.
  bool CopyEqualWord(std::uint32_t* word = nullptr) noexcept {
    if (!Fits(1)) return false;
    const std::uint32_t value = ReadU32(m_first + m_offset);
    if (value != ReadU32(m_second + m_offset)) return false;
    WriteU32(m_out + m_offset, value);
    m_offset += 4;
    if (word) *word = value;
    return true;
  }

  // `count` single-precision numbers blended by BlendF32. False, with
  // nothing written, when they run past the end.
  bool BlendFloats(std::uint64_t count) noexcept {
    if (!Fits(count)) return false;
    const std::size_t end = m_offset + count * 4;
    // Four at a time: the numbers are independent, so this only helps speed.
    for (; m_offset + 16 <= end; m_offset += 16) {
      BlendOne(m_offset);
      BlendOne(m_offset + 4);
      BlendOne(m_offset + 8);
      BlendOne(m_offset + 12);
    }
    for (; m_offset < end; m_offset += 4) BlendOne(m_offset);
    return true;
  }

 private:
  bool Fits(std::uint64_t words) const noexcept { return words <= (m_size - m_offset) / 4; }
  void BlendOne(std::size_t at) noexcept {
    WriteF32(m_out + at, BlendF32(ReadF32(m_first + at), ReadF32(m_second + at), m_w));
  }

  const unsigned char* m_first;
  const unsigned char* m_second;
  unsigned char* m_out;
  std::size_t m_size;
  std::size_t m_offset = 0;
  double m_w;
};

// ---------------------------------------------------------------------------
// The kinds
// ---------------------------------------------------------------------------

// ColorWheel: five wheel records of 16 bytes. Each payload is read as its
// first 80 bytes, zero-extended; both empty answer 0. A null `buffer` or a
// `size` other than 80 receives nothing and learns 80.
inline constexpr unsigned int kColorWheelBytes = 80;
QDPARAM_API unsigned int BlendColorWheel(Bytes first, Bytes second, double w, unsigned char* buffer,
                                         unsigned int size);

// GeometryMask, MaskMultiPolygon and SplitGraph blend two payloads of equal
// size into `out`, which must be as long as they are. They answer the length
// of the blended value, or nothing when the parameter's own value must stand
// instead: the payloads disagree where they must agree, or a count points past
// their end. Bytes written before that was found stay in `out`.
QDPARAM_API std::optional<unsigned int> BlendGeometryMask(Bytes first, Bytes second, double w,
                                                          MutableBytes out);
QDPARAM_API std::optional<unsigned int> BlendMaskMultiPolygon(Bytes first, Bytes second, double w,
                                                              MutableBytes out);
QDPARAM_API std::optional<unsigned int> BlendSplitGraph(Bytes first, Bytes second, double w,
                                                        MutableBytes out);

// ToneCurve: four curves merged by x. Answers the length of the blended
// payload (the first's or second's size near a keyframe); writes it to
// `buffer` only when `size` equals that length. Never declines.
QDPARAM_API unsigned int BlendToneCurve(Bytes first, Bytes second, double time, double prevTime,
                                        double nextTime, unsigned char* buffer, unsigned int size);

// ---------------------------------------------------------------------------
// Glue for the CParam members
// ---------------------------------------------------------------------------

// A keyframe's whole payload, of `size` bytes when its size is known.
std::vector<unsigned char> ReadPayload(const CKeyFrame& kf);
std::vector<unsigned char> ReadPayload(const CKeyFrame& kf, unsigned int size);

using EqualSizeBlend = std::optional<unsigned int> (*)(Bytes, Bytes, double, MutableBytes);

// The routine shared by the kinds whose payloads must have equal sizes: the
// first payload's size for a null `buffer`; the parameter's own value when
// the sizes differ, `size` is not theirs, or `blend` declines.
unsigned int BlendEqualSizes(const CParam& param, const CKeyFrame& prev, const CKeyFrame& next,
                             double w, unsigned char* buffer, unsigned int size,
                             EqualSizeBlend blend);

}  // namespace qdcore
