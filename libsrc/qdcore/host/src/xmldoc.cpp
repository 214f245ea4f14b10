// Reading documents: pugixml parses, and the result is copied into a
// CXMLObject tree without recursion.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "xmlnode.h"

namespace qdcore {

using Node = CXMLObject::Node;

namespace {

// ---- input checks

enum class Utf8Check { kOk, kBad, kNul };

bool HasZeroByte(std::uint64_t word) noexcept {
  return ((word - 0x0101010101010101ull) & ~word & 0x8080808080808080ull) != 0;
}

// Strict UTF-8: no overlong forms, surrogates or values past U+10FFFF. A NUL
// byte is reported apart: it is valid UTF-8 but never valid XML.
// `at` is set to the offending byte.
Utf8Check CheckUtf8(std::string_view text, std::size_t& at) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  std::size_t& i = at;
  i = 0;
  while (i < size) {
    if (size - i >= 8) {
      std::uint64_t word;
      std::memcpy(&word, p + i, 8);
      if (!(word & 0x8080808080808080ull) && !HasZeroByte(word)) {
        i += 8;
        continue;
      }
    }
    const unsigned lead = p[i];
    if (lead == 0) return Utf8Check::kNul;
    if (lead < 0x80) {
      ++i;
      continue;
    }
    std::size_t length;
    char32_t c;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2, c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3, c = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4, c = lead & 0x07;
    } else {
      return Utf8Check::kBad;
    }
    if (size - i < length) return Utf8Check::kBad;
    for (std::size_t k = 1; k < length; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return Utf8Check::kBad;
      c = (c << 6) | (p[i + k] & 0x3F);
    }
    if (length == 3 && (c < 0x800 || (c >= 0xD800 && c <= 0xDFFF))) return Utf8Check::kBad;
    if (length == 4 && (c < 0x10000 || c > 0x10FFFF)) return Utf8Check::kBad;
    i += length;
  }
  return Utf8Check::kOk;
}

// ---- text conversion

// UTF-8 to UTF-16 into `out`. ASCII, the common case, is widened in one
// tight loop; anything else goes through the general converter. False when
// the parser produced bad UTF-8 (a reference to a surrogate, say).
bool Widen(std::string_view text, std::u16string& out) {
  out.resize(text.size());
  char16_t* to = out.data();
  unsigned char seen = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    seen |= c;
    to[i] = c;
  }
  return seen < 0x80 || FromUtf8(text, out);
}

std::uint64_t Load64(const char* p) noexcept {
  std::uint64_t word;
  std::memcpy(&word, p, 8);
  return word;
}

std::uint64_t Load32(const char* p) noexcept {
  std::uint32_t word;
  std::memcpy(&word, p, 4);
  return word;
}

std::uint64_t Mix(std::uint64_t hash) noexcept {
  hash *= 0xFF51AFD7ED558CCDull;
  return hash ^ (hash >> 32);
}

// A quick hash for short texts: whole words, the last one overlapping, so
// that no load waits on byte-sized stores.
std::uint64_t HashText(std::string_view text) noexcept {
  const char* p = text.data();
  const std::size_t size = text.size();
  std::uint64_t hash = size * 0x9E3779B97F4A7C15ull;
  if (size >= 8) {
    for (std::size_t at = 0; at + 8 <= size; at += 8) hash = Mix(hash ^ Load64(p + at));
    return size % 8 ? Mix(hash ^ Load64(p + size - 8)) : hash;
  }
  if (size >= 4) return Mix(hash ^ Load32(p) ^ (Load32(p + size - 4) << 32));
  if (size == 0) return hash;
  const auto byte = [p](std::size_t at) {
    return std::uint64_t{static_cast<unsigned char>(p[at])};
  };
  return Mix(hash ^ byte(0) ^ (byte(size / 2) << 8) ^ (byte(size - 1) << 16));
}

// A name as met in the document, and its string.
struct NameHint {
  static constexpr std::size_t kNoId = ~std::size_t{0};
  std::string_view key;  // points into the parsed document, alive during the copy
  CZPoolString name;
  std::size_t id = kNoId;  // the name's place in its cache; kNoId when not cached
};

// True when the zero-terminated `text` equals `key` (which holds no zero).
bool Matches(const char* text, std::string_view key) noexcept {
  for (const char c : key) {
    if (*text++ != c) return false;  // stops at text's end: the key has no zero
  }
  return *text == '\0';
}

// Element and attribute names, interned once per parse: documents repeat a
// few names many times, and the pool takes a lock per lookup.
class NameCache {
 public:
  // The pool takes every name for good; a document with endless distinct
  // names gets plain strings past this many.
  static constexpr std::size_t kMaxPooled = 4096;

  bool Get(const char* utf8, NameHint& found) {
    const std::string_view key(utf8);
    const std::size_t mask = m_slots.size() - 1;
    std::size_t at = HashText(key) & mask;
    for (; m_slots[at].name; at = (at + 1) & mask) {
      if (m_slots[at].key == key) {
        found = m_slots[at];
        return true;
      }
    }
    if (!Widen(key, m_wide)) return false;
    const std::u16string_view wide(m_wide);
    if (m_used >= kMaxPooled || wide.empty()) {
      found = {key, CZPoolString(wide), NameHint::kNoId};
      return true;
    }
    m_slots[at] = {key, CStringPool::GetStringRef(wide), m_used};
    found = m_slots[at];
    if (++m_used * 2 > m_slots.size()) Grow();
    return true;
  }

 private:
  void Grow() {
    std::vector<NameHint> old(m_slots.size() * 2);
    old.swap(m_slots);
    const std::size_t mask = m_slots.size() - 1;
    for (NameHint& slot : old) {
      if (!slot.name) continue;
      std::size_t at = HashText(slot.key) & mask;
      while (m_slots[at].name) at = (at + 1) & mask;
      m_slots[at] = std::move(slot);
    }
  }

  std::vector<NameHint> m_slots = std::vector<NameHint>(64);
  std::size_t m_used = 0;
  std::u16string m_wide;
};

// Duplicate attribute names make a document malformed, and would make our
// writer's output malformed too.
bool HasDuplicateNames(const XMLAttrList& attrs) {
  if (attrs.size() <= 16) {
    for (std::size_t i = 1; i < attrs.size(); ++i) {
      for (std::size_t k = 0; k < i; ++k) {
        if (SameName(attrs[i].name, attrs[k].name)) return true;
      }
    }
    return false;
  }
  // A set rather than a sort: an element with a million attributes costs a
  // million steps.
  std::unordered_set<std::u16string_view> names;
  names.reserve(attrs.size());
  for (const XMLAttr& attr : attrs) {
    if (!names.insert(attr.name.view()).second) return true;
  }
  return false;
}

// Short values repeat (flags, modes, round numbers): equal ones within a
// document share one string instead of allocating their own. A fixed table
// where a newcomer replaces the old entry keeps this cheap and bounded. A
// slot points at the string where the tree holds it: the tree only grows
// while it is built, so the string lives as long as the table, and a
// replaced slot costs nothing (no count to drop on a string long gone cold).
class ValueCache {
 public:
  static constexpr std::size_t kMaxLength = 24;

  explicit ValueCache(std::size_t documentSize) {
    std::size_t slots = 16;
    while (slots < 4096 && slots * 256 < documentSize) slots *= 2;
    m_slots.resize(slots);
  }

  // Sets `text`, a string in the tree being built, to the string for
  // `utf8`, shared with an equal value met before when there is one. False
  // for bad UTF-8.
  bool Get(std::string_view utf8, CZPoolString& text) {
    if (utf8.size() > kMaxLength) return Make(utf8, text);
    const std::uint64_t hash = HashText(utf8);
    Slot& slot = m_slots[hash & (m_slots.size() - 1)];
    if (slot.hash == hash && slot.text && slot.key == utf8) {
      text = *slot.text;
      return true;
    }
    if (!Make(utf8, text)) return false;
    slot = {utf8, hash, &text};
    return true;
  }

 private:
  struct Slot {
    std::string_view key;  // points into the parsed document
    std::uint64_t hash = 0;
    const CZPoolString* text = nullptr;  // in the tree being built
  };

  bool Make(std::string_view utf8, CZPoolString& text) {
    if (!Widen(utf8, m_wide)) return false;
    text = CZPoolString(std::u16string_view(m_wide));
    return true;
  }

  std::vector<Slot> m_slots;
  std::u16string m_wide;
};

// Copies pugixml elements into nodes, one element at a time.
class TreeBuilder {
 public:
  explicit TreeBuilder(std::size_t documentSize) : m_values(documentSize) {}

  // A node for `source`, with room for its attributes, owned by `slot`.
  // Null when it has more attributes than a document may give an element.
  static Node* Place(CXMLObject& slot, const pugi::xml_node& source) {
    std::size_t count = 0;
    for (pugi::xml_attribute a = source.first_attribute(); a; a = a.next_attribute()) {
      if (++count > CXMLDoc::kMaxAttributes) return nullptr;
    }
    Node::Adopt(slot, Node::Create(count));
    return Node::Of(slot);
  }

  // Name, attributes and text of `source`; room for its child elements.
  bool Fill(Node& node, const pugi::xml_node& source) {
    if (!Name(source.name(), m_element, node.name)) return false;
    std::vector<NameHint>* hints = AttrHints(m_element.id);
    std::size_t index = 0;
    for (pugi::xml_attribute a = source.first_attribute(); a; a = a.next_attribute(), ++index) {
      if (hints && hints->size() <= index && index < kMaxHints) hints->emplace_back();
      NameHint& hint = hints && index < hints->size() ? (*hints)[index] : m_unhinted;
      XMLAttr& attr = node.attrs.emplace_back();  // filled in place: no temporaries
      if (!Name(a.name(), hint, attr.name) || !Text(a.value(), attr.text)) return false;
    }
    if (HasDuplicateNames(node.attrs)) {
      m_duplicate = true;
      return false;
    }
    return FillContent(node, source);
  }

  // Why the last Fill failed: names and texts fail only on references to
  // code points that UTF-16 cannot carry.
  std::string Why() const {
    return m_duplicate ? "an attribute given twice" : "a reference to a character that is not one";
  }

 private:
  // Elements of one name mostly list the same attributes in the same order,
  // and siblings mostly share a name: a hint from last time saves the lookup.
  bool Name(const char* utf8, NameHint& hint, CZPoolString& name) {
    if (!hint.name || !Matches(utf8, hint.key)) {
      if (!m_names.Get(utf8, hint)) return false;
    }
    name = hint.name;
    return true;
  }

  static constexpr std::size_t kMaxHints = 64;  // per element name; later attributes go unhinted

  // The attribute hints of the element name `id`; null for uncached names.
  std::vector<NameHint>* AttrHints(std::size_t id) {
    if (id == NameHint::kNoId) return nullptr;
    if (id >= m_attrHints.size()) m_attrHints.resize(id + 1);
    return &m_attrHints[id];
  }

  bool Text(std::string_view utf8, CZPoolString& text) {
    return utf8.empty() || m_values.Get(utf8, text);
  }

  // Text and CDATA pieces join into the element's data.
  bool FillContent(Node& node, const pugi::xml_node& source) {
    std::size_t elements = 0;
    pugi::xml_node firstText;
    std::size_t pieces = 0;
    for (pugi::xml_node c = source.first_child(); c; c = c.next_sibling()) {
      const pugi::xml_node_type type = c.type();
      if (type == pugi::node_element) {
        ++elements;
      } else if (type == pugi::node_pcdata || type == pugi::node_cdata) {
        if (!pieces++) firstText = c;
      }
    }
    node.children.reserve(elements);
    if (pieces == 1) return Text(firstText.value(), node.text);
    return pieces == 0 || JoinText(node, firstText);
  }

  bool JoinText(Node& node, pugi::xml_node piece) {
    std::u16string joined;
    for (; piece; piece = piece.next_sibling()) {
      const pugi::xml_node_type type = piece.type();
      if (type != pugi::node_pcdata && type != pugi::node_cdata) continue;
      if (!Widen(piece.value(), m_text)) return false;
      joined += m_text;
    }
    if (!joined.empty()) node.text = CZPoolString(std::u16string_view(joined));
    return true;
  }

  NameCache m_names;
  NameHint m_element;                              // the last element's name
  NameHint m_unhinted;                             // scratch for attributes without a hint
  std::vector<std::vector<NameHint>> m_attrHints;  // by element name id
  ValueCache m_values;
  std::u16string m_text;
  bool m_duplicate = false;
};

// ---- places in the text

// 1-based line and column (in characters) of byte offsets met in rising
// order, as the elements of a document are: each call continues from the
// last, so placing every element costs one pass over the text.
class PlaceCounter {
 public:
  explicit PlaceCounter(std::string_view text) noexcept : m_text(text) {}

  void Place(std::size_t offset, unsigned int& line, unsigned int& column) noexcept {
    if (offset < m_at) *this = PlaceCounter(m_text);  // not rising: start over
    offset = std::min(offset, m_text.size());
    for (; m_at < offset; ++m_at) {
      const auto c = static_cast<unsigned char>(m_text[m_at]);
      if (c == '\n') {
        ++m_line;
        m_column = 1;
      } else if ((c & 0xC0) != 0x80) {  // not a continuation byte: a new character
        ++m_column;
      }
    }
    line = m_line;
    column = m_column;
  }

 private:
  std::string_view m_text;
  std::size_t m_at = 0;
  unsigned int m_line = 1;
  unsigned int m_column = 1;
};

// The result of a read, with the failure's message and place.
struct Outcome {
  CXMLDoc::Result result = CXMLDoc::kOk;
  std::string message;
  std::size_t offset = 0;
  bool placed = false;  // `offset` means something
};

Outcome Fail(CXMLDoc::Result result, std::string message) {
  return {result, std::move(message), 0, false};
}

Outcome FailAt(CXMLDoc::Result result, std::string message, std::ptrdiff_t offset) {
  if (offset < 0) return Fail(result, std::move(message));
  return {result, std::move(message), static_cast<std::size_t>(offset), true};
}

}  // namespace

// Where each element of a read tree starts, by its storage.
struct CXMLDoc::Positions {
  struct Place {
    unsigned int line;
    unsigned int column;
  };
  std::unordered_map<const Node*, Place> places;
  std::vector<CXMLDoc::Reference> references;
};

namespace {

// ---- references the reader leaves as text

bool IsEntityNameChar(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == ':' || c == '.' || c == '-' || static_cast<unsigned char>(c) >= 0x80;
}

// Past the end of the markup that starts at `at` with `open`, or `at` when
// none starts there. A document type's internal subset ends at "]>".
std::size_t SkipMarkup(std::string_view text, std::size_t at) noexcept {
  const struct {
    std::string_view open, close;
  } kinds[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
  for (const auto& kind : kinds) {
    if (text.substr(at, kind.open.size()) != kind.open) continue;
    const std::size_t end = text.find(kind.close, at + kind.open.size());
    return end == std::string_view::npos ? text.size() : end + kind.close.size();
  }
  if (text.substr(at, 9) != "<!DOCTYPE") return at;
  const std::size_t close = text.find('>', at);
  const std::size_t subset = text.find('[', at);
  const std::size_t end = subset < close ? text.find("]>", subset) : close;
  return end == std::string_view::npos ? text.size() : end + (subset < close ? 2 : 1);
}

// Every "&name;" outside markup whose name is not one of the five XML
// predefines; `counter` places them.
void FindUnresolved(std::string_view text, PlaceCounter& counter,
                    std::vector<CXMLDoc::Reference>& found) {
  constexpr std::string_view kPredefined[] = {"lt", "gt", "amp", "apos", "quot"};
  constexpr std::size_t kLongestName = 256;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '<') {
      const std::size_t past = SkipMarkup(text, at);
      if (past != at) at = past - 1;
      continue;
    }
    if (text[at] != '&') continue;
    std::size_t end = at + 1;
    while (end < text.size() && end - at <= kLongestName && IsEntityNameChar(text[end])) ++end;
    if (end == at + 1 || end >= text.size() || text[end] != ';') continue;
    const std::string_view name = text.substr(at + 1, end - at - 1);
    bool predefined = false;
    for (const std::string_view known : kPredefined) predefined = predefined || name == known;
    if (predefined) continue;
    CXMLDoc::Reference& reference = found.emplace_back();
    reference.name = std::string(name);
    counter.Place(at, reference.line, reference.column);
  }
}

}  // namespace

namespace {

// Where an element starts: pugixml gives its name's offset, one past the '<'.
std::ptrdiff_t StartOf(const pugi::xml_node& node, std::string_view text) noexcept {
  const std::ptrdiff_t at = node.offset_debug();
  if (at <= 0 || static_cast<std::size_t>(at) > text.size()) return at;
  return text[static_cast<std::size_t>(at) - 1] == '<' ? at - 1 : at;
}

Outcome Convert(const pugi::xml_document& doc, std::string_view text, CXMLObject& result,
                CXMLDoc::Positions* positions) {
  pugi::xml_node top;
  for (pugi::xml_node n = doc.first_child(); n; n = n.next_sibling()) {
    if (n.type() != pugi::node_element)
      return FailAt(CXMLDoc::kMalformed, "text outside the document element", StartOf(n, text));
    if (top) return FailAt(CXMLDoc::kMalformed, "a second document element", StartOf(n, text));
    top = n;
  }
  if (!top) return Fail(CXMLDoc::kNoElement, "no document element");

  PlaceCounter counter(text);
  TreeBuilder builder(text.size());
  // Every element goes through here: its size is checked before anything
  // is made for it, and its place noted when asked for.
  const auto make = [&](CXMLObject& slot, const pugi::xml_node& source,
                        std::size_t depth) -> Outcome {
    const std::ptrdiff_t start = StartOf(source, text);
    if (depth > CXMLDoc::kMaxDepth) {
      return FailAt(CXMLDoc::kTooLarge,
                    "elements nested deeper than " + std::to_string(CXMLDoc::kMaxDepth), start);
    }
    Node* node = TreeBuilder::Place(slot, source);
    if (!node) {
      return FailAt(
          CXMLDoc::kTooLarge,
          "an element with more than " + std::to_string(CXMLDoc::kMaxAttributes) + " attributes",
          start);
    }
    if (!builder.Fill(*node, source)) return FailAt(CXMLDoc::kMalformed, builder.Why(), start);
    if (positions && start >= 0) {
      CXMLDoc::Positions::Place& place = positions->places[node];
      counter.Place(static_cast<std::size_t>(start), place.line, place.column);
    }
    return {};
  };

  CXMLObject root;  // owns the tree as it grows, so any failure frees it
  if (Outcome made = make(root, top, 1); made.result != CXMLDoc::kOk) return made;
  struct Frame {
    Node* node;
    pugi::xml_node next;  // the next child of the source element to look at
  };
  std::vector<Frame> open{{Node::Of(root), top.first_child()}};
  while (!open.empty()) {
    Frame& frame = open.back();
    while (frame.next && frame.next.type() != pugi::node_element)
      frame.next = frame.next.next_sibling();
    if (!frame.next) {
      open.pop_back();
      continue;
    }
    const pugi::xml_node source = frame.next;
    frame.next = source.next_sibling();
    CXMLObject& slot = frame.node->children.emplace_back();
    if (Outcome made = make(slot, source, open.size() + 1); made.result != CXMLDoc::kOk)
      return made;
    open.push_back({Node::Of(slot), source.first_child()});
  }
  result = std::move(root);
  return {};
}

class FileHandle {
 public:
  explicit FileHandle(const char* path, int extraFlags = 0) noexcept
      : m_fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | extraFlags)) {}
  ~FileHandle() {
    if (m_fd >= 0) ::close(m_fd);
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  int fd() const noexcept { return m_fd; }

 private:
  int m_fd;
};

std::string TooLargeMessage() {
  return "a document larger than " + std::to_string(CXMLDoc::kMaxBytes >> 20) + " MB";
}

// Reads `utf8` into `root`; places elements in `positions` when given.
// `inPlace`: the parser may write into the text (no copy of it is made),
// which `utf8` then views in a buffer the caller owns and drops after. The
// places of failures are not right then (the text they count changed).
Outcome Read(std::string_view utf8, CXMLObject& root, CXMLDoc::Positions* positions,
             bool inPlace = false) {
  if (utf8.size() > CXMLDoc::kMaxBytes) return Fail(CXMLDoc::kTooLarge, TooLargeMessage());
  if (utf8.starts_with("\xEF\xBB\xBF")) utf8.remove_prefix(3);
  std::size_t bad = 0;
  switch (CheckUtf8(utf8, bad)) {
    case Utf8Check::kOk:
      break;
    case Utf8Check::kBad:
      return FailAt(CXMLDoc::kNotUtf8, "not UTF-8", static_cast<std::ptrdiff_t>(bad));
    case Utf8Check::kNul:
      return FailAt(CXMLDoc::kMalformed, "a NUL character", static_cast<std::ptrdiff_t>(bad));
  }
  // A fragment parse keeps text outside the root, so that Convert can
  // reject it.
  constexpr unsigned kOptions = pugi::parse_cdata | pugi::parse_escapes |
                                pugi::parse_wconv_attribute | pugi::parse_eol |
                                pugi::parse_fragment;
  pugi::xml_document doc;
  const pugi::xml_parse_result parsed =
      inPlace ? doc.load_buffer_inplace(const_cast<char*>(utf8.data()), utf8.size(), kOptions,
                                        pugi::encoding_utf8)
              : doc.load_buffer(utf8.data(), utf8.size(), kOptions, pugi::encoding_utf8);
  if (parsed.status == pugi::status_out_of_memory) throw std::bad_alloc();
  if (parsed.status != pugi::status_ok)
    return FailAt(CXMLDoc::kMalformed, parsed.description(), parsed.offset);
  Outcome converted = Convert(doc, utf8, root, positions);
  if (positions && converted.result == CXMLDoc::kOk) {
    PlaceCounter counter(utf8);
    FindUnresolved(utf8, counter, positions->references);
  }
  return converted;
}

// Only regular files: a pipe or a device could block or never end. The
// check is made on the opened descriptor (a name checked first could be
// swapped before the open), which is opened non-blocking so that opening a
// pipe with no writer returns at once.
Outcome ReadFile(const std::string& path, bool follow, std::string& content) {
  const FileHandle file(path.c_str(), follow ? 0 : O_NOFOLLOW);
  struct stat info;
  if (file.fd() < 0 || ::fstat(file.fd(), &info) != 0)
    return Fail(CXMLDoc::kCannotOpen, std::strerror(errno));
  if (!S_ISREG(info.st_mode)) return Fail(CXMLDoc::kCannotOpen, "not a regular file");
  if (static_cast<std::uint64_t>(info.st_size) > CXMLDoc::kMaxBytes)
    return Fail(CXMLDoc::kTooLarge, TooLargeMessage());
  // Read straight into the string, with a byte of room past the size told
  // so that a file that grew shows without a copy.
  std::size_t size = 0;
  content.resize(static_cast<std::size_t>(info.st_size) + 1);
  for (;;) {
    if (size == content.size()) content.resize(std::min(size * 2, CXMLDoc::kMaxBytes + 1));
    const ssize_t got = ::read(file.fd(), content.data() + size, content.size() - size);
    if (got == 0) break;
    if (got < 0 && errno != EINTR) return Fail(CXMLDoc::kCannotOpen, std::strerror(errno));
    if (got > 0) size += static_cast<std::size_t>(got);
    if (size > CXMLDoc::kMaxBytes)  // grew while read
      return Fail(CXMLDoc::kTooLarge, TooLargeMessage());
  }
  content.resize(size);
  return {};
}

}  // namespace

int CXMLDoc::OpenDocMemory(std::string_view utf8) {
  m_root.Free();
  m_positions.reset();
  m_failure = {};
  std::shared_ptr<Positions> positions;
  if (m_keepPositions) positions = std::make_shared<Positions>();
  const Outcome outcome = Read(utf8, m_root, positions.get());
  if (outcome.result == kOk) {
    m_positions = std::move(positions);
    return kOk;
  }
  m_failure.message = outcome.message;
  if (outcome.placed) {
    PlaceCounter counter(utf8.starts_with("\xEF\xBB\xBF") ? utf8.substr(3) : utf8);
    counter.Place(outcome.offset, m_failure.line, m_failure.column);
  }
  return outcome.result;
}

int CXMLDoc::OpenDocMemory(std::u16string_view text) {
  return OpenDocMemory(std::string_view(ToUtf8(text)));
}

int CXMLDoc::OpenDocFile(const wchar* path, int, int flags) {
  m_root.Free();
  m_positions.reset();
  m_failure = {};
  if (!path) {
    m_failure.message = "no file name";
    return kCannotOpen;
  }
  const std::string name = ToUtf8(path);
  const bool follow = (flags & kNoFollow) == 0;
  std::string content;
  const Outcome read = ReadFile(name, follow, content);
  if (read.result != kOk) {
    m_failure.message = read.message;
    return read.result;
  }
  // Without positions the text is ours to parse in place, without a copy;
  // a failure is then read again to be placed in the text as it was.
  if (!m_keepPositions && Read(content, m_root, nullptr, true).result == kOk) return kOk;
  m_root.Free();
  if (!m_keepPositions) {
    content.clear();
    const Outcome again = ReadFile(name, follow, content);
    if (again.result != kOk) {
      m_failure.message = again.message;
      return again.result;
    }
  }
  return OpenDocMemory(std::string_view(content));
}

std::vector<CXMLDoc::Reference> CXMLDoc::GetUnresolvedReferences() const {
  return m_positions ? m_positions->references : std::vector<Reference>();
}

bool CXMLDoc::GetPosition(const CXMLObject& element, unsigned int& line,
                          unsigned int& column) const {
  if (!m_positions) return false;
  const auto found = m_positions->places.find(Node::Of(element));
  if (found == m_positions->places.end()) return false;
  line = found->second.line;
  column = found->second.column;
  return true;
}

}  // namespace qdcore
