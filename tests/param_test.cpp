// Parameter definition: type, the typed attribute families with their guards,
// clamping, flags, loading and copies.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qdparam/param.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::Attr, qdtest::Element, qdtest::P;

namespace {

CParam Typed(const wchar* type) { return CParam(Element(u"Parameter", {{u"type", type}})); }

// One typed attribute family: getter, setter, attribute, and the signature
// texts their reports carry.
template <typename T>
struct Family {
  bool (CParam::*get)(T&) const;
  bool (CParam::*set)(T);
  const wchar* attr;
  const char *getSig, *setSig;
};

// A parameter of the family's type reads back what it wrote; one of the other
// type refuses both ways, reports, and leaves the attribute alone.
template <typename T>
void CheckFamily(const Family<T>& f, unsigned int own, unsigned int other, T input, const char* text,
                 const char* guard) {
  SCOPED_TRACE(f.setSig);
  CParam param(own, u"p", 1);
  T v = T(7);
  EXPECT_FALSE((param.*f.get)(v) || v != T(7));
  EXPECT_TRUE((param.*f.set)(input));
  EXPECT_EQ(Attr(param, f.attr), text);
  EXPECT_TRUE((param.*f.get)(v) && v == input);
  CParam wrong(other, u"w", 2);
  wrong.SetValue(P(f.attr), u"3");
  qdtest::AssertCapture asserts;
  EXPECT_FALSE((wrong.*f.set)(input) || (wrong.*f.get)(v));
  EXPECT_EQ(Attr(wrong, f.attr), "3");
  EXPECT_EQ(asserts.reports(), (qdtest::Reports{{guard, kRuntimeAssumptionFailed, f.setSig},
                                                 {guard, kRuntimeAssumptionFailed, f.getSig}}));
}

#define QD_SIG(text) "bool __cdecl qdcore::CParam::" text

}  // namespace

TEST(ParamType, ReadFromTheTypeAttributeAndCachedWhenKnown) {
  struct Row {
    const wchar* text;  // null: absent
    unsigned int type;
  } rows[] = {{nullptr, PARAM_DOUBLE},   {u"Double", PARAM_DOUBLE},   {u"String", PARAM_STRING},
              {u"Binary", PARAM_BINARY}, {u"SubProp", PARAM_SUBPROP}, {u"double", PARAM_UNDEFINED}};
  for (const Row& row : rows) {
    CParam param;
    if (row.text) param.SetValue(P(u"type"), row.text);
    EXPECT_EQ(param.GetType(), row.type) << (row.text ? ToUtf8(row.text) : "absent");
  }
  CParam param = Typed(u"Bogus");
  EXPECT_EQ(param.GetType(), PARAM_UNDEFINED);  // not cached
  param.SetValue(P(u"type"), u"Long");
  EXPECT_EQ(param.GetType(), PARAM_LONG);
  param.SetValue(P(u"type"), u"Bool");
  EXPECT_EQ(param.GetType(), PARAM_LONG);  // cached
}

TEST(ParamType, SetTypeWritesWhatXmlCannotDefault) {
  struct Row {
    unsigned int type;
    bool result;
    const char* text;  // "": absent
  } rows[] = {{PARAM_DOUBLE, true, ""},       {PARAM_LONG, true, "Long"},      {PARAM_STRING, true, "String"},
              {PARAM_BINARY, true, "Binary"}, {PARAM_SUBPROP, false, "Bool"}, {PARAM_UNDEFINED, false, "Bool"}};
  for (const Row& row : rows) {
    CParam param = Typed(u"Bool");
    EXPECT_EQ(param.SetType(row.type), row.result) << row.type;
    EXPECT_EQ(Attr(param, u"type"), row.text) << row.type;
  }
  CParam known(PARAM_LONG, u"n", 1);
  EXPECT_EQ(known.GetType(), PARAM_LONG);
  qdtest::AssertCapture asserts;
  EXPECT_TRUE(known.SetType(PARAM_BOOL));  // reported, written, cache kept
  EXPECT_EQ(known.GetType(), PARAM_LONG);
  EXPECT_EQ(asserts.reports(), (qdtest::Reports{{"m_Type == PARAM_UNDEFINED", kRuntimeAssumptionFailed,
                                                 QD_SIG("SetType(unsigned int)")}}));
}

// A family's getter and setter, and their signatures, from the name's middle.
#define QD_FAMILY(T, name, attr)                                                  \
  Family<T> {                                                                   \
    &CParam::Get##name, &CParam::Set##name, attr, QD_SIG("Get" #name "(" #T " &) const"), \
        QD_SIG("Set" #name "(" #T ")")                                          \
  }

TEST(ParamFamilies, TypedAttributesAndTheirGuards) {
  const Family<double> reals[] = {
      QD_FAMILY(double, MinValueDouble, u"min"), QD_FAMILY(double, MaxValueDouble, u"max"),
      QD_FAMILY(double, GranularityDouble, u"granularity"),
      QD_FAMILY(double, InactiveValueDouble, u"inactive"), QD_FAMILY(double, ValueDouble, u"value")};
  for (const auto& f : reals) CheckFamily(f, PARAM_DOUBLE, PARAM_LONG, -1.5, "-1.500000000000", "type == PARAM_DOUBLE");
  const Family<long> wholes[] = {
      QD_FAMILY(long, MinValueLong, u"min"), QD_FAMILY(long, MaxValueLong, u"max"),
      QD_FAMILY(long, GranularityLong, u"granularity"), QD_FAMILY(long, InactiveValueLong, u"inactive"),
      QD_FAMILY(long, ValueLong, u"value")};
  for (const auto& f : wholes) CheckFamily(f, PARAM_LONG, PARAM_DOUBLE, -12L, "-12", "type == PARAM_LONG");
  const Family<bool> flags[] = {QD_FAMILY(bool, InactiveValueBool, u"inactive"), QD_FAMILY(bool, ValueBool, u"value")};
  for (const auto& f : flags) CheckFamily(f, PARAM_BOOL, PARAM_STRING, false, "False", "type == PARAM_BOOL");
}

TEST(ParamFamilies, StringValuesResetsAndNarrowing) {
  CParam text(PARAM_STRING, u"t", 2);
  CZPoolString s;
  EXPECT_TRUE(text.SetValueString(u"x & y") && text.SetInactiveValueString(u"off"));
  EXPECT_EQ(text.GetNElements(P(u"value")), 1u);  // needs CDATA: a child element
  EXPECT_TRUE(text.GetValueString(s) && s == u"x & y");
  EXPECT_TRUE(text.GetInactiveValueString(s) && s == u"off");
  CParam whole(PARAM_LONG, u"w", 1);
  EXPECT_TRUE(whole.SetMinValueLong(0x100000005L));  // stored as the 32-bit number it is
  EXPECT_EQ(Attr(whole, u"min"), "5");
  EXPECT_TRUE(whole.ResetMinValue());
  EXPECT_FALSE(whole.ResetMinValue() || whole.ResetMaxValue() || whole.ResetGranularity());
}

TEST(ParamValues, BinaryValueAsBufferAndBlock) {
  CParam param(PARAM_BINARY, u"b", 1);
  EXPECT_EQ(param.GetValueBinary().GetSize(), 0u);
  const unsigned char bytes[] = {9, 8, 7};
  EXPECT_FALSE(param.SetValueBinary(nullptr, 3));
  EXPECT_TRUE(param.SetValueBinary(bytes, 2) && param.SetValueBinary(bytes, 3));  // replaces
  EXPECT_EQ(param.GetNElements(P(u"Binary")), 1u);
  const CZMemory block = param.GetValueBinary();
  ASSERT_EQ(block.GetSize(), 3u);
  EXPECT_EQ(std::memcmp(static_cast<const void*>(block), bytes, 3), 0);
  unsigned char read[2] = {};
  EXPECT_TRUE(param.SetValueBinary(block));
  EXPECT_EQ(param.GetValueBinary(read, 2, 1), 2u);
  EXPECT_EQ(read[1], 7);
  EXPECT_EQ(param.GetValueBinary(read, 2, 3), 0u);

  qdtest::AssertCapture asserts;  // another type is reported and still read
  EXPECT_EQ(CParam(PARAM_DOUBLE, u"r", 3).GetValueBinary(nullptr, 0, 0), 0u);
  EXPECT_EQ(asserts.expressions(), std::vector<std::string>{"GetType() == PARAM_BINARY"});
}

TEST(ParamValues, PropertyTreeIsReplacedByAPrivateCopy) {
  CParam tree = Typed(u"SubProp");
  EXPECT_FALSE(tree.SetValueProperty(Element(u"Property")));
  CXMLObject first = Element(u"Propertys", {{u"n", u"1"}});
  EXPECT_TRUE(tree.SetValueProperty(first));
  first.SetAttribute(P(u"n"), u"changed");
  CXMLObject out;
  EXPECT_TRUE(tree.GetValueProperty(out));
  EXPECT_EQ(Attr(out, u"n"), "1");
  EXPECT_TRUE(tree.SetValueProperty(*tree.FindNextElement(P(u"Propertys"), nullptr)));
  EXPECT_TRUE(tree.SetValueProperty(Element(u"Propertys", {{u"n", u"2"}})));
  EXPECT_EQ(tree.GetNElements(P(u"Propertys")), 1u);
  qdtest::AssertCapture asserts;
  EXPECT_FALSE(CParam().GetValueProperty(out));
  EXPECT_EQ(asserts.reports().at(0).expression, "type == PARAM_SUBPROP");
}

TEST(ParamIdentity, NameIdAndNamedAccess) {
  CParam param(PARAM_DOUBLE, u"a<b", 42);
  EXPECT_EQ(param.GetName(), u"a<b");  // a child element: the text needs CDATA
  EXPECT_FALSE(param.HasAttribute(P(u"name")));
  EXPECT_EQ(param.GetID(), 42);
  EXPECT_EQ(CParam().GetID(), -1);  // 0xFFFFFFFF as a 32-bit id

  double d = 3;
  long l = 4;
  EXPECT_FALSE(param.GetValueDouble(P(u"x"), d) || param.GetValueLong(P(u"x"), l));
  EXPECT_EQ(d + l, 7);  // untouched
  EXPECT_TRUE(param.SetValueDouble(P(u"x"), 0.5) && param.SetValueLong(P(u"y"), -3));
  EXPECT_EQ(Attr(param, u"x") + Attr(param, u"y"), "0.500000000000-3");
  EXPECT_TRUE(param.GetValueDouble(P(u"x"), d) && param.GetValueLong(P(u"y"), l));
  EXPECT_EQ(d + l, -2.5);
}

TEST(ParamFlags, StatusInterpolationAlphaAndBinaryKind) {
  CParam param;
  bool inactive = false;
  EXPECT_FALSE(param.GetInactiveStatus(inactive));
  EXPECT_TRUE(param.SetInactiveStatus(true));
  EXPECT_EQ(Attr(param, u"active"), "False");
  EXPECT_TRUE(param.GetInactiveStatus(inactive) && inactive);
  CParam tree = Typed(u"SubProp");
  EXPECT_TRUE(tree.SetKeyFrameStatus(true));  // a property tree is never animated
  EXPECT_FALSE(tree.GetKeyFrameStatus());

  EXPECT_EQ(param.GetAllowedInterpolation(), 23u);
  EXPECT_TRUE(param.SetAllowedInterpolation(INTERPOLATION_HOLD | INTERPOLATION_NONE));
  EXPECT_EQ(Attr(param, u"interpolation"), "Hold;None");
  EXPECT_TRUE(param.SetAllowedInterpolation(0));
  EXPECT_EQ(param.GetAllowedInterpolation(), 23u);
  EXPECT_TRUE(param.SetAlphaHandling(ALPHA_REMOVE));
  EXPECT_EQ(param.GetAlphaHandling(), ALPHA_REMOVE);
  qdtest::AssertCapture asserts;
  EXPECT_TRUE(param.SetAlphaHandling(7));  // reported and taken as none
  EXPECT_FALSE(param.HasAttribute(P(u"alpha")));
  EXPECT_EQ(asserts.reports(), (qdtest::Reports{{"SetAlphaHandling - invalid type specified",
                                                 kIllegalCodePointReached, QD_SIG("SetAlphaHandling(unsigned int)")}}));

  const wchar* kinds[] = {u"SplitGraph", u"GeometryMask", u"ToneCurve", u"ColorWheel",
                          u"MaskMultiPolygon", u"MaskShapeDropper", u"splitgraph"};
  for (unsigned int bit = 0; bit < 7; ++bit) {
    param.SetValue(P(u"binaryInterpolationType"), kinds[bit]);
    EXPECT_EQ(param.GetBinaryInterpolationType(), bit < 6 ? 1u << bit : 0u);
  }
}

TEST(ParamLifetime, LoadTakesAttributesAndStoredValuesOnly) {
  CXMLObject xml = Element(u"Parameter", {{u"type", u"Long"}, {u"id", u"5"}});
  xml.Add(Element(u"Keyframe", {{u"position", u"0"}, {u"value", u"1"}}));
  for (const wchar* child : {u"value", u"name", u"Binary", u"Propertys", u"Propertys"}) xml.Add(Element(child));
  const CParam param(xml);
  EXPECT_EQ(param.GetType(), PARAM_LONG);
  EXPECT_EQ(param.GetID(), 5);
  EXPECT_EQ(param.GetNElements(u""), 3u);  // value, Binary, the first Propertys
  EXPECT_EQ(param.GetNElements(P(u"Propertys")), 1u);

  CXMLObject other = Element(u"Value", {{u"id", u"9"}});
  other.Add(Element(u"Binary"));
  const CParam fromValue(other);  // attributes come only from a "Parameter"
  EXPECT_TRUE(fromValue.IsName(P(u"Parameter")));
  EXPECT_EQ(fromValue.GetID(), -1);
  EXPECT_EQ(fromValue.GetNElements(P(u"Binary")), 1u);
}

TEST(ParamLifetime, FreeResetReferenceAndCopies) {
  CParam param(PARAM_LONG, u"p", 1);
  EXPECT_EQ(param.GetType(), PARAM_LONG);
  param.Free();
  EXPECT_EQ(param.GetType(), PARAM_LONG);  // the cache outlives Free, not Reset
  param.Reset();
  EXPECT_EQ(param.GetAttributeCount(), 0u);
  EXPECT_EQ(param.GetType(), PARAM_DOUBLE);

  CParam original(PARAM_BOOL, u"o", 2);
  EXPECT_TRUE(param.SetReference(original));
  EXPECT_EQ(param.GetType(), PARAM_BOOL);
  CParam copy(original);
  param = original;
  copy.SetName(u"copy");
  param.SetValueBool(true);
  EXPECT_EQ(original.GetName(), u"o");
  EXPECT_FALSE(original.HasAttribute(P(u"value")));
  EXPECT_EQ(copy.GetName(), u"copy");
}
