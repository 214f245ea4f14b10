// MaskMultiPolygon blending: points mapped through their own frames, blended,
// and made relative to the blended frame under the first payload's header.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "binary_payload.h"

using namespace qdcore;
using namespace qdtest;

namespace {

// A polygon's count as stored, which may disagree with the points given.
struct Polygon { std::int32_t count; std::vector<float> coordinates; };

Payload Mask(std::initializer_list<float> frame, std::int32_t polygonCount,
             const std::vector<Polygon>& polygons, std::uint32_t lead = 0x01020304) {
  PayloadBuilder b;
  b.U32(lead).U32(~lead).Floats(frame).I32(polygonCount);
  for (const Polygon& p : polygons) {
    b.I32(p.count);
    for (float c : p.coordinates) b.F32(c);
  }
  return b;
}

std::vector<float> Sequence(std::size_t points, float base) {
  std::vector<float> out;
  for (std::size_t i = 0; i < 2 * points; ++i) out.push_back(base + 0.125f * static_cast<float>(i));
  return out;
}

std::optional<unsigned int> Blend(const Payload& a, const Payload& b, double w, Payload& out) {
  out.assign(a.size(), 0xEE);
  return BlendMaskMultiPolygon(a, b, w, out);
}

}  // namespace

TEST(MaskMultiPolygon, PointsAreRelativeToTheBlendedFrameUnderTheFirstHeader) {
  // Absolute (60, 45) and (80, 115) meet at (70, 80); the blended frame is
  // (20, 30, 150, 100).
  const Payload a = Mask({10, 20, 100, 50}, 1, {{1, {0.5f, 0.5f}}});
  const Payload b = Mask({30, 40, 200, 150}, 1, {{1, {0.25f, 0.5f}}}, 0xFFFFFFFF);
  Payload out;
  ASSERT_EQ(Blend(a, b, 0.5, out), 40u);
  EXPECT_EQ(Head(out, 32), Head(a, 32));
  EXPECT_EQ(F32At(out, 32), 50.0f / 150.0f);
  EXPECT_EQ(F32At(out, 36), 0.5f);
  // At the segment's ends the stored points come back, up to the rounding of
  // the frame mapping.
  for (double w : {1.0, 0.0}) {
    ASSERT_EQ(Blend(a, b, w, out), 40u);
    EXPECT_FLOAT_EQ(F32At(out, 32), F32At(w == 1.0 ? a : b, 32));
  }
}

TEST(MaskMultiPolygon, UnitFramesBlendByPositionWithTheFirstCounts) {
  // 5 and 7 points run the four-point loop and its remainder; the second
  // payload's own structure is not looked at.
  const Payload a = Mask({0, 0, 1, 1}, 3, {{5, Sequence(5, 0)}, {-7, {}}, {7, Sequence(7, 2)}});
  const Payload b = Mask({0, 0, 1, 1}, 1, {{13, Sequence(13, 1)}});
  ASSERT_EQ(a.size(), b.size());
  Payload out;
  ASSERT_EQ(Blend(a, b, 0.75, out), a.size());
  EXPECT_EQ(I32At(out, 24), 3);
  EXPECT_EQ(I32At(out, 72), -7);
  EXPECT_EQ(I32At(out, 76), 7);
  for (std::size_t at = 32; at < out.size(); at += 4) {
    if (at == 72 || at == 76) continue;
    EXPECT_EQ(F32At(out, at), Mix(F32At(a, at), F32At(b, at), 0.75)) << at;
  }
}

TEST(MaskMultiPolygon, CountsDecideWhatIsReadAndWritten) {
  Payload out;
  for (std::int32_t polygons : {0, -5}) {  // the header only, and the payload's size all the same
    const Payload p = Mask({1, 2, 3, 4}, polygons, {{1, {1, 1}}});
    ASSERT_EQ(Blend(p, p, 0.5, out), 40u);
    EXPECT_EQ(Payload(out.begin() + 28, out.end()), Payload(12, 0xEE));
  }
  const Payload flat = Mask({0, 0, 0, 0}, 1, {{1, {1, 1}}});  // a zero frame divides by zero
  ASSERT_EQ(Blend(flat, flat, 0.5, out), 40u);
  EXPECT_TRUE(std::isnan(F32At(out, 32)));
  const Payload whole = Mask({0, 0, 1, 1}, 2, {{1, {1, 1}}, {2, {1, 1, 1, 1}}});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(Blend(Head(whole, size), Head(whole, size), 0.5, out)) << size;
  }
  for (std::int32_t count : {3, 0x40000000, 0x7FFFFFFF}) {
    const Payload points = Mask({0, 0, 1, 1}, 1, {{count, {1, 1}}});
    EXPECT_FALSE(Blend(points, points, 0.5, out)) << count;
    const Payload polygons = Mask({0, 0, 1, 1}, count, {{0, {}}, {0, {}}});
    EXPECT_FALSE(Blend(polygons, polygons, 0.5, out)) << count;
  }
}
