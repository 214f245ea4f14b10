// The host XML object model: attributes, shared storage, children, data,
// the writers and the reader.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::Element, qdtest::P, qdtest::Wide, qdtest::WideText;

namespace {

std::string Label(const wchar* text) { return text ? ToUtf8(text) : "(absent)"; }

// An element whose attribute "a" holds `text` (null: absent).
CXMLObject With(const wchar* text) { return text ? Element(u"e", {{u"a", text}}) : Element(u"e"); }

// A parameter with two keyframes: the shape the library reads and writes.
CXMLObject SampleParameter() {
  CXMLObject parameter =
      Element(u"Parameter", {{u"id", u"1"}, {u"name", u"radius"}, {u"value", u"8.5"}});
  parameter.Add(Element(u"Keyframe", {{u"position", u"0"}, {u"value", u"4"}}));
  parameter.Add(Element(u"Keyframe", {{u"position", u"1"}, {u"value", u"2"}}));
  return parameter;
}

const tagXMLFLAGMAP kColours[] = {
    {0, P(u"None")}, {1, P(u"Red")}, {2, P(u"Green")}, {4, P(u"Blue")}, {6, P(u"Cyan")}};
const CZPoolString kA = P(u"a");

}  // namespace

// ---- Attributes

TEST(XmlAttributes, NumbersBooleansFlagsAndIndexesReadTheirText) {
  struct Number {
    const wchar* text;
    long asInt;
    double asDouble;
  } numbers[] = {{u"42", 42, 42.0},
                 {u"2.5s", 2, 2.5},
                 {u"-7.75", -7, -7.75},
                 {u"\t+12px", 12, 12.0},
                 {u"1e3", 1, 1000.0},
                 {u"abc", 0, 0.0},
                 {u"", 0, 0.0},
                 {nullptr, -5, -5.5},  // absent: the default
                 {u"99999999999", 2147483647, 99999999999.0}};
  for (const Number& c : numbers) {
    EXPECT_EQ(With(c.text).FindAttributeInt(kA, -5), c.asInt) << Label(c.text);
    EXPECT_EQ(With(c.text).FindAttributeDouble(kA, -5.5), c.asDouble) << Label(c.text);
  }
  // Six words are known; anything else gives the default.
  struct Bool {
    const wchar* text;
    bool whenFalse, whenTrue;
  } bools[] = {{u"True", 1, 1},  {u"true", 1, 1}, {u"1", 1, 1},    {u"False", 0, 0},
               {u"false", 0, 0}, {u"0", 0, 0},    {u"TRUE", 0, 1}, {u"", 0, 1},
               {u" true", 0, 1}, {u"10", 0, 1},   {nullptr, 0, 1}};
  for (const Bool& c : bools) {
    EXPECT_EQ(With(c.text).FindAttributeBool(kA, false), c.whenFalse) << Label(c.text);
    EXPECT_EQ(With(c.text).FindAttributeBool(kA, true), c.whenTrue) << Label(c.text);
  }
  // Flags and indexes are trimmed entries of a list.
  struct Entry {
    const wchar* text;
    unsigned flags, index;
  } entries[] = {{u"Red|Blue", 5, ~0u},   {u" Red |  Green\t", 3, ~0u},
                 {u"Red|Purple", 1, ~0u}, {u"||Blue||", 4, ~0u},
                 {u"Cyan", 6, ~0u},       {u"Red Green", 0, ~0u},
                 {u"red", 0, ~0u},        {u"Hold", 0, 0},
                 {u"Linear", 0, 1},       {u"", 0, 3},
                 {u"Spline", 0, 4},       {u"linear", 0, ~0u},
                 {u" Linear", 0, ~0u},    {nullptr, 0, ~0u}};
  for (const Entry& c : entries) {
    EXPECT_EQ(With(c.text).FindAttributeFlags(kA, kColours, 5, u'|'), c.flags) << Label(c.text);
    EXPECT_EQ(With(c.text).FindAttributeIndex(kA, u"Hold; Linear ;Bezier;;Spline", u';'), c.index)
        << Label(c.text);
  }
  EXPECT_EQ(With(u"Hold").FindAttributeIndex(kA, nullptr, u';'), ~0u);
}

TEST(XmlAttributes, FlagsWriteNamesOfSetValuesInTableOrder) {
  struct Case {
    unsigned flags;
    const wchar* expected;
  } cases[] = {{5, u"Red,Blue"}, {0, u""}, {6, u"Green,Blue,Cyan"}, {8, u""}};
  for (const Case& c : cases) {
    CXMLObject element(P(u"e"));
    ASSERT_TRUE(element.SetAttribute(kA, c.flags, kColours, 5, u','));
    EXPECT_TRUE(element.FindAttribute(kA) == c.expected) << c.flags;
    EXPECT_EQ(element.FindAttributeFlags(kA, kColours, 5, u','), c.flags & 7u) << c.flags;
  }
}

TEST(XmlAttributes, SetAddDeleteAndMergeKeepOrderAndMatchNamesByText) {
  CXMLObject element = Element(u"e", {{u"a", u"1"}, {u"b", u"2"}});
  EXPECT_TRUE(element.AddAttribute(P(u"c"), P(u"3")));
  EXPECT_TRUE(element.AddAttribute(P(u"a"), P(u"10")));  // existing: takes the text
  EXPECT_TRUE(element.SetAttribute(P(u"b"), static_cast<const wchar*>(nullptr)));
  EXPECT_FALSE(element.SetAttribute(CZPoolString(), u"x"));
  EXPECT_TRUE(element.DeleteAttribute(P(u"c")));
  EXPECT_FALSE(element.DeleteAttribute(P(u"c")));
  EXPECT_TRUE(element.SprintfAttribute(P(u"f"), u"%.3f|%d", 0.25, -3));
  CGUID id;
  id.bytes[0] = 0xAB;
  EXPECT_TRUE(element.SetAttribute(P(u"id"), id));
  const CZPoolString idText = id.GetString();
  const wchar* expected[][2] = {{u"a", u"10"}, {u"b", u""}, {u"f", u"0.250|-3"}, {u"id", idText}};
  ASSERT_EQ(element.GetAttributeCount(), 4u);
  CZPoolString name, text;
  for (unsigned i = 0; i < 4; ++i) {
    ASSERT_TRUE(element.GetAttribute(i, name, text));
    EXPECT_TRUE(name == expected[i][0] && text == expected[i][1]) << i;
  }
  EXPECT_FALSE(element.GetAttribute(4, name, text));
  EXPECT_TRUE(element.HasAttribute(P(u"b")));  // present with empty text
  // Names match by text, pooled or not.
  element.SetAttribute(CZPoolString(u"beta"), u"2");
  EXPECT_TRUE(element.FindAttribute(CZPoolString(u"a")) == u"10");
  EXPECT_TRUE(element.FindAttribute(P(u"beta")) == u"2" && element.FindAttribute(u"beta") == u"2");
  EXPECT_FALSE(element.HasAttribute(P(u"gamma")));
  EXPECT_FALSE(element.FindAttribute(static_cast<const wchar*>(nullptr)));
  // A merge appends new names and overwrites only when asked.
  const CXMLObject other = Element(u"o", {{u"y", u"20"}, {u"z", u"30"}, {u"w", u"40"}});
  for (bool overwrite : {false, true}) {
    CXMLObject merged = Element(u"e", {{u"x", u"1"}, {u"y", u"2"}});
    EXPECT_TRUE(merged.MergeAttributes(other, overwrite));
    EXPECT_EQ(
        WideText(merged),
        WideText(Element(
            u"e", {{u"x", u"1"}, {u"y", overwrite ? u"20" : u"2"}, {u"z", u"30"}, {u"w", u"40"}})));
  }
  EXPECT_TRUE(element.MergeAttributes(element, true));
  EXPECT_EQ(element.GetAttributeCount(), 5u);
}

TEST(XmlAttributes, ReadsAllocateNothing) {
  CXMLObject element = Element(u"Keyframe",
                               {{u"position", u"0.5"},
                                {u"value", u"12.25s"},
                                {u"smooth", u"True"},
                                {u"mode", u"Red|Blue"},
                                {u"kind", u"Linear"}},
                               u"AAECAw==");
  const CZPoolString pooled = P(u"value"), unpooled(u"kind"), missing = P(u"missing");
  const CZPoolString position = P(u"position"), smooth = P(u"smooth"), mode = P(u"mode");
  unsigned char bytes[4];
  EXPECT_EQ(element.GetDataBinary(bytes, 4), 4u);  // first read decodes and caches
  const std::size_t before = qdtest::AllocationCount();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(element.FindAttributeDouble(pooled) + element.FindAttributeInt(position, 0), 12.25);
  }
  EXPECT_TRUE(element.HasAttribute(unpooled) && !element.HasAttribute(missing));
  EXPECT_TRUE(element.FindAttribute(pooled) == u"12.25s" &&
              element.FindAttribute(u"kind") == u"Linear");
  EXPECT_TRUE(element.FindAttributeBool(smooth));
  EXPECT_EQ(element.FindAttributeFlags(mode, kColours, 5, u'|'), 5u);
  EXPECT_EQ(element.FindAttributeIndex(unpooled, u"Hold,Linear", u','), 1u);
  EXPECT_EQ(element.GetDataBinarySize() + element.GetDataBinary(bytes, 4, 1), 7u);
  EXPECT_EQ(qdtest::AllocationCount(), before);
}

// ---- Shared storage

TEST(XmlStorage, WritesThroughACopyNeverShowInTheOriginal) {
  const std::pair<const char*, std::function<void(CXMLObject&)>> writes[] = {
      {"SetName", [](CXMLObject& e) { e.SetName(P(u"Other")); }},
      {"SetAttribute", [](CXMLObject& e) { e.SetAttribute(P(u"value"), u"9"); }},
      {"DeleteAttribute", [](CXMLObject& e) { e.DeleteAttribute(P(u"id")); }},
      {"MergeAttributes",
       [](CXMLObject& e) {
         e.MergeAttributes(Element(u"x", {{u"id", u"7"}}), true);
       }},
      {"Add", [](CXMLObject& e) { e.Add(Element(u"Keyframe")); }},
      {"Delete", [](CXMLObject& e) { e.Delete(std::as_const(e).item(0)); }},
      {"DeleteElements", [](CXMLObject& e) { e.DeleteElements(); }},
      {"Set text", [](CXMLObject& e) { e.Set(u"text"); }},
      {"Set bytes", [](CXMLObject& e) { e.Set(reinterpret_cast<const unsigned char*>("ab"), 2); }},
      {"child via item", [](CXMLObject& e) { e.item(1)->SetAttribute(P(u"value"), u"0"); }},
      {"child via FindNextElement",
       [](CXMLObject& e) { e.FindNextElement(P(u"Keyframe"), nullptr)->Set(u"x"); }},
      {"child via GetElements",
       [](CXMLObject& e) {
         unsigned n = 0;
         e.GetElements(n)[1].Free();
       }},
      {"Reassign", [](CXMLObject& e) { e.Reassign(Element(u"Fresh")); }},
      {"Free", [](CXMLObject& e) { e.Free(); }},
  };
  const CXMLObject pristine = SampleParameter();
  for (const auto& [label, write] : writes) {
    CXMLObject original = SampleParameter();
    CXMLObject copy = original;
    write(copy);
    EXPECT_TRUE(original.IsEqual(pristine)) << label;
    EXPECT_FALSE(copy.IsEqual(pristine)) << label;
    CXMLObject copy2 = original;  // and the other way round
    write(original);
    EXPECT_TRUE(copy2.IsEqual(pristine)) << label;
  }
}

TEST(XmlStorage, HandedOutChildPointersNeverWriteIntoCopies) {
  CXMLObject original = SampleParameter();
  original.item(0)->Add(Element(u"Anchor", {{u"value", u"1"}}));
  CXMLObject* child = original.item(0);
  CXMLObject* grandchild = child->item(0);
  const CXMLObject copy = original;  // taken while the pointers are out
  CXMLObject assigned, reassigned;
  assigned = original;
  reassigned.Reassign(original);
  const CXMLObject snapshot = copy;
  child->SetAttribute(P(u"value"), u"changed");
  grandchild->Set(u"changed");
  child->Add(Element(u"Extra"));
  for (const CXMLObject* other : {&copy, &std::as_const(assigned), &std::as_const(reassigned)}) {
    EXPECT_TRUE(other->item(0)->FindAttribute(P(u"value")) == u"4");
    EXPECT_FALSE(other->item(0)->item(0)->GetData());
    EXPECT_TRUE(other->IsEqual(snapshot));
  }
  EXPECT_TRUE(original.item(0)->FindAttribute(P(u"value")) == u"changed");
}

TEST(XmlStorage, ReallocAndSelfAdditionMakePrivateCopies) {
  CXMLObject a = SampleParameter();
  CXMLObject b = a;
  EXPECT_EQ(std::as_const(b).item(0), std::as_const(a).item(0));  // shared until a write
  EXPECT_TRUE(b.Realloc());
  EXPECT_NE(std::as_const(b).item(0), std::as_const(a).item(0));
  CXMLObject empty;
  EXPECT_TRUE(empty.Realloc());
  EXPECT_FALSE(empty);
  // Adding an element to itself adds its old self, without a cycle.
  ASSERT_TRUE(b.Add(b));
  ASSERT_EQ(b.GetNElements(CZPoolString()), 3u);
  EXPECT_TRUE(b.item(2)->IsEqual(a));
  EXPECT_FALSE(b.Add(CXMLObject()));
  EXPECT_EQ(WideText(b).size(), 2 * WideText(a).size());
}

TEST(XmlStorage, ConcurrentReadsOfSharedBinaryData) {
  std::vector<unsigned char> bytes(3000);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 7);
  CXMLObject element(P(u"Blob"));
  element.Set(bytes.data(), bytes.size());
  element.Set(element.GetData());  // as base64 text: each reader wants it decoded
  std::vector<std::thread> threads;
  std::vector<int> good(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t, copy = element] {
      std::vector<unsigned char> out(bytes.size());
      for (int i = 0; i < 200; ++i)
        good[t] += copy.GetDataBinary(out.data(), out.size()) == bytes.size() && out == bytes;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, std::vector<int>(4, 200));
}

// ---- Children

// A watch hears of writes to what was observed through it, by tag, and of
// nothing else; storage that two watches read tells both.
TEST(XmlWatch, NotesTheTagsOfItsOwnStorageOnly) {
  struct WatchRef {
    CXMLWatch* w = CXMLWatch::Create();
    ~WatchRef() { w->Abandon(); }
  } mine, theirs;
  std::vector<std::uint32_t> tags;
  CXMLObject a = Element(u"A"), b = Element(u"B");
  a.Observe(*mine.w, 3);
  b.Observe();
  const std::uint64_t epoch = XMLWriteEpoch();
  std::uint64_t changes = mine.w->Changes();
  a.SetAttribute(P(u"x"), u"1");
  EXPECT_EQ(XMLWriteEpoch(), epoch) << "a watched write is the watch's alone";
  EXPECT_GT(mine.w->Changes(), changes);
  ASSERT_TRUE(mine.w->TakeNoted(tags));
  EXPECT_EQ(tags, std::vector<std::uint32_t>{3});
  changes = mine.w->Changes();
  b.SetAttribute(P(u"x"), u"1");
  EXPECT_GT(XMLWriteEpoch(), epoch);
  EXPECT_EQ(mine.w->Changes(), changes);

  for (int i = 0; i < 100; ++i) a.SetAttribute(P(u"x"), u"2");  // more than are kept
  EXPECT_FALSE(mine.w->TakeNoted(tags));
  ASSERT_TRUE(mine.w->TakeNoted(tags));
  EXPECT_TRUE(tags.empty());

  mine.w->StartReading();
  CXMLObject twice = a;  // one storage under two tags in one reading
  a.Observe(*mine.w, 1);
  twice.Observe(*mine.w, 2);
  a.Free();  // drops it: both tags are told
  ASSERT_TRUE(mine.w->TakeNoted(tags));
  std::sort(tags.begin(), tags.end());
  EXPECT_EQ(tags, (std::vector<std::uint32_t>{1, 2}));

  CXMLObject shared = Element(u"C"), copy = shared;
  shared.Observe(*mine.w, 5);
  copy.Observe(*theirs.w, 7);
  copy.SetAttribute(P(u"x"), u"1");  // the copy leaves the shared storage
  ASSERT_TRUE(mine.w->TakeNoted(tags));
  EXPECT_EQ(tags, std::vector<std::uint32_t>{5});
  ASSERT_TRUE(theirs.w->TakeNoted(tags));
  EXPECT_EQ(tags, std::vector<std::uint32_t>{7});
}

TEST(XmlChildren, Navigation) {
  CXMLObject root(P(u"Property"));
  for (const wchar* name : {u"Parameter", u"Validation", u"Parameter", u"Parameter"}) {
    root.Add(Element(name, {}, name));
  }
  root.item(2)->SetAttribute(P(u"id"), u"2");
  const CXMLObject& view = root;
  std::vector<unsigned> byPointer, byCursor;
  for (auto* p = view.FindNextElement(P(u"Parameter"), nullptr); p;
       p = view.FindNextElement(P(u"Parameter"), p)) {
    byPointer.push_back(static_cast<unsigned>(p - view.item(0)));
  }
  for (unsigned at = 0; view.FindFirstElement(CZPoolString(u"Parameter"), at); ++at)
    byCursor.push_back(at);
  EXPECT_EQ(byPointer, (std::vector<unsigned>{0, 2, 3}));
  EXPECT_EQ(byCursor, byPointer);
  EXPECT_EQ(view.GetNElements(P(u"Parameter")), 3u);
  EXPECT_TRUE(view.FindElementData(P(u"Validation")) == u"Validation");
  EXPECT_FALSE(view.FindElementData(P(u"None")));
  EXPECT_EQ(view.item(4), nullptr);

  const CXMLObject stranger(P(u"Parameter"));
  EXPECT_EQ(view.FindNextElement(P(u"Parameter"), &stranger), nullptr);
  unsigned cursor = 7;
  EXPECT_EQ(view.FindFirstElement(CZPoolString(), cursor), nullptr);
  EXPECT_EQ(cursor, 7u);
  CXMLObject* second = root.FindNextElement(P(u"Parameter"), root.item(0));
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(second->FindAttribute(P(u"id")) == u"2");

  EXPECT_FALSE(root.Delete(&stranger));
  EXPECT_TRUE(root.Delete(root.item(1)));
  EXPECT_EQ(root.GetNElements(P(u"Validation")), 0u);
  EXPECT_TRUE(root.DeleteElements());
  unsigned count = 1;
  EXPECT_EQ(root.GetElements(count), nullptr);
  EXPECT_EQ(count, 0u);
}

// ---- Data

TEST(XmlData, BinaryReadsHonourOffsetAndSize) {
  const unsigned char bytes[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  CXMLObject binary(P(u"b"));
  binary.Set(bytes, sizeof bytes);
  const CXMLObject text = Element(u"t", {}, binary.GetData());  // the same bytes as base64 text
  struct Case {
    std::uint64_t size, offset, expected;
  } cases[] = {{4, 0, 4},  {20, 0, 10}, {4, 8, 2},     {4, 10, 0},
               {4, 11, 0}, {0, 3, 0},   {~0ull, 9, 1}, {4, ~0ull, 0}};
  for (const CXMLObject* element : {&std::as_const(binary), &text}) {
    EXPECT_EQ(element->GetDataBinarySize(), 10u);
    for (const Case& c : cases) {
      unsigned char out[32];
      std::memset(out, 0xEE, sizeof out);
      ASSERT_EQ(element->GetDataBinary(out, c.size, c.offset), c.expected)
          << c.size << "@" << c.offset;
      for (std::uint64_t i = 0; i < c.expected; ++i) EXPECT_EQ(out[i], bytes[c.offset + i]);
      EXPECT_EQ(out[c.expected], 0xEE);  // nothing past the count
    }
  }
  EXPECT_EQ(binary.GetDataBinary(nullptr, 4), 0u);
  EXPECT_FALSE(binary.Set(nullptr, 3));
}

TEST(XmlData, TextDecodesAsBase64) {
  struct Case {
    const wchar* text;
    const char* bytes; /* null: not base64 */
  } cases[] = {{u"", ""},          {u"QQ==", "A"},      {u"QUI=", "AB"},        {u"QUJD", "ABC"},
               {u"QQ", "A"},       {u"QUI", "AB"},      {u" QU\nJD\t", "ABC"},  {u"Q", nullptr},
               {u"QQ=A", nullptr}, {u"QQ===", nullptr}, {u"QUJD!", nullptr},    {u"QUJ=", "AB"},
               {u"QQ=", nullptr},  {u"=QUJ", nullptr},  {u"QU\u00e9D", nullptr}};
  for (const Case& c : cases) {
    const CXMLObject element = Element(u"e", {}, c.text);
    const std::string expected = c.bytes ? c.bytes : "";
    ASSERT_EQ(element.GetDataBinarySize(), expected.size()) << ToUtf8(c.text);
    std::string out(expected.size(), '\0');
    element.GetDataBinary(reinterpret_cast<unsigned char*>(out.data()), out.size());
    EXPECT_EQ(out, expected) << ToUtf8(c.text);
    EXPECT_FALSE(element.HasBinaryData());
  }
  CXMLObject element = Element(u"e", {}, u"QUJD");
  EXPECT_EQ(element.GetDataBinarySize(), 3u);
  element.Set(u"QQ==");  // a write drops the decoded copy
  EXPECT_EQ(element.GetDataBinarySize(), 1u);
  const unsigned char bytes[] = {0xFF, 0x00, 0x7F, 0x80};
  CXMLObject binary(P(u"e"));
  binary.Set(bytes, sizeof bytes);
  EXPECT_TRUE(binary.HasBinaryData() && binary.GetData() == u"/wB/gA==");
  element.Set(u"/wB/gA==");  // equal to its text
  EXPECT_TRUE(element.IsEqual(binary) && binary.IsEqual(element));
  element.Set(u"/wB/gQ==");
  EXPECT_FALSE(binary.IsEqual(element));
}

TEST(XmlData, CdataIsRequiredForMarkupQuotesAndControls) {
  struct Case {
    const wchar* text;
    bool required;
  } cases[] = {{u"plain text 1.5", false},
               {u"", false},
               {u"a<b", true},
               {u"a>b", true},
               {u"a&b", true},
               {u"say \"x\"", true},
               {u"it's", true},
               {u"tab\there", true},
               {u"\x1f", true},
               {u"\u00e9\U0001F600", false}};
  for (const Case& c : cases) {
    EXPECT_EQ(CXMLObject::CDATARequired(c.text), c.required) << ToUtf8(c.text);
    EXPECT_EQ(CXMLObject::CDATARequired(std::u16string_view(c.text)), c.required) << ToUtf8(c.text);
  }
  EXPECT_FALSE(CXMLObject::CDATARequired(static_cast<const wchar*>(nullptr)));
}

// ---- Writers

TEST(XmlWriter, MemoryOutputIsCompactAndEscaped) {
  CXMLObject root = Element(u"a", {{u"q", u"<\"&'>\t\n\r\x01"}});
  root.Add(Element(u"t", {}, u"x]]>y"));
  root.Add(Element(u"r", {}, u"a\r\n<b>&\x02"));
  root.Add(Element(u"e"));
  EXPECT_EQ(WideText(root),
            u"<a q=\"&lt;&quot;&amp;'&gt;&#9;&#10;&#13;&#1;\">"
            u"<t><![CDATA[x]]]]><![CDATA[>y]]></t><r>a&#13;\n&lt;b&gt;&amp;&#2;</r><e/></a>");
}

TEST(XmlWriter, FileOutputIndentsExceptInsideData) {
  qdtest::TempDir temp;
  const std::string path = temp.path() + "/out.xml";
  CXMLObject root = Element(u"Property", {{u"name", u"Glow \u00e9"}});
  CXMLObject parameter = Element(u"Parameter", {{u"id", u"1"}});
  parameter.Add(Element(u"Keyframe"));
  root.Add(parameter);
  CXMLObject mixed = Element(u"Note", {}, u"hi \U0001F600");
  mixed.Add(Element(u"Inner"));
  root.Add(mixed);
  CXMLFileOut out(1);
  ASSERT_TRUE(out.Open(Wide(path).c_str()));
  EXPECT_TRUE(out.IsOpen() && out.Write(root) && out.Close());
  EXPECT_FALSE(out.IsOpen());
  EXPECT_EQ(qdtest::ReadFile(path),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Property name=\"Glow \xC3\xA9\">\n"
            "\t<Parameter id=\"1\">\n\t\t<Keyframe/>\n\t</Parameter>\n"
            "\t<Note>hi \xF0\x9F\x98\x80<Inner/></Note>\n</Property>\n");
  CXMLFileOut plain(0);
  ASSERT_TRUE(plain.Open(Wide(path).c_str()) && plain.Write(parameter) && plain.Close());
  EXPECT_EQ(qdtest::ReadFile(path), "<Parameter id=\"1\"><Keyframe/></Parameter>");
}

TEST(XmlWriter, RefusesWhatCannotBeWrittenWellFormed) {
  qdtest::TempDir temp;
  CXMLFileOut file;
  EXPECT_FALSE(file.Open(u"/nonexistent-folder/x.xml"));
  EXPECT_FALSE(file.Open(Wide(temp.path()).c_str()));  // a folder
  EXPECT_FALSE(file.Open(nullptr));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_FALSE(file.Write(Element(u"a")));
  EXPECT_FALSE(file.Close());

  CXMLObject badChild = Element(u"ok");
  badChild.Add(Element(u"ok"));
  badChild.item(0)->Add(Element(u"bad name"));
  const std::pair<const char*, CXMLObject> cases[] = {
      {"null", CXMLObject()},
      {"unnamed", CXMLObject(CZPoolString())},
      {"space in name", Element(u"a b")},
      {"digit first", Element(u"1a")},
      {"bad attribute name", Element(u"a", {{u"x=y", u"1"}})},
      {"bad grandchild", badChild}};
  for (const auto& [label, element] : cases) {
    CXMLMemOut out;
    EXPECT_FALSE(out.Write(element)) << label;
    EXPECT_TRUE(out.View().empty()) << label;  // nothing half-written
  }
  CXMLMemOut closed;
  closed.Close();
  EXPECT_FALSE(closed.Write(Element(u"a")));
  EXPECT_FALSE(WideText(Element(u"\u00e9t\u00e9:x-1.\U00010000")).empty());
}

// ---- Round trips

TEST(XmlRoundTrip, WrittenTreesReadBackEqual) {
  const wchar* attrTexts[] = {u"",
                              u"\"quoted\" & 'single'",
                              u"<tag>",
                              u"tab\tand\r\nCRLF",
                              u"\r",
                              u"  edges  ",
                              u"\x01\x1f",
                              u"\U0001F600 \u00e9",
                              u"&amp; literally",
                              u"]]>"};
  const wchar* dataTexts[] = {
      u"  edged text  ",   u" ",          u"\n\t\n",       u"a]]>b]]>", u"]]]]>>",
      u"<b>bold</b> & co", u"cr\rlf\r\n", u"\x01 control", u"\r",       u"\U0001F600\U0001F601",
      u"quote\"apos'",     u"&#13;"};
  std::vector<std::pair<std::string, CXMLObject>> cases;
  for (const wchar* text : attrTexts) {
    cases.emplace_back("attr " + ToUtf8(text), Element(u"e", {{u"a", text}, {u"b", u"x"}}));
  }
  for (const wchar* text : dataTexts) {
    cases.emplace_back("data " + ToUtf8(text), Element(u"e", {}, text));
    CXMLObject parent = Element(u"p");  // the same data as a child, among siblings
    parent.Add(Element(u"before"));
    parent.Add(Element(u"e", {}, text));
    parent.Add(Element(u"after"));
    cases.emplace_back("child data " + ToUtf8(text), parent);
  }
  std::vector<unsigned char> bytes(1000);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 31);
  for (std::size_t size : {bytes.size(), std::size_t{1}}) {
    cases.emplace_back("binary", Element(u"bin"));
    cases.back().second.Set(bytes.data(), size);
  }
  cases.emplace_back("mixed", SampleParameter());
  cases.back().second.Set(u"data and children");
  cases.back().second.item(1)->Add(Element(u"Anchor", {{u"v", u"\U0001F600"}}));
  cases.emplace_back("names",
                     Element(u"\u00e9l\u00e9ment", {{u"ns:attr", u"1"}, {u"_x.y-z", u"2"}}));
  // Big enough that the writer hands its text over in many pieces; the
  // non-BMP characters make some piece end inside a surrogate pair.
  cases.emplace_back("large", Element(u"Root"));
  for (int i = 0; i < 3000; ++i) {
    CXMLObject child = SampleParameter();
    child.SetAttribute(P(u"name"), u"\U0001F600\U0001F600\U0001F600x");
    child.Set(u"\U0001F601");
    cases.back().second.Add(child);
  }

  qdtest::TempDir temp;
  const std::u16string path = Wide(temp.path() + "/round.xml");
  for (const auto& [label, element] : cases) {
    CXMLDoc doc;
    ASSERT_EQ(doc.OpenDocMemory(WideText(element)), 0) << label;
    EXPECT_TRUE(doc.GetContentElement().IsEqual(element)) << label;
    for (int flags : {0, 1}) {
      CXMLFileOut file(flags);
      ASSERT_TRUE(file.Open(path.c_str()) && file.Write(element) && file.Close()) << label;
      ASSERT_EQ(doc.OpenDocFile(path.c_str()), 0) << label;
      EXPECT_TRUE(doc.GetContentElement().IsEqual(element)) << label << " flags " << flags;
    }
  }
}

// ---- Documents

TEST(XmlDoc, ReadsElementsAttributesAndData) {
  CXMLDoc doc;
  ASSERT_EQ(doc.OpenDocMemory(std::string_view(
                "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!DOCTYPE r>\n<!-- c -->\n"
                "<r a=\"1 &amp; &#x1F600;\" b='x\ty'>\n  <c>  text  </c>\n  <?pi x?>\n"
                "  <d><![CDATA[ <raw> ]]></d><e>one<!--c-->two<f/>three</e>\n"
                "  <g>   </g><h>a\r\nb</h></r>\n")),
            0);
  const CXMLObject& root = doc.GetContentElement();
  EXPECT_TRUE(root.IsName(u"r"));
  EXPECT_TRUE(root.FindAttribute(P(u"a")) == u"1 & \U0001F600");
  EXPECT_TRUE(root.FindAttribute(P(u"b")) == u"x y");  // attribute normalisation
  EXPECT_FALSE(root.GetData());                        // blanks between elements dropped
  ASSERT_EQ(root.GetNElements(CZPoolString()), 5u);
  EXPECT_TRUE(root.FindElementData(P(u"c")) == u"  text  ");
  EXPECT_TRUE(root.FindElementData(P(u"d")) == u" <raw> ");
  EXPECT_TRUE(root.FindElementData(P(u"e")) == u"onetwothree");
  EXPECT_FALSE(root.FindElementData(P(u"g")));
  EXPECT_TRUE(root.FindElementData(P(u"h")) == u"a\nb");
  EXPECT_TRUE(root.item(0)->GetName().same(P(u"c")));  // names come from the pool
  EXPECT_EQ(doc.OpenDocMemory(std::u16string_view(u"\uFEFF<a>\U0001F600</a>")), 0);
  EXPECT_TRUE(doc.GetContentElement().GetData() == u"\U0001F600");
}

TEST(XmlDoc, RejectsBadDocumentsWithAResult) {
  constexpr int kAny = -1;
  struct Case {
    const char* label;
    std::string text;
    int expected;
  } cases[] = {
      {"empty", "", CXMLDoc::kNoElement},
      {"only a comment", "<!-- x -->", CXMLDoc::kNoElement},
      {"unclosed", "<a>", kAny},
      {"mismatched", "<a><b></a></b>", kAny},
      {"truncated attribute", "<a x=\"1", kAny},
      {"two roots", "<a/><b/>", CXMLDoc::kMalformed},
      {"text before root", "text<a/>", CXMLDoc::kMalformed},
      {"text after root", "<a/>junk", CXMLDoc::kMalformed},
      {"duplicate attribute", "<a x='1' y='2' x='3'/>", CXMLDoc::kMalformed},
      {"NUL byte", std::string("<a>x\0y</a>", 10), CXMLDoc::kMalformed},
      {"reference to a surrogate", "<a>&#xD800;</a>", kAny},
      {"bad lead byte", "<a>\xFF</a>", CXMLDoc::kNotUtf8},
      {"bad continuation", "<a>\xC3\x28</a>", CXMLDoc::kNotUtf8},
      {"overlong", "<a>\xC0\xAF</a>", CXMLDoc::kNotUtf8},
      {"encoded surrogate", "<a>\xED\xA0\x80</a>", CXMLDoc::kNotUtf8},
      {"past U+10FFFF", "<a>\xF4\x90\x80\x80</a>", CXMLDoc::kNotUtf8},
      {"cut sequence", "<a/>\xE2\x82", CXMLDoc::kNotUtf8},
      {"latin-1 file", "<a v='caf\xE9'/>", CXMLDoc::kNotUtf8},
  };
  for (const Case& c : cases) {
    CXMLDoc doc;
    ASSERT_EQ(doc.OpenDocMemory(std::string_view("<ok/>")), 0);
    const int result = doc.OpenDocMemory(std::string_view(c.text));
    EXPECT_TRUE(c.expected == kAny ? result != 0 : result == c.expected)
        << c.label << ": " << result;
    EXPECT_FALSE(doc.GetContentElement()) << c.label;  // a failed open leaves nothing
  }
  // Files that are missing, are folders, or are cut short.
  qdtest::TempDir temp;
  CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocFile(Wide(temp.path() + "/missing.xml").c_str()), CXMLDoc::kCannotOpen);
  EXPECT_EQ(doc.OpenDocFile(Wide(temp.path()).c_str()), CXMLDoc::kCannotOpen);
  EXPECT_EQ(doc.OpenDocFile(nullptr), CXMLDoc::kCannotOpen);
  EXPECT_EQ(doc.OpenDocFile(u""), CXMLDoc::kCannotOpen);
  qdtest::WriteFile(temp.path() + "/cut.xml", "<a><b>");
  EXPECT_NE(doc.OpenDocFile(Wide(temp.path() + "/cut.xml").c_str()), 0);
  EXPECT_FALSE(doc.GetContentElement());
}

TEST(XmlDoc, DeepTreesNeedNoRecursion) {
  constexpr int kDepth = 100000;
  std::string text;
  for (int i = 0; i < kDepth; ++i) text += "<n>";
  text += "leaf";
  for (int i = 0; i < kDepth; ++i) text += "</n>";
  CXMLDoc doc;
  ASSERT_EQ(doc.OpenDocMemory(std::string_view(text)), 0);
  CXMLObject root = doc.GetContentElement();
  // Walk down through the writable accessors: every level becomes leaked,
  // so the copy below has to clone the whole chain.
  CXMLObject* deepest = &root;
  for (int i = 1; i < kDepth; ++i) deepest = deepest->item(0);
  ASSERT_NE(deepest, nullptr);
  EXPECT_TRUE(deepest->GetData() == u"leaf");
  CXMLObject copy = root;
  deepest->Set(u"changed");
  EXPECT_FALSE(copy.IsEqual(root));
  deepest->Set(u"leaf");
  EXPECT_TRUE(copy.IsEqual(root) && copy.IsEqual(doc.GetContentElement()));
  const std::u16string written = WideText(copy);
  EXPECT_EQ(written.size(), text.size());
  CXMLDoc again;
  ASSERT_EQ(again.OpenDocMemory(written), 0);
  EXPECT_TRUE(again.GetContentElement().IsEqual(root));
}

TEST(XmlDoc, ManyNamesAndManyAttributes) {
  // More distinct names than the reader interns, and an element with more
  // attributes than it keeps lookup hints for.
  std::string text = "<r>";
  for (int i = 0; i < 5000; ++i) {
    text += "<e" + std::to_string(i) + " a" + std::to_string(i) + "='" + std::to_string(i) + "'/>";
  }
  text += "<wide";
  for (int i = 0; i < 100; ++i) text += " w" + std::to_string(i) + "='" + std::to_string(i) + "'";
  text += "/><wide";
  for (int i = 99; i >= 0; --i) text += " w" + std::to_string(i) + "='x'";
  text += "/></r>";
  CXMLDoc doc;
  ASSERT_EQ(doc.OpenDocMemory(std::string_view(text)), 0);
  const CXMLObject& root = doc.GetContentElement();
  ASSERT_EQ(root.GetNElements(CZPoolString()), 5002u);
  for (unsigned i : {0u, 4095u, 4096u, 4999u}) {
    const std::u16string index = Wide(std::to_string(i));
    EXPECT_TRUE(root.item(i)->IsName((u"e" + index).c_str())) << i;
    EXPECT_TRUE(root.item(i)->FindAttribute(CZPoolString(u"a" + index)) == index.c_str()) << i;
  }
  for (unsigned i : {5000u, 5001u}) {
    ASSERT_EQ(root.item(i)->GetAttributeCount(), 100u);
    EXPECT_EQ(root.item(i)->FindAttributeInt(P(u"w70"), -1), i == 5000 ? 70 : 0);
  }
  EXPECT_TRUE(root.item(5001)->FindAttribute(P(u"w0")) == u"x");
  CXMLDoc again;
  ASSERT_EQ(again.OpenDocMemory(WideText(root)), 0);
  EXPECT_TRUE(again.GetContentElement().IsEqual(root));
  std::string duplicate = "<wide";
  for (int i = 0; i < 40; ++i) duplicate += " w" + std::to_string(i) + "='1'";
  EXPECT_EQ(doc.OpenDocMemory(std::string_view(duplicate + " w17='2'/>")), CXMLDoc::kMalformed);
  // Names past those interned are plain strings: equal ones are still told apart by text.
  const std::string late = text.substr(0, text.size() - 4) + "<d q='1' r='0' q='2'/></r>";
  EXPECT_EQ(doc.OpenDocMemory(std::string_view(late)), CXMLDoc::kMalformed);
}
