// GeometryMask: a list of mask shapes followed by a free list of numbers,
// blended number by number between two payloads of the same layout.
//
//   u32 shape count, then per shape:
//     u32 kind, u32 mode, f32[7] values, f32[2] more only for kind 1,
//     u32 terminator
//   u32 value count, f32 values
//
// The payload carries no size of its own; its layout is found by walking it.
#include "qdblend.h"
#include "qdparam/param.h"

namespace qdcore {

namespace {

constexpr std::uint32_t kShapeWithExtraValues = 1;
constexpr std::uint64_t kShapeValues = 7;
constexpr std::uint64_t kExtraValues = 2;

// One shape record. Enumerated words must agree; they would mean different
// shapes otherwise.
bool BlendShape(PairCursor& cursor) {
  std::uint32_t kind = 0;
  if (!cursor.CopyEqualWord(&kind) || !cursor.CopyEqualWord()) return false;  // kind, mode
  if (!cursor.BlendFloats(kShapeValues)) return false;
  if (kind == kShapeWithExtraValues && !cursor.BlendFloats(kExtraValues)) return false;
  return cursor.CopyEqualWord();  // terminator
}

}  // namespace

std::optional<unsigned int> BlendGeometryMask(Bytes first, Bytes second, double w,
                                              MutableBytes out) {
  if (second.size() != first.size() || out.size() < first.size()) return std::nullopt;
  PairCursor cursor(first, second, out, w);
  // Each shape takes at least one word or stops the walk, so even a count of
  // 2^32 - 1 ends at the payload's end.
  std::uint32_t shapes = 0;
  if (!cursor.CopyEqualWord(&shapes)) return std::nullopt;
  for (std::uint32_t i = 0; i < shapes; ++i) {
    if (!BlendShape(cursor)) return std::nullopt;
  }
  std::uint32_t values = 0;
  if (!cursor.CopyEqualWord(&values) || !cursor.BlendFloats(values)) return std::nullopt;
  return static_cast<unsigned int>(cursor.offset());
}

unsigned int CParam::InterpolateBinary_GeometryMask(mtime time, mtime, const CKeyFrame* prev,
                                                    mtime prevTime, const CKeyFrame* next,
                                                    mtime nextTime, unsigned char* buffer,
                                                    unsigned int size) const {
  return BlendEqualSizes(*this, *prev, *next, FirstWeight(time, prevTime, nextTime), buffer, size,
                         BlendGeometryMask);
}

}  // namespace qdcore
