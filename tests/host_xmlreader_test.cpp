// The plain reader against the general one: on every document the plain
// reader takes, both give the same tree, names pooled alike, the same places
// and references; with both allowed, every document reads as the general
// reader alone reads it, failures included; and a file reads as its text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;

namespace {

// What one open gave: its result, failure, tree, and per element (in
// document order) whether its name is pooled and where it starts.
struct Reading {
  int result = -1;
  std::string failure;
  unsigned int line = 0, column = 0;
  CXMLObject root;
  std::vector<std::string> elements;
  std::vector<std::string> references;
};

// Reads `text` with the readers `only` allows (null: both).
Reading Read(std::string_view text, const char* only, bool positions) {
  if (only) {
    setenv("QD_XMLREADER", only, 1);
  } else {
    unsetenv("QD_XMLREADER");
  }
  CXMLDoc doc;
  doc.KeepPositions(positions);
  Reading reading;
  reading.result = doc.OpenDocMemory(text);
  unsetenv("QD_XMLREADER");
  const CXMLDoc::Failure& failure = doc.GetLastFailure();
  reading.failure = failure.message;
  reading.line = failure.line;
  reading.column = failure.column;
  reading.root = doc.GetContentElement();
  std::vector<const CXMLObject*> pending{&reading.root};
  while (!pending.empty() && reading.root) {
    const CXMLObject& element = *pending.back();
    pending.pop_back();
    const CZPoolString name = element.GetName();
    unsigned int line = 0, column = 0;
    const bool placed = doc.GetPosition(element, line, column);
    std::string entry = name.same(CStringPool::GetStringRef(name.view())) ? "pooled" : "own";
    if (placed)
      entry.append(" ").append(std::to_string(line)).append(":").append(std::to_string(column));
    reading.elements.push_back(std::move(entry));
    unsigned int count = 0;
    const CXMLObject* children = element.GetElements(count);
    for (unsigned int i = count; i > 0; --i) pending.push_back(&children[i - 1]);
  }
  for (const CXMLDoc::Reference& r : doc.GetUnresolvedReferences()) {
    reading.references.push_back(r.name + "@" + std::to_string(r.line) + ":" +
                                 std::to_string(r.column));
  }
  return reading;
}

void ExpectSame(const Reading& a, const Reading& b, const std::string& label) {
  EXPECT_EQ(a.result, b.result) << label;
  EXPECT_EQ(a.failure, b.failure) << label;
  EXPECT_EQ(a.line, b.line) << label;
  EXPECT_EQ(a.column, b.column) << label;
  EXPECT_TRUE(a.root.IsEqual(b.root)) << label;
  EXPECT_EQ(a.elements, b.elements) << label;
  EXPECT_EQ(a.references, b.references) << label;
}

// True when the plain reader took `text`; then its reading is the general one's.
bool Compare(const std::string& text, const std::string& label) {
  bool plain = false;
  for (const bool positions : {false, true}) {
    const Reading general = Read(text, "general", positions);
    ExpectSame(Read(text, nullptr, positions), general, label);
    const Reading alone = Read(text, "plain", positions);
    if (alone.result != 0) continue;
    plain = true;
    ExpectSame(alone, general, label);
  }
  return plain;
}

// Documents of the kinds the plain reader takes, with the turns its text
// may take, and a few it leaves.
const char* const kDocuments[] = {
    "<a/>",
    "<a></a>",
    "<a >x</a >",
    "\n<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!-- c --><a b = '1'\tc=\"2\"\n/>\n<!--e-->\n",
    "<r a=\"1 &amp; &#x1F600; &#65;&lt;&gt;&apos;&quot;\" b='x\ty\r\nz\rw' c='<'/>",
    "<r>  text  <c/>more&#10;<![CDATA[ <raw>\r\n ]]>\r\nend</r>",
    "<r><e>one<!--c-->two<f/>three</e><g>   </g><h>a\r\nb\rc</h><i><![CDATA[]]></i></r>",
    "<r><?pi x?>\xC3\xA9t\xC3\xA9 \xE2\x82\xAC<j>caf\xC3\xA9</j></r>",
    "<Property name=\"s\"><Parameter id=\"1\" name=\"p\" value=\"0.5\" useKeyframe=\"True\">"
    "<Keyframe position=\"0\" value=\"1\" interpolation=\"Linear\"/>"
    "<Keyframe position=\"1\" value=\"2\" interpolation=\"Hold\"/></Parameter></Property>",
    "<a:b x.y-z='1' _u='2'/>",
    "<a>&#xD800;</a>",
    "<a>&#0;</a>",
    "<a>&#X41;</a>",
    "<a>&unknown;</a>",
    "<a x='&#4294967361;'/>",
    "<!DOCTYPE a><a/>",
    "\xEF\xBB\xBF<a/>",
    "<\xC3\xA9/>",
    "<a \xC3\xA9='1'/>",
    "<a x='1'y='2'/>",
    "<a x='1' x='2'/>",
    "<a></b>",
    "<a></ab>",
    "<a><b></a>",
    "<a/><b/>",
    "text<a/>",
    "<a/>text",
    "<a/><![CDATA[x]]>",
    "<a><!DOCTYPE a></a>",
    "<a x=1/>",
    "<a / >",
    "<a><!-- unclosed </a>",
    "<a><?pi unclosed </a>",
    "<a><? x?></a>",
    "<a",
    "<a x='",
    "",
    "   ",
    "<a/><",
};

TEST(XmlReaders, TheSameTreeFromBothReaders) {
  int plain = 0;
  for (const char* text : kDocuments) plain += Compare(text, text) ? 1 : 0;
  EXPECT_GE(plain, 10) << plain;
}

// Random documents from pieces that matter to either reader, then cut,
// doubled or spliced at random places.
TEST(XmlReaders, TheSameTreeOnRandomDocuments) {
  const char* const pieces[] = {"<a>",
                                "</a>",
                                "<b x='1'>",
                                "</b>",
                                "<c/>",
                                "<d y=\"&amp;\" z='\t'/>",
                                "text",
                                " ",
                                "\r\n",
                                "\r",
                                "&lt;",
                                "&#233;",
                                "&#x10000;",
                                "&bad;",
                                "<!--c-->",
                                "<?p q?>",
                                "<![CDATA[x\r\ny]]>",
                                "\xC3\xA9",
                                ">",
                                "'",
                                "=",
                                "<e f = 'g' h='i'/>",
                                "<?xml version='1.0'?>"};
  std::mt19937 random(7);
  int plain = 0;
  constexpr int kDocuments = 600;
  for (int n = 0; n < kDocuments; ++n) {
    std::string text = "<r>";
    const int count = static_cast<int>(random() % 12);
    for (int i = 0; i < count; ++i) text += pieces[random() % std::size(pieces)];
    text += "</r>";
    if (random() % 3 == 0) {
      const std::size_t at = random() % text.size();
      switch (random() % 3) {
        case 0:
          text.erase(at, 1);
          break;
        case 1:
          text.insert(at, 1, text[random() % text.size()]);
          break;
        default:
          text.insert(at, pieces[random() % std::size(pieces)]);
          break;
      }
    }
    plain += Compare(text, text) ? 1 : 0;
  }
  EXPECT_GE(plain, kDocuments / 10) << plain;
}

// Attribute values are scanned a word at a time: whatever ends the plain
// run (the quote, a reference, a blank to make a space, a byte beyond ASCII)
// is found at every place in and around a word.
TEST(XmlReaders, TheSameValuesWhereverTheirRunEnds) {
  const char* const stops[] = {"", "&amp;", "\t", "\n", "\r\n", "\r", "'", "\"", "<", "\xC3\xA9"};
  for (const char quote : {'"', '\''}) {
    for (std::size_t length = 0; length <= 19; ++length) {
      for (std::size_t at = 0; at <= length; ++at) {
        for (const char* stop : stops) {
          std::string value(length, 'v');
          value.insert(at, stop);
          const std::string text = std::string("<a x=") + quote + value + quote + " y='1'/>";
          Compare(text, text);
        }
      }
    }
  }
}

// A file reads as its text does, failures placed alike, though the text of
// a file is parsed where it was read.
TEST(XmlReaders, AFileReadsAsItsText) {
  qdtest::TempDir temp;
  const std::string path = temp.path() + "/doc.xml";
  const char* const texts[] = {
      "<r a='1'><b>x</b></r>",
      "<r>\n  <!DOCTYPE x>\n</r>",
      "<r>\n\t<b x='1' x='2'/>\n</r>",
      "<?xml version='1.0'?>\n<!DOCTYPE r [ <!ENTITY e 'x'> ]>\n<r>&e;\r\n&amp;</r>\n",
      "<r>\n<a>\n</r>",
  };
  // Past the first megabyte the plain reader has given back the text it
  // passed: what it leaves near the end is read from the file again.
  std::string big = "<r>";
  while (big.size() < (std::size_t{3} << 19)) big += "<k position='0.25' value='-3.5'/>\n";
  const std::string bigTexts[] = {big + "<x>&e;</x></r>", big + "<x>\xC3\xA9</x></r>",
                                  big + "<x></y></r>", big + "</r>"};
  std::vector<std::string> all(std::begin(texts), std::end(texts));
  all.insert(all.end(), std::begin(bigTexts), std::end(bigTexts));
  for (const std::string& text : all) {
    qdtest::WriteFile(path, text);
    for (const bool positions : {false, true}) {
      CXMLDoc fromFile, fromText;
      fromFile.KeepPositions(positions);
      fromText.KeepPositions(positions);
      const int fileResult = fromFile.OpenDocFile(qdtest::Wide(path).c_str());
      const std::string label = text.substr(text.size() - std::min<std::size_t>(text.size(), 40));
      EXPECT_EQ(fileResult, fromText.OpenDocMemory(std::string_view(text))) << label;
      EXPECT_EQ(fromFile.GetLastFailure().message, fromText.GetLastFailure().message) << label;
      EXPECT_EQ(fromFile.GetLastFailure().line, fromText.GetLastFailure().line) << label;
      EXPECT_EQ(fromFile.GetLastFailure().column, fromText.GetLastFailure().column) << label;
      EXPECT_TRUE(fromFile.GetContentElement().IsEqual(fromText.GetContentElement())) << label;
    }
  }
}

}  // namespace
