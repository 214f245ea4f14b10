// The parameter list: growth, insertion, deletion, copies and the moves the
// memory block makes through the list's hooks.
#include <gtest/gtest.h>

#include <limits>
#include <new>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/paramlist.h"

using namespace qdcore;

namespace {

CParam Numbered(long id) { return CParam(PARAM_LONG, u"p", id); }

CParamList ListOf(std::initializer_list<long> ids) {
  CParamList list;
  for (long id : ids) list.Add(Numbered(id));
  return list;
}

std::vector<long> Ids(const CParamList& list) {
  unsigned int count = 0;
  const CParam* params = list.GetArray(count);
  std::vector<long> ids;
  for (unsigned int i = 0; i < count; ++i) ids.push_back(params[i].GetID());
  return ids;
}

std::uint64_t Capacity(const CParamList& list) { return list.GetAllocSize() / sizeof(CParam); }

// Reaches the hooks the memory block calls.
class ProbeList : public CParamList {
 public:
  using CParamList::RelocateMemory;
};

// Raw slots for parameters outside any list.
struct Slots {
  alignas(CParam) unsigned char bytes[3 * sizeof(CParam)];
  CParam* at(int i) { return reinterpret_cast<CParam*>(bytes) + i; }
};

}  // namespace

TEST(ParamList, AppendGrowsBy4Then8Then256) {
  struct Row {
    int appends;
    std::uint64_t capacity;
  } rows[] = {{1, 4}, {4, 4}, {5, 12}, {36, 36}, {37, 44}, {44, 44}, {45, 300}, {301, 556}};
  for (const Row& row : rows) {
    CParamList list;
    for (int i = 0; i < row.appends; ++i) ASSERT_TRUE(list.Add(Numbered(i)));
    EXPECT_EQ(Capacity(list), row.capacity) << row.appends;
    const std::vector<long> ids = Ids(list);
    ASSERT_EQ(ids.size(), std::size_t(row.appends));
    for (int i = 0; i < row.appends; ++i) ASSERT_EQ(ids[i], i);  // moves kept every parameter
  }
}

TEST(ParamList, InsertGrowsBy1Then4AndPlacesBeforeIndex) {
  CParamList list;
  EXPECT_TRUE(list.Insert(Numbered(1), 0));
  EXPECT_EQ(Capacity(list), 1u);
  EXPECT_TRUE(list.Insert(Numbered(3), 7));  // past the end appends
  EXPECT_EQ(Capacity(list), 5u);
  EXPECT_TRUE(list.Insert(Numbered(0), 0));
  EXPECT_TRUE(list.Insert(Numbered(2), 2));
  EXPECT_TRUE(list.Insert(Numbered(4), std::numeric_limits<unsigned int>::max()));
  EXPECT_TRUE(list.Insert(Numbered(5), 5));
  EXPECT_EQ(Capacity(list), 9u);
  EXPECT_EQ(Ids(list), (std::vector<long>{0, 1, 2, 3, 4, 5}));
}

TEST(ParamList, DeleteShrinksAndReleasesTheBlockWithTheLastParameter) {
  CParamList list = ListOf({0, 1, 2, 3});
  EXPECT_FALSE(list.Delete(4));
  EXPECT_TRUE(list.Delete(1));
  EXPECT_TRUE(list.Delete(2));
  EXPECT_EQ(Ids(list), (std::vector<long>{0, 2}));
  EXPECT_EQ(Capacity(list), 4u);
  EXPECT_TRUE(list.Delete(0));
  EXPECT_TRUE(list.Delete(0));
  EXPECT_EQ(list.GetAllocSize(), 0u);
  unsigned int count = 7;
  EXPECT_EQ(list.GetArray(count), nullptr);
  EXPECT_EQ(count, 0u);
  EXPECT_FALSE(list.Delete(0));
}

TEST(ParamList, AddListAppendsExactlyTheOtherParameters) {
  CParamList list;
  EXPECT_TRUE(list.Add(CParamList()));  // nothing to add, no block made
  EXPECT_EQ(list.GetAllocSize(), 0u);
  EXPECT_TRUE(list.Add(ListOf({1, 2})));  // into an empty list: a block copy
  EXPECT_EQ(Capacity(list), 2u);
  EXPECT_TRUE(list.Add(ListOf({3})));
  EXPECT_EQ(Capacity(list), 7u);  // count + m + 4
  EXPECT_TRUE(list.Add(ListOf({4, 5, 6})));  // fits: no growth, still exactly count + m
  EXPECT_EQ(Capacity(list), 7u);
  EXPECT_EQ(Ids(list), (std::vector<long>{1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(list.Add(list));
  EXPECT_EQ(Ids(list), (std::vector<long>{1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 6}));
}

TEST(ParamList, OwnParametersCanBeAddedAndInsertedWhileTheListMoves) {
  CParamList list = ListOf({0, 1, 2, 3});  // full: the next one moves the block
  unsigned int count = 0;
  EXPECT_TRUE(list.Add(list.GetArray(count)[0]));
  EXPECT_TRUE(list.Insert(list.GetArray(count)[3], 0));
  EXPECT_TRUE(list.Insert(list.GetArray(count)[0], 2));
  EXPECT_EQ(Ids(list), (std::vector<long>{3, 0, 3, 1, 2, 3, 0}));
}

TEST(ParamList, CopiesShareNothingWritable) {
  CParamList source = ListOf({1, 2, 3});
  unsigned int count = 0;
  CKeyFrame kf(PARAM_LONG);
  kf.SetValueLong(4);
  source.GetArray(count)[0].Add(kf, mtime(1.0), false);
  CParamList copy(source);
  CParamList assigned = ListOf({9});
  assigned = source;
  copy.GetArray(count)[0].SetID(10);
  copy.GetArray(count)[0].Get(0)->SetValueLong(40);
  assigned.GetArray(count)[2].SetID(30);
  assigned.Delete(1);
  EXPECT_EQ(Ids(source), (std::vector<long>{1, 2, 3}));
  EXPECT_EQ(source.GetArray(count)[0].Get(0)->GetValueLong(), 4);
  EXPECT_EQ(Ids(copy), (std::vector<long>{10, 2, 3}));
  EXPECT_EQ(Ids(assigned), (std::vector<long>{1, 30}));
}

// A move leaves empty parameters that own nothing in the slots the moved
// ones no longer occupy, so that dropping those bytes leaks nothing.
TEST(ParamList, MoveHookVacatesOnlyTheSlotsLeftBehind) {
  struct Row {
    int from, to;  // first slot of the two moved parameters; 3 and on: another block
    std::vector<int> vacated;
  } rows[] = {{0, 3, {0, 1}}, {0, 1, {0}}, {1, 0, {2}}};
  for (const Row& row : rows) {
    Slots slots[2];
    auto at = [&](int i) { return slots[i / 3].at(i % 3); };
    new (at(row.from)) CParam(Numbered(1));
    new (at(row.from + 1)) CParam(Numbered(2));
    ProbeList().RelocateMemory(at(row.from), 2 * sizeof(CParam), at(row.to), 2 * sizeof(CParam),
                               row.to >= 3 ? 0 : 1);
    EXPECT_EQ(at(row.to)->GetID(), 1);
    EXPECT_EQ(at(row.to + 1)->GetID(), 2);
    for (int i : row.vacated) EXPECT_FALSE(*at(i)) << row.from << " to " << row.to;
    at(row.to)->~CParam();
    at(row.to + 1)->~CParam();
    for (int i : row.vacated) at(i)->~CParam();
  }
}
