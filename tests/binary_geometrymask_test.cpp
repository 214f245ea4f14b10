// GeometryMask blending: the walk over shapes, agreement of every word and
// count, and counts that point past the end.
#include <gtest/gtest.h>

#include "binary_payload.h"

using namespace qdcore;
using namespace qdtest;

namespace {

// Shapes of the given kinds (mode 3, terminator 0xABCD, numbers base + i),
// then the trailing values.
Payload Mask(std::initializer_list<std::uint32_t> kinds, std::initializer_list<float> values, float base = 0) {
  PayloadBuilder b;
  b.U32(static_cast<std::uint32_t>(kinds.size()));
  for (std::uint32_t kind : kinds) {
    b.U32(kind).U32(3);
    for (int i = 0; i < (kind == 1 ? 9 : 7); ++i) b.F32(base + static_cast<float>(i));
    b.U32(0xABCD);
  }
  return b.U32(static_cast<std::uint32_t>(values.size())).Floats(values);
}

std::optional<unsigned int> Blend(const Payload& a, const Payload& b, double w, Payload& out) {
  out.assign(a.size(), 0xEE);
  return BlendGeometryMask(a, b, w, out);
}

}  // namespace

TEST(GeometryMask, WalksTheShapesAndBlendsEveryNumber) {
  Payload out;
  EXPECT_EQ(Blend(Mask({}, {}), Mask({}, {}), 0.5, out), 8u);
  EXPECT_EQ(Blend(Mask({0}, {1, 2}), Mask({0}, {3, 4}), 0.5, out), 56u);
  EXPECT_EQ(Blend(Mask({1}, {1, 2}), Mask({1}, {3, 4}), 0.5, out), 64u);
  const Payload a = Mask({1, 0}, {0.1f, 7, 8, 9, 10}, 10);
  const Payload b = Mask({1, 0}, {0.3f, 1, 2, 3, 4}, 30);
  ASSERT_EQ(Blend(a, b, 1.0, out), a.size());
  EXPECT_EQ(out, a);
  ASSERT_EQ(Blend(a, b, 0.0, out), a.size());
  EXPECT_EQ(out, b);
  ASSERT_EQ(Blend(a, b, 0.25, out), 116u);
  EXPECT_EQ(F32At(out, 44), 33.0f);  // kind 1's last extra number: 18 and 38
  EXPECT_EQ(U32At(out, 48), 0xABCDu);
  EXPECT_EQ(U32At(out, 92), 5u);
  for (std::size_t at = 96; at < 116; at += 4) EXPECT_EQ(F32At(out, at), Mix(F32At(a, at), F32At(b, at), 0.25));
}

TEST(GeometryMask, DisagreementDeclinesKeepingTheWordsBefore) {
  const Payload base = Mask({0, 0}, {1, 2});
  // The changed word of the second payload, which is also what was written.
  for (std::size_t at : {0, 4, 48, 80, 84}) {  // shape count, kind, mode, terminator, value count
    Payload other = base;
    WriteU32(&other[at], ReadU32(&other[at]) + 1);
    Payload out;
    EXPECT_FALSE(Blend(base, other, 0.5, out)) << at;
    EXPECT_EQ(Head(out, at), Head(base, at)) << at;
    EXPECT_EQ(out[at], 0xEE) << at;
  }
  Payload out;  // kind 1 against kind 0, same total size
  EXPECT_FALSE(Blend(Mask({1}, {1, 2}), Mask({0}, {1, 2, 3, 4}), 0.5, out));
}

TEST(GeometryMask, CountsPastTheEndDecline) {
  Payload out;
  const Payload whole = Mask({1, 0}, {1, 2, 3});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(Blend(Head(whole, size), Head(whole, size), 0.5, out)) << size;
  }
  for (std::uint32_t count : {3u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    Payload shapes = PayloadBuilder().U32(count);
    shapes.resize(44);
    EXPECT_FALSE(Blend(shapes, shapes, 0.5, out)) << count;
    const Payload values = PayloadBuilder().U32(0).U32(count).F32(1);
    EXPECT_FALSE(Blend(values, values, 0.5, out)) << count;
  }
}
