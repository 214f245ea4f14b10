// SplitGraph blending: each kind's tail and length, kind 2's counted tail,
// and the kinds and counts that decline.
#include <gtest/gtest.h>

#include "binary_payload.h"

using namespace qdcore;
using namespace qdtest;

namespace {

// Kind word and `numbers` numbers base + i; kind 2 takes `count` after ten.
Payload Graph(std::uint32_t kind, std::size_t numbers, float base, std::uint32_t count = 0) {
  PayloadBuilder b;
  b.U32(kind);
  for (std::size_t i = 0; i < numbers; ++i) {
    if (kind == 2 && i == 10) b.U32(count);
    b.F32(base + static_cast<float>(i));
  }
  if (kind == 2 && numbers == 10) b.U32(count);
  return b;
}

std::optional<unsigned int> Blend(const Payload& a, const Payload& b, double w, Payload& out) {
  out.assign(a.size(), 0xEE);
  return BlendSplitGraph(a, b, w, out);
}

}  // namespace

TEST(SplitGraph, EachKindBlendsItsTailAndAnswersItsLength) {
  struct Case { std::uint32_t kind, count; std::size_t numbers; unsigned int length; };
  const Case cases[] = {{0, 0, 14, 60}, {1, 0, 13, 56}, {2, 0, 10, 48}, {2, 5, 15, 68},
                        {3, 0, 20, 84}, {4, 0, 22, 92}, {5, 0, 22, 92}};
  for (const Case& c : cases) {
    Payload a = Graph(c.kind, c.numbers, 1, c.count), b = Graph(c.kind, c.numbers, 3, c.count);
    a.resize(a.size() + 40, 0x11);  // trailing bytes are neither read nor written
    b.resize(b.size() + 40, 0x22);
    Payload out;
    ASSERT_EQ(Blend(a, b, 0.5, out), c.length) << "kind " << c.kind;
    EXPECT_EQ(Head(out, 4), Head(a, 4));
    for (std::size_t at = 4; at < c.length; at += 4) {
      if (c.kind == 2 && at == 44) continue;
      EXPECT_EQ(F32At(out, at), F32At(a, at) + 1) << "kind " << c.kind << " at " << at;
    }
    EXPECT_EQ(Payload(out.begin() + c.length, out.end()), Payload(40, 0xEE));
  }
  Payload out;
  const Payload a = Graph(2, 15, 10, 5), b = Graph(2, 15, 20, 5);
  ASSERT_EQ(Blend(a, b, 0.3, out), 68u);
  for (std::size_t at = 48; at < 68; at += 4) EXPECT_EQ(F32At(out, at), Mix(F32At(a, at), F32At(b, at), 0.3));
}

TEST(SplitGraph, KindsAndCountsThatCannotBlendDecline) {
  Payload out;
  EXPECT_FALSE(Blend(Graph(0, 22, 1), Graph(4, 22, 1), 0.5, out));  // kinds differ
  EXPECT_EQ(out, Payload(92, 0xEE));
  const Payload six = Graph(6, 14, 1);  // unknown: its common part stays written
  EXPECT_FALSE(Blend(six, six, 0.5, out));
  EXPECT_EQ(Head(out, 44), Head(six, 44));
  EXPECT_FALSE(Blend(Graph(2, 13, 1, 2), Graph(2, 13, 1, 3), 0.5, out));  // counts differ
  EXPECT_EQ(U32At(out, 44), 0xEEEEEEEEu);
  for (std::uint32_t count : {6u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    const Payload p = Graph(2, 15, 1, count);
    EXPECT_FALSE(Blend(p, p, 0.5, out)) << count;
  }
  for (std::uint32_t kind = 0; kind < 6; ++kind) {
    const Payload whole = Graph(kind, 22, 1, 1);
    const std::size_t needed = Blend(whole, whole, 0.5, out).value();
    for (std::size_t size = 0; size < needed; ++size) {
      EXPECT_FALSE(Blend(Head(whole, size), Head(whole, size), 0.5, out)) << kind << ", " << size;
    }
  }
}
