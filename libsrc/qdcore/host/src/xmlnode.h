// The private storage behind CXMLObject, and the helpers the element, writer
// and reader sources share.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qdcore/xml.h"

namespace qdcore {

struct XMLAttr {
  CZPoolString name;
  CZPoolString text;
};

// A node's attributes, in order. The storage may sit right behind the node
// (one allocation for both when the count is known up front, as when
// reading) or on the heap once it outgrows that.
class XMLAttrList {
 public:
  static constexpr std::size_t kMaxCapacity = 0x7fffffffu;

  XMLAttrList() noexcept = default;
  XMLAttrList(const XMLAttrList&) = delete;
  XMLAttrList& operator=(const XMLAttrList&) = delete;
  ~XMLAttrList();

  // Room for `capacity` attributes at `storage`, which outlives the list.
  void UseInline(XMLAttr* storage, std::size_t capacity) noexcept;

  std::size_t size() const noexcept { return m_size; }
  std::size_t capacity() const noexcept { return m_capacity & ~kOnHeap; }
  bool empty() const noexcept { return m_size == 0; }
  XMLAttr* data() noexcept { return m_data; }
  const XMLAttr* data() const noexcept { return m_data; }
  XMLAttr& operator[](std::size_t index) noexcept { return m_data[index]; }
  const XMLAttr& operator[](std::size_t index) const noexcept { return m_data[index]; }
  XMLAttr* begin() noexcept { return m_data; }
  XMLAttr* end() noexcept { return m_data + m_size; }
  const XMLAttr* begin() const noexcept { return m_data; }
  const XMLAttr* end() const noexcept { return m_data + m_size; }

  void reserve(std::size_t capacity);
  void push_back(XMLAttr attr);  // by value: `attr` may live in this list
  XMLAttr& emplace_back();       // an empty attribute at the end
  void erase(std::size_t index) noexcept;
  void append(const XMLAttrList& other);

 private:
  // Every element has one of these lists, so it is kept to 16 bytes: the
  // top bit of the capacity says whether the storage is the list's own.
  static constexpr std::uint32_t kOnHeap = kMaxCapacity + 1;

  bool OnHeap() const noexcept { return (m_capacity & kOnHeap) != 0; }

  XMLAttr* m_data = nullptr;
  std::uint32_t m_size = 0;
  std::uint32_t m_capacity = 0;
};

// A node's child elements, in order: what std::vector would hold, in 16
// bytes rather than 24, since every element has one. Elements move and die
// as a vector's do (a move tells the storage's watchers it was dropped).
class XMLChildList {
 public:
  static constexpr std::size_t kMaxCapacity = 0xffffffffu;

  XMLChildList() noexcept = default;
  XMLChildList(const XMLChildList&) = delete;
  XMLChildList& operator=(const XMLChildList&) = delete;
  ~XMLChildList();

  std::size_t size() const noexcept { return m_size; }
  bool empty() const noexcept { return m_size == 0; }
  CXMLObject* data() noexcept { return m_data; }
  const CXMLObject* data() const noexcept { return m_data; }
  CXMLObject& operator[](std::size_t index) noexcept { return m_data[index]; }
  const CXMLObject& operator[](std::size_t index) const noexcept { return m_data[index]; }
  CXMLObject* begin() noexcept { return m_data; }
  CXMLObject* end() noexcept { return m_data + m_size; }
  const CXMLObject* begin() const noexcept { return m_data; }
  const CXMLObject* end() const noexcept { return m_data + m_size; }

  void reserve(std::size_t capacity);
  void resize(std::size_t size);  // null handles added at the end, or the last ones dropped
  CXMLObject& emplace_back();     // a null handle at the end
  // Appends `child`, which must not be an element of this list.
  void push_back(CXMLObject&& child);
  void erase(CXMLObject* at) noexcept;
  void clear() noexcept;

 private:
  // Room for `capacity` elements, the present ones moved there.
  void Reallocate(std::size_t capacity);
  // Room for one more, doubling.
  void MakeRoom();

  CXMLObject* m_data = nullptr;
  std::uint32_t m_size = 0;
  std::uint32_t m_capacity = 0;
};

// Binary data, or the bytes of base64 text data decoded on the first binary
// read and kept until the data changes.
struct XMLBytes {
  std::vector<unsigned char> data;
};

// One element's content. Handles share it through `refs`; only a handle that
// holds the sole reference may change it. Made by Create, freed by Release.
struct CXMLObject::Node {
  // The small fields come first, packed into one word: a document holds a
  // node per element, so every word counts.
  std::atomic<std::uint32_t> refs{1};
  // Pointers into `children` were handed out: copies must clone, not share,
  // or a write through such a pointer would show through the copy.
  bool leaked = false;
  bool binary = false;  // the data is `bytes`; otherwise it is `text`
  // Observed without a watch: changes advance XMLWriteEpoch().
  std::atomic<bool> watchedPlainly{false};
  std::atomic<bool> moreWatches{false};  // watches beyond `watch` are kept aside
  // 0 while nobody watches this storage; once observed, a version that is
  // new whenever the content changes (see CXMLObject::Observe).
  std::atomic<std::uint64_t> version{0};
  // The first watch it was observed through, holding a reference, and the
  // tag it was given there, with the watch's reading in the high half. Any
  // others (storage that copies share, or one keyframe copied twice into a
  // list) are kept aside, under a lock (moreWatches says so).
  std::atomic<CXMLWatch*> watch{nullptr};
  std::atomic<std::uint64_t> watchTag{0};
  CZPoolString name;
  XMLAttrList attrs;
  XMLChildList children;
  CZPoolString text;
  // Binary data; for text, its decoded bytes once asked for. Readers of a
  // shared node may install the decoded copy concurrently.
  mutable std::atomic<XMLBytes*> bytes{nullptr};

  constexpr Node() noexcept = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  ~Node();

  // A node with room for `attrCount` attributes in the same allocation.
  static Node* Create(std::size_t attrCount = 0);

  bool HasData() const noexcept;
  void SetBytes(XMLBytes* data) noexcept { delete bytes.exchange(data, std::memory_order_acq_rel); }
  // The data as bytes (text is decoded once and cached); null when none.
  const std::vector<unsigned char>* Binary() const;
  const XMLAttr* FindAttr(const CZPoolString& attrName) const noexcept;

  bool Watched() const noexcept { return version.load(std::memory_order_relaxed) != 0; }
  // Starts watching: gives the storage its first version; the stamp.
  CXMLObject::Stamp Stamp() noexcept;
  // Tells `w`, under `tag`, of every later change; false without memory.
  bool Join(CXMLWatch& w, std::uint32_t tag) noexcept;
  // Tells whoever watches this storage that it changed.
  void Notify() const noexcept;
  // Before this storage is changed in place.
  void NoteChange() noexcept;
  // Before a handle drops or replaces this storage (null is fine).
  static void NoteDropped(const Node* node) noexcept;

  // Access to a handle's storage for the writer and the reader.
  static Node* Of(const CXMLObject& element) noexcept { return element.m_node; }
  static void Adopt(CXMLObject& element, Node* node) noexcept;

  // A new private node with this content. Children are shared, except
  // leaked ones, which are cloned the same way (without recursion).
  static Node* Clone(const Node& source);
  // Shares `node`, or clones it when leaked (only that may throw bad_alloc).
  static Node* Share(Node* node);
  // Drops one reference; the last one destroys the subtree without recursion.
  static void Release(Node* node) noexcept;
  // A dead node, which nobody can observe any more, keeps in its version the
  // next one awaiting destruction: no field of its own for that.
  void ChainDead(Node* next) noexcept {
    version.store(reinterpret_cast<std::uintptr_t>(next), std::memory_order_relaxed);
  }
  Node* NextDead() const noexcept {
    return reinterpret_cast<Node*>(version.load(std::memory_order_relaxed));
  }
};

// True when two names match: the same pooled entry, or equal text.
inline bool SameName(const CZPoolString& a, const CZPoolString& b) noexcept {
  return a.same(b) || a == b;
}

// ---- base64 (xmlbase64.cpp)
void AppendBase64(std::u16string& out, const unsigned char* bytes, std::size_t size);
// False (and `out` empty) when the text is not base64. Blanks are ignored;
// padding may be left out.
bool DecodeBase64(std::u16string_view text, std::vector<unsigned char>& out);

}  // namespace qdcore
