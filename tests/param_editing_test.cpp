// Parameter keyframe editing: the caller's order, indexes and pointers, the
// values new keyframes take, and the minimum duration.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;

namespace {

CKeyFrame Key(const wchar* position, double value, unsigned int type = PARAM_DOUBLE) {
  CKeyFrame kf(type);
  kf.SetPositionValue(position);
  if (type == PARAM_LONG) kf.SetValueLong(static_cast<long>(value));
  if (type == PARAM_DOUBLE) kf.SetValueDouble(value);
  kf.SetInterpolation(INTERPOLATION_LINEAR);
  return kf;
}

// A parameter with keyframes appended as given (no values computed).
CParam WithKeys(const std::vector<CKeyFrame>& keys, unsigned int type = PARAM_DOUBLE) {
  CParam param(type, u"p", 1);
  for (const CKeyFrame& kf : keys) EXPECT_TRUE(param.Add(kf, 10.0, false));
  return param;
}

std::vector<std::string> Positions(const CParam& param) {
  std::vector<std::string> out;
  for (const CKeyFrame* kf = param.FindNextKeyFrame(nullptr); kf; kf = param.FindNextKeyFrame(kf)) {
    out.push_back(qdtest::Attr(*kf, u"position"));
  }
  return out;
}

using Texts = std::vector<std::string>;

}  // namespace

TEST(ParamEditing, KeepsTheCallersOrderAndAnswersTheRequestedIndex) {
  CParam param = WithKeys({Key(u"0.5", 1), Key(u"0.1", 2)});
  EXPECT_EQ(param.Insert(Key(u"0.9", 3), 1, 10.0, false), 1);
  EXPECT_EQ(param.Insert(Key(u"0.7", 4), 7, 10.0, false), 7);  // appended, not clamped
  EXPECT_EQ(Positions(param), (Texts{"0.5", "0.9", "0.1", "0.7"}));
  // With setValue, the append path answers the index it really used.
  EXPECT_EQ(param.Insert(Key(u"0.8", 5), 9, 10.0, true), 4);
  EXPECT_EQ(param.GetSize(), 5u);
}

TEST(ParamEditing, PointersMapToIndexesAndForeignOnesFailQuietly) {
  CParam param = WithKeys({Key(u"0", 1), Key(u"1", 2)});
  CParam other = WithKeys({Key(u"0", 1)});
  CKeyFrame* second = param.Get(1);
  CKeyFrame* foreign = other.Get(0);
  EXPECT_EQ(param.GetIndex(second), 1);
  EXPECT_EQ(param.GetIndex(foreign), -1);
  EXPECT_EQ(param.GetIndex(nullptr), -1);
  EXPECT_EQ(param.Get(2), nullptr);
  EXPECT_EQ(param.FindNextKeyFrame(second), nullptr);
  EXPECT_EQ(param.FindNextKeyFrame(foreign), nullptr);
  EXPECT_EQ(param.Insert(Key(u"0.5", 3), nullptr, 10.0, false), 0);
  EXPECT_EQ(param.Insert(Key(u"0.5", 3), foreign, 10.0, false), 0);
  EXPECT_EQ(param.GetSize(), 2u);
  EXPECT_EQ(param.Insert(Key(u"0.5", 3), second, 10.0, false), 1);
  EXPECT_EQ(Positions(param), (Texts{"0", "0.5", "1"}));
  EXPECT_FALSE(param.Remove(foreign) || param.Remove(static_cast<CKeyFrame*>(nullptr)));
  EXPECT_TRUE(param.Remove(param.Get(0)) && param.Remove(1u) && param.Remove(0u));
  EXPECT_FALSE(param.Remove(0u));
  EXPECT_EQ(param.FindNextKeyFrame(nullptr), nullptr);
  EXPECT_EQ(param.GetIndex(foreign), -1);
}

TEST(ParamEditing, NewKeyframesTakeTheParametersValueWhereTheyLand) {
  struct Case { const char* what; unsigned int type; const wchar* position; unsigned int index; double expected; }
  cases[] = {
      {"first keyframe's value at index 0", PARAM_DOUBLE, u"0.9", 0, 0.0},
      {"linear midpoint", PARAM_DOUBLE, u"0.5", 1, 5.0},
      {"long midpoint", PARAM_LONG, u"0.5", 1, 5.0},
      {"long 2.5 rounds away from zero", PARAM_LONG, u"0.25", 1, 3.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CParam param = WithKeys({Key(u"0", 0, c.type), Key(u"1", 10, c.type)}, c.type);
    ASSERT_EQ(param.Insert(Key(c.position, 99, c.type), c.index, 10.0, true), static_cast<int>(c.index));
    EXPECT_EQ(param.Get(c.index)->GetValueDouble(), c.expected);
  }
  CParam negative = WithKeys({Key(u"0", 0, PARAM_LONG), Key(u"1", -10, PARAM_LONG)}, PARAM_LONG);
  negative.Insert(Key(u"0.25", 0, PARAM_LONG), 1, 10.0, true);
  EXPECT_EQ(negative.Get(1)->GetValueLong(), -3);  // -2.5 rounds away from zero
  CParam appended = WithKeys({Key(u"0", 0), Key(u"1", 10)});
  appended.SetKeyFrameStatus(true);
  ASSERT_TRUE(appended.Add(Key(u"0.3", 99), 10.0, true));
  EXPECT_DOUBLE_EQ(appended.Get(2)->GetValueDouble(), 3.0);
  // Strings take the previous value; a property tree takes no keyframes.
  CKeyFrame before = Key(u"0", 0, PARAM_STRING), after = Key(u"1", 0, PARAM_STRING);
  before.SetValueString(u"before");
  after.SetValueString(u"after");
  CParam text = WithKeys({before, after}, PARAM_STRING);
  text.Insert(Key(u"0.5", 0, PARAM_STRING), 1, 10.0, true);
  EXPECT_TRUE(text.Get(1)->GetValueString() == u"before");
  CParam tree(qdtest::Element(u"Parameter", {{u"type", u"SubProp"}}));
  EXPECT_TRUE(tree.Add(Key(u"0", 0, PARAM_SUBPROP), 10.0, true));
  EXPECT_EQ(tree.GetSize(), 0u);
}

// Appending a keyframe as it is, which only the parameter itself and derived
// classes may do, checks the type.
struct AppendingParam : CParam {
  using CParam::AddKey;
  using CParam::CParam;
};

TEST(ParamEditing, KeyframesTakeTheParametersTypeAndEmptyOnesAreRefused) {
  AppendingParam param(PARAM_DOUBLE, u"p", 1);
  ASSERT_TRUE(param.Add(Key(u"0", 1, PARAM_LONG), 10.0, false));
  EXPECT_EQ(param.Get(0)->m_Type, static_cast<unsigned int>(PARAM_DOUBLE));
  CKeyFrame empty(PARAM_DOUBLE);
  empty.Free();
  EXPECT_EQ(param.Insert(empty, 0u, 10.0, false), -1);
  qdtest::AssertCapture asserts;
  CKeyFrame wrong = Key(u"0", 1, PARAM_LONG);
  EXPECT_FALSE(param.AddKey(wrong, 10.0, false));
  EXPECT_EQ(param.GetSize(), 1u);
  EXPECT_EQ(asserts.reports(), (qdtest::Reports{{"keyFrame.m_Type == GetType()", kRuntimeAssumptionFailed,
                                                 "bool __cdecl qdcore::CParam::AddKey(class qdcore::CKeyFrame &,"
                                                 "const class qdcore::mtime &,bool)"}}));
}

TEST(ParamEditing, MinimumDurationCoversKeyframesFromBothEnds) {
  EXPECT_EQ(static_cast<double>(WithKeys({Key(u"0.5", 1)}).GetMinDuration()), 0.0);  // relative only
  CParam absolute = WithKeys({Key(u"2s", 1), Key(u"5fs", 2), Key(u"-3s", 3), Key(u"0.9", 4)});
  EXPECT_EQ(static_cast<double>(absolute.GetMinDuration()), 8.0);
  // Appending leaves the cache as it was; inserting an absolute time renews it.
  absolute.Add(Key(u"7s", 5), 10.0, false);
  EXPECT_EQ(static_cast<double>(absolute.GetMinDuration()), 8.0);
  absolute.Insert(Key(u"-4s", 6), 0u, 10.0, false);
  EXPECT_EQ(static_cast<double>(absolute.GetMinDuration()), 11.0);
  absolute.Reset();
  EXPECT_EQ(static_cast<double>(absolute.GetMinDuration()), 0.0);
}
