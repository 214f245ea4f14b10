// The keyframe list and the parameter list: growth, insertion, deletion,
// copies and the moves the memory block makes through the lists' hooks.
// Both share one implementation, so each behaviour runs on both.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/keyframelist.h"
#include "qdparam/param.h"
#include "qdparam/paramlist.h"

using namespace qdcore;

namespace {

// Each list with an element that carries a number.
struct KeyFrames {
  using List = CKeyFrameList;
  using Item = CKeyFrame;
  static Item Make(long n) {
    CKeyFrame kf(PARAM_LONG);
    kf.SetValueLong(n);
    return kf;
  }
  static long Number(const Item& kf) { return kf.GetValueLong(); }
  static void Renumber(Item& kf, long n) { kf.SetValueLong(n); }
};

struct Params {
  using List = CParamList;
  using Item = CParam;
  static Item Make(long n) { return CParam(PARAM_LONG, u"p", n); }
  static long Number(const Item& param) { return param.GetID(); }
  static void Renumber(Item& param, long n) { param.SetID(n); }
};

template <typename T>
class ListTest : public ::testing::Test {};

struct ListNames {
  template <typename T>
  static std::string GetName(int) {
    return std::is_same_v<T, KeyFrames> ? "KeyFrameList" : "ParamList";
  }
};
using Lists = ::testing::Types<KeyFrames, Params>;
TYPED_TEST_SUITE(ListTest, Lists, ListNames);

template <typename T>
typename T::List ListOf(std::initializer_list<long> numbers) {
  typename T::List list;
  for (long n : numbers) EXPECT_TRUE(list.Add(T::Make(n)));
  return list;
}

template <typename T>
std::vector<long> Numbers(const typename T::List& list) {
  unsigned int count = 0;
  const typename T::Item* items = list.GetArray(count);
  std::vector<long> numbers;
  for (unsigned int i = 0; i < count; ++i) numbers.push_back(T::Number(items[i]));
  return numbers;
}

template <typename T>
std::uint64_t Capacity(const typename T::List& list) {
  return list.GetAllocSize() / sizeof(typename T::Item);
}

using Numbered = std::vector<long>;

}  // namespace

TYPED_TEST(ListTest, AppendGrowsBy4Then8Then256) {
  struct Row {
    int appends;
    std::uint64_t capacity;
  } rows[] = {{4, 4}, {5, 12}, {37, 44}, {44, 44}, {45, 300}, {301, 556}};
  for (const Row& row : rows) {
    typename TypeParam::List list;
    for (int i = 0; i < row.appends; ++i) ASSERT_TRUE(list.Add(TypeParam::Make(i)));
    EXPECT_EQ(Capacity<TypeParam>(list), row.capacity) << row.appends;
    const Numbered numbers = Numbers<TypeParam>(list);
    ASSERT_EQ(numbers.size(), std::size_t(row.appends));
    for (int i = 0; i < row.appends; ++i) ASSERT_EQ(numbers[i], i);  // moves kept every element
  }
}

TYPED_TEST(ListTest, InsertGrowsBy1Then4AndPlacesBeforeIndex) {
  typename TypeParam::List list;
  EXPECT_TRUE(list.Insert(TypeParam::Make(1), 0));
  EXPECT_EQ(Capacity<TypeParam>(list), 1u);
  EXPECT_TRUE(list.Insert(TypeParam::Make(3), 5));  // past the end appends
  EXPECT_EQ(Capacity<TypeParam>(list), 5u);
  EXPECT_TRUE(list.Insert(TypeParam::Make(0), 0));
  EXPECT_TRUE(list.Insert(TypeParam::Make(2), 2));
  EXPECT_TRUE(list.Insert(TypeParam::Make(4), std::numeric_limits<unsigned int>::max()));
  EXPECT_TRUE(list.Insert(TypeParam::Make(5), 5));
  EXPECT_EQ(Capacity<TypeParam>(list), 9u);
  EXPECT_EQ(Numbers<TypeParam>(list), (Numbered{0, 1, 2, 3, 4, 5}));
}

TYPED_TEST(ListTest, DeleteShrinksAndReleasesTheBlockWithTheLastElement) {
  typename TypeParam::List list = ListOf<TypeParam>({0, 1, 2, 3});
  EXPECT_FALSE(list.Delete(4));
  EXPECT_FALSE(list.Delete(std::numeric_limits<unsigned int>::max()));
  EXPECT_TRUE(list.Delete(1));
  EXPECT_TRUE(list.Delete(2));  // the last one only shrinks the used size
  EXPECT_EQ(Numbers<TypeParam>(list), (Numbered{0, 2}));
  EXPECT_EQ(Capacity<TypeParam>(list), 4u);
  EXPECT_TRUE(list.Delete(0));
  EXPECT_TRUE(list.Delete(0));
  EXPECT_EQ(list.GetAllocSize(), 0u);
  unsigned int count = 7;
  EXPECT_EQ(list.GetArray(count), nullptr);
  EXPECT_EQ(count, 0u);
  EXPECT_FALSE(list.Delete(0));
  EXPECT_TRUE(list.Add(TypeParam::Make(9)));
  EXPECT_EQ(Numbers<TypeParam>(list), (Numbered{9}));
}

TYPED_TEST(ListTest, AddListAppendsExactlyTheOtherElements) {
  typename TypeParam::List list;
  EXPECT_TRUE(list.Add(typename TypeParam::List()));  // nothing to add, no block made
  EXPECT_EQ(list.GetAllocSize(), 0u);
  EXPECT_TRUE(list.Add(ListOf<TypeParam>({1, 2})));  // into an empty list: a block copy
  EXPECT_EQ(Capacity<TypeParam>(list), 2u);
  EXPECT_TRUE(list.Add(ListOf<TypeParam>({3})));
  EXPECT_EQ(Capacity<TypeParam>(list), 7u);  // count + m + 4
  EXPECT_TRUE(list.Add(ListOf<TypeParam>({4, 5, 6})));  // fits
  EXPECT_EQ(Capacity<TypeParam>(list), 7u);
  EXPECT_TRUE(list.Add(list));
  EXPECT_EQ(Capacity<TypeParam>(list), 16u);
  EXPECT_EQ(Numbers<TypeParam>(list), (Numbered{1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 6}));
}

TYPED_TEST(ListTest, OwnElementsCanBeAddedAndInsertedWhileTheListMoves) {
  typename TypeParam::List list = ListOf<TypeParam>({0, 1, 2, 3});  // full: the next one moves
  unsigned int count = 0;
  EXPECT_TRUE(list.Add(list.GetArray(count)[0]));
  EXPECT_TRUE(list.Insert(list.GetArray(count)[3], 0));
  EXPECT_TRUE(list.Insert(list.GetArray(count)[0], 2));
  EXPECT_EQ(Numbers<TypeParam>(list), (Numbered{3, 0, 3, 1, 2, 3, 0}));
}

TYPED_TEST(ListTest, CopiesShareNothingWritable) {
  typename TypeParam::List source = ListOf<TypeParam>({1, 2, 3});
  unsigned int count = 0;
  CKeyFrame kf(PARAM_LONG);
  kf.SetValueLong(4);
  if constexpr (std::is_same_v<TypeParam, Params>) source.GetArray(count)[0].Add(kf, 1.0, false);
  typename TypeParam::List copy(source);
  typename TypeParam::List assigned = ListOf<TypeParam>({9});
  assigned = source;
  TypeParam::Renumber(copy.GetArray(count)[0], 10);
  TypeParam::Renumber(assigned.GetArray(count)[2], 30);
  assigned.Delete(1);
  EXPECT_EQ(Numbers<TypeParam>(source), (Numbered{1, 2, 3}));
  EXPECT_EQ(Numbers<TypeParam>(copy), (Numbered{10, 2, 3}));
  EXPECT_EQ(Numbers<TypeParam>(assigned), (Numbered{1, 30}));
  if constexpr (std::is_same_v<TypeParam, Params>) {  // the parameters' keyframes too
    copy.GetArray(count)[0].Get(0)->SetValueLong(40);
    EXPECT_EQ(source.GetArray(count)[0].Get(0)->GetValueLong(), 4);
  }
}

// A move leaves released elements that own nothing in the slots the moved
// ones no longer occupy, so that dropping those bytes leaks nothing.
TYPED_TEST(ListTest, MoveHookVacatesOnlyTheSlotsLeftBehind) {
  using Item = typename TypeParam::Item;
  struct Probe : TypeParam::List {
    using TypeParam::List::RelocateMemory;
  };
  struct Slots {
    alignas(Item) unsigned char bytes[3 * sizeof(Item)];
  };
  // `from`, `to`: the first slot of the two moved elements; 3 and on: another block.
  struct Row { int from, to; std::vector<int> vacated; } rows[] = {{0, 3, {0, 1}}, {0, 1, {0}}, {1, 0, {2}}};
  for (const Row& row : rows) {
    Slots slots[2];
    auto at = [&](int i) { return reinterpret_cast<Item*>(slots[i / 3].bytes) + i % 3; };
    new (at(row.from)) Item(TypeParam::Make(1));
    new (at(row.from + 1)) Item(TypeParam::Make(2));
    Probe().RelocateMemory(at(row.from), 2 * sizeof(Item), at(row.to), 2 * sizeof(Item), row.to >= 3 ? 0 : 1);
    EXPECT_EQ(TypeParam::Number(*at(row.to)), 1);
    EXPECT_EQ(TypeParam::Number(*at(row.to + 1)), 2);
    for (int i : row.vacated) {
      EXPECT_FALSE(*at(i)) << row.from << " to " << row.to;
      if constexpr (std::is_same_v<Item, CKeyFrame>) {
        EXPECT_EQ(at(i)->m_Type, PARAM_LONG);  // of the moved ones' type
      }
    }
    at(row.to)->~Item();
    at(row.to + 1)->~Item();
    for (int i : row.vacated) at(i)->~Item();
  }
}

TEST(ListElements, KeyframesRelocateBytewiseWithTheirDefinition) {
  CParam param(PARAM_DOUBLE, u"p", 3);
  param.SetMaxValueDouble(2.0);
  alignas(CKeyFrame) unsigned char from[sizeof(CKeyFrame)], to[sizeof(CKeyFrame)];
  new (from) CKeyFrame(param);
  std::memcpy(to, from, sizeof(CKeyFrame));  // the original is now just bytes
  CKeyFrame& moved = *reinterpret_cast<CKeyFrame*>(to);
  moved.SetValueDouble(5.0);  // still clamps with the definition it carried
  EXPECT_EQ(moved.GetValueDouble(), 2.0);
  moved.~CKeyFrame();
}
