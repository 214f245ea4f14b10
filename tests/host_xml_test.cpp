// The host XML object model: attributes, shared storage, children, data,
// the writers and the document reader.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "qdcore/xml.h"
#include "support/capture.h"

using namespace qdcore;

namespace {

CZPoolString P(const wchar* text) { return CStringPool::GetStringRef(text); }

std::string Utf8(std::u16string_view text) { return ToUtf8(text); }

CXMLObject Element(const wchar* name,
                   std::initializer_list<std::pair<const wchar*, const wchar*>> attrs = {}) {
  CXMLObject element(P(name));
  for (const auto& [key, value] : attrs) element.SetAttribute(P(key), value);
  return element;
}

std::u16string WriteToMemory(const CXMLObject& element) {
  CXMLMemOut out;
  out.Open();
  EXPECT_TRUE(out.Write(element));
  out.Close();
  return std::u16string(out.View());
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

std::u16string Wide(const std::string& path) {
  std::u16string wide;
  FromUtf8(path, wide);
  return wide;
}

// A parameter with two keyframes: the shape the library reads and writes.
CXMLObject SampleParameter() {
  CXMLObject parameter =
      Element(u"Parameter", {{u"id", u"1"}, {u"name", u"radius"}, {u"value", u"8.5"}});
  parameter.Add(Element(u"Keyframe", {{u"position", u"0"}, {u"value", u"4"}}));
  parameter.Add(Element(u"Keyframe", {{u"position", u"1"}, {u"value", u"2"}}));
  return parameter;
}

}  // namespace

// ---------------------------------------------------------------------------
// Attribute readers
// ---------------------------------------------------------------------------

TEST(XmlAttributes, NumbersParseTheLeadingNumber) {
  struct Case {
    const wchar* text;  // null: attribute absent
    long asInt;
    double asDouble;
  } cases[] = {
      {u"42", 42, 42.0},     {u"2.5s", 2, 2.5},
      {u"-7.75", -7, -7.75}, {u"  3", 3, 3.0},
      {u"1e3", 1, 1000.0},   {u"abc", 0, 0.0},
      {u"", 0, 0.0},         {u"+12px", 12, 12.0},
      {nullptr, -5, -5.5},   {u"99999999999", 2147483647, 99999999999.0},
  };
  for (const Case& c : cases) {
    CXMLObject element(P(u"e"));
    if (c.text) element.SetAttribute(P(u"n"), c.text);
    const std::string label = c.text ? Utf8(c.text) : "(absent)";
    EXPECT_EQ(element.FindAttributeInt(P(u"n"), -5), c.asInt) << label;
    EXPECT_EQ(element.FindAttributeDouble(P(u"n"), -5.5), c.asDouble) << label;
  }
}

TEST(XmlAttributes, BooleansKnowSixWordsAndOtherwiseGiveTheDefault) {
  struct Case {
    const wchar* text;
    int whenDefaultFalse, whenDefaultTrue;
  } cases[] = {
      {u"True", 1, 1},  {u"true", 1, 1},  {u"1", 1, 1},    {u"False", 0, 0},
      {u"false", 0, 0}, {u"0", 0, 0},     {u"TRUE", 0, 1}, {u"yes", 0, 1},
      {u"", 0, 1},      {u" true", 0, 1}, {u"10", 0, 1},   {nullptr, 0, 1},
  };
  for (const Case& c : cases) {
    CXMLObject element(P(u"e"));
    if (c.text) element.SetAttribute(P(u"b"), c.text);
    const std::string label = c.text ? Utf8(c.text) : "(absent)";
    EXPECT_EQ(element.FindAttributeBool(P(u"b"), false), c.whenDefaultFalse != 0) << label;
    EXPECT_EQ(element.FindAttributeBool(P(u"b"), true), c.whenDefaultTrue != 0) << label;
  }
}

namespace {
const tagXMLFLAGMAP kColours[] = {
    {0, P(u"None")}, {1, P(u"Red")}, {2, P(u"Green")}, {4, P(u"Blue")}, {6, P(u"Cyan")},
};
}  // namespace

TEST(XmlAttributes, FlagsReadNamedBitsAndIgnoreTheRest) {
  struct Case {
    const wchar* text;
    unsigned expected;
  } cases[] = {
      {u"Red|Blue", 5},   {u" Red |  Green\t", 3},
      {u"Red|Purple", 1}, {u"red", 0},
      {u"", 0},           {u"||Blue||", 4},
      {u"None", 0},       {u"Cyan", 6},
      {u"Red Green", 0},  {nullptr, 0},
  };
  for (const Case& c : cases) {
    CXMLObject element(P(u"e"));
    if (c.text) element.SetAttribute(P(u"f"), c.text);
    EXPECT_EQ(element.FindAttributeFlags(P(u"f"), kColours, 5, u'|'), c.expected)
        << (c.text ? Utf8(c.text) : "(absent)");
  }
}

TEST(XmlAttributes, FlagsWriteNamesOfSetValuesInTableOrder) {
  struct Case {
    unsigned flags;
    const wchar* expected;
  } cases[] = {{5, u"Red,Blue"}, {0, u""}, {6, u"Green,Blue,Cyan"}, {2, u"Green"}, {8, u""}};
  for (const Case& c : cases) {
    CXMLObject element(P(u"e"));
    ASSERT_TRUE(element.SetAttribute(P(u"f"), c.flags, kColours, 5, u','));
    EXPECT_TRUE(element.FindAttribute(P(u"f")) == c.expected) << c.flags;
    EXPECT_EQ(element.FindAttributeFlags(P(u"f"), kColours, 5, u','), c.flags & 7u) << c.flags;
  }
}

TEST(XmlAttributes, IndexFindsTheTextAmongTrimmedEntries) {
  const wchar* list = u"Hold; Linear ;Bezier;;Spline";
  struct Case {
    const wchar* text;
    unsigned expected;
  } cases[] = {
      {u"Hold", 0},
      {u"Linear", 1},
      {u"Bezier", 2},
      {u"", 3},
      {u"Spline", 4},
      {u"linear", 0xFFFFFFFFu},
      {u" Linear", 0xFFFFFFFFu},
      {u"Hold;Linear", 0xFFFFFFFFu},
      {nullptr, 0xFFFFFFFFu},
  };
  for (const Case& c : cases) {
    CXMLObject element(P(u"e"));
    if (c.text) element.SetAttribute(P(u"i"), c.text);
    EXPECT_EQ(element.FindAttributeIndex(P(u"i"), list, u';'), c.expected)
        << (c.text ? Utf8(c.text) : "(absent)");
  }
  EXPECT_EQ(Element(u"e", {{u"i", u"Hold"}}).FindAttributeIndex(P(u"i"), nullptr, u';'),
            0xFFFFFFFFu);
}

TEST(XmlAttributes, NamesMatchByTextWhetherPooledOrNot) {
  CXMLObject element = Element(u"e", {{u"alpha", u"1"}});
  element.SetAttribute(CZPoolString(u"beta"), u"2");  // a name outside the pool
  EXPECT_TRUE(element.FindAttribute(CZPoolString(u"alpha")) == u"1");
  EXPECT_TRUE(element.FindAttribute(P(u"beta")) == u"2");
  EXPECT_TRUE(element.FindAttribute(u"beta") == u"2");
  EXPECT_FALSE(element.HasAttribute(P(u"gamma")));
  EXPECT_FALSE(element.FindAttribute(static_cast<const wchar*>(nullptr)));
}

TEST(XmlAttributes, SetAddAndDeleteKeepOrder) {
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
}

TEST(XmlAttributes, MergeAppendsNewAndOverwritesOnlyWhenAsked) {
  const CXMLObject other = Element(u"o", {{u"y", u"20"}, {u"z", u"30"}, {u"w", u"40"}});
  struct Case {
    bool overwrite;
    const wchar* expectedY;
  } cases[] = {{false, u"2"}, {true, u"20"}};
  for (const Case& c : cases) {
    CXMLObject element = Element(u"e", {{u"x", u"1"}, {u"y", u"2"}});
    EXPECT_TRUE(element.MergeAttributes(other, c.overwrite));
    const wchar* names[] = {u"x", u"y", u"z", u"w"};
    const wchar* texts[] = {u"1", c.expectedY, u"30", u"40"};
    ASSERT_EQ(element.GetAttributeCount(), 4u);
    for (unsigned i = 0; i < 4; ++i) {
      CZPoolString name, text;
      element.GetAttribute(i, name, text);
      EXPECT_TRUE(name == names[i] && text == texts[i]) << i << " overwrite=" << c.overwrite;
    }
    EXPECT_EQ(other.GetAttributeCount(), 3u);
  }
  CXMLObject self = Element(u"e", {{u"x", u"1"}});
  EXPECT_TRUE(self.MergeAttributes(self, true));
  EXPECT_EQ(self.GetAttributeCount(), 1u);
}

TEST(XmlAttributes, ReadsAllocateNothing) {
  CXMLObject element = Element(u"Keyframe", {{u"position", u"0.5"},
                                             {u"value", u"12.25s"},
                                             {u"smooth", u"True"},
                                             {u"mode", u"Red|Blue"},
                                             {u"kind", u"Linear"}});
  const CZPoolString pooled = P(u"value");
  const CZPoolString unpooled(u"kind");
  const CZPoolString missing = P(u"missing");
  const CZPoolString position = P(u"position");
  element.Set(u"AAECAw==");
  unsigned char bytes[4];
  EXPECT_EQ(element.GetDataBinary(bytes, 4), 4u);  // first read decodes and caches
  const std::size_t before = qdtest::AllocationCount();
  double sum = 0;
  for (int i = 0; i < 1000; ++i) {
    sum += element.FindAttributeDouble(pooled);
    sum += element.FindAttributeInt(position, 0);
  }
  EXPECT_TRUE(element.HasAttribute(unpooled));
  EXPECT_FALSE(element.HasAttribute(missing));
  EXPECT_TRUE(element.FindAttribute(pooled) == u"12.25s");
  EXPECT_TRUE(element.FindAttribute(u"kind") == u"Linear");
  EXPECT_TRUE(element.FindAttributeBool(P(u"smooth")));
  EXPECT_EQ(element.FindAttributeFlags(P(u"mode"), kColours, 5, u'|'), 5u);
  EXPECT_EQ(element.FindAttributeIndex(unpooled, u"Hold,Linear", u','), 1u);
  EXPECT_EQ(element.GetDataBinarySize(), 4u);
  EXPECT_EQ(element.GetDataBinary(bytes, 4, 1), 3u);
  EXPECT_EQ(qdtest::AllocationCount(), before);
  EXPECT_EQ(sum, 1000 * 12.25);
}

// ---------------------------------------------------------------------------
// Shared storage
// ---------------------------------------------------------------------------

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
         unsigned count = 0;
         e.GetElements(count)[1].Free();
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
    // And the other way round.
    CXMLObject copy2 = original;
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
  CXMLObject assigned;
  assigned = original;
  CXMLObject reassigned;
  reassigned.Reassign(original);
  const CXMLObject snapshot = copy;
  child->SetAttribute(P(u"value"), u"changed");
  grandchild->Set(u"changed");
  child->Add(Element(u"Extra"));
  for (const CXMLObject* other :
       std::initializer_list<const CXMLObject*>{&copy, &assigned, &reassigned}) {
    EXPECT_TRUE(other->item(0)->FindAttribute(P(u"value")) == u"4");
    EXPECT_FALSE(other->item(0)->item(0)->GetData());
    EXPECT_EQ(other->item(0)->GetNElements(CZPoolString()), 1u);
    EXPECT_TRUE(other->IsEqual(snapshot));
  }
  EXPECT_TRUE(original.item(0)->FindAttribute(P(u"value")) == u"changed");
}

TEST(XmlStorage, ReallocMakesStoragePrivateAtOnce) {
  CXMLObject a = SampleParameter();
  CXMLObject b = a;
  const CXMLObject* sharedChild = std::as_const(b).item(0);
  EXPECT_EQ(sharedChild, std::as_const(a).item(0));  // shared until a write
  EXPECT_TRUE(b.Realloc());
  EXPECT_NE(std::as_const(b).item(0), std::as_const(a).item(0));
  b.item(0)->SetAttribute(P(u"value"), u"99");
  EXPECT_TRUE(a.item(0)->FindAttribute(P(u"value")) == u"4");
  CXMLObject empty;
  EXPECT_TRUE(empty.Realloc());
  EXPECT_FALSE(empty);
}

TEST(XmlStorage, AddingAnElementToItselfAddsItsOldSelf) {
  CXMLObject element = SampleParameter();
  const CXMLObject before = element;
  ASSERT_TRUE(element.Add(element));
  ASSERT_EQ(element.GetNElements(CZPoolString()), 3u);
  EXPECT_TRUE(element.item(2)->IsEqual(before));
  EXPECT_EQ(element.item(2)->GetNElements(CZPoolString()), 2u);  // no cycle
  EXPECT_FALSE(element.Add(CXMLObject()));
  EXPECT_EQ(WriteToMemory(element).size(), 2 * WriteToMemory(before).size());
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

// ---------------------------------------------------------------------------
// Children
// ---------------------------------------------------------------------------

TEST(XmlChildren, Navigation) {
  CXMLObject root(P(u"Property"));
  for (const wchar* name : {u"Parameter", u"Validation", u"Parameter", u"Parameter"}) {
    CXMLObject child(P(name));
    child.Set(name);
    root.Add(child);
  }
  root.item(2)->SetAttribute(P(u"id"), u"2");
  const CXMLObject& view = root;
  std::vector<unsigned> byPointer, byCursor;
  for (const CXMLObject* p = view.FindNextElement(P(u"Parameter"), nullptr); p;
       p = view.FindNextElement(P(u"Parameter"), p)) {
    byPointer.push_back(static_cast<unsigned>(p - view.item(0)));
  }
  for (unsigned cursor = 0; view.FindFirstElement(CZPoolString(u"Parameter"), cursor); ++cursor)
    byCursor.push_back(cursor);
  EXPECT_EQ(byPointer, (std::vector<unsigned>{0, 2, 3}));
  EXPECT_EQ(byCursor, byPointer);
  EXPECT_EQ(view.GetNElements(P(u"Parameter")), 3u);
  EXPECT_EQ(view.GetNElements(CZPoolString()), 4u);
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

// ---------------------------------------------------------------------------
// Data
// ---------------------------------------------------------------------------

TEST(XmlData, BinaryReadsHonourOffsetAndSize) {
  const unsigned char bytes[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  CXMLObject binary(P(u"b"));
  binary.Set(bytes, sizeof bytes);
  CXMLObject text(P(u"t"));
  text.Set(binary.GetData());  // the same bytes as base64 text
  struct Case {
    std::uint64_t size, offset, expected;
  } cases[] = {{4, 0, 4}, {20, 0, 10}, {4, 8, 2},     {4, 10, 0},   {4, 11, 0},
               {0, 3, 0}, {3, 5, 3},   {~0ull, 9, 1}, {4, ~0ull, 0}};
  for (const CXMLObject* element : {&binary, &text}) {
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
    const char* bytes;  // null: not base64
  } cases[] = {
      {u"", ""},          {u"QQ==", "A"},      {u"QUI=", "AB"},         {u"QUJD", "ABC"},
      {u"QQ", "A"},       {u"QUI", "AB"},      {u" QU\nJD\t", "ABC"},   {u"Q", nullptr},
      {u"QQ=A", nullptr}, {u"QQ===", nullptr}, {u"QUJD!", nullptr},     {u"QUJ=", "AB"},
      {u"QQ=", nullptr},  {u"=QUJ", nullptr},  {u"QU\u00e9D", nullptr},
  };
  for (const Case& c : cases) {
    CXMLObject element(P(u"e"));
    element.Set(c.text);
    const std::string expected = c.bytes ? c.bytes : "";
    ASSERT_EQ(element.GetDataBinarySize(), expected.size()) << Utf8(c.text);
    std::string out(expected.size(), '\0');
    element.GetDataBinary(reinterpret_cast<unsigned char*>(out.data()), out.size());
    EXPECT_EQ(out, expected) << Utf8(c.text);
    EXPECT_FALSE(element.HasBinaryData());
  }
  CXMLObject element(P(u"e"));
  element.Set(u"QUJD");
  EXPECT_EQ(element.GetDataBinarySize(), 3u);
  element.Set(u"QQ==");  // a write drops the decoded copy
  EXPECT_EQ(element.GetDataBinarySize(), 1u);
  const unsigned char bytes[] = {0xFF, 0x00, 0x7F, 0x80};
  CXMLObject binary(P(u"e"));
  binary.Set(bytes, sizeof bytes);
  EXPECT_TRUE(binary.HasBinaryData());
  EXPECT_TRUE(binary.GetData() == u"/wB/gA==");
  element.Set(u"/wB/gA==");
  EXPECT_TRUE(element.IsEqual(binary) && binary.IsEqual(element));
  element.Set(u"/wB/gQ==");
  EXPECT_FALSE(binary.IsEqual(element));
}

TEST(XmlData, CdataIsRequiredForMarkupQuotesAndControls) {
  struct Case {
    const wchar* text;
    bool required;
  } cases[] = {
      {u"plain text 1.5", false},
      {u"", false},
      {u"a<b", true},
      {u"a>b", true},
      {u"a&b", true},
      {u"say \"x\"", true},
      {u"it's", true},
      {u"tab\there", true},
      {u"line\n", true},
      {u"\x1f", true},
      {u"\u00e9\U0001F600", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(CXMLObject::CDATARequired(c.text), c.required) << Utf8(c.text);
    EXPECT_EQ(CXMLObject::CDATARequired(std::u16string_view(c.text)), c.required) << Utf8(c.text);
  }
  EXPECT_FALSE(CXMLObject::CDATARequired(static_cast<const wchar*>(nullptr)));
}

// ---------------------------------------------------------------------------
// Writers
// ---------------------------------------------------------------------------

TEST(XmlWriter, MemoryOutputIsCompactAndEscaped) {
  CXMLObject root = Element(u"a", {{u"q", u"<\"&'>\t\n\r\x01"}});
  CXMLObject text = Element(u"t");
  text.Set(u"x]]>y");
  root.Add(text);
  CXMLObject refs = Element(u"r");
  refs.Set(u"a\r\n<b>&\x02");
  root.Add(refs);
  root.Add(Element(u"e"));
  EXPECT_EQ(WriteToMemory(root),
            u"<a q=\"&lt;&quot;&amp;'&gt;&#9;&#10;&#13;&#1;\">"
            u"<t><![CDATA[x]]]]><![CDATA[>y]]></t>"
            u"<r>a&#13;\n&lt;b&gt;&amp;&#2;</r>"
            u"<e/></a>");
}

TEST(XmlWriter, FileOutputIndentsExceptInsideData) {
  qdtest::TempDir temp;
  const std::string path = temp.path() + "/out.xml";
  CXMLObject root = Element(u"Property", {{u"name", u"Glow \u00e9"}});
  CXMLObject parameter = Element(u"Parameter", {{u"id", u"1"}});
  parameter.Add(Element(u"Keyframe"));
  root.Add(parameter);
  CXMLObject mixed = Element(u"Note");
  mixed.Set(u"hi \U0001F600");
  mixed.Add(Element(u"Inner"));
  root.Add(mixed);

  CXMLFileOut out(1);
  ASSERT_TRUE(out.Open(Wide(path).c_str()));
  EXPECT_TRUE(out.IsOpen());
  EXPECT_TRUE(out.Write(root));
  EXPECT_TRUE(out.Close());
  EXPECT_FALSE(out.IsOpen());
  EXPECT_EQ(ReadFile(path),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<Property name=\"Glow \xC3\xA9\">\n"
            "\t<Parameter id=\"1\">\n"
            "\t\t<Keyframe/>\n"
            "\t</Parameter>\n"
            "\t<Note>hi \xF0\x9F\x98\x80<Inner/></Note>\n"
            "</Property>\n");

  CXMLFileOut plain(0);
  ASSERT_TRUE(plain.Open(Wide(path).c_str()));
  EXPECT_TRUE(plain.Write(parameter));
  EXPECT_TRUE(plain.Close());
  EXPECT_EQ(ReadFile(path), "<Parameter id=\"1\"><Keyframe/></Parameter>");
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
      {"bad grandchild", badChild},
  };
  for (const auto& [label, element] : cases) {
    CXMLMemOut out;
    EXPECT_FALSE(out.Write(element)) << label;
    EXPECT_TRUE(out.View().empty()) << label;  // nothing half-written
  }
  CXMLMemOut closed;
  closed.Close();
  EXPECT_FALSE(closed.Write(Element(u"a")));
  EXPECT_TRUE(WriteToMemory(Element(u"\u00e9t\u00e9:x-1.\U00010000")).size() > 0);
}

// ---------------------------------------------------------------------------
// Round trips
// ---------------------------------------------------------------------------

TEST(XmlRoundTrip, WrittenTreesReadBackEqual) {
  const wchar* attrTexts[] = {
      u"plain",
      u"",
      u"\"quoted\" & 'single'",
      u"<tag>",
      u"line\nbreak",
      u"tab\tand\r\nCRLF",
      u"\r",
      u"  edges  ",
      u"\x01\x1f",
      u"\U0001F600 \u00e9",
      u"&amp; literally",
      u"]]>",
  };
  const wchar* dataTexts[] = {
      u"plain",
      u"  edged text  ",
      u" ",
      u"\n\t\n",
      u"a]]>b]]>",
      u"]]>",
      u"]]]]>>",
      u"<b>bold</b> & co",
      u"cr\rlf\r\n",
      u"\x01 control",
      u"\r",
      u"\U0001F600\U0001F601",
      u"quote\"apos'",
      u"multi\nline\n",
      u"&#13;",
  };
  std::vector<std::pair<std::string, CXMLObject>> cases;
  for (const wchar* text : attrTexts) {
    cases.emplace_back("attr " + Utf8(text), Element(u"e", {{u"a", text}, {u"b", u"x"}}));
  }
  for (const wchar* text : dataTexts) {
    CXMLObject element = Element(u"e");
    element.Set(text);
    cases.emplace_back("data " + Utf8(text), element);
    CXMLObject parent = Element(u"p");  // the same data as a child, among siblings
    parent.Add(Element(u"before"));
    parent.Add(element);
    parent.Add(Element(u"after"));
    cases.emplace_back("child data " + Utf8(text), parent);
  }
  {
    std::vector<unsigned char> bytes(1000);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 31);
    CXMLObject element = Element(u"bin");
    element.Set(bytes.data(), bytes.size());
    cases.emplace_back("binary", element);
    CXMLObject one = Element(u"bin");
    one.Set(bytes.data(), 1);
    cases.emplace_back("one byte", one);
  }
  {
    CXMLObject mixed = SampleParameter();
    mixed.Set(u"data and children");
    mixed.item(1)->Add(Element(u"Anchor", {{u"v", u"\U0001F600"}}));
    cases.emplace_back("mixed", mixed);
    CXMLObject names = Element(u"\u00e9l\u00e9ment", {{u"ns:attr", u"1"}, {u"_x.y-z", u"2"}});
    cases.emplace_back("names", names);
  }

  qdtest::TempDir temp;
  const std::u16string path = Wide(temp.path() + "/round.xml");
  for (const auto& [label, element] : cases) {
    CXMLDoc doc;
    ASSERT_EQ(doc.OpenDocMemory(WriteToMemory(element)), 0) << label;
    EXPECT_TRUE(doc.GetContentElement().IsEqual(element)) << label;
    for (int flags : {0, 1}) {
      CXMLFileOut file(flags);
      ASSERT_TRUE(file.Open(path.c_str())) << label;
      ASSERT_TRUE(file.Write(element)) << label;
      ASSERT_TRUE(file.Close()) << label;
      CXMLDoc fromFile;
      ASSERT_EQ(fromFile.OpenDocFile(path.c_str()), 0) << label;
      EXPECT_TRUE(fromFile.GetContentElement().IsEqual(element)) << label << " flags " << flags;
    }
  }
}

TEST(XmlRoundTrip, LargeTreeAcrossChunks) {
  // Big enough that the writer hands its text over in many pieces; the
  // non-BMP characters make some piece end inside a surrogate pair.
  CXMLObject root = Element(u"Root");
  for (int i = 0; i < 3000; ++i) {
    CXMLObject child = SampleParameter();
    child.SetAttribute(P(u"name"), u"\U0001F600\U0001F600\U0001F600x");
    child.Set(u"\U0001F601");
    root.Add(child);
  }
  qdtest::TempDir temp;
  const std::u16string path = Wide(temp.path() + "/big.xml");
  CXMLFileOut file;
  ASSERT_TRUE(file.Open(path.c_str()));
  ASSERT_TRUE(file.Write(root));
  ASSERT_TRUE(file.Close());
  CXMLDoc doc;
  ASSERT_EQ(doc.OpenDocFile(path.c_str()), 0);
  EXPECT_TRUE(doc.GetContentElement().IsEqual(root));
}

// ---------------------------------------------------------------------------
// Documents
// ---------------------------------------------------------------------------

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
  // Names come from the pool.
  EXPECT_TRUE(root.item(0)->GetName().same(P(u"c")));
}

TEST(XmlDoc, RejectsBadDocumentsWithAResult) {
  struct Case {
    const char* label;
    std::string text;
    int expected;  // -1: any failure
  } cases[] = {
      {"empty", "", CXMLDoc::kNoElement},
      {"blank", "  \n ", CXMLDoc::kNoElement},
      {"only a comment", "<!-- x -->", CXMLDoc::kNoElement},
      {"unclosed", "<a>", -1},
      {"mismatched", "<a><b></a></b>", -1},
      {"truncated attribute", "<a x=\"1", -1},
      {"truncated tag", "<a><b", -1},
      {"two roots", "<a/><b/>", CXMLDoc::kMalformed},
      {"text before root", "text<a/>", CXMLDoc::kMalformed},
      {"text after root", "<a/>junk", CXMLDoc::kMalformed},
      {"duplicate attribute", "<a x='1' y='2' x='3'/>", CXMLDoc::kMalformed},
      {"NUL byte", std::string("<a>x\0y</a>", 10), CXMLDoc::kMalformed},
      {"reference to a surrogate", "<a>&#xD800;</a>", -1},
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
    if (c.expected < 0) {
      EXPECT_NE(result, 0) << c.label;
    } else {
      EXPECT_EQ(result, c.expected) << c.label;
    }
    EXPECT_FALSE(doc.GetContentElement()) << c.label;  // a failed open leaves nothing
  }
  CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocMemory(std::u16string_view(u"\uFEFF<a>\U0001F600</a>")), 0);
  EXPECT_TRUE(doc.GetContentElement().GetData() == u"\U0001F600");
}

TEST(XmlDoc, MissingOrUnreadableFilesFailCleanly) {
  qdtest::TempDir temp;
  CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocFile(Wide(temp.path() + "/missing.xml").c_str()), CXMLDoc::kCannotOpen);
  EXPECT_EQ(doc.OpenDocFile(Wide(temp.path()).c_str()), CXMLDoc::kCannotOpen);
  EXPECT_EQ(doc.OpenDocFile(nullptr), CXMLDoc::kCannotOpen);
  EXPECT_EQ(doc.OpenDocFile(u""), CXMLDoc::kCannotOpen);
  const std::string path = temp.path() + "/cut.xml";
  std::ofstream(path) << "<a><b>";
  EXPECT_NE(doc.OpenDocFile(Wide(path).c_str()), 0);
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
  EXPECT_TRUE(copy.IsEqual(root));
  EXPECT_TRUE(copy.IsEqual(doc.GetContentElement()));

  const std::u16string written = WriteToMemory(copy);
  EXPECT_EQ(written.size(), text.size());
  CXMLDoc again;
  ASSERT_EQ(again.OpenDocMemory(written), 0);
  EXPECT_TRUE(again.GetContentElement().IsEqual(root));

  // Built by hand, bottom up, and torn down by going out of scope.
  CXMLObject built(P(u"n"));
  for (int i = 1; i < kDepth; ++i) {
    CXMLObject parent(P(u"n"));
    parent.Add(built);
    built = std::move(parent);
  }
  qdtest::TempDir temp;
  const std::u16string path = Wide(temp.path() + "/deep.xml");
  CXMLFileOut file(1);
  ASSERT_TRUE(file.Open(path.c_str()));
  ASSERT_TRUE(file.Write(built));
  ASSERT_TRUE(file.Close());
  ASSERT_EQ(again.OpenDocFile(path.c_str()), 0);
  EXPECT_TRUE(again.GetContentElement().IsEqual(built));
}

TEST(XmlDoc, ManyNamesAndManyAttributes) {
  // More distinct names than the reader interns, and an element with more
  // attributes than it keeps lookup hints for.
  std::string text = "<r>";
  for (int i = 0; i < 5000; ++i)
    text += "<e" + std::to_string(i) + " a" + std::to_string(i) + "='" + std::to_string(i) + "'/>";
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
  ASSERT_EQ(again.OpenDocMemory(WriteToMemory(root)), 0);
  EXPECT_TRUE(again.GetContentElement().IsEqual(root));

  std::string duplicate = "<wide";
  for (int i = 0; i < 40; ++i) duplicate += " w" + std::to_string(i) + "='1'";
  EXPECT_EQ(doc.OpenDocMemory(std::string_view(duplicate + " w17='2'/>")), CXMLDoc::kMalformed);
}
