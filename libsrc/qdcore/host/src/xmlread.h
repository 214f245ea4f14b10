// What the two readers of documents share: names and texts made once per
// read, the element's nodes filled the same way, and places in the text.
// The general reader (xmldoc.cpp) copies a parser's tree; the plain reader
// (xmlplain.cpp) builds nodes straight from the text it understands.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "xmlnode.h"

namespace qdcore {

// Where each element of a read tree starts, by its storage.
struct CXMLDoc::Positions {
  struct Place {
    unsigned int line;
    unsigned int column;
  };
  std::unordered_map<const CXMLObject::Node*, Place> places;
  std::vector<CXMLDoc::Reference> references;
};

namespace reading {

using Node = CXMLObject::Node;

// ---- text conversion

// UTF-8 to UTF-16 into `out`. ASCII, the common case, is widened in one
// tight loop; anything else goes through the general converter. False when
// the parser produced bad UTF-8 (a reference to a surrogate, say).
inline bool Widen(std::string_view text, std::u16string& out) {
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

inline std::uint64_t Load64(const char* p) noexcept {
  std::uint64_t word;
  std::memcpy(&word, p, 8);
  return word;
}

inline std::uint64_t Load32(const char* p) noexcept {
  std::uint32_t word;
  std::memcpy(&word, p, 4);
  return word;
}

inline std::uint64_t Mix(std::uint64_t hash) noexcept {
  hash *= 0xFF51AFD7ED558CCDull;
  return hash ^ (hash >> 32);
}

// A quick hash for short texts: whole words, the last one overlapping, so
// that no load waits on byte-sized stores.
inline std::uint64_t HashText(std::string_view text) noexcept {
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

// A name as met in the document, and its string. The key is a copy: the
// text it came from may be gone before the read ends.
struct NameHint {
  static constexpr std::size_t kNoId = ~std::size_t{0};
  std::string key;
  CZPoolString name;
  std::size_t id = kNoId;  // the name's place in its cache; kNoId when not cached
};

// Element and attribute names, interned once per read: documents repeat a
// few names many times, and the pool takes a lock per lookup.
class NameCache {
 public:
  // The pool takes every name for good; a document with endless distinct
  // names gets plain strings past this many.
  static constexpr std::size_t kMaxPooled = 4096;

  bool Get(std::string_view key, NameHint& found) {
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
      found = {std::string(key), CZPoolString(wide), NameHint::kNoId};
      return true;
    }
    m_slots[at] = {std::string(key), CStringPool::GetStringRef(wide), m_used};
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
// writer's output malformed too. `pooled`: every name is a pooled entry, so
// two are equal exactly when they are the same entry.
inline bool HasDuplicateNames(const XMLAttrList& attrs, bool pooled = false) {
  if (attrs.size() <= 16) {
    for (std::size_t i = 1; i < attrs.size(); ++i) {
      for (std::size_t k = 0; k < i; ++k) {
        const CZPoolString& a = attrs[i].name;
        const CZPoolString& b = attrs[k].name;
        if (pooled ? a.same(b) : SameName(a, b)) return true;
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
// Slots keep their own copy of the text: a value with references replaced
// lives in a scratch buffer only while it is read.
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
    if (slot.hash == hash && slot.text && slot.Key() == utf8) {
      text = *slot.text;
      return true;
    }
    if (!Make(utf8, text)) return false;
    std::memcpy(slot.key, utf8.data(), utf8.size());
    slot.size = static_cast<unsigned char>(utf8.size());
    slot.hash = hash;
    slot.text = &text;
    return true;
  }

 private:
  struct Slot {
    std::string_view Key() const noexcept { return {key, size}; }
    char key[kMaxLength];
    unsigned char size = 0;
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

// Fills the nodes of a read tree, element by element, from names and texts
// in UTF-8 as the document gives them (references already replaced).
class TreeBuilder {
 public:
  explicit TreeBuilder(std::size_t documentSize) : m_values(documentSize) {}

  // A node with room for `attrCount` attributes, owned by `slot`.
  static Node* Place(CXMLObject& slot, std::size_t attrCount) {
    Node::Adopt(slot, Node::Create(attrCount));
    return Node::Of(slot);
  }

  // The name of `node`; its attributes follow. False (see Why) when the
  // name cannot be made.
  bool Name(Node& node, std::string_view utf8) {
    if (!Name(utf8, m_element, node.name)) return false;
    m_hints = AttrHints(m_element.id);
    return true;
  }

  // Appends the attribute `index` of the node named last.
  bool Attribute(Node& node, std::size_t index, std::string_view name, std::string_view value) {
    if (m_hints && m_hints->size() <= index && index < kMaxHints) m_hints->emplace_back();
    NameHint& hint = m_hints && index < m_hints->size() ? (*m_hints)[index] : m_unhinted;
    XMLAttr& attr = node.attrs.emplace_back();  // filled in place: no temporaries
    if (index == 0) m_attrsPooled = true;
    if (!Name(name, hint, attr.name)) return false;
    m_attrsPooled = m_attrsPooled && hint.id != NameHint::kNoId;
    return Text(value, attr.text);
  }

  // After the attributes: false when a name is given twice.
  bool AttributesDone(const Node& node) {
    m_duplicate = HasDuplicateNames(node.attrs, m_attrsPooled);
    return !m_duplicate;
  }

  // The data of an element of one text piece.
  bool Text(std::string_view utf8, CZPoolString& text) {
    return utf8.empty() || m_values.Get(utf8, text);
  }

  // The data of an element of several pieces, joined: its own string.
  bool Joined(std::string_view utf8, CZPoolString& text) {
    if (!Widen(utf8, m_text)) return false;
    if (!m_text.empty()) text = CZPoolString(std::u16string_view(m_text));
    return true;
  }

  // Why the last call failed: names and texts fail only on references to
  // code points that UTF-16 cannot carry.
  std::string Why() const {
    return m_duplicate ? "an attribute given twice" : "a reference to a character that is not one";
  }

 private:
  // Elements of one name mostly list the same attributes in the same order,
  // and siblings mostly share a name: a hint from last time saves the lookup.
  bool Name(std::string_view utf8, NameHint& hint, CZPoolString& name) {
    if (!hint.name || hint.key != utf8) {
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

  NameCache m_names;
  NameHint m_element;                              // the last element's name
  NameHint m_unhinted;                             // scratch for attributes without a hint
  std::vector<std::vector<NameHint>> m_attrHints;  // by element name id
  std::vector<NameHint>* m_hints = nullptr;        // the last element's attribute hints
  ValueCache m_values;
  std::u16string m_text;
  bool m_duplicate = false;
  bool m_attrsPooled = false;  // every attribute name of the last element is pooled
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
// Reads `text`, UTF-8 checked already, into `root` when it keeps to what
// parameter documents use (elements, attributes, text and CDATA, comments
// and processing instructions, the five named references and character
// references), exactly as the general reader would; places elements in
// `positions` when given. False, with `root` untouched, for anything else,
// which the general reader then reads (or refuses, saying why).
// `release`, when given, hears now and then how far the reader has read:
// the text before that is not looked at again.
class TextRelease {
 public:
  virtual ~TextRelease() = default;
  // The text before `passed` is read.
  virtual void Passed(const char* passed) noexcept = 0;
};
bool ReadPlain(std::string_view text, CXMLObject& root, CXMLDoc::Positions* positions,
               TextRelease* release = nullptr);

}  // namespace reading
}  // namespace qdcore
