// The keyframe list: growth, insertion, deletion, copies and the moves the
// memory block makes through the list's hooks.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/keyframelist.h"

using namespace qdcore;

namespace {

CKeyFrame Numbered(long n) {
  CKeyFrame kf(PARAM_LONG);
  kf.SetValueLong(n);
  return kf;
}

CKeyFrameList ListOf(std::initializer_list<long> values) {
  CKeyFrameList list;
  for (long v : values) list.Add(Numbered(v));
  return list;
}

std::vector<long> Values(const CKeyFrameList& list) {
  unsigned int count = 0;
  const CKeyFrame* kf = list.GetArray(count);
  std::vector<long> values;
  for (unsigned int i = 0; i < count; ++i) values.push_back(kf[i].GetValueLong());
  return values;
}

std::uint64_t Capacity(const CKeyFrameList& list) { return list.GetAllocSize() / sizeof(CKeyFrame); }

// Reaches the hooks the memory block calls.
class ProbeList : public CKeyFrameList {
 public:
  using CKeyFrameList::RelocateMemory;
};

// Raw slots for keyframes outside any list.
struct Slots {
  alignas(CKeyFrame) unsigned char bytes[3 * sizeof(CKeyFrame)];
  CKeyFrame* at(int i) { return reinterpret_cast<CKeyFrame*>(bytes) + i; }
};

}  // namespace

TEST(KeyFrameList, AppendGrowsBy4Then8Then256) {
  struct Row {
    int appends;
    std::uint64_t capacity;
  } rows[] = {{1, 4}, {4, 4}, {5, 12}, {12, 12}, {13, 20}, {36, 36}, {37, 44}, {44, 44}, {45, 300}, {301, 556}};
  for (const Row& row : rows) {
    CKeyFrameList list;
    for (int i = 0; i < row.appends; ++i) ASSERT_TRUE(list.Add(Numbered(i)));
    EXPECT_EQ(Capacity(list), row.capacity) << row.appends;
    const std::vector<long> values = Values(list);
    ASSERT_EQ(values.size(), std::size_t(row.appends));
    for (int i = 0; i < row.appends; ++i) ASSERT_EQ(values[i], i);  // moves kept every keyframe
  }
}

TEST(KeyFrameList, InsertGrowsBy1Then4AndPlacesBeforeIndex) {
  CKeyFrameList list;
  EXPECT_TRUE(list.Insert(Numbered(1), 0));
  EXPECT_EQ(Capacity(list), 1u);
  EXPECT_TRUE(list.Insert(Numbered(3), 5));  // past the end appends
  EXPECT_EQ(Capacity(list), 5u);
  EXPECT_TRUE(list.Insert(Numbered(0), 0));
  EXPECT_TRUE(list.Insert(Numbered(2), 2));
  EXPECT_TRUE(list.Insert(Numbered(4), std::numeric_limits<unsigned int>::max()));
  EXPECT_TRUE(list.Insert(Numbered(5), 5));
  EXPECT_EQ(Capacity(list), 9u);
  EXPECT_EQ(Values(list), (std::vector<long>{0, 1, 2, 3, 4, 5}));
}

TEST(KeyFrameList, Delete) {
  CKeyFrameList list;
  unsigned int count = 7;
  EXPECT_EQ(list.GetArray(count), nullptr);
  EXPECT_EQ(count, 0u);
  EXPECT_FALSE(list.Delete(0));
  list = ListOf({0, 1, 2, 3});
  EXPECT_FALSE(list.Delete(4));
  EXPECT_FALSE(list.Delete(std::numeric_limits<unsigned int>::max()));
  EXPECT_TRUE(list.Delete(1));
  EXPECT_EQ(Values(list), (std::vector<long>{0, 2, 3}));
  EXPECT_TRUE(list.Delete(2));  // the last one only shrinks the used size
  EXPECT_EQ(Values(list), (std::vector<long>{0, 2}));
  EXPECT_EQ(Capacity(list), 4u);
  EXPECT_TRUE(list.Delete(0));
  EXPECT_TRUE(list.Delete(0));  // the only one releases the block
  EXPECT_EQ(list.GetAllocSize(), 0u);
  EXPECT_TRUE(list.Add(Numbered(9)));
  EXPECT_EQ(Values(list), (std::vector<long>{9}));
}

TEST(KeyFrameList, AddListAppendsExactlyTheOtherKeyframes) {
  CKeyFrameList list;
  EXPECT_TRUE(list.Add(ListOf({1, 2})));  // into an empty list: a block copy
  EXPECT_EQ(Values(list), (std::vector<long>{1, 2}));
  EXPECT_EQ(Capacity(list), 2u);
  EXPECT_TRUE(list.Add(ListOf({3})));
  EXPECT_EQ(Capacity(list), 7u);  // count + m + 4
  EXPECT_TRUE(list.Add(ListOf({4, 5, 6})));  // fits
  EXPECT_EQ(Capacity(list), 7u);
  EXPECT_EQ(Values(list), (std::vector<long>{1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(list.Add(list));
  EXPECT_EQ(Capacity(list), 16u);
  EXPECT_EQ(Values(list), (std::vector<long>{1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 6}));
}

TEST(KeyFrameList, OwnKeyframesCanBeAddedAndInsertedWhileTheListMoves) {
  CKeyFrameList list = ListOf({0, 1, 2, 3});  // full: the next one moves the block
  unsigned int count = 0;
  EXPECT_TRUE(list.Add(list.GetArray(count)[0]));
  EXPECT_TRUE(list.Insert(list.GetArray(count)[3], 0));
  EXPECT_TRUE(list.Insert(list.GetArray(count)[0], 2));
  EXPECT_EQ(Values(list), (std::vector<long>{3, 0, 3, 1, 2, 3, 0}));
}

TEST(KeyFrameList, CopiesShareNothingWritable) {
  const CKeyFrameList source = ListOf({1, 2, 3});
  CKeyFrameList copy(source);
  CKeyFrameList assigned;
  assigned.Add(Numbered(9));
  assigned = source;
  unsigned int count = 0;
  copy.GetArray(count)[0].SetValueLong(10);
  assigned.GetArray(count)[2].SetValueLong(30);
  assigned.Delete(1);
  EXPECT_EQ(Values(source), (std::vector<long>{1, 2, 3}));
  EXPECT_EQ(Values(copy), (std::vector<long>{10, 2, 3}));
  EXPECT_EQ(Values(assigned), (std::vector<long>{1, 30}));
}

TEST(KeyFrameList, MoveHookLeavesReleasedKeyframesOfTheSameType) {
  Slots from, to;
  new (from.at(0)) CKeyFrame(Numbered(1));
  new (from.at(1)) CKeyFrame(Numbered(2));
  ProbeList probe;
  probe.RelocateMemory(from.bytes, 2 * sizeof(CKeyFrame), to.bytes, 3 * sizeof(CKeyFrame), 0);
  EXPECT_EQ(to.at(0)->GetValueLong(), 1);
  EXPECT_EQ(to.at(1)->GetValueLong(), 2);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(from.at(i)->m_Type, PARAM_LONG);
    EXPECT_FALSE(*from.at(i));  // owns nothing: dropping its bytes leaks nothing
    from.at(i)->~CKeyFrame();
    to.at(i)->~CKeyFrame();
  }
}

TEST(KeyFrameList, KeyframesAndParametersRelocateBytewise) {
  CParam param(PARAM_DOUBLE, u"p", 3);
  param.SetMaxValueDouble(2.0);
  Slots from, to;
  new (from.at(0)) CKeyFrame(param);
  std::memcpy(to.bytes, from.bytes, sizeof(CKeyFrame));  // the original is now just bytes
  CKeyFrame& moved = *to.at(0);
  moved.SetValueDouble(5.0);  // still clamps with the definition it carried
  EXPECT_EQ(moved.GetValueDouble(), 2.0);
  moved.~CKeyFrame();

  alignas(CParam) unsigned char a[sizeof(CParam)], b[sizeof(CParam)];
  new (a) CParam(param);
  std::memcpy(b, a, sizeof(CParam));
  CParam& relocated = *reinterpret_cast<CParam*>(b);
  EXPECT_EQ(relocated.GetID(), 3);
  relocated.SetValueDouble(1.5);
  relocated.~CParam();
}
