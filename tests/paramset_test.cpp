// The parameter set: lifetime and times, lookup by attribute text, editing
// and alpha handling.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qdparam/paramset.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::P;

namespace {

CParam Named(const wchar* name, long id) { return CParam(PARAM_DOUBLE, name, id); }

// A parameter whose "id" attribute holds exactly `text`.
CParam WithIdText(const wchar* name, const wchar* text) {
  CParam param(PARAM_DOUBLE, name, 0);
  param.SetAttribute(P(u"id"), text);
  return param;
}

CParamSet SetOf(std::initializer_list<long> ids) {
  CParamSet set;
  for (long id : ids) EXPECT_TRUE(set.Add(Named(u"p", id)));
  return set;
}

std::vector<long> Ids(const CParamSet& set) {
  std::vector<long> ids;
  for (const CParam* p = set.FindNextParam(nullptr); p; p = set.FindNextParam(p)) ids.push_back(p->GetID());
  return ids;
}

}  // namespace

TEST(ParamSet, ResetRestoresTheDefaultsAndFreeDropsEverything) {
  CParamSet fresh, set = SetOf({1, 2});
  set.SetAttribute(P(u"alpha"), u"Remove");
  set.SetStartTime(10.0);
  set.SetDuration(4.0);
  set.Reset();
  for (const CParamSet* empty : {&fresh, &set}) {
    EXPECT_TRUE(empty->IsName(u"Property"));
    EXPECT_EQ(empty->GetAttributeCount() + empty->GetSize(), 0u);
    EXPECT_EQ(double(empty->GetStartTime()), 0.0);
    EXPECT_EQ(double(empty->GetDuration()), 1.0);
  }
  set = SetOf({1});
  set.SetStartTime(10.0);
  set.Free();
  EXPECT_FALSE(set);  // no element, not even its name
  EXPECT_EQ(set.GetSize(), 0u);
  EXPECT_FALSE(set.GetStartTime().isassigned());  // released, not restored
  set.SetStartTime(3.0);  // usable again
  EXPECT_EQ(double(set.GetStartTime()), 3.0);
}

TEST(ParamSet, LooksUpByAttributeTextFirstMatchFirstWithoutAllocating) {
  CParamSet set;
  const wchar* params[][2] = {
      {u"padded", u"07"}, {u"seven", u"7"}, {u"again", u"7"}, {u"big", u"2147483647"}, {u"zero", u"0"}};
  for (const auto& [name, id] : params) ASSERT_TRUE(set.Add(WithIdText(name, id)));
  struct Row { unsigned long id; const char* name; /* null: not found */ } rows[] = {
      {7, "seven"},  // the text 7, not 07, and the first of two
      {0x7FFFFFFF, "big"}, {0x100000007ul, "seven"},  // taken as a 32-bit number
      {0, "zero"},   {8, nullptr}, {0xFFFFFFFFul, nullptr}};  // -1: no stored parameter has it
  for (const Row& row : rows) {
    const CParam* found = set.Get(row.id);
    EXPECT_EQ(found ? ToUtf8(found->GetName().view()) : "(none)", row.name ? row.name : "(none)") << row.id;
  }
  EXPECT_EQ(set.Get(P(u"again")), set.FindNextParam(set.Get(7ul)));
  EXPECT_EQ(set.Get(P(u"missing")), nullptr);
  EXPECT_TRUE(set.Get(P(u"id"), CZPoolString(u"07"))->GetName() == P(u"padded"));
  for (long id = 0; id < 50; ++id) set.Add(Named(u"p", id));
  set.Add(Named(u"last", 50));
  const CZPoolString last = P(u"last");
  const std::size_t before = qdtest::AllocationCount();
  const CParam* byId = set.Get(50ul);
  const CParam* byName = set.Get(last);
  EXPECT_EQ(qdtest::AllocationCount(), before);
  EXPECT_TRUE(byId && byId == byName);
}

TEST(ParamSet, RefusesParametersWithoutContentOrWithNegativeIds) {
  CParam empty = Named(u"e", 1);
  empty.Free();
  CParam noId(PARAM_DOUBLE, u"n", 0);
  noId.DeleteAttribute(P(u"id"));
  for (const CParam& param : {empty, noId, Named(u"negative", -1), WithIdText(u"text", u"-3")}) {
    CParamSet set = SetOf({1});
    EXPECT_FALSE(set.Add(param) || set.Insert(param, 0u) || set.Insert(param, set.FindNextParam(nullptr)));
    EXPECT_EQ(Ids(set), (std::vector<long>{1}));
  }
}

TEST(ParamSet, InsertsAtAnIndexOrBehindAParameter) {
  CParamSet set = SetOf({1, 2, 3});
  EXPECT_TRUE(set.Insert(Named(u"p", 10), 1u));
  EXPECT_TRUE(set.Insert(Named(u"p", 11), 99u));  // appends, growing as Add does
  EXPECT_TRUE(set.Insert(Named(u"p", 12), nullptr));  // first
  EXPECT_TRUE(set.Insert(Named(u"p", 13), set.Get(11ul)));  // behind the last: appends
  EXPECT_TRUE(set.Insert(Named(u"p", 14), set.Get(10ul)));
  const CParam outsider = Named(u"x", 1);
  EXPECT_TRUE(set.Insert(Named(u"p", 15), &outsider));  // not ours: first
  EXPECT_EQ(Ids(set), (std::vector<long>{15, 12, 1, 10, 14, 2, 3, 11, 13}));
}

TEST(ParamSet, RemovesByIndexOrPointerAndReportsIndexesOutOfRange) {
  qdtest::AssertCapture reports;
  CParamSet set = SetOf({1, 2, 3});
  EXPECT_TRUE(set.Remove(1u));
  EXPECT_TRUE(set.Remove(set.Get(3ul)));
  EXPECT_EQ(Ids(set), (std::vector<long>{1}));
  const CParam outsider = Named(u"x", 1);
  EXPECT_EQ(set.FindNextParam(&outsider), nullptr);
  EXPECT_FALSE(set.Remove(&outsider) || set.Remove(static_cast<const CParam*>(nullptr)));  // quietly
  EXPECT_TRUE(reports.reports().empty());
  EXPECT_FALSE(set.Remove(1u));
  EXPECT_EQ(reports.reports(), (qdtest::Reports{{"Remove - out of boundary access", "Illegal code point reached",
                                                 "bool __cdecl qdcore::CParamSet::Remove(unsigned int)"}}));
  EXPECT_TRUE(set.Remove(set.FindNextParam(nullptr)));
  EXPECT_EQ(set.FindNextParam(nullptr), nullptr);
  EXPECT_FALSE(set.Remove(&outsider));
}

TEST(ParamSet, AlphaHandlingIsTheAlphaAttribute) {
  struct Row { unsigned int type; const char* attribute; unsigned int readBack; const char* report; } rows[] = {
      {ALPHA_GENERATE, "Generate", ALPHA_GENERATE, nullptr}, {ALPHA_REMOVE, "Remove", ALPHA_REMOVE, nullptr},
      {ALPHA_NONE, "", ALPHA_NONE, nullptr}, {3, "", ALPHA_NONE, "SetAlphaHandling - invalid type specified"}};
  for (const Row& row : rows) {
    qdtest::AssertCapture reports;
    CParamSet set;
    set.SetAttribute(P(u"alpha"), u"Generate");
    EXPECT_TRUE(set.SetAlphaHandling(row.type));
    EXPECT_EQ(qdtest::Attr(set, u"alpha"), row.attribute) << row.type;
    EXPECT_EQ(set.GetAlphaHandling(), row.readBack) << row.type;
    EXPECT_EQ(reports.expressions(), qdtest::OneOrNone(row.report)) << row.type;
  }
}
