// Serialising elements: the XML text writer and its memory and file outputs.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "atomicfile.h"
#include "xmlnode.h"

namespace qdcore {

using Node = CXMLObject::Node;

namespace {

constexpr std::size_t kChunkChars = 32 * 1024;   // text handed to Emit at a time
constexpr std::size_t kFlushBytes = 256 * 1024;  // file bytes buffered before a write
constexpr std::size_t kMaxIndent = 64;           // deeper levels share the last indent
constexpr std::u16string_view kCdataOpen = u"<![CDATA[";
constexpr std::u16string_view kCdataClose = u"]]>";

// ---- names

bool IsNameStart(char32_t c) noexcept {
  if (c < 0x80)
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_' || c == u':';
  return (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
         (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) ||
         (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
         (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
         (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD) ||
         (c >= 0x10000 && c <= 0xEFFFF);
}

bool IsNameChar(char32_t c) noexcept {
  if (IsNameStart(c)) return true;
  return (c >= u'0' && c <= u'9') || c == u'-' || c == u'.' || c == 0xB7 ||
         (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

bool IsXmlName(std::u16string_view name) noexcept {
  if (name.empty()) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    char32_t c = name[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < name.size() && name[i + 1] >= 0xDC00 &&
        name[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (name[i + 1] - 0xDC00);
      ++i;
    }
    if (!(i == 0 ? IsNameStart(c) : IsNameChar(c))) return false;
  }
  return true;
}

// Checks names, remembering the last few good ones: trees repeat a handful of
// pooled names, so most checks are an identity compare.
class NameChecker {
 public:
  bool Valid(const CZPoolString& name) noexcept {
    for (const CZPoolString* known : m_recent) {
      if (known && known->same(name)) return true;
    }
    if (!IsXmlName(name.view())) return false;
    m_recent[m_next++ % std::size(m_recent)] = &name;
    return true;
  }

 private:
  const CZPoolString* m_recent[8] = {};
  unsigned m_next = 0;
};

// True when every element and attribute name in the tree is an XML name, so
// that nothing is written for a tree that would come out malformed.
bool HasValidNames(const Node& root) {
  NameChecker names;
  std::vector<const Node*> pending{&root};
  while (!pending.empty()) {
    const Node& node = *pending.back();
    pending.pop_back();
    if (!names.Valid(node.name)) return false;
    for (const XMLAttr& attr : node.attrs) {
      if (!names.Valid(attr.name)) return false;
    }
    for (const CXMLObject& child : node.children) {
      if (const Node* c = Node::Of(child)) pending.push_back(c);
    }
  }
  return true;
}

// ---- escaping

void AppendCharRef(std::u16string& out, char16_t c) {
  char16_t digits[8];
  std::size_t n = 0;
  unsigned value = c;
  do {
    digits[n++] = static_cast<char16_t>(u'0' + value % 10);
    value /= 10;
  } while (value);
  out += u"&#";
  while (n) out += digits[--n];
  out += u';';
}

void AppendEscape(std::u16string& out, char16_t c) {
  switch (c) {
    case u'&':
      out += u"&amp;";
      return;
    case u'<':
      out += u"&lt;";
      return;
    case u'>':
      out += u"&gt;";
      return;
    case u'"':
      out += u"&quot;";
      return;
    default:
      AppendCharRef(out, c);
  }
}

// Appends `text`, escaping the characters `needsEscape` selects.
template <typename Pred>
void AppendEscaped(std::u16string& out, std::u16string_view text, Pred needsEscape) {
  std::size_t clean = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!needsEscape(text[i])) continue;
    out.append(text.substr(clean, i - clean));
    AppendEscape(out, text[i]);
    clean = i + 1;
  }
  out.append(text.substr(clean));
}

// Attribute values lose raw tabs and line ends to normalisation; references
// keep them.
bool AttrNeedsEscape(char16_t c) noexcept {
  return c < 0x20 || c == u'&' || c == u'<' || c == u'>' || c == u'"';
}

bool TextNeedsEscape(char16_t c) noexcept {
  return (c < 0x20 && c != u'\t' && c != u'\n') || c == u'&' || c == u'<' || c == u'>';
}

// CDATA cannot carry '\r' (line ends are normalised) nor other control
// characters: such text needs character references.
bool NeedsCharRefs(std::u16string_view text) noexcept {
  for (const char16_t c : text) {
    if (c < 0x20 && c != u'\t' && c != u'\n') return true;
  }
  return false;
}

// Readers drop whitespace-only text between tags; CDATA keeps it.
bool IsAllBlank(std::u16string_view text) noexcept {
  for (const char16_t c : text) {
    if (c != u' ' && c != u'\t' && c != u'\n') return false;
  }
  return true;
}

void AppendCdata(std::u16string& out, std::u16string_view text) {
  out += kCdataOpen;
  // "]]>" would end the section: end it after "]]" and go on in a new one.
  for (std::size_t at; (at = text.find(kCdataClose)) != std::u16string_view::npos;) {
    out.append(text.substr(0, at + 2));
    out += kCdataClose;
    out += kCdataOpen;
    text.remove_prefix(at + 2);
  }
  out.append(text);
  out += kCdataClose;
}

void AppendData(std::u16string& out, const Node& node) {
  if (node.binary) {
    if (const std::vector<unsigned char>* bytes = node.Binary()) {
      AppendBase64(out, bytes->data(), bytes->size());
    }
    return;
  }
  const std::u16string_view text = node.text.view();
  if (NeedsCharRefs(text)) {
    AppendEscaped(out, text, TextNeedsEscape);
  } else if (CXMLObject::CDATARequired(text) || IsAllBlank(text)) {
    AppendCdata(out, text);
  } else {
    out.append(text);
  }
}

void AppendStartTag(std::u16string& out, const Node& node) {
  out += u'<';
  out += node.name.view();
  for (const XMLAttr& attr : node.attrs) {
    out += u' ';
    out += attr.name.view();
    out += u"=\"";
    AppendEscaped(out, attr.text.view(), AttrNeedsEscape);
    out += u'"';
  }
}

void AppendEndTag(std::u16string& out, const Node& node) {
  out += u"</";
  out += node.name.view();
  out += u'>';
}

void AppendIndent(std::u16string& out, std::size_t depth) {
  out.append(std::min(depth, kMaxIndent), u'\t');
}

bool IsHighSurrogate(char16_t c) noexcept { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char16_t c) noexcept { return c >= 0xDC00 && c <= 0xDFFF; }

}  // namespace

// ---------------------------------------------------------------------------
// CXMLObject::Write
// ---------------------------------------------------------------------------

bool CXMLObject::Write(CXMLOut& out) const {
  if (!m_node || !HasValidNames(*m_node)) return false;
  struct Frame {
    const Node* node;
    std::size_t next;   // the next child to write
    bool pretty;        // this element sits on its own indented line
    bool prettyInside;  // its children do too (not when it holds data)
  };
  std::vector<Frame> open;
  std::u16string text;
  text.reserve(kChunkChars + 4096);

  // Writes a childless element whole; otherwise its start and data, leaving
  // it open on the stack.
  const auto start = [&](const Node& node, bool pretty) {
    if (pretty) AppendIndent(text, open.size());
    AppendStartTag(text, node);
    const bool hasData = node.HasData();
    if (!hasData && node.children.empty()) {
      text += pretty ? u"/>\n" : u"/>";
      return;
    }
    text += u'>';
    if (hasData) AppendData(text, node);
    if (node.children.empty()) {
      AppendEndTag(text, node);
      if (pretty) text += u'\n';
      return;
    }
    const bool prettyInside = pretty && !hasData;
    if (prettyInside) text += u'\n';
    open.push_back({&node, 0, pretty, prettyInside});
  };

  start(*m_node, out.m_indent);
  while (!open.empty()) {
    if (text.size() >= kChunkChars) {
      if (!out.Emit(text)) return false;
      text.clear();
    }
    Frame& top = open.back();
    if (top.next < top.node->children.size()) {
      const Node* child = top.node->children[top.next++].m_node;
      if (child) start(*child, top.prettyInside);  // may grow `open`: `top` is not used after
      continue;
    }
    const Frame done = top;
    open.pop_back();
    if (done.prettyInside) AppendIndent(text, open.size());
    AppendEndTag(text, *done.node);
    if (done.pretty) text += u'\n';
  }
  return out.Emit(text);
}

bool CXMLOut::Write(const CXMLObject& element) { return IsOpen() && element.Write(*this); }

// ---------------------------------------------------------------------------
// CXMLMemOut
// ---------------------------------------------------------------------------

CXMLMemOut::CXMLMemOut(int flags) {
  m_indent = (flags & 1) != 0;
  Open();
}

bool CXMLMemOut::Open() {
  m_text.clear();
  m_open = true;
  return true;
}

bool CXMLMemOut::Close(int) {
  m_open = false;
  return true;
}

bool CXMLMemOut::Emit(std::u16string_view text) {
  if (!m_open) return false;
  m_text.append(text);
  return true;
}

// ---------------------------------------------------------------------------
// CXMLFileOut
// ---------------------------------------------------------------------------

// The file is written beside its target and put in place by Close: until
// then, and whenever a write fails, the target keeps what it held.
struct CXMLFileOut::Impl {
  AtomicFile file;
  std::string buffer;        // UTF-8 not yet written
  char16_t pendingHigh = 0;  // a high surrogate whose partner comes with the next text

  bool Flush() {
    const bool wrote = file.Write(buffer.data(), buffer.size());
    buffer.clear();
    return wrote;
  }
};

CXMLFileOut::CXMLFileOut(int flags) : m_impl(new Impl), m_flags(flags) {}

CXMLFileOut::~CXMLFileOut() {
  Close();
  delete m_impl;
}

bool CXMLFileOut::Open(const wchar* path, int) {
  Close();
  if (!path) return false;
  const std::string name = ToUtf8(path);
  if (name.empty() || name.find('\0') != std::string::npos) return false;
  if (!m_impl->file.Begin(name)) return false;
  m_impl->pendingHigh = 0;
  m_indent = (m_flags & 1) != 0;
  if (m_indent) m_impl->buffer = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  return true;
}

bool CXMLFileOut::Close(int) {
  Impl& impl = *m_impl;
  if (!impl.file.IsOpen()) return false;
  if (impl.pendingHigh) impl.buffer += ToUtf8(std::u16string_view(&impl.pendingHigh, 1));
  impl.pendingHigh = 0;
  const bool flushed = impl.Flush();
  return impl.file.Commit() && flushed;
}

bool CXMLFileOut::IsOpen() const noexcept { return m_impl->file.IsOpen(); }

bool CXMLFileOut::Emit(std::u16string_view text) {
  Impl& impl = *m_impl;
  if (!impl.file.IsOpen()) return false;
  // A surrogate pair split between two texts must be encoded as one character.
  if (impl.pendingHigh && !text.empty()) {
    const char16_t pair[2] = {impl.pendingHigh, text.front()};
    const bool joined = IsLowSurrogate(text.front());
    impl.buffer += ToUtf8(std::u16string_view(pair, joined ? 2 : 1));
    impl.pendingHigh = 0;
    if (joined) text.remove_prefix(1);
  }
  if (!text.empty() && IsHighSurrogate(text.back())) {
    impl.pendingHigh = text.back();
    text.remove_suffix(1);
  }
  impl.buffer += ToUtf8(text);
  return impl.buffer.size() < kFlushBytes || impl.Flush();
}

}  // namespace qdcore
