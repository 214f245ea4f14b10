// Hostile documents: merges of many attributes, the reader's limits and the
// place it gives for a failure.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qdparam/param.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::Element, qdtest::P;

namespace {

// name=text pairs of an element, in order.
std::vector<std::string> Attributes(const CXMLObject& element) {
  std::vector<std::string> out;
  CZPoolString name, text;
  for (unsigned int i = 0; element.GetAttribute(i, name, text); ++i) {
    out.push_back(ToUtf8(name.view()) + "=" + ToUtf8(text.view()));
  }
  return out;
}

// An element with attributes n<first>..n<first+count-1>, each valued `tag`.
CXMLObject Numbered(int first, int count, const std::string& tag) {
  CXMLObject element(P(u"e"));
  for (int i = first; i < first + count; ++i) {
    std::string name = "n";
    name += std::to_string(i);
    element.AddAttribute(CZPoolString(std::u16string(name.begin(), name.end())),
                         CZPoolString(std::u16string(tag.begin(), tag.end())));
  }
  return element;
}

}  // namespace

// The indexed merge of many attributes must give exactly what the merge of a
// few gives: our order kept, theirs appended in order, overlap by the flag.
TEST(XmlLimits, MergesOfManyAttributesKeepOrderAndOverwriteRule) {
  for (const int size : {3, 40, 300}) {
    for (const bool overwrite : {false, true}) {
      CXMLObject ours = Numbered(0, size, "ours");
      const CXMLObject theirs = Numbered(size / 2, size, "theirs");
      ASSERT_TRUE(ours.MergeAttributes(theirs, overwrite));
      const std::vector<std::string> merged = Attributes(ours);
      ASSERT_EQ(merged.size(), static_cast<std::size_t>(size + size / 2)) << size;
      for (int i = 0; i < size + size / 2; ++i) {
        const bool shared = i >= size / 2 && i < size;
        const bool theirsWins = i >= size || (shared && overwrite);
        std::string expected = "n";
        expected.append(std::to_string(i)).append("=").append(theirsWins ? "theirs" : "ours");
        EXPECT_EQ(merged[i], expected) << size << " " << overwrite;
      }
    }
  }
}

// Hang guard, not a timing: before the merge was indexed this took minutes.
TEST(XmlLimits, ParameterWithAHundredThousandAttributesLoads) {
  std::string text = "<Parameter id=\"1\" name=\"wide\" type=\"Double\" value=\"0.5\"";
  for (int i = 0; i < 100000; ++i) text.append(" a").append(std::to_string(i)).append("=\"1\"");
  text += "/>";
  CXMLDoc doc;
  ASSERT_EQ(doc.OpenDocMemory(std::string_view(text)), CXMLDoc::kOk);
  CParam param;
  ASSERT_TRUE(param.Load(doc.GetContentElement()));
  EXPECT_EQ(param.GetAttributeCount(), 100004u);
  EXPECT_EQ(param.GetID(), 1);
}

TEST(XmlLimits, ElementWithTooManyAttributesIsRefusedWithItsPlace) {
  std::string text = "<r>\n  <e";
  for (std::size_t i = 0; i <= CXMLDoc::kMaxAttributes; ++i)
    text.append(" a").append(std::to_string(i)).append("=''");
  text += "/></r>";
  CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocMemory(std::string_view(text)), CXMLDoc::kTooLarge);
  EXPECT_FALSE(doc.GetContentElement());
  EXPECT_NE(doc.GetLastFailure().message.find("attributes"), std::string::npos);
  EXPECT_EQ(doc.GetLastFailure().line, 2u);
  EXPECT_EQ(doc.GetLastFailure().column, 3u);
}

TEST(XmlLimits, FailuresNameTheirLineAndColumn) {
  struct Row {
    const char* text;
    int result;
    unsigned int line, column;
  } rows[] = {
      {"<a>\n  <b x='1' x='2'/>\n</a>", CXMLDoc::kMalformed, 2, 3},  // attribute given twice
      {"<a>\n<b>\n</a>", CXMLDoc::kMalformed, 3, 3},                 // mismatched end tag
      {"<a/>\n<b/>", CXMLDoc::kMalformed, 2, 1},                     // a second root
      {"<a>\xc3\xa9\xc3\xa9\xff</a>", CXMLDoc::kNotUtf8, 1, 6},      // columns count characters
      {"\xEF\xBB\xBF<a>\n <b></a>", CXMLDoc::kMalformed, 2, 7},      // the mark is no character
      {"", CXMLDoc::kNoElement, 0, 0},
  };
  for (const Row& row : rows) {
    CXMLDoc doc;
    EXPECT_EQ(doc.OpenDocMemory(std::string_view(row.text)), row.result) << row.text;
    const CXMLDoc::Failure& failure = doc.GetLastFailure();
    EXPECT_FALSE(failure.message.empty()) << row.text;
    EXPECT_EQ(failure.line, row.line) << row.text << ": " << failure.message;
    EXPECT_EQ(failure.column, row.column) << row.text << ": " << failure.message;
  }
  CXMLDoc doc;
  ASSERT_EQ(doc.OpenDocMemory(std::string_view("<a/>")), CXMLDoc::kOk);
  EXPECT_TRUE(doc.GetLastFailure().message.empty());
}

TEST(XmlLimits, KeptPositionsPlaceEveryElement) {
  CXMLDoc doc;
  doc.KeepPositions(true);
  ASSERT_EQ(doc.OpenDocMemory(std::string_view("<a>\n  <b/><c>\n\t<d/></c>\n</a>")), 0);
  const CXMLObject& root = doc.GetContentElement();
  const CXMLObject* d = root.item(1)->item(0);
  const struct {
    const CXMLObject* element;
    unsigned int line, column;
  } rows[] = {{&root, 1, 1}, {root.item(0), 2, 3}, {root.item(1), 2, 7}, {d, 3, 2}};
  for (const auto& row : rows) {
    unsigned int line = 0, column = 0;
    ASSERT_TRUE(doc.GetPosition(*row.element, line, column));
    EXPECT_EQ(line, row.line);
    EXPECT_EQ(column, row.column);
  }
  unsigned int line = 0, column = 0;
  EXPECT_FALSE(doc.GetPosition(Element(u"other"), line, column));
  CXMLDoc plain;  // positions are kept only when asked for
  ASSERT_EQ(plain.OpenDocMemory(std::string_view("<a/>")), 0);
  EXPECT_FALSE(plain.GetPosition(plain.GetContentElement(), line, column));
}

// The reader keeps "&name;" of an undeclared entity as text; with positions
// kept, each such reference is listed with its place, and nothing in
// markup (comments, CDATA, a document type) is taken for one.
TEST(XmlLimits, UndeclaredEntitiesAreListedWhereTheyStand) {
  const char* text =
      "<!DOCTYPE a [<!ENTITY x \"&y;\">]>\n"
      "<a v=\"&amp;&#65;&x;\"><!-- &c; --><![CDATA[&d;]]>\n"
      "  &e;&lt;&;& f;</a>";
  CXMLDoc doc;
  doc.KeepPositions(true);
  ASSERT_EQ(doc.OpenDocMemory(std::string_view(text)), 0);
  const std::vector<CXMLDoc::Reference> found = doc.GetUnresolvedReferences();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].name, "x");
  EXPECT_EQ(found[0].line, 2u);
  EXPECT_EQ(found[0].column, 17u);
  EXPECT_EQ(found[1].name, "e");
  EXPECT_EQ(found[1].line, 3u);
  EXPECT_EQ(found[1].column, 3u);
  CXMLDoc plain;
  ASSERT_EQ(plain.OpenDocMemory(std::string_view(text)), 0);
  EXPECT_TRUE(plain.GetUnresolvedReferences().empty());
}
