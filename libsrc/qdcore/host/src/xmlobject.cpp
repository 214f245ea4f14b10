// CXMLObject: storage sharing, attributes, children, data and comparison.
#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "qdcore/log.h"
#include "xmlnode.h"

namespace qdcore {

using Node = CXMLObject::Node;

namespace {

constexpr unsigned int kNotFound = 0xFFFFFFFFu;
// Merges of up to this many attributes in all compare names one by one.
constexpr std::size_t kScannedMerge = 64;

bool IsBlank(wchar c) noexcept { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

std::u16string_view Trim(std::u16string_view text) noexcept {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::u16string_view ViewOf(const wchar* text) noexcept {
  return text ? std::u16string_view(text) : std::u16string_view();
}

// Calls `visit(entry, index)` for each separator-joined entry, trimmed, until
// it returns true; returns that entry's index or kNotFound.
template <typename Visit>
unsigned int ForEachEntry(std::u16string_view list, wchar separator, Visit visit) {
  unsigned int index = 0;
  for (;;) {
    const std::size_t end = list.find(separator);
    if (visit(Trim(list.substr(0, end)), index)) return index;
    if (end == std::u16string_view::npos) return kNotFound;
    list.remove_prefix(end + 1);
    ++index;
  }
}

// The index of `child` in `children`, or -1 when it does not point at one.
std::ptrdiff_t IndexOf(const XMLChildList& children, const CXMLObject* child) noexcept {
  if (!child || children.empty()) return -1;
  const auto first = reinterpret_cast<std::uintptr_t>(children.data());
  const auto at = reinterpret_cast<std::uintptr_t>(child);
  const std::uintptr_t span = children.size() * sizeof(CXMLObject);
  if (at < first || at - first >= span || (at - first) % sizeof(CXMLObject) != 0) return -1;
  return static_cast<std::ptrdiff_t>((at - first) / sizeof(CXMLObject));
}

bool NameMatches(const CXMLObject& child, const CZPoolString& name) noexcept {
  if (!name) return true;
  const Node* node = Node::Of(child);
  return node && SameName(node->name, name);
}

// The first child at or after `from` matching `name`; -1 when none.
std::ptrdiff_t FindChild(const Node& node, const CZPoolString& name, std::size_t from) noexcept {
  for (std::size_t i = from; i < node.children.size(); ++i) {
    if (NameMatches(node.children[i], name)) return static_cast<std::ptrdiff_t>(i);
  }
  return -1;
}

const std::vector<unsigned char>& BytesOf(const Node& node) {
  static const std::vector<unsigned char> kNone;
  const std::vector<unsigned char>* bytes = node.Binary();
  return bytes ? *bytes : kNone;
}

bool SameData(const Node& a, const Node& b) {
  if (a.binary && b.binary) return BytesOf(a) == BytesOf(b);
  if (!a.binary && !b.binary) return a.text == b.text;
  const std::vector<unsigned char>& bytes = BytesOf(a.binary ? a : b);
  const Node& txt = a.binary ? b : a;
  std::u16string encoded;
  AppendBase64(encoded, bytes.data(), bytes.size());
  return txt.text.view() == std::u16string_view(encoded);
}

// ---- change tracking

// Each watched storage takes a version from here when observed and again
// when changed, so a version is never reused, not even by storage that
// comes to live at a freed one's address.
std::atomic<std::uint64_t> g_versions{0};

std::uint64_t NewVersion() noexcept {
  return g_versions.fetch_add(1, std::memory_order_relaxed) + 1;
}

void AdvanceEpoch() noexcept { detail::xmlWriteEpoch.fetch_add(1, std::memory_order_acq_rel); }

// The watches of nodes beyond their first, kept aside: few nodes have any
// (storage that copies share), so a node keeps a flag rather than a
// pointer. Each table's lock is taken to join a watch, to tell the watches
// and to let them go, so that none goes while it is told.
struct WatchLink {
  CXMLWatch* watch;  // one reference
  std::uint64_t tag;
};
struct AsideWatches {
  std::mutex lock;
  std::unordered_map<const void*, std::vector<WatchLink>> byNode;
};
// Never destroyed: nodes that static objects hold may go after it would.
constexpr std::size_t kAsideTables = 16;
AsideWatches& AsideOf(const void* node) noexcept {
  static AsideWatches* const tables = new AsideWatches[kAsideTables];
  return tables[(reinterpret_cast<std::uintptr_t>(node) >> 6) % kAsideTables];
}

constexpr std::uint32_t Reading(std::uint64_t tag) { return static_cast<std::uint32_t>(tag >> 32); }

bool SameText(std::u16string_view a, std::u16string_view b) noexcept {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(wchar)) == 0);
}

bool SameAttrs(const Node& a, const Node& b) noexcept {
  if (a.attrs.size() != b.attrs.size()) return false;
  for (std::size_t i = 0; i < a.attrs.size(); ++i) {
    if (!SameName(a.attrs[i].name, b.attrs[i].name)) return false;
    if (a.attrs[i].text != b.attrs[i].text) return false;
  }
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------
// XMLAttrList
// ---------------------------------------------------------------------------

XMLAttrList::~XMLAttrList() {
  for (XMLAttr& attr : *this) attr.~XMLAttr();
  if (OnHeap()) ::operator delete(m_data);
}

void XMLAttrList::UseInline(XMLAttr* storage, std::size_t capacity) noexcept {
  m_data = storage;
  m_capacity = static_cast<std::uint32_t>(capacity);  // Node::Create keeps it in range
}

void XMLAttrList::reserve(std::size_t capacity) {
  if (capacity <= this->capacity()) return;
  if (capacity > kMaxCapacity) throw std::bad_alloc();
  auto* grown = static_cast<XMLAttr*>(::operator new(capacity * sizeof(XMLAttr)));
  for (std::size_t i = 0; i < m_size; ++i) {
    new (grown + i) XMLAttr(std::move(m_data[i]));
    m_data[i].~XMLAttr();
  }
  if (OnHeap()) ::operator delete(m_data);
  m_data = grown;
  m_capacity = static_cast<std::uint32_t>(capacity) | kOnHeap;
}

void XMLAttrList::push_back(XMLAttr attr) {
  if (m_size == capacity()) reserve(m_size < 4 ? 4 : std::size_t{m_size} * 2);
  new (m_data + m_size) XMLAttr(std::move(attr));
  ++m_size;
}

XMLAttr& XMLAttrList::emplace_back() {
  if (m_size == capacity()) reserve(m_size < 4 ? 4 : std::size_t{m_size} * 2);
  return *new (m_data + m_size++) XMLAttr;
}

void XMLAttrList::erase(std::size_t index) noexcept {
  for (std::size_t i = index + 1; i < m_size; ++i) m_data[i - 1] = std::move(m_data[i]);
  m_data[--m_size].~XMLAttr();
}

void XMLAttrList::append(const XMLAttrList& other) {
  reserve(m_size + other.m_size);
  for (const XMLAttr& attr : other) {
    new (m_data + m_size) XMLAttr(attr);
    ++m_size;
  }
}

// ---------------------------------------------------------------------------
// XMLChildList
// ---------------------------------------------------------------------------

XMLChildList::~XMLChildList() {
  clear();
  ::operator delete(m_data);
}

void XMLChildList::Reallocate(std::size_t capacity) {
  if (capacity > kMaxCapacity) throw std::bad_alloc();
  auto* grown = static_cast<CXMLObject*>(::operator new(capacity * sizeof(CXMLObject)));
  for (std::size_t i = 0; i < m_size; ++i) {
    new (grown + i) CXMLObject(std::move(m_data[i]));
    m_data[i].~CXMLObject();
  }
  ::operator delete(m_data);
  m_data = grown;
  m_capacity = static_cast<std::uint32_t>(capacity);
}

void XMLChildList::MakeRoom() {
  if (m_size == m_capacity) Reallocate(m_size ? std::size_t{m_size} * 2 : 1);
}

void XMLChildList::reserve(std::size_t capacity) {
  if (capacity > m_capacity) Reallocate(capacity);
}

void XMLChildList::resize(std::size_t size) {
  if (size > m_capacity) Reallocate(std::max(size, std::size_t{m_size} * 2));
  while (m_size > size) m_data[--m_size].~CXMLObject();
  for (; m_size < size; ++m_size) new (m_data + m_size) CXMLObject;
}

CXMLObject& XMLChildList::emplace_back() {
  MakeRoom();
  return *new (m_data + m_size++) CXMLObject;
}

void XMLChildList::push_back(CXMLObject&& child) {
  MakeRoom();
  new (m_data + m_size) CXMLObject(std::move(child));
  ++m_size;
}

void XMLChildList::erase(CXMLObject* at) noexcept {
  for (CXMLObject* to = at; to + 1 < end(); ++to) *to = std::move(to[1]);
  m_data[--m_size].~CXMLObject();
}

void XMLChildList::clear() noexcept {
  for (CXMLObject& child : *this) child.~CXMLObject();
  m_size = 0;
}

// ---------------------------------------------------------------------------
// Node
// ---------------------------------------------------------------------------

Node* Node::Create(std::size_t attrCount) {
  if (attrCount > XMLAttrList::kMaxCapacity) throw std::bad_alloc();
  static_assert(sizeof(Node) % alignof(XMLAttr) == 0);
  void* memory = ::operator new(sizeof(Node) + attrCount * sizeof(XMLAttr));
  Node* node = new (memory) Node;
  if (attrCount) node->attrs.UseInline(reinterpret_cast<XMLAttr*>(node + 1), attrCount);
  return node;
}

bool Node::HasData() const noexcept {
  if (!binary) return static_cast<bool>(text);
  const XMLBytes* data = bytes.load(std::memory_order_acquire);
  return data && !data->data.empty();
}

Node::~Node() {
  delete bytes.load(std::memory_order_relaxed);
  if (CXMLWatch* w = watch.load(std::memory_order_relaxed)) w->Release();
  if (!moreWatches.load(std::memory_order_acquire)) return;
  AsideWatches& aside = AsideOf(this);
  const std::lock_guard<std::mutex> lock(aside.lock);
  const auto found = aside.byNode.find(this);
  if (found == aside.byNode.end()) return;
  for (const WatchLink& link : found->second) link.watch->Release();
  aside.byNode.erase(found);
}

void Node::NoteChange() noexcept {
  if (!Watched()) return;
  version.store(NewVersion(), std::memory_order_release);
  Notify();
}

void Node::NoteDropped(const Node* node) noexcept {
  if (node && node->Watched()) node->Notify();
}

// Every watch that observed this storage hears of it under its own tag: a
// handle that drops shared storage cannot say whose it was, and the watch
// whose handle did not needs only to read it again to find it unchanged.
void Node::Notify() const noexcept {
  if (watchedPlainly.load(std::memory_order_acquire)) AdvanceEpoch();
  if (CXMLWatch* w = watch.load(std::memory_order_acquire)) {
    w->Note(static_cast<std::uint32_t>(watchTag.load(std::memory_order_relaxed)));
  }
  if (!moreWatches.load(std::memory_order_acquire)) return;
  AsideWatches& aside = AsideOf(this);
  const std::lock_guard<std::mutex> lock(aside.lock);
  const auto found = aside.byNode.find(this);
  if (found == aside.byNode.end()) return;
  for (const WatchLink& link : found->second)
    link.watch->Note(static_cast<std::uint32_t>(link.tag));
}

CXMLObject::Stamp Node::Stamp() noexcept {
  std::uint64_t current = version.load(std::memory_order_acquire);
  if (current == 0) {
    // Readers of shared storage may observe it at the same time: the first
    // version given stays, and the others take it.
    const std::uint64_t fresh = NewVersion();
    if (version.compare_exchange_strong(current, fresh, std::memory_order_acq_rel,
                                        std::memory_order_acquire)) {
      current = fresh;
    }
  }
  return {reinterpret_cast<std::uintptr_t>(this), current};
}

// The first watch takes the node's own slot, without a lock; each reading
// of it takes the slot again. Other watches, and the first one under a
// second tag in one reading, go to the list, which drops links to watches
// whose owners let go and to earlier readings.
bool Node::Join(CXMLWatch& w, std::uint32_t tag) noexcept {
  const std::uint32_t reading = w.m_reading.load(std::memory_order_relaxed);
  const std::uint64_t wanted = std::uint64_t{reading} << 32 | tag;
  CXMLWatch* first = watch.load(std::memory_order_acquire);
  if (!first) {
    w.Retain();
    if (watch.compare_exchange_strong(first, &w, std::memory_order_acq_rel)) {
      watchTag.store(wanted, std::memory_order_relaxed);
      return true;
    }
    w.Release();  // another watch came first: `first` holds it
  }
  if (first == &w) {
    const std::uint64_t had = watchTag.load(std::memory_order_relaxed);
    if (Reading(had) != reading || had == wanted) {
      watchTag.store(wanted, std::memory_order_relaxed);
      return true;
    }
  }
  AsideWatches& aside = AsideOf(this);
  const std::lock_guard<std::mutex> lock(aside.lock);
  try {
    std::vector<WatchLink>& links = aside.byNode[this];
    moreWatches.store(true, std::memory_order_release);
    std::size_t kept = 0;
    for (const WatchLink& link : links) {
      if (link.watch == &w && link.tag == wanted) return true;
      const bool stale =
          link.watch->Abandoned() || (link.watch == &w && Reading(link.tag) != reading);
      if (stale) {
        link.watch->Release();
      } else {
        links[kept++] = link;
      }
    }
    links.resize(kept);
    links.push_back({&w, wanted});
  } catch (const std::bad_alloc&) {
    return false;
  }
  w.Retain();
  return true;
}

void Node::Adopt(CXMLObject& element, Node* node) noexcept {
  if (node != element.m_node) NoteDropped(element.m_node);
  Release(std::exchange(element.m_node, node));
}

const XMLAttr* Node::FindAttr(const CZPoolString& attrName) const noexcept {
  // Pooled names match by identity; only then fall back to the text.
  for (const XMLAttr& attr : attrs) {
    if (attr.name.same(attrName)) return &attr;
  }
  for (const XMLAttr& attr : attrs) {
    if (attr.name == attrName) return &attr;
  }
  return nullptr;
}

const std::vector<unsigned char>* Node::Binary() const {
  XMLBytes* cached = bytes.load(std::memory_order_acquire);
  if (cached || binary || !text) return cached ? &cached->data : nullptr;
  auto fresh = std::make_unique<XMLBytes>();
  DecodeBase64(text.view(), fresh->data);
  // Another reader may have installed its copy first; keep the winner.
  if (bytes.compare_exchange_strong(cached, fresh.get(), std::memory_order_acq_rel,
                                    std::memory_order_acquire)) {
    return &fresh.release()->data;
  }
  return &cached->data;
}

Node* Node::Clone(const Node& source) {
  struct Pending {
    const Node* source;
    Node* target;
  };
  std::vector<Pending> pending;
  CXMLObject root;  // owns the copy while it is built, so a throw frees it
  Adopt(root, Create(source.attrs.size()));
  pending.push_back({&source, root.m_node});
  while (!pending.empty()) {
    const Pending job = pending.back();
    pending.pop_back();
    const Node& from = *job.source;
    Node& to = *job.target;
    to.name = from.name;
    to.attrs.append(from.attrs);
    to.binary = from.binary;
    to.text = from.text;
    const XMLBytes* data = from.bytes.load(std::memory_order_acquire);
    if (from.binary && data) to.SetBytes(new XMLBytes(*data));
    to.children.resize(from.children.size());
    for (std::size_t i = 0; i < from.children.size(); ++i) {
      Node* child = from.children[i].m_node;
      if (!child) continue;
      if (!child->leaked) {
        child->refs.fetch_add(1, std::memory_order_relaxed);
        to.children[i].m_node = child;
        continue;
      }
      Adopt(to.children[i], Create(child->attrs.size()));
      pending.push_back({child, to.children[i].m_node});
    }
  }
  return std::exchange(root.m_node, nullptr);
}

Node* Node::Share(Node* node) {
  if (!node) return nullptr;
  if (node->leaked) return Clone(*node);  // may throw std::bad_alloc, never share then
  node->refs.fetch_add(1, std::memory_order_relaxed);
  return node;
}

namespace {

// True when the caller held the last reference. A count of one needs no
// atomic update: no one else holds the node to change it.
bool DropRef(Node* node) noexcept {
  return node->refs.load(std::memory_order_acquire) == 1 ||
         node->refs.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

}  // namespace

void Node::Release(Node* node) noexcept {
  if (!node || !DropRef(node)) return;
  // Unlink children before deleting their parent so that a deep tree is
  // torn down in a loop, not by nested destructors.
  node->ChainDead(nullptr);
  while (node) {
    Node* dead = node;
    node = dead->NextDead();
    for (CXMLObject& child : dead->children) {
      Node* c = std::exchange(child.m_node, nullptr);
      if (c && DropRef(c)) {
        c->ChainDead(node);
        node = c;
      }
    }
    dead->~Node();
    ::operator delete(dead);
  }
}

// ---------------------------------------------------------------------------
// Storage
// ---------------------------------------------------------------------------

CXMLObject::CXMLObject(const CZPoolString& name) : m_node(Node::Create()) { m_node->name = name; }

CXMLObject::CXMLObject(const CXMLObject& other) : m_node(Node::Share(other.m_node)) {}

CXMLObject::CXMLObject(CXMLObject&& other) noexcept : m_node(std::exchange(other.m_node, nullptr)) {
  Node::NoteDropped(m_node);  // `other` no longer holds it
}

CXMLObject& CXMLObject::operator=(const CXMLObject& other) {
  if (this == &other) return *this;
  Node* shared = Node::Share(other.m_node);  // may throw: taken before anything changes
  if (shared != m_node) Node::NoteDropped(m_node);
  Node::Release(std::exchange(m_node, shared));
  return *this;
}

CXMLObject& CXMLObject::operator=(CXMLObject&& other) noexcept {
  if (this == &other) return *this;
  Node::NoteDropped(m_node);
  Node::NoteDropped(other.m_node);
  Node::Release(std::exchange(m_node, std::exchange(other.m_node, nullptr)));
  return *this;
}

// A handle going away needs no note: the handles a watcher checks are only
// ever dropped through Free, assignment or a change of their parent.
CXMLObject::~CXMLObject() { Node::Release(m_node); }

CXMLObject::Node* CXMLObject::Writable() {
  if (!m_node) return m_node = Node::Create();
  if (m_node->refs.load(std::memory_order_acquire) == 1) {
    m_node->NoteChange();
    return m_node;
  }
  Node* copy = Node::Clone(*m_node);
  Node::NoteDropped(m_node);  // this handle moves to its private copy
  Node::Release(std::exchange(m_node, copy));
  return m_node;
}

void CXMLObject::Free() noexcept {
  Node::NoteDropped(m_node);
  Node::Release(std::exchange(m_node, nullptr));
}

bool CXMLObject::Realloc() {
  if (m_node) Writable();
  return true;
}

bool CXMLObject::Reassign(const CXMLObject& other) {
  *this = other;
  return true;
}

// ---------------------------------------------------------------------------
// Name
// ---------------------------------------------------------------------------

bool CXMLObject::SetName(const CZPoolString& name) {
  Writable()->name = name;
  return true;
}

CZPoolString CXMLObject::GetName() const noexcept { return m_node ? m_node->name : CZPoolString(); }

bool CXMLObject::IsName(const CZPoolString& name) const noexcept {
  return SameName(m_node ? m_node->name : CZPoolString(), name);
}

bool CXMLObject::IsName(const wchar* name) const noexcept {
  const std::u16string_view own = m_node ? m_node->name.view() : std::u16string_view();
  return own == ViewOf(name);
}

// ---------------------------------------------------------------------------
// Attribute reads
// ---------------------------------------------------------------------------

CZPoolString CXMLObject::FindAttribute(const CZPoolString& name) const noexcept {
  const XMLAttr* attr = m_node ? m_node->FindAttr(name) : nullptr;
  return attr ? attr->text : CZPoolString();
}

CZPoolString CXMLObject::FindAttribute(const wchar* name) const {
  if (!m_node) return {};
  const std::u16string_view wanted = ViewOf(name);
  for (const XMLAttr& attr : m_node->attrs) {
    if (attr.name.view() == wanted) return attr.text;
  }
  return {};
}

bool CXMLObject::HasAttribute(const CZPoolString& name) const noexcept {
  return m_node && m_node->FindAttr(name);
}

// Lookups compare many elements in a row: the lengths first, then the
// bytes at once.
bool CXMLObject::AttributeEquals(const CZPoolString& name,
                                 const CZPoolString& text) const noexcept {
  const XMLAttr* attr = m_node ? m_node->FindAttr(name) : nullptr;
  if (!attr) return !text;  // absent reads as empty
  return attr->text.same(text) || SameText(attr->text.view(), text.view());
}

bool CXMLObject::AttributeEquals(const CZPoolString& name,
                                 std::u16string_view text) const noexcept {
  const XMLAttr* attr = m_node ? m_node->FindAttr(name) : nullptr;
  return SameText(attr ? attr->text.view() : std::u16string_view(), text);
}

long CXMLObject::FindAttributeInt(const CZPoolString& name, long defaultValue) const noexcept {
  const XMLAttr* attr = m_node ? m_node->FindAttr(name) : nullptr;
  return attr ? ParseInt(attr->text.c_str()) : defaultValue;
}

double CXMLObject::FindAttributeDouble(const CZPoolString& name,
                                       double defaultValue) const noexcept {
  const XMLAttr* attr = m_node ? m_node->FindAttr(name) : nullptr;
  return attr ? ParseDouble(attr->text.c_str()) : defaultValue;
}

bool CXMLObject::FindAttributeBool(const CZPoolString& name, bool defaultValue) const noexcept {
  const XMLAttr* attr = m_node ? m_node->FindAttr(name) : nullptr;
  if (!attr) return defaultValue;
  const std::u16string_view text = attr->text.view();
  if (text == u"True" || text == u"true" || text == u"1") return true;
  if (text == u"False" || text == u"false" || text == u"0") return false;
  return defaultValue;
}

unsigned int CXMLObject::FindAttributeFlags(const CZPoolString& name, const tagXMLFLAGMAP* map,
                                            unsigned int count, wchar separator) const noexcept {
  const XMLAttr* attr = m_node ? m_node->FindAttr(name) : nullptr;
  if (!attr || !map) return 0;
  unsigned int flags = 0;
  ForEachEntry(attr->text.view(), separator, [&](std::u16string_view entry, unsigned int) {
    for (unsigned int i = 0; i < count; ++i) {
      if (map[i].name.view() == entry && !entry.empty()) flags |= map[i].value;
    }
    return false;
  });
  return flags;
}

unsigned int CXMLObject::FindAttributeIndex(const CZPoolString& name, const wchar* list,
                                            wchar separator) const noexcept {
  const XMLAttr* attr = m_node ? m_node->FindAttr(name) : nullptr;
  if (!attr || !list) return kNotFound;
  const std::u16string_view text = attr->text.view();
  return ForEachEntry(ViewOf(list), separator,
                      [&](std::u16string_view entry, unsigned int) { return entry == text; });
}

unsigned int CXMLObject::GetAttributeCount() const noexcept {
  return m_node ? static_cast<unsigned int>(m_node->attrs.size()) : 0;
}

bool CXMLObject::GetAttribute(unsigned int index, CZPoolString& name, CZPoolString& text) const {
  if (!m_node || index >= m_node->attrs.size()) return false;
  name = m_node->attrs[index].name;
  text = m_node->attrs[index].text;
  return true;
}

// ---------------------------------------------------------------------------
// Attribute writes
// ---------------------------------------------------------------------------

bool CXMLObject::SetAttribute(const CZPoolString& name, const CZPoolString& text) {
  if (!name) return false;
  const XMLAttr* found = m_node ? m_node->FindAttr(name) : nullptr;
  const std::ptrdiff_t index = found ? found - m_node->attrs.data() : -1;
  Node* node = Writable();  // may clone: find the attribute again by index
  if (index >= 0) {
    node->attrs[static_cast<std::size_t>(index)].text = text;
  } else {
    node->attrs.push_back({name, text});
  }
  return true;
}

bool CXMLObject::SetAttribute(const CZPoolString& name, const wchar* text) {
  return SetAttribute(name, text ? CZPoolString(text) : CZPoolString());
}

bool CXMLObject::SetAttribute(const CZPoolString& name, const CGUID& id) {
  return SetAttribute(name, id.GetString());
}

bool CXMLObject::SetAttribute(const CZPoolString& name, unsigned int flags,
                              const tagXMLFLAGMAP* map, unsigned int count, wchar separator) {
  if (!map && count) return false;
  std::u16string text;
  for (unsigned int i = 0; i < count; ++i) {
    const unsigned int value = map[i].value;
    if (!value || (flags & value) != value) continue;
    if (!text.empty()) text += separator;
    text += map[i].name.view();
  }
  return SetAttribute(name, CZPoolString(std::u16string_view(text)));
}

bool CXMLObject::SprintfAttribute(const CZPoolString& name, const wchar* format, ...) {
  if (!format) return false;
  std::u16string text;
  std::va_list args;
  va_start(args, format);
  try {
    AppendFormatV(text, format, args);
  } catch (...) {
    va_end(args);
    throw;
  }
  va_end(args);
  return SetAttribute(name, CZPoolString(std::u16string_view(text)));
}

bool CXMLObject::AddAttribute(const CZPoolString& name, const CZPoolString& text) {
  return SetAttribute(name, text);
}

bool CXMLObject::DeleteAttribute(const CZPoolString& name) {
  const XMLAttr* found = m_node ? m_node->FindAttr(name) : nullptr;
  if (!found) return false;
  const std::ptrdiff_t index = found - m_node->attrs.data();
  Node* node = Writable();
  node->attrs.erase(static_cast<std::size_t>(index));
  return true;
}

bool CXMLObject::MergeAttributes(const CXMLObject& other, bool overwrite) {
  // Merging our own storage changes nothing; any other storage stays alive
  // (held by `other`) when Writable() replaces ours.
  const Node* from = other.m_node;
  if (!from || from->attrs.empty() || from == m_node) return true;
  Node* node = Writable();
  // Few attributes, the usual case: scanning beats building an index.
  if (node->attrs.size() + from->attrs.size() <= kScannedMerge) {
    for (const XMLAttr& attr : from->attrs) {
      const XMLAttr* existing = node->FindAttr(attr.name);
      if (!existing) {
        node->attrs.push_back(attr);
      } else if (overwrite) {
        node->attrs[static_cast<std::size_t>(existing - node->attrs.data())].text = attr.text;
      }
    }
    return true;
  }
  // Many: one pass over an index of our names, so that a hostile element
  // with a million attributes costs a million steps, not their square.
  // The views point into the pooled strings, which the list only shares.
  std::unordered_map<std::u16string_view, std::size_t> positions;
  positions.reserve(node->attrs.size() + from->attrs.size());
  for (std::size_t i = 0; i < node->attrs.size(); ++i) {
    positions.emplace(node->attrs[i].name.view(), i);  // the first of a name wins
  }
  node->attrs.reserve(node->attrs.size() + from->attrs.size());
  for (const XMLAttr& attr : from->attrs) {
    const auto [at, added] = positions.emplace(attr.name.view(), node->attrs.size());
    if (added) {
      node->attrs.push_back(attr);
    } else if (overwrite) {
      node->attrs[at->second].text = attr.text;
    }
  }
  return true;
}

// ---------------------------------------------------------------------------
// Children
// ---------------------------------------------------------------------------

CXMLObject* CXMLObject::FindNextElement(const CZPoolString& name, const CXMLObject* previous) {
  const CXMLObject* found = std::as_const(*this).FindNextElement(name, previous);
  if (!found) return nullptr;
  const std::ptrdiff_t index = found - m_node->children.data();
  Node* node = Writable();
  node->leaked = true;
  return &node->children[static_cast<std::size_t>(index)];
}

const CXMLObject* CXMLObject::FindNextElement(const CZPoolString& name,
                                              const CXMLObject* previous) const {
  if (!m_node) return nullptr;
  std::size_t from = 0;
  if (previous) {
    const std::ptrdiff_t at = IndexOf(m_node->children, previous);
    if (at < 0) return nullptr;
    from = static_cast<std::size_t>(at) + 1;
  }
  const std::ptrdiff_t found = FindChild(*m_node, name, from);
  return found < 0 ? nullptr : &m_node->children[static_cast<std::size_t>(found)];
}

CXMLObject* CXMLObject::FindFirstElement(const CZPoolString& name, unsigned int& cursor) {
  if (!std::as_const(*this).FindFirstElement(name, cursor)) return nullptr;
  Node* node = Writable();
  node->leaked = true;
  return &node->children[cursor];
}

const CXMLObject* CXMLObject::FindFirstElement(const CZPoolString& name,
                                               unsigned int& cursor) const {
  if (!m_node) return nullptr;
  const std::ptrdiff_t found = FindChild(*m_node, name, cursor);
  if (found < 0) return nullptr;
  cursor = static_cast<unsigned int>(found);
  return &m_node->children[cursor];
}

CZPoolString CXMLObject::FindElementData(const CZPoolString& name) const {
  unsigned int cursor = 0;
  const CXMLObject* child = FindFirstElement(name, cursor);
  return child ? child->GetData() : CZPoolString();
}

CXMLObject* CXMLObject::GetElements(unsigned int& count) {
  count = 0;
  if (!m_node || m_node->children.empty()) return nullptr;
  Node* node = Writable();
  node->leaked = true;
  count = static_cast<unsigned int>(node->children.size());
  return node->children.data();
}

const CXMLObject* CXMLObject::GetElements(unsigned int& count) const {
  count = m_node ? static_cast<unsigned int>(m_node->children.size()) : 0;
  return count ? m_node->children.data() : nullptr;
}

unsigned int CXMLObject::GetNElements(const CZPoolString& name) const noexcept {
  if (!m_node) return 0;
  unsigned int count = 0;
  for (const CXMLObject& child : m_node->children) count += NameMatches(child, name) ? 1 : 0;
  return count;
}

CXMLObject* CXMLObject::item(unsigned int index) {
  if (!m_node || index >= m_node->children.size()) return nullptr;
  Node* node = Writable();
  node->leaked = true;
  return &node->children[index];
}

const CXMLObject* CXMLObject::item(unsigned int index) const {
  if (!m_node || index >= m_node->children.size()) return nullptr;
  return &m_node->children[index];
}

xmlret CXMLObject::Add(const CXMLObject& child) {
  if (!child) return false;
  CXMLObject copy(child);  // taken first: x.Add(x) must add the old x, not a cycle
  Writable()->children.push_back(std::move(copy));
  return true;
}

bool CXMLObject::Delete(const CXMLObject* child) {
  const std::ptrdiff_t index = m_node ? IndexOf(m_node->children, child) : -1;
  if (index < 0) return false;
  Node* node = Writable();
  node->children.erase(node->children.begin() + index);
  return true;
}

bool CXMLObject::DeleteElements() {
  if (!m_node || m_node->children.empty()) return true;
  Writable()->children.clear();
  return true;
}

// ---------------------------------------------------------------------------
// Data
// ---------------------------------------------------------------------------

bool CXMLObject::Set(const CZPoolString& text) {
  Node* node = Writable();
  node->SetBytes(nullptr);
  node->binary = false;
  node->text = text;
  return true;
}

bool CXMLObject::Set(const wchar* text) { return Set(text ? CZPoolString(text) : CZPoolString()); }

bool CXMLObject::Set(const unsigned char* bytes, std::uint64_t size) {
  if (!bytes && size) return false;
  if (size > std::vector<unsigned char>().max_size()) return false;
  auto data = std::make_unique<XMLBytes>();
  data->data.assign(bytes, bytes + size);
  Node* node = Writable();
  node->SetBytes(data.release());
  node->binary = true;
  node->text = CZPoolString();
  return true;
}

CZPoolString CXMLObject::GetData() const {
  if (!m_node) return {};
  if (!m_node->binary) return m_node->text;
  const std::vector<unsigned char>& bytes = BytesOf(*m_node);
  std::u16string text;
  AppendBase64(text, bytes.data(), bytes.size());
  return CZPoolString(std::u16string_view(text));
}

bool CXMLObject::HasBinaryData() const noexcept { return m_node && m_node->binary; }

std::uint64_t CXMLObject::GetDataBinarySize() const {
  const std::vector<unsigned char>* bytes = m_node ? m_node->Binary() : nullptr;
  return bytes ? bytes->size() : 0;
}

std::uint64_t CXMLObject::GetDataBinary(unsigned char* buffer, std::uint64_t size,
                                        std::uint64_t offset) const {
  const std::vector<unsigned char>* bytes = m_node ? m_node->Binary() : nullptr;
  if (!bytes || !buffer || offset >= bytes->size()) return 0;
  const std::uint64_t count = std::min<std::uint64_t>(size, bytes->size() - offset);
  if (count) std::memcpy(buffer, bytes->data() + offset, count);
  return count;
}

bool CXMLObject::CDATARequired(const wchar* text) noexcept {
  if (!text) return false;
  for (; *text; ++text) {
    const wchar c = *text;
    if (c < 0x20 || c == u'<' || c == u'>' || c == u'&' || c == u'"' || c == u'\'') return true;
  }
  return false;
}

bool CXMLObject::CDATARequired(std::u16string_view text) noexcept {
  for (const wchar c : text) {
    if (c < 0x20 || c == u'<' || c == u'>' || c == u'&' || c == u'"' || c == u'\'') return true;
  }
  return false;
}

// ---------------------------------------------------------------------------
// Change tracking
// ---------------------------------------------------------------------------

// Advances with every change that a watcher could have seen.
std::atomic<std::uint64_t> detail::xmlWriteEpoch{1};

CXMLObject::Stamp CXMLObject::Observe() const noexcept {
  if (!m_node) return {};
  m_node->watchedPlainly.store(true, std::memory_order_release);
  return m_node->Stamp();
}

bool CXMLObject::Observe(CXMLWatch& watch, std::uint32_t tag) const noexcept {
  if (!m_node) return false;
  m_node->Stamp();  // watched from now on
  return m_node->Join(watch, tag);
}

bool CXMLObject::IsUnchanged(const Stamp& stamp) const noexcept {
  return m_node && reinterpret_cast<std::uintptr_t>(m_node) == stamp.storage &&
         m_node->version.load(std::memory_order_acquire) == stamp.version;
}

// ---------------------------------------------------------------------------
// Comparison
// ---------------------------------------------------------------------------

bool CXMLObject::IsEqual(const CXMLObject& other) const {
  struct Pair {
    const Node* a;
    const Node* b;
  };
  const Node empty;  // a null handle compares as an element without content
  std::vector<Pair> pending{{m_node, other.m_node}};
  while (!pending.empty()) {
    const Pair pair = pending.back();
    pending.pop_back();
    if (pair.a == pair.b) continue;  // shared storage: equal without a look
    const Node& a = pair.a ? *pair.a : empty;
    const Node& b = pair.b ? *pair.b : empty;
    if (!SameName(a.name, b.name) || !SameAttrs(a, b)) return false;
    if (a.children.size() != b.children.size() || !SameData(a, b)) return false;
    for (std::size_t i = 0; i < a.children.size(); ++i) {
      pending.push_back({a.children[i].m_node, b.children[i].m_node});
    }
  }
  return true;
}

// ---------------------------------------------------------------------------
// Watches
// ---------------------------------------------------------------------------

CXMLWatch* CXMLWatch::Create() noexcept { return new (std::nothrow) CXMLWatch; }

void CXMLWatch::Retain() noexcept { m_refs.fetch_add(1, std::memory_order_relaxed); }

void CXMLWatch::Release() noexcept {
  if (m_refs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void CXMLWatch::Abandon() noexcept {
  m_abandoned.store(true, std::memory_order_release);
  Release();
}

// Writes to one watch's storage do not overlap (they are writes to one
// parameter), yet the slots are atomic so that a stray one stays defined.
void CXMLWatch::Note(std::uint32_t tag) noexcept {
  const std::uint32_t at = m_noted.fetch_add(1, std::memory_order_relaxed);
  if (at < kKept) m_tags[at].store(tag, std::memory_order_relaxed);
  if (at > kKept) m_noted.store(kKept + 1, std::memory_order_relaxed);  // bounded
  m_changes.fetch_add(1, std::memory_order_acq_rel);
}

bool CXMLWatch::TakeNoted(std::vector<std::uint32_t>& tags) {
  const std::uint32_t noted = m_noted.exchange(0, std::memory_order_acq_rel);
  tags.clear();
  if (noted > kKept) return false;
  for (std::uint32_t i = 0; i < noted; ++i) {
    const std::uint32_t tag = m_tags[i].load(std::memory_order_relaxed);
    if (tag == kEverything) return false;
    tags.push_back(tag);
  }
  return true;
}

}  // namespace qdcore
