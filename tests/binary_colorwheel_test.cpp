// ColorWheel blending: hues through mixed colours, the HSL round trip, the
// level, and the 80-byte size conventions.
#include <gtest/gtest.h>

#include <limits>

#include "binary_payload.h"

using namespace qdcore;
using namespace qdtest;

namespace {

struct Wheel {
  std::int32_t hue = 0, saturation = 0, level = 0;
  std::uint32_t enabled = 0;
  bool operator==(const Wheel&) const = default;
};

Payload Wheels(std::initializer_list<Wheel> wheels) {
  PayloadBuilder b;
  for (const Wheel& w : wheels) b.U32(w.enabled).I32(w.hue).I32(w.saturation).I32(w.level);
  b.bytes.resize(80);
  return b;
}

Wheel WheelAt(const Payload& p, std::size_t i) {
  return {I32At(p, 16 * i + 4), I32At(p, 16 * i + 8), I32At(p, 16 * i + 12), U32At(p, 16 * i)};
}

Wheel BlendOne(const Wheel& a, const Wheel& b, double w) {
  Payload out(80, 0xEE);
  EXPECT_EQ(BlendColorWheel(Wheels({a}), Wheels({b}), w, out.data(), 80), 80u);
  return WheelAt(out, 0);
}

}  // namespace

TEST(ColorWheel, WheelsBlendThroughMixedColours) {
  struct Case { Wheel a, b; double w; Wheel expected; };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Case cases[] = {
      {{350, 100}, {10, 100}, 0.5, {0, 100, 0, 1}},  // the short way round, to red
      {{0, 100}, {120, 100}, 0.5, {60, 99, 0, 1}},   // yellow, a hair short in single precision
      {{0, 100}, {180, 100}, 0.5, {240, 0, 0, 0}},   // grey; the hue is what rounding leaves
      {{75, 0}, {290, 0}, 0.3, {0, 0, 0, 0}},        // grey stays grey
      {{240, 100}, {0, 0}, 0.5, {240, 50, 0, 1}},    // grey dilutes
      {{0, 0, 10}, {0, 0, 21}, 0.5, {0, 0, 15, 0}},  // levels truncate toward zero
      {{0, 0, -10}, {0, 0, -21}, 0.5, {0, 0, -15, 0}},
      {{0, 0, 100}, {0, 0, 0}, 1.5, {0, 0, 150, 0}},  // not clamped
      {{0, 0, 0x7FFFFFFF}, {}, 2.0, {0, 0, std::numeric_limits<int>::min(), 0}},
      {{45, 60, 1},
       {90, 60, 2},
       nan,
       {0, std::numeric_limits<int>::min(), std::numeric_limits<int>::min(), 1}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(BlendOne(c.a, c.b, c.w), c.expected) << c.a.hue << " and " << c.b.hue;
  }
}

TEST(ColorWheel, RoundTripLosesAtMostOneUnit) {
  EXPECT_EQ(BlendOne({120, 100}, {300, 40}, 1.0), (Wheel{120, 100, 0, 1}));
  for (std::int32_t hue = 0; hue < 360; ++hue) {
    for (std::int32_t saturation : {1, 17, 50, 99, 100}) {
      const Wheel out = BlendOne({hue, saturation}, {}, 1.0);
      EXPECT_TRUE(out.saturation == saturation || out.saturation == saturation - 1);
      EXPECT_LE((hue - out.hue + 360) % 360, 1) << "hue " << hue << " saturation " << saturation;
    }
  }
}

TEST(ColorWheel, SizeConventionsAndPayloadsOfOtherLengths) {
  const Payload five = Wheels({{120, 100, 8}, {240, 50, 3}});
  Payload out(80, 0xEE);
  EXPECT_EQ(BlendColorWheel(five, five, 0.5, nullptr, 0), 80u);
  EXPECT_EQ(BlendColorWheel(five, five, 0.5, out.data(), 79), 80u);
  EXPECT_EQ(BlendColorWheel({}, {}, 0.5, out.data(), 80), 0u);
  EXPECT_EQ(out, Payload(80, 0xEE));
  // Missing wheels and bytes read as zero (the level keeps its one byte);
  // bytes past 80 are not read.
  ASSERT_EQ(BlendColorWheel(Head(five, 29), {}, 1.0, out.data(), 80), 80u);
  EXPECT_EQ(WheelAt(out, 0), (Wheel{120, 100, 8, 1}));
  EXPECT_EQ(WheelAt(out, 1), (Wheel{240, 50, 3, 1}));
  EXPECT_EQ(WheelAt(out, 2), (Wheel{}));
  Payload longer = five, fromExact(80);
  longer.resize(96, 0x7F);
  BlendColorWheel(five, five, 0.5, fromExact.data(), 80);
  BlendColorWheel(longer, longer, 0.5, out.data(), 80);
  EXPECT_EQ(out, fromExact);

  CParam empty = BinaryParam(u"ColorWheel");
  AddKey(empty, 0.0, {});
  AddKey(empty, 1.0, {});
  EXPECT_EQ(empty.GetValueBinary(5.0, 10.0, nullptr, 0), 0u);
}
