// The plain reader: documents as parameter sets are written, read straight
// into nodes in one pass, without a parser's tree in between. It reads what
// the general reader reads and builds the same tree; whatever it is not sure
// of (names beyond ASCII, document types, unknown references, anything
// malformed) it leaves to the general reader, which also words every
// failure.
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "utf8.h"
#include "xmlread.h"

namespace qdcore::reading {

namespace {

// What each byte may be, looked up once rather than compared range by range:
// names and values are scanned a byte at a time.
enum CharClass : unsigned char { kSpace = 1, kNameStart = 2, kNameChar = 4 };

constexpr std::array<unsigned char, 256> MakeCharClasses() {
  std::array<unsigned char, 256> classes{};
  for (const char c : {' ', '\t', '\n', '\r'}) classes[static_cast<unsigned char>(c)] = kSpace;
  for (int c = 0; c < 256; ++c) {
    const bool start = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':';
    const bool other = (c >= '0' && c <= '9') || c == '-' || c == '.';
    if (start) classes[c] |= kNameStart | kNameChar;
    if (other) classes[c] |= kNameChar;
  }
  return classes;
}

constexpr std::array<unsigned char, 256> kCharClasses = MakeCharClasses();

bool Is(char c, CharClass kind) noexcept {
  return (kCharClasses[static_cast<unsigned char>(c)] & kind) != 0;
}

bool IsSpace(char c) noexcept { return Is(c, kSpace); }
bool IsNameStart(char c) noexcept { return Is(c, kNameStart); }
bool IsNameChar(char c) noexcept { return Is(c, kNameChar); }

// The length of the start of `text` that holds neither `quote`, '&' nor a
// byte below 0x20 (where blanks other than spaces sit), eight bytes at a
// time: attribute values are most of a document.
std::size_t PlainValueLength(std::string_view text, char quote) noexcept {
  constexpr std::uint64_t kOnes = 0x0101010101010101ull;
  constexpr std::uint64_t kHighs = 0x8080808080808080ull;
  // The top bit of each byte below `limit`. A byte's borrow may mark the
  // next more significant byte too, never a less significant one: the
  // lowest mark is exact, and on little-endian machines it is the first
  // byte in the text.
  const auto below = [](std::uint64_t word, std::uint64_t limit) {
    return (word - kOnes * limit) & ~word & kHighs;
  };
  const std::uint64_t quotes = kOnes * static_cast<unsigned char>(quote);
  const std::uint64_t amps = kOnes * static_cast<unsigned char>('&');
  std::size_t at = 0;
  for (; at + 8 <= text.size(); at += 8) {
    const std::uint64_t word = Load64(text.data() + at);
    const std::uint64_t found = below(word ^ quotes, 1) | below(word ^ amps, 1) | below(word, 0x20);
    if (!found) continue;
    if constexpr (std::endian::native != std::endian::little) break;  // the bytes find it
    return at + static_cast<std::size_t>(std::countr_zero(found)) / 8;
  }
  for (; at < text.size(); ++at) {
    const char c = text[at];
    if (c == quote || c == '&' || static_cast<unsigned char>(c) < 0x20) break;
  }
  return at;
}

// Where a name may end: the general reader's names go on through bytes past
// ASCII, which this reader leaves to it.
bool EndsName(char c) noexcept { return !IsNameChar(c) && static_cast<unsigned char>(c) < 0x80; }

// True when the ASCII name `text` spells `name`, an open element's: its
// name is checked against the node's, since the text may be released while
// the element is open.
bool Spells(std::string_view text, std::u16string_view name) noexcept {
  if (text.size() != name.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (static_cast<char16_t>(text[i]) != name[i]) return false;
  }
  return true;
}

// The value of a hexadecimal or decimal digit; -1 for none.
int DigitValue(char c, int base) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (base == 16 && c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (base == 16 && c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The reference at `text[at]` ('&') appended to `out`, `at` moved past it.
// False for any reference but the five named ones and characters that
// UTF-16 carries (no NUL, no surrogate), written "&#ddd;" or "&#xhh;".
bool AppendReference(std::string_view text, std::size_t& at, std::string& out) {
  static constexpr struct {
    std::string_view name;
    char c;
  } kNamed[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&apos;", '\''}, {"&quot;", '"'}};
  const std::string_view rest = text.substr(at);
  for (const auto& named : kNamed) {
    if (!rest.starts_with(named.name)) continue;
    out += named.c;
    at += named.name.size();
    return true;
  }
  if (!rest.starts_with("&#")) return false;
  const int base = rest.starts_with("&#x") ? 16 : 10;
  std::size_t end = base == 16 ? 3 : 2;
  const std::size_t first = end;
  char32_t code = 0;
  for (; end < rest.size() && end - first < 7; ++end) {
    const int digit = DigitValue(rest[end], base);
    if (digit < 0) break;
    code = code * static_cast<char32_t>(base) + static_cast<char32_t>(digit);
  }
  if (end == first || end >= rest.size() || rest[end] != ';') return false;
  if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
  AppendUtf8(out, code);
  at += end + 1;
  return true;
}

class PlainReader {
 public:
  PlainReader(std::string_view text, CXMLDoc::Positions* positions, TextRelease* release)
      : m_text(text),
        m_builder(text.size()),
        m_positions(positions),
        m_counter(text),
        m_release(release) {}

  bool Read(CXMLObject& result) {
    if (m_text.starts_with("\xEF\xBB\xBF")) return false;  // a second mark: the general reader's
    if (!SkipMisc() || !StartsElement()) return false;
    CXMLObject root;  // owns the tree as it grows, so giving up frees it
    if (!Element(root) || !SkipMisc() || m_at != m_text.size()) return false;
    result = std::move(root);
    return true;
  }

 private:
  // An open element: its node and the text pieces met so far.
  struct Frame {
    Node* node = nullptr;
    std::size_t pieces = 0;
    std::string_view first;  // the first piece, while it is one of the text
    bool owned = false;      // the pieces are in `joined`, not in `first`
    std::string joined;

    std::string_view Data() const noexcept { return owned ? joined : first; }
  };

  char At(std::size_t at) const noexcept { return at < m_text.size() ? m_text[at] : '\0'; }
  bool Ahead(std::string_view what) const noexcept {
    return m_at <= m_text.size() && m_text.substr(m_at).starts_with(what);
  }
  bool StartsElement() const noexcept { return At(m_at) == '<' && IsNameStart(At(m_at + 1)); }

  // Past `close`, searched from `from`; false when it never comes.
  bool SkipPast(std::size_t from, std::string_view close) {
    const std::size_t end = m_text.find(close, from);
    if (end == std::string_view::npos) return false;
    m_at = end + close.size();
    return true;
  }

  // Comments and processing instructions (the declaration among them).
  bool SkipMarkup() {
    if (Ahead("<!--")) return SkipPast(m_at + 4, "-->");
    return Ahead("<?") && IsNameStart(At(m_at + 2)) && SkipPast(m_at + 2, "?>");
  }

  // Blanks, comments and processing instructions around the document element.
  bool SkipMisc() {
    for (;;) {
      while (m_at < m_text.size() && IsSpace(m_text[m_at])) ++m_at;
      if (!Ahead("<!--") && !Ahead("<?")) return true;
      if (!SkipMarkup()) return false;
    }
  }

  std::string_view Name() {
    const std::size_t start = m_at;
    std::size_t end = start;  // a local: the loop keeps it in a register
    while (end < m_text.size() && IsNameChar(m_text[end])) ++end;
    m_at = end;
    return m_text.substr(start, end - start);
  }

  struct Attr {
    std::string_view name;
    std::string_view value;  // in the text, unless `kept` says where it is
    std::size_t kept = kInText;
  };
  static constexpr std::size_t kInText = ~std::size_t{0};

  // An attribute value up to `quote`, references replaced and blanks made
  // spaces, as the general reader reads it: the text itself when nothing
  // changes, else a copy in `m_values`. False without its closing quote.
  bool Value(char quote, Attr& attr) {
    const std::size_t start = m_at;
    m_at += PlainValueLength(m_text.substr(start), quote);
    if (At(m_at) == quote) {
      attr.value = m_text.substr(start, m_at++ - start);
      return true;
    }
    m_scratch.assign(m_text.substr(start, m_at - start));
    while (m_at < m_text.size()) {
      const char c = m_text[m_at];
      if (c == quote) {
        ++m_at;
        attr.kept = m_values.size();
        m_values.push_back(m_scratch);
        return true;
      }
      if (c == '&') {
        if (!AppendReference(m_text, m_at, m_scratch)) return false;
        continue;
      }
      if (c == '\r' && At(m_at + 1) == '\n') ++m_at;  // one space for a line break
      m_scratch += IsSpace(c) ? ' ' : c;
      ++m_at;
    }
    return false;
  }

  // The attributes of a start tag up to its end; `empty` for "/>".
  bool Attributes(bool& empty) {
    m_attrs.clear();
    m_values.clear();
    for (;;) {
      const std::size_t before = m_at;
      while (m_at < m_text.size() && IsSpace(m_text[m_at])) ++m_at;
      const char c = At(m_at);
      if (c == '>' || (c == '/' && At(m_at + 1) == '>')) {
        empty = c == '/';
        m_at += empty ? 2 : 1;
        return true;
      }
      if (!IsNameStart(c) || m_at == before) return false;
      Attr& attr = m_attrs.emplace_back();
      attr.name = Name();
      if (!EndsName(At(m_at))) return false;
      while (m_at < m_text.size() && IsSpace(m_text[m_at])) ++m_at;
      if (At(m_at) != '=') return false;
      ++m_at;
      while (m_at < m_text.size() && IsSpace(m_text[m_at])) ++m_at;
      const char quote = At(m_at);
      if (quote != '"' && quote != '\'') return false;
      ++m_at;
      if (!Value(quote, attr) || m_attrs.size() > CXMLDoc::kMaxAttributes) return false;
    }
  }

  // The start tag at `m_at` into a node owned by `slot`; `empty` for "/>".
  bool StartTag(CXMLObject& slot, std::string_view& name, bool& empty) {
    const std::size_t start = m_at++;
    name = Name();
    const char after = At(m_at);
    if (!EndsName(after) || (after != '>' && after != '/' && !IsSpace(after))) return false;
    if (!Attributes(empty)) return false;
    Node* node = TreeBuilder::Place(slot, m_attrs.size());
    if (!m_builder.Name(*node, name)) return false;
    for (std::size_t i = 0; i < m_attrs.size(); ++i) {
      const Attr& attr = m_attrs[i];
      const std::string_view value = attr.kept == kInText ? attr.value : m_values[attr.kept];
      if (!m_builder.Attribute(*node, i, attr.name, value)) return false;
    }
    if (!m_builder.AttributesDone(*node)) return false;
    if (m_positions) {
      CXMLDoc::Positions::Place& place = m_positions->places[node];
      m_counter.Place(start, place.line, place.column);
    }
    return true;
  }

  // A piece of an element's data; `lasting` when it is part of the text,
  // which outlives the read.
  void AddPiece(Frame& frame, std::string_view piece, bool lasting) {
    if (frame.pieces++ == 0 && lasting) {
      frame.first = piece;
      return;
    }
    if (!frame.owned) {
      frame.joined.assign(frame.first);
      frame.owned = true;
    }
    frame.joined += piece;
  }

  // Character data up to the next '<', references replaced and line breaks
  // made "\n"; blank data is no piece. False when no '<' follows.
  bool Text(Frame& frame) {
    const std::size_t start = m_at;
    const std::size_t end = m_text.find('<', start);
    if (end == std::string_view::npos) return false;
    m_at = end;
    const std::string_view raw = m_text.substr(start, end - start);
    bool blank = true;
    bool plain = true;
    for (const char c : raw) {
      blank = blank && IsSpace(c);
      plain = plain && c != '&' && c != '\r';
    }
    if (blank) return true;
    if (plain) {
      AddPiece(frame, raw, !m_release);
      return true;
    }
    std::string converted;
    for (std::size_t at = 0; at < raw.size();) {
      const char c = raw[at];
      if (c == '&') {
        if (!AppendReference(raw, at, converted)) return false;
        continue;
      }
      if (c == '\r' && at + 1 < raw.size() && raw[at + 1] == '\n') ++at;
      converted += c == '\r' ? '\n' : c;
      ++at;
    }
    AddPiece(frame, converted, false);
    return true;
  }

  // CDATA: the text as it stands, line breaks made "\n".
  bool Cdata(Frame& frame) {
    const std::size_t start = m_at + 9;  // past "<![CDATA["
    const std::size_t end = m_text.find("]]>", start);
    if (end == std::string_view::npos) return false;
    m_at = end + 3;
    std::string piece;
    for (std::size_t at = start; at < end; ++at) {
      const char c = m_text[at];
      if (c == '\r' && at + 1 < end && m_text[at + 1] == '\n') continue;
      piece += c == '\r' ? '\n' : c;
    }
    AddPiece(frame, piece, false);
    return true;
  }

  // The end tag of `frame` at `m_at`.
  bool EndTag(const Frame& frame) {
    m_at += 2;
    if (!Spells(Name(), frame.node->name.view()) || !EndsName(At(m_at))) return false;
    while (m_at < m_text.size() && IsSpace(m_text[m_at])) ++m_at;
    if (At(m_at) != '>') return false;
    ++m_at;
    return true;
  }

  // Lets the text before the reader go, a step at a time.
  void Passed() noexcept {
    if (!m_release || m_at - m_passed < kReleaseStep) return;
    m_release->Passed(m_text.data() + m_at);
    m_passed = m_at;
  }
  static constexpr std::size_t kReleaseStep = std::size_t{1} << 20;

  // The element's data from its pieces.
  bool Close(Frame& frame) {
    Node& node = *frame.node;
    if (frame.pieces >= 2) return m_builder.Joined(frame.Data(), node.text);
    return m_builder.Text(frame.Data(), node.text);
  }

  // The element starting at `m_at`, with everything inside, owned by `slot`;
  // a stack rather than recursion, however deep the document.
  bool Element(CXMLObject& slot) {
    std::string_view name;
    bool empty = false;
    if (!StartTag(slot, name, empty)) return false;
    if (empty) return true;
    std::size_t depth = 0;
    const auto open = [&](Node* node) {
      if (depth == m_frames.size()) m_frames.emplace_back();
      Frame& frame = m_frames[depth++];
      frame.node = node;
      frame.pieces = 0;
      frame.first = {};
      frame.owned = false;
      frame.joined.clear();
    };
    open(Node::Of(slot));
    while (depth > 0) {
      Passed();
      Frame& frame = m_frames[depth - 1];
      if (At(m_at) != '<' && !Text(frame)) return false;
      const char next = At(m_at + 1);
      if (next == '/') {
        if (!EndTag(frame) || !Close(frame)) return false;
        --depth;
      } else if (next == '!' && Ahead("<![CDATA[")) {
        if (!Cdata(frame)) return false;
      } else if (next == '!' || next == '?') {
        if (!SkipMarkup()) return false;
      } else if (IsNameStart(next)) {
        if (depth + 1 > CXMLDoc::kMaxDepth) return false;
        CXMLObject& child = frame.node->children.emplace_back();
        if (!StartTag(child, name, empty)) return false;
        if (!empty) open(Node::Of(child));
      } else {
        return false;
      }
    }
    return true;
  }

  std::string_view m_text;
  std::size_t m_at = 0;
  TreeBuilder m_builder;
  CXMLDoc::Positions* m_positions;
  PlaceCounter m_counter;
  TextRelease* m_release;
  std::size_t m_passed = 0;
  std::vector<Frame> m_frames;
  std::vector<Attr> m_attrs;
  std::vector<std::string> m_values;  // attribute values that differ from their text
  std::string m_scratch;
};

}  // namespace

bool ReadPlain(std::string_view text, CXMLObject& root, CXMLDoc::Positions* positions,
               TextRelease* release) {
  PlainReader reader(text, positions, release);
  return reader.Read(root);
}

}  // namespace qdcore::reading
