// Binary values at a time: the keyframe pair, the hold decided by the second
// keyframe, the ease of the first, the kind switch and its fallbacks.
#include <gtest/gtest.h>

#include "binary_payload.h"
#include "support/capture.h"

using namespace qdcore;
using namespace qdtest;

namespace {

const Payload kOwn{0x0A, 0x0B}, kFirst{1, 1, 1, 1}, kSecond{2, 2, 2, 2};

// A SplitGraph kind-1 payload whose numbers are all `v`, so a blend shows
// the first keyframe's share.
Payload Graph(float v) {
  PayloadBuilder b;
  b.U32(1);
  for (int i = 0; i < 13; ++i) b.F32(v);
  return b;
}

float Share(const CParam& param, double time) {
  const Payload out = ValueAt(param, time);
  return out.size() == 56 ? F32At(out, 4) : -1.0f;
}

CParam Segment(const char16_t* kind, unsigned int firstCode = INTERPOLATION_LINEAR,
               unsigned int secondCode = INTERPOLATION_LINEAR, unsigned int ease = 0) {
  CParam param = BinaryParam(kind);
  AddKey(param, 0.2, Graph(1), firstCode, ease);
  AddKey(param, 0.6, Graph(0), secondCode);
  return param;
}

}  // namespace

TEST(BinaryDispatch, KeyframesAroundTheTimeChooseThePayload) {
  CParam param = BinaryParam(u"MaskShapeDropper");
  EXPECT_EQ(ValueAt(param, 5), kOwn);
  AddKey(param, 0.2, kFirst);
  EXPECT_EQ(ValueAt(param, 1), kFirst);
  EXPECT_EQ(ValueAt(param, 9), kFirst);
  AssertCapture capture;  // a clip without length is reported, and used
  Payload out(4, 0xEE);
  EXPECT_EQ(param.GetValueBinary(1.0, 0.0, out.data(), 4), 4u);
  EXPECT_EQ(out, kFirst);
  EXPECT_EQ(capture.expressions(), std::vector<std::string>{"duration > 0.0"});
  AddKey(param, 0.6, kSecond);
  EXPECT_EQ(ValueAt(param, 5.99), kFirst);  // shapes are picked, never blended
  EXPECT_EQ(ValueAt(param, 6), kSecond);
  param.SetKeyFrameStatus(false);
  EXPECT_EQ(ValueAt(param, 5), kOwn);
}

TEST(BinaryDispatch, SecondKeyframeDecidesTheHoldAndTheKindIsSpelledExactly) {
  EXPECT_EQ(Share(Segment(u"SplitGraph"), 4), 0.5f);
  EXPECT_EQ(Share(Segment(u"SplitGraph", INTERPOLATION_HOLD), 4), 0.5f);
  EXPECT_EQ(Share(Segment(u"SplitGraph", INTERPOLATION_CUSTOM, INTERPOLATION_BEZIER), 4), 0.5f);
  EXPECT_EQ(Share(Segment(u"SplitGraph", INTERPOLATION_LINEAR, INTERPOLATION_HOLD), 4), 1.0f);
  EXPECT_EQ(Share(Segment(u"SplitGraph", INTERPOLATION_LINEAR, 0), 4), 1.0f);  // absent: Hold
  EXPECT_EQ(Share(Segment(u"MaskShapeDropper"), 4), 1.0f);
  for (const char16_t* kind : {u"splitgraph", u"SplitGraph ", u"Other", static_cast<const char16_t*>(nullptr)}) {
    EXPECT_EQ(ValueAt(Segment(kind), 4), kOwn);
  }
}

TEST(BinaryDispatch, OnlyTheFirstKeyframesEaseInOutBendsTime) {
  const CParam eased = Segment(u"SplitGraph", INTERPOLATION_LINEAR, INTERPOLATION_LINEAR, TIMETRANSLATION_EASEINOUT);
  EXPECT_FLOAT_EQ(Share(eased, 4), 0.5f);
  EXPECT_GT(Share(eased, 2.5), 0.9375f);  // an eighth in, held back near the start
  EXPECT_LT(Share(eased, 5.5), 0.0625f);
  CParam clip = Segment(u"SplitGraph");  // the parameter's ease runs over the clip
  clip.SetTimeTranslation(TIMETRANSLATION_EASEINOUT);
  EXPECT_GT(Share(clip, 4), 0.5f);
  EXPECT_EQ(Share(Segment(u"SplitGraph", INTERPOLATION_LINEAR, INTERPOLATION_LINEAR,
                          TIMETRANSLATION_EASEIN | TIMETRANSLATION_EASEOUT |
                              TIMETRANSLATION_ANCHOREASEINOUT),
                  2.5),
            0.875f);
}

TEST(BinaryDispatch, EqualSizeKindsFallBackToTheParametersOwnValue) {
  CParam sizes = BinaryParam(u"GeometryMask");
  AddKey(sizes, 0.2, Payload(56, 0));
  AddKey(sizes, 0.6, Payload(60, 0));
  EXPECT_EQ(sizes.GetValueBinary(5.0, 10.0, nullptr, 0), 2u);
  EXPECT_EQ(ValueAt(sizes, 5.0), kOwn);
  // Sizes that agree: a null buffer learns them before the contents are read.
  CParam kinds = Segment(u"SplitGraph");
  kinds.Get(1)->SetValueBinary(Payload(56, 0).data(), 56);  // kind 0 against kind 1
  EXPECT_EQ(kinds.GetValueBinary(4.0, 10.0, nullptr, 0), 56u);
  EXPECT_EQ(ValueAt(kinds, 4.0), kOwn);
  Payload wrong(55, 0xEE);
  EXPECT_EQ(Segment(u"MaskMultiPolygon").GetValueBinary(4.0, 10.0, wrong.data(), 55), 2u);
  EXPECT_EQ(Head(wrong, 3), (Payload{0x0A, 0x0B, 0xEE}));
}
