// Host core: pooled strings, time, memory blocks, identifiers, numbers,
// formatting, assertion routine, trace levels and folders.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "qdcore/core.h"
#include "qdcore/file.h"
#include "qdcore/log.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;

// ---- Pooled strings and time

TEST(PoolString, TextNumbersSuffixesAndCopies) {
  const CZPoolString none, fromEmpty(u""), fromNull(static_cast<const wchar*>(nullptr));
  for (const CZPoolString* s : {&none, &fromEmpty, &fromNull}) {  // empty and absent are one
    EXPECT_TRUE(!*s && s->len() == 0u && *s == none);
    EXPECT_STREQ(reinterpret_cast<const char*>(s->c_str()), "");  // never null
  }
  const CZPoolString a(u"value"), c(u"Value");
  EXPECT_TRUE(a == CZPoolString(u"value") && a == u"value" &&
              a == CStringPool::GetStringRef(u"value"));
  EXPECT_TRUE(a != c && !(a == c) && a.len() == 5u);
  EXPECT_TRUE(CZPoolString(-42) == u"-42" && CZPoolString(0L) == u"0");
  EXPECT_TRUE(CZPoolString(static_cast<long>(INT32_MIN)) == u"-2147483648");
  const CZPoolString time(u"2.5fs");
  EXPECT_TRUE(time.cmp_p(u"fs") == 0 && time.cmp_p(u"s") == 0 && time.cmp_p(u"") == 0);
  EXPECT_NE(time.cmp_p(u"%"), 0);
  EXPECT_NE(CZPoolString(u"s").cmp_p(u"fs"), 0);  // longer suffix than text
  EXPECT_NE(CZPoolString().cmp_p(u"s"), 0);
  // Copies share the text and outlive the original.
  CZPoolString copy;
  {
    CZPoolString original(u"keyframe");
    copy = original;
    EXPECT_EQ(copy.c_str(), original.c_str());
    CZPoolString moved(std::move(original));
    EXPECT_FALSE(original);  // NOLINT: moved-from is empty by contract
    EXPECT_TRUE(moved == u"keyframe");
  }
  copy = copy;  // self-assignment keeps the text
  EXPECT_TRUE(copy == u"keyframe");
}

TEST(PoolString, InterningAndCopiesAcrossThreads) {
  constexpr int kThreads = 8;
  const CZPoolString shared(u"shared text");
  std::vector<const wchar*> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &seen, &shared] {
      for (int i = 0; i < 2000; ++i) {
        CStringPool::GetStringRef(u"name" + std::u16string(1, static_cast<wchar>(u'a' + i % 26)));
        CZPoolString copy = shared;
        ASSERT_EQ(copy.len(), 11u);
      }
      seen[t] = CStringPool::GetStringRef(u"interned-across-threads").c_str();
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const wchar* text : seen) EXPECT_EQ(text, seen[0]);
  EXPECT_TRUE(CStringPool::GetStringRef(u"namez").same(CStringPool::GetStringRef(u"namez")));
}

TEST(Time, ArithmeticOrderingAndUnassigned) {
  const mtime a = 1.5, b = 0.5;
  EXPECT_EQ(static_cast<double>((a + b) + (a - b) + (-a) + a / 3.0 + a * 2.0 + 2.0 * a), 8.0);
  EXPECT_TRUE(b < a && b <= a && a > b && a >= b && !(a == b));
  EXPECT_TRUE(a < 2.0 && a > 1.0 && a >= 1.5 && a == 1.5);
  EXPECT_TRUE(mtime() == mtime::null && mtime::null.isassigned() && mtime(-1e300).isassigned());
  // Unassigned is shorter than any time.
  EXPECT_FALSE(mtime::unassigned.isassigned() || mtime::unassigned >= 0.0);
  EXPECT_TRUE(mtime::unassigned < mtime(-1e300) && mtime::unassigned < 0.0);
}

// ---- Memory blocks

namespace {

// A block of ints that counts what the block's hooks are asked to do.
struct Counters {
  int moves = 0, moved = 0, copies = 0, cleared = 0;
};

class CountedList : public CZMemory {
 public:
  explicit CountedList(Counters& counters) : m_counters(&counters) {}
  CountedList(const CountedList& other) : CZMemory(), m_counters(other.m_counters) {
    *this = other;
  }
  CountedList& operator=(const CountedList& other) {
    CZMemory::operator=(other);
    return *this;
  }
  ~CountedList() override { Free(); }

  bool Add(int value) {
    const std::uint64_t count = Count();
    if ((count + 1) * sizeof(int) > GetAllocSize() && !Realloc((count + 4) * sizeof(int)))
      return false;
    SetSize((count + 1) * sizeof(int));
    Items()[count] = value;
    return true;
  }
  std::uint64_t Count() const { return GetSize() / sizeof(int); }
  int* Items() { return static_cast<int*>(static_cast<void*>(*this)); }

 protected:
  bool ClearForRelease() override {
    m_counters->cleared += static_cast<int>(Count());
    return true;
  }
  void RelocateMemory(void* from, std::uint64_t fromSize, void* to, std::uint64_t toSize,
                      int mode) override {
    CZMemory::RelocateMemory(from, fromSize, to, toSize, mode);
    ++(mode < 2 ? m_counters->moves : m_counters->copies);
    if (mode < 2) m_counters->moved += static_cast<int>(std::min(fromSize, toSize) / sizeof(int));
  }

 private:
  Counters* m_counters;
};

}  // namespace

TEST(Memory, HooksMoveCopyAndReleaseEachElementOnce) {
  Counters counters;
  {
    CountedList list(counters);
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(list.Add(i));
    EXPECT_EQ(list.Count(), 10u);
    EXPECT_EQ(counters.moves, 2);  // 4 -> 8 -> 12 slots; the first allocation moves nothing
    EXPECT_EQ(counters.moved, 4 + 8);
    EXPECT_EQ(counters.cleared, 0);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(list.Items()[i], i);
  }
  EXPECT_EQ(counters.cleared, 10);  // each element released exactly once
  // Copies go through the hook into independent storage.
  CountedList a(counters);
  a.Add(1);
  a.Add(2);
  CountedList b(a);
  EXPECT_EQ(counters.copies, 1);
  ASSERT_EQ(b.Count(), 2u);
  b.Items()[0] = 99;
  EXPECT_EQ(a.Items()[0], 1);
  CountedList c(counters);
  c.Add(7);
  c = a;  // releases c's own element first
  EXPECT_EQ(counters.cleared, 11);
  EXPECT_EQ(c.Items()[1], 2);
  c = c;
  EXPECT_EQ(c.Count(), 2u);
}

TEST(Memory, SizesAllocFreeAndCopies) {
  CZMemory block;
  const auto sizes = [&] { return std::pair(block.GetSize(), block.GetAllocSize()); };
  using Sizes = std::pair<std::uint64_t, std::uint64_t>;
  EXPECT_TRUE(!block && static_cast<const void*>(block) == nullptr);
  ASSERT_TRUE(block.Alloc(16));
  EXPECT_TRUE(block);
  EXPECT_EQ(sizes(), (Sizes{16, 16}));
  EXPECT_TRUE(block.SetSize(8));
  EXPECT_EQ(sizes(), (Sizes{8, 16}));
  EXPECT_FALSE(block.SetSize(100));  // clamped to the allocation
  EXPECT_EQ(sizes(), (Sizes{16, 16}));
  EXPECT_TRUE(block.Realloc(CZMemory::kKeepSize));
  EXPECT_EQ(sizes(), (Sizes{16, 16}));
  EXPECT_FALSE(block.Realloc(4));  // below the used size
  EXPECT_TRUE(block.Realloc(32));
  EXPECT_EQ(sizes(), (Sizes{16, 32}));
  EXPECT_FALSE(block.Alloc(std::uint64_t{1} << 62));  // refused, not thrown
  EXPECT_FALSE(block);
  block.Free();
  EXPECT_EQ(block.GetSize(), 0u);
  EXPECT_TRUE(!CZMemory::pnull && CZMemory::pnull.GetSize() == 0u);
  // Plain blocks copy their bytes.
  ASSERT_TRUE(block.Alloc(4));
  std::memcpy(static_cast<void*>(block), "abcd", 4);
  CZMemory copy(block);
  static_cast<char*>(static_cast<void*>(copy))[0] = 'z';
  EXPECT_EQ(std::memcmp(static_cast<const void*>(block), "abcd", 4), 0);
  CZMemory moved(std::move(copy));
  EXPECT_EQ(std::memcmp(static_cast<const void*>(moved), "zbcd", 4), 0);
}

namespace {

struct Rule {
  static int live;
  std::vector<int> items;
  static void Construct(void* at) { new (at) Rule(), ++live; }
  static void Copy(void* at, const void* from) {
    new (at) Rule(*static_cast<const Rule*>(from)), ++live;
  }
  static void Destruct(void* at) { static_cast<Rule*>(at)->~Rule(), --live; }
};
int Rule::live = 0;
const tagCZOVTABL kRuleKind = {&Rule::Construct, &Rule::Copy, &Rule::Destruct};
const tagCZOVTABL kOtherKind = {&Rule::Construct, &Rule::Copy, &Rule::Destruct};
Rule& RuleIn(CZObjectMemory& block) { return *static_cast<Rule*>(static_cast<void*>(block)); }

}  // namespace

TEST(ObjectMemory, HoldsOneObjectOfAKind) {
  {
    CZObjectMemory block;
    EXPECT_FALSE(block || block.IsAssignable(sizeof(Rule), &kRuleKind));
    ASSERT_TRUE(block.Alloc(sizeof(Rule), &kRuleKind));
    EXPECT_TRUE(block.IsAssignable(sizeof(Rule), &kRuleKind));
    EXPECT_FALSE(block.IsAssignable(sizeof(Rule), &kOtherKind));
    RuleIn(block).items.push_back(3);
    CZObjectMemory copy(block);
    RuleIn(copy).items.push_back(4);
    EXPECT_EQ(RuleIn(block).items.size(), 1u);
    EXPECT_EQ(Rule::live, 2);
    copy = CZObjectMemory();
    EXPECT_EQ(Rule::live, 1);
    EXPECT_FALSE(block.Alloc(sizeof(Rule), nullptr));
    EXPECT_EQ(Rule::live, 0);
  }
  EXPECT_EQ(Rule::live, 0);
}

// ---- Identifiers and numbers

TEST(Guid, DistinctValuesWithARoundTrippingUpperCaseText) {
  std::set<std::u16string> texts;
  for (int i = 0; i < 100; ++i) {
    CGUID id, back;
    ASSERT_TRUE(id.create());
    texts.insert(std::u16string(id.GetString().view()));
    ASSERT_TRUE(back.parse(id.GetString()));
    EXPECT_TRUE(back == id && !(back < id || id < back));
  }
  EXPECT_EQ(texts.size(), 100u);
  CGUID id, other;
  for (int i = 0; i < 16; ++i) id.bytes[i] = static_cast<unsigned char>(0xA0 + i);
  EXPECT_TRUE(id.GetString() == u"{A0A1A2A3-A4A5-A6A7-A8A9-AAABACADAEAF}");
  for (const wchar* bad :
       {u"", u"{A0A1A2A3-A4A5-A6A7-A8A9-AAABACADAEA}", u"{A0A1A2A3-A4A5-A6A7-A8A9-AAABACADAEAG}",
        u"A0A1A2A3-A4A5-A6A7-A8A9-AAABACADAEAF00", u"{A0A1A2A3+A4A5-A6A7-A8A9-AAABACADAEAF}"}) {
    EXPECT_FALSE(other.parse(bad)) << ToUtf8(bad);
  }
  EXPECT_TRUE(other == CGUID() && CGUID() < id);
}

TEST(Numbers, ParsingReadsAPrefixInTheCLocaleAndSaturates) {
  struct Real {
    const wchar* text;
    double value;
    int used;
  } reals[] = {
      {u"2.5s", 2.5, 3}, {u"  -0.125", -0.125, 8}, {u"1e3fs", 1000.0, 3},       {u"+4", 4.0, 2},
      {u"abc", 0.0, 0},  {u".5%", 0.5, 2},         {u"0.300000000000", 0.3, 14}};
  for (const Real& c : reals) {
    const wchar* end = nullptr;
    EXPECT_EQ(ParseDouble(c.text, &end), c.value) << ToUtf8(c.text);
    EXPECT_EQ(end - c.text, c.used) << ToUtf8(c.text);
  }
  EXPECT_EQ(ParseDouble(nullptr), 0.0);
  EXPECT_TRUE(std::isinf(ParseDouble(u"1e999")));
  // A run of digits longer than any stack copy still reads exactly.
  EXPECT_EQ(ParseDouble((u"1" + std::u16string(300, u'0') + u"e-300").c_str()), 1.0);
  const std::pair<const wchar*, std::int32_t> ints[] = {{u"42", 42},
                                                        {u"\t-7x", -7},
                                                        {u"+2.9", 2},
                                                        {u"abc", 0},
                                                        {u"2147483647", INT32_MAX},
                                                        {u"2147483648", INT32_MAX},
                                                        {u"-2147483648", INT32_MIN},
                                                        {u"-99999999999999999999", INT32_MIN}};
  for (const auto& [text, value] : ints) EXPECT_EQ(ParseInt(text), value) << ToUtf8(text);
  // Truncation follows the hardware: out of range is INT32_MIN.
  const std::pair<double, std::int32_t> truncated[] = {{2.9, 2},
                                                       {-2.9, -2},
                                                       {-2147483648.9, INT32_MIN},
                                                       {2147483647.9, INT32_MAX},
                                                       {2147483648.0, INT32_MIN},
                                                       {std::nan(""), INT32_MIN},
                                                       {-HUGE_VAL, INT32_MIN}};
  for (const auto& [value, expected] : truncated)
    EXPECT_EQ(TruncateToInt32(value), expected) << value;
}

TEST(Numbers, Utf8RoundTripAndRejection) {
  const std::u16string text = u"a\u00e9\u20ac\U0001F600z";
  std::u16string back;
  ASSERT_TRUE(FromUtf8(ToUtf8(text), back));
  EXPECT_EQ(back, text);
  EXPECT_EQ(ToUtf8(std::u16string(1, u'\xD800')), "\xEF\xBF\xBD");  // lone surrogate
  for (const char* bad : {"\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"}) {
    EXPECT_FALSE(FromUtf8(bad, back)) << bad;
  }
}

// ---- Formatting, reports and trace

TEST(Format, TheSubsetTheLibraryUses) {
  struct Case {
    std::u16string actual;
    std::u16string expected;
  } cases[] = {
      {FormatString(u"%d|%5d|%-4d|%05d", 7, -3, 2, 42), u"7|   -3|2   |00042"},
      {FormatString(u"%u %x %X", 4000000000u, 255u, 255u), u"4000000000 ff FF"},
      {FormatString(u"%ld %lld %zu", 5L, -6LL, std::size_t{7}), u"5 -6 7"},
      {FormatString(u"%.12f%s", 2.5, u"fs"), u"2.500000000000fs"},
      {FormatString(u"%8.3f|%-8.2f|%f", 3.14159, -1.5, 1.0), u"   3.142|-1.50   |1.000000"},
      {FormatString(u"%s|%6s|%-6s|%.2s", u"ab", u"cd", u"ef", u"ghij"), u"ab|    cd|ef    |gh"},
      {FormatString(u"%s", static_cast<const wchar*>(nullptr)), u"(null)"},
      {FormatString(u"100%% %c", u'\u00e9'), u"100% \u00e9"},
      {FormatString(u"%*d|%.*f", 4, 1, 1, 2.25), u"   1|2.2"},
      {FormatString(u"%s", u"\U0001F600"), u"\U0001F600"},
      {FormatString(u"%q %", 1), u"%q %"},
      {FormatString(u"%e %g", 1500.0, 0.5), u"1.500000e+03 0.5"},
  };
  for (const Case& c : cases) EXPECT_EQ(ToUtf8(c.actual), ToUtf8(c.expected));
  EXPECT_EQ(FormatString(u"%.12f", 1e300).size(), 314u);  // past any stack buffer
  // A bounded buffer truncates and reports the needed length.
  wchar buffer[6];
  EXPECT_EQ(FormatBuffer(buffer, 6, u"%d-%d", 123, 456), 7);
  EXPECT_EQ(std::u16string(buffer), u"123-4");
  EXPECT_EQ(FormatBuffer(nullptr, 0, u"%s", u"abc"), 3);
}

// Reals take a shorter road than the C library's printf; the text must not
// differ from printf's in any digit, for any value or precision.
TEST(Format, RealsAreTheCLibrarysTextToTheDigit) {
  std::mt19937_64 random(7);
  std::vector<double> values = {0.0,         -0.0,      0.5,      2.5,       1e-320, -1e300,
                                123456789.0, 0.1 + 0.2, INFINITY, -INFINITY, NAN,    -NAN};
  for (int i = 0; i < 2000; ++i) {
    values.push_back(std::bit_cast<double>(random()));
    values.push_back(std::ldexp(double(random() % 2000000) - 1e6, int(random() % 80) - 40));
  }
  for (const char* format : {"%f", "%e", "%g", "%.12f", "%.0f", "%.3e", "%.0g", "%.17g", "%.40f"}) {
    std::u16string wide(format, format + std::strlen(format));
    for (const double v : values) {
      char expected[512];
      std::snprintf(expected, sizeof expected, format, v);
      ASSERT_EQ(ToUtf8(FormatString(wide.c_str(), v)), expected) << format << " " << v;
    }
  }
}

TEST(Assertion, ReportsReachTheInstalledHandler) {
  qdtest::AssertCapture capture;
  EXPECT_FALSE(DetailedMessageBox("m_Type == PARAM_UNDEFINED", kRuntimeAssumptionFailed, "f.cpp",
                                  12, "sig1"));
  EXPECT_FALSE(DetailedMessageBox(u"pXML \u00e9", kIllegalCodePointReached, "f.cpp", 13, "sig"));
  ReportFailure("x", kRuntimeAssumptionFailed, "f.cpp", 14, "sig2");
  EXPECT_EQ(capture.reports(),
            (qdtest::Reports{{"m_Type == PARAM_UNDEFINED", "Runtime assumption failed", "sig1"},
                             {"pXML \xC3\xA9", "Illegal code point reached", "sig"},
                             {"x", "Runtime assumption failed", "sig2"}}));
  EXPECT_FALSE(IsDebuggerPresent());
}

TEST(Trace, LevelsGateByCategory) {
  qdtest::TraceCapture capture(398, 6);
  EXPECT_TRUE(wPrintf_IsUserLevelActive(398, 5) && wPrintf_IsUserLevelActive(398, 6));
  EXPECT_FALSE(wPrintf_IsUserLevelActive(398, 7) || wPrintf_IsUserLevelActive(835, 1));
  wPrintf_SetUserLevel(1 << 20, 3);  // categories beyond the direct table
  EXPECT_TRUE(wPrintf_IsUserLevelActive(1 << 20, 3));
  EXPECT_FALSE(wPrintf_IsUserLevelActive(1 << 20, 4));
  wPrintf(398, 6, u"param (id: %s, value: %.12f)\n", u"7", 0.5);
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_EQ(capture.lines()[0].category, 398);
  EXPECT_EQ(capture.text(), "param (id: 7, value: 0.500000000000)\n");
}

// ---- Folders

TEST(Files, TempPathCreateAndDelete) {
  qdtest::TempDir temp;
  const std::u16string base(QF_GetTempPath().view());
  EXPECT_EQ(base, qdtest::Wide(temp.path() + "/"));
  const std::u16string folder = base + u"QWTEST";
  EXPECT_FALSE(QF_IsDirectory(folder.c_str()));
  ASSERT_TRUE(QF_CreateDirectory(folder.c_str()));
  ASSERT_TRUE(QF_CreateDirectory(folder.c_str()));  // already there is fine
  qdtest::WriteFile(ToUtf8(folder) + "/a.qws", "x");
  std::filesystem::create_directory(ToUtf8(folder) + "/sub");
  qdtest::WriteFile(ToUtf8(folder) + "/sub/b.qws", "y");
  EXPECT_TRUE(QF_DeleteDirectory((folder + u"/*.*").c_str(), 1, 1));
  EXPECT_FALSE(QF_IsDirectory(folder.c_str()));
  EXPECT_FALSE(QF_DeleteDirectory((folder + u"/*.*").c_str(), 1, 1));  // nothing to delete
  EXPECT_FALSE(QF_CreateDirectory(u"/proc/qdparam-cannot-be-here"));
}
