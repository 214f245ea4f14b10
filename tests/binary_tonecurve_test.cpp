// ToneCurve blending: parsing, the merge by x, the natural spline and its
// identity shortcut, the snap to a keyframe, and the re-encoded result.
#include <gtest/gtest.h>

#include <limits>

#include "binary_payload.h"

using namespace qdcore;
using namespace qdtest;

namespace {

struct Point { float x, y; };
using Curve = std::vector<Point>;
const Curve kIdentity{{0, 0}, {1, 1}};

Payload Tone(const std::vector<Curve>& curves) {
  PayloadBuilder b;
  for (const Curve& c : curves) {
    b.U32(static_cast<std::uint32_t>(2 * c.size()));
    for (const Point& p : c) b.F32(p.x).F32(p.y);
  }
  return b;
}

Payload First(const Curve& c) { return Tone({c, kIdentity, kIdentity, kIdentity}); }

// The curves of a result, checking that its four records fill it exactly.
std::vector<Curve> Decode(const Payload& p) {
  std::vector<Curve> curves(4);
  std::size_t at = 0;
  for (Curve& curve : curves) {
    if (at + 4 > p.size()) break;
    const std::size_t m = U32At(p, at);
    for (at += 4; curve.size() < m / 2 && at + 8 <= p.size(); at += 8) {
      curve.push_back({F32At(p, at), F32At(p, at + 4)});
    }
  }
  EXPECT_EQ(at, p.size());
  return curves;
}

// The blend at `time` of a segment from 0 s to 10 s, asked for as a host does.
Payload BlendAt(const Payload& a, const Payload& b, double time) {
  const unsigned int size = BlendToneCurve(a, b, time, 0.0, 10.0, nullptr, 0);
  Payload out(size, 0xEE);
  EXPECT_EQ(BlendToneCurve(a, b, time, 0.0, 10.0, out.data(), size), size);
  return out;
}

void ExpectCurve(const Curve& actual, const Curve& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_EQ(actual[i].x, expected[i].x) << "point " << i;
    EXPECT_FLOAT_EQ(actual[i].y, expected[i].y) << "point " << i;
  }
}

}  // namespace

TEST(ToneCurve, PointsMergeByXWithinATolerance) {
  const Payload a = Tone({{{0, 0.1f}, {0.5f, 0.7f}, {1, 0.9f}}, kIdentity, {{0, 0}, {0.5f, 0.4f}, {1, 1}}, kIdentity});
  const Payload b = Tone({{{0, 0.3f}, {0.5f, 0.2f}, {1, 1}},
                          {{0, 1}, {1, 0}},
                          {{0, 0}, {0.509f, 0.6f}, {1, 1}},
                          kIdentity});
  const std::vector<Curve> out = Decode(BlendAt(a, b, 2.5));  // w = 0.75
  for (std::size_t i = 0; i < 3; ++i) {                       // same x: exactly the mix, no spline
    EXPECT_EQ(out[0][i].y, Mix(F32At(a, 8 + 8 * i), F32At(b, 8 + 8 * i), 0.75)) << i;
  }
  ExpectCurve(out[1], {{0, 0.25f}, {1, 0.75f}});
  ExpectCurve(out[2], {{0, 0}, {0.509f, 0.45f}, {1, 1}});  // one point, the second's x
  const Payload apart = Tone({kIdentity, kIdentity, {{0, 0}, {0.52f, 0.6f}, {1, 1}}, kIdentity});
  EXPECT_EQ(Decode(BlendAt(a, apart, 5))[2].size(), 4u);
  // A wrong size receives nothing but learns the size.
  const unsigned int size = BlendToneCurve(a, apart, 5, 0, 10, nullptr, 0);
  EXPECT_EQ(size, 16u + 8 * (3 + 2 + 4 + 2));
  Payload wrong(size + 4, 0xEE);
  EXPECT_EQ(BlendToneCurve(a, apart, 5, 0, 10, wrong.data(), size + 4), size);
  EXPECT_EQ(BlendToneCurve(a, apart, 5, 0, 10, wrong.data(), size - 4), size);
  EXPECT_EQ(wrong, Payload(size + 4, 0xEE));
}

TEST(ToneCurve, MissingPointsComeFromTheOtherCurvesSpline) {
  // Natural spline through (0, 0), (0.5, 0.8), (1, 1): 0.45625 at 0.25.
  EXPECT_FLOAT_EQ(Decode(BlendAt(First({{0, 0}, {0.25f, 0.3f}, {0.5f, 0.8f}, {1, 1}}),
                                 First({{0, 0}, {0.5f, 0.8f}, {1, 1}}), 5))[0][1].y,
                  0.5f * 0.3f + 0.5f * 0.45625f);
  // Through (0, 0), (0.5, 1), (1, 1) it reaches 1.09375 at 0.75, clamped to 1.
  EXPECT_FLOAT_EQ(Decode(BlendAt(First({{0, 0}, {0.75f, 0.5f}, {1, 1}}),
                                 First({{0, 0}, {0.5f, 1}, {1, 1}}), 5))[0][2].y,
                  0.5f * 0.5f + 0.5f * 1.0f);
  // (0, 0.5)-(1, 0.5) acts as the identity; (0.2, 0.3)-(0.8, 0.9) holds its
  // end values beyond its ends.
  ExpectCurve(
      Decode(BlendAt(First({{0, 0.5f}, {1, 0.5f}}), First({{0.2f, 0.3f}, {0.8f, 0.9f}}), 5))[0],
      {{0, 0.4f}, {0.2f, 0.25f}, {0.8f, 0.85f}, {1, 0.7f}});
}

TEST(ToneCurve, MergeEndsOnceBothListsAreUsedUp) {
  const Curve shorter{{0, 0}, {0.5f, 0.5f}}, longer{{0, 0}, {0.5f, 0.5f}, {0.75f, 0.25f}, {1, 1}};
  const Curve expected{{0, 0}, {0.5f, 0.5f}, {0.75f, 0.375f}, {1, 0.75f}};
  ExpectCurve(Decode(BlendAt(First(shorter), First(longer), 5))[0], expected);
  ExpectCurve(Decode(BlendAt(First(longer), First(shorter), 5))[0], expected);
}

TEST(ToneCurve, BrokenRecordsLeaveEmptyCurvesThatActAsTheIdentity) {
  PayloadBuilder broken;  // the second record says three values
  broken.bytes = Tone({{{0, 0.2f}, {1, 0.6f}}});
  broken.U32(3).Floats({0.1f, 0.2f, 0.3f});
  const Payload b = Tone({kIdentity, {{0, 0.5f}, {0.5f, 0.5f}, {1, 0.5f}}, kIdentity, kIdentity});
  // At the keyframe: the stored curves re-encoded (32 bytes) in the payload's 36.
  const Payload snapped = BlendAt(broken, b, 0.0);
  ASSERT_EQ(snapped.size(), 36u);
  EXPECT_EQ(U32At(snapped, 32), 0xEEEEEEEEu);
  const std::vector<Curve> stored = Decode(Head(snapped, 32));
  ExpectCurve(stored[0], {{0, 0.2f}, {1, 0.6f}});
  EXPECT_TRUE(stored[1].empty() && stored[2].empty() && stored[3].empty());
  const std::vector<Curve> out = Decode(BlendAt(broken, b, 5));
  ExpectCurve(out[1], {{0, 0.25f}, {0.5f, 0.5f}, {1, 0.75f}});
  ExpectCurve(out[2], kIdentity);
}

TEST(ToneCurve, NearAKeyframeItsCurvesComeBackCutToThePayloadSize) {
  const Payload a = First({{0, 0.2f}, {1, 0.6f}}), b = First({{0, 0.4f}, {0.5f, 0.1f}, {1, 1}});
  EXPECT_EQ(BlendAt(a, b, -0.039), a);
  EXPECT_EQ(BlendAt(a, b, 0.039), a);
  EXPECT_EQ(BlendAt(a, b, 9.961), b);
  EXPECT_EQ(Decode(BlendAt(a, b, 0.04))[0].size(), 3u);  // blended
  const Payload identities = Tone({kIdentity, kIdentity, kIdentity, kIdentity});
  Payload trailing = identities;
  trailing.resize(88, 7);
  // `written`: what the buffer receives; the rest of it stays untouched.
  struct Case { Payload payload; unsigned int result; Payload written; };
  const Case cases[] = {{Payload(12, 0xAB), 16, Head(identities, 16)},
                        {Payload(16, 0), 16, Head(identities, 16)},
                        {Payload(81, 0), 81, identities},
                        {trailing, 88, identities}};
  for (const Case& c : cases) {
    Payload out(c.result, 0xEE);
    ASSERT_EQ(BlendToneCurve(c.payload, b, 0.0, 0.0, 10.0, out.data(), c.result), c.result);
    EXPECT_EQ(Head(out, c.written.size()), c.written) << c.result;
    EXPECT_EQ(Payload(out.begin() + c.written.size(), out.end()), Payload(c.result - c.written.size(), 0xEE));
  }
}

TEST(ToneCurve, HostilePayloadsStillEncodeConsistently) {
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  std::vector<Payload> payloads = {{},
                                   PayloadBuilder().U32(0x80000000u).U32(4).U32(0).U32(0),
                                   Payload(68, 0xFF),
                                   Tone({{{nan, 0}, {1, nan}},
                                         {{1, 1}, {0, 0}, {0.5f, 2}},
                                         {{0.5f, 0}, {0.5f, 1}, {0.5f, 3}},
                                         {{-inf, -1}, {inf, 5}, {0, 0}}})};
  for (const Payload& a : payloads) {
    for (const Payload& b : payloads) Decode(BlendAt(a, b, 3.0));
  }
}
