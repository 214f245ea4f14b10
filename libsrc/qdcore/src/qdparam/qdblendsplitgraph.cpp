// SplitGraph: a graph kind, ten numbers every kind has, and a tail whose
// shape the kind selects. Blended number by number between payloads of the
// same kind.
//
//   u32 kind, f32[10] common values, then by kind:
//     0: f32[4]   1: f32[3]   2: u32 n, f32[n]   3: f32[10]   4, 5: f32[12]
#include <iterator>

#include "qdblend.h"
#include "qdparam/param.h"

namespace qdcore {

namespace {

constexpr std::uint64_t kCommonValues = 10;
constexpr std::uint32_t kCountedTail = 2;

// The fixed tail of each kind in numbers; kind 2's counted tail is apart.
// Kind 5 shares kind 4's tail.
constexpr std::uint64_t kFixedTails[] = {4, 3, 0, 10, 12, 12};
constexpr std::uint32_t kKinds = std::size(kFixedTails);

}  // namespace

std::optional<unsigned int> BlendSplitGraph(Bytes first, Bytes second, double w, MutableBytes out) {
  if (second.size() != first.size() || out.size() < first.size()) return std::nullopt;
  PairCursor cursor(first, second, out, w);
  std::uint32_t kind = 0;
  if (!cursor.CopyEqualWord(&kind)) return std::nullopt;
  // The common values are blended even for a kind that then declines; the
  // parameter's own value is written over them.
  if (!cursor.BlendFloats(kCommonValues)) return std::nullopt;
  if (kind >= kKinds) return std::nullopt;
  if (kind == kCountedTail) {
    // A count past the end (a negative one too, read as a signed count) is
    // no list this payload holds.
    std::uint32_t count = 0;
    if (!cursor.CopyEqualWord(&count) || !cursor.BlendFloats(count)) return std::nullopt;
  } else if (!cursor.BlendFloats(kFixedTails[kind])) {
    return std::nullopt;
  }
  // Trailing bytes past the kind's length are neither read nor written.
  return static_cast<unsigned int>(cursor.offset());
}

unsigned int CParam::InterpolateBinary_SplitGraph(mtime time, mtime, const CKeyFrame* prev,
                                                  mtime prevTime, const CKeyFrame* next,
                                                  mtime nextTime, unsigned char* buffer,
                                                  unsigned int size) const {
  return BlendEqualSizes(*this, *prev, *next, FirstWeight(time, prevTime, nextTime), buffer, size,
                         BlendSplitGraph);
}

}  // namespace qdcore
