// MaskMultiPolygon: polygons whose points are stored relative to a reference
// frame. Points are taken to absolute coordinates through their own payload's
// frame, blended there, and stored relative to the blended frame.
//
//   8 bytes not interpreted, f32 frame x, y, width, height, i32 polygon
//   count, then per polygon: i32 point count n, n points of f32 x, y
//
// The header written is the first payload's, frame included, while the points
// are relative to the blended frame; consumers that need the blended frame
// recompute it from the keyframes. Polygons correspond by position: the second
// payload is walked with the first one's counts.
#include <cstring>

#include "qdblend.h"
#include "qdparam/param.h"

namespace qdcore {

namespace {

constexpr std::size_t kFrameAt = 8;
constexpr std::size_t kPolygonCountAt = 24;
constexpr std::size_t kHeaderBytes = 28;
constexpr std::size_t kPointBytes = 8;

struct Frame {
  float x, y, width, height;
};

Frame ReadFrame(const unsigned char* payload) {
  const unsigned char* at = payload + kFrameAt;
  return {ReadF32(at), ReadF32(at + 4), ReadF32(at + 8), ReadF32(at + 12)};
}

Frame BlendFrames(const Frame& a, const Frame& b, double w) {
  return {BlendF32(a.x, b.x, w), BlendF32(a.y, b.y, w), BlendF32(a.width, b.width, w),
          BlendF32(a.height, b.height, w)};
}

// The blend of a point's two payloads, relative to the blended frame. The
// frame mapping and the normalising stay in single precision, the blend in
// double: that mix decides the bits of the result (BlendF32's sum may list
// the points in either order, as addition commutes exactly). A zero blended
// width or height gives infinite or not-a-number coordinates, unchecked.
struct PointBlend {
  const Frame& first;
  const Frame& second;
  const Frame& blended;
  double w;

  void operator()(const unsigned char* a, const unsigned char* b, unsigned char* out) const {
    const float x =
        BlendF32(ReadF32(a) * first.width + first.x, ReadF32(b) * second.width + second.x, w);
    const float y = BlendF32(ReadF32(a + 4) * first.height + first.y,
                             ReadF32(b + 4) * second.height + second.y, w);
    WriteF32(out, (x - blended.x) / blended.width);
    WriteF32(out + 4, (y - blended.y) / blended.height);
  }
};

}  // namespace

std::optional<unsigned int> BlendMaskMultiPolygon(Bytes first, Bytes second, double w,
                                                  MutableBytes out) {
  const std::size_t size = first.size();
  if (second.size() != size || out.size() < size || size < kHeaderBytes) return std::nullopt;
  const unsigned char* a = first.data();
  const unsigned char* b = second.data();
  unsigned char* o = out.data();
  std::memcpy(o, a, kHeaderBytes);
  const std::int32_t polygons = ReadI32(a + kPolygonCountAt);
  if (polygons <= 0) return static_cast<unsigned int>(size);

  const Frame frameA = ReadFrame(a);
  const Frame frameB = ReadFrame(b);
  const Frame blended = BlendFrames(frameA, frameB, w);
  const PointBlend blend{frameA, frameB, blended, w};
  std::size_t at = kHeaderBytes;
  // Every polygon takes at least its count word or stops the walk, so a
  // hostile polygon count ends at the payload's end.
  for (std::int32_t polygon = 0; polygon < polygons; ++polygon) {
    if (size - at < 4) return std::nullopt;
    const std::int32_t points = ReadI32(a + at);
    WriteI32(o + at, points);
    at += 4;
    if (points <= 0) continue;  // a count word only
    if (static_cast<std::uint64_t>(points) > (size - at) / kPointBytes) return std::nullopt;
    const std::size_t end = at + static_cast<std::size_t>(points) * kPointBytes;
    // Four at a time: the points are independent, so this only helps speed.
    for (; at + 4 * kPointBytes <= end; at += 4 * kPointBytes) {
      blend(a + at, b + at, o + at);
      blend(a + at + 8, b + at + 8, o + at + 8);
      blend(a + at + 16, b + at + 16, o + at + 16);
      blend(a + at + 24, b + at + 24, o + at + 24);
    }
    for (; at < end; at += kPointBytes) blend(a + at, b + at, o + at);
  }
  return static_cast<unsigned int>(size);
}

unsigned int CParam::InterpolateBinary_MaskMultiPolygon(mtime time, mtime, const CKeyFrame* prev,
                                                        mtime prevTime, const CKeyFrame* next,
                                                        mtime nextTime, unsigned char* buffer,
                                                        unsigned int size) const {
  return BlendEqualSizes(*this, *prev, *next, FirstWeight(time, prevTime, nextTime), buffer, size,
                         BlendMaskMultiPolygon);
}

}  // namespace qdcore
