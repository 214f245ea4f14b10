// The host's XML object model: elements, documents and writers.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qdcore/core.h"

namespace qdcore {

class CXMLOut;
class CXMLWatch;

/// One entry of a flag map: a bit value and its name.
struct tagXMLFLAGMAP {
  /// the bit value
  unsigned int value;
  /// its name in the attribute text
  CZPoolString name;
};

/// The result of CXMLObject::Add.
class xmlret {
 public:
  /// A result: success when `ok`.
  constexpr xmlret(bool ok = false) noexcept : m_ok(ok) {}  // NOLINT: implicit by design
  /// True on success.
  constexpr operator bool() const noexcept { return m_ok; }

 private:
  bool m_ok;
};

/// One XML element: a name, ordered attributes, ordered child elements, and
/// text or binary data.
///
/// Value semantics with shared storage: a copy costs one pointer and a count;
/// the first write through a handle whose storage is shared makes that
/// handle's storage private (copy-on-write), and Realloc() does so at once.
/// Writes through one copy are never seen through another. Pointers to child
/// elements stay valid until the element's child list changes.
///
/// A null handle (default-constructed or freed) holds no content: reads give
/// empty results, and the first write creates an unnamed element.
class QDHOST_API CXMLObject {
 public:
  struct Node;  // opaque storage

  constexpr CXMLObject() noexcept = default;
  /// An element named `name`, without attributes, children or data.
  explicit CXMLObject(const CZPoolString& name);
  /// Copies share storage, except an element whose children were handed out
  /// as writable pointers: that one is cloned (which may throw bad_alloc).
  CXMLObject(const CXMLObject& other);
  /// Takes the other's content, leaving it null.
  CXMLObject(CXMLObject&& other) noexcept;
  /// Shares the other's content (as the copy constructor).
  CXMLObject& operator=(const CXMLObject& other);
  /// Takes the other's content, leaving it null.
  CXMLObject& operator=(CXMLObject&& other) noexcept;
  /// Drops this handle's share of the content.
  ~CXMLObject();

  /// True when the element holds content (a name, attributes, children or data).
  explicit operator bool() const noexcept { return m_node != nullptr; }

  // ---- name
  /// Renames the element; always true.
  bool SetName(const CZPoolString& name);
  /// The element's name; empty for a null handle.
  CZPoolString GetName() const noexcept;
  /// True when the element is named `name`.
  bool IsName(const CZPoolString& name) const noexcept;
  /// True when the element is named `name`.
  bool IsName(const wchar* name) const noexcept;

  // ---- storage
  void Free() noexcept;                    ///< drops the content: a null handle
  bool Realloc();                          ///< makes the storage private now
  bool Reassign(const CXMLObject& other);  ///< takes the other element's content

  // ---- attributes (reads allocate nothing)
  CZPoolString FindAttribute(const CZPoolString& name) const noexcept;  ///< empty when absent
  /// The text of attribute `name`; empty when absent.
  CZPoolString FindAttribute(const wchar* name) const;
  /// True when the attribute is present (even empty).
  bool HasAttribute(const CZPoolString& name) const noexcept;
  /// FindAttribute(name) == text, without taking a copy of the text: cheap
  /// enough to compare many elements in a row.
  bool AttributeEquals(const CZPoolString& name, const CZPoolString& text) const noexcept;
  /// FindAttribute(name) == text, without a copy; false when absent and `text` is not empty.
  bool AttributeEquals(const CZPoolString& name, std::u16string_view text) const noexcept;
  /// Prefix parse in the "C" locale; the default when absent, 0 when the text
  /// holds no number.
  long FindAttributeInt(const CZPoolString& name, long defaultValue = 0) const noexcept;
  /// The attribute as a real number, read as FindAttributeInt reads whole ones.
  double FindAttributeDouble(const CZPoolString& name, double defaultValue = 0.0) const noexcept;
  /// "True", "true", "1" and "False", "false", "0"; the default otherwise.
  bool FindAttributeBool(const CZPoolString& name, bool defaultValue = false) const noexcept;
  /// The OR of the values of the names listed (blanks around names ignored,
  /// unknown names ignored); 0 when absent.
  unsigned int FindAttributeFlags(const CZPoolString& name, const tagXMLFLAGMAP* map,
                                  unsigned int count, wchar separator) const noexcept;
  /// Zero-based position of the attribute's text among the separator-joined
  /// entries of `list`; all bits set when absent or not listed.
  unsigned int FindAttributeIndex(const CZPoolString& name, const wchar* list,
                                  wchar separator) const noexcept;

  /// Sets attribute `name` (appended when new); false for an empty name.
  bool SetAttribute(const CZPoolString& name, const CZPoolString& text);
  /// Sets attribute `name` (null text is empty); false for an empty name.
  bool SetAttribute(const CZPoolString& name, const wchar* text);
  /// Sets attribute `name` to the identifier's text form; false for an empty name.
  bool SetAttribute(const CZPoolString& name, const CGUID& id);
  /// Names of the non-zero flags set in `flags`, in table order, joined.
  bool SetAttribute(const CZPoolString& name, unsigned int flags, const tagXMLFLAGMAP* map,
                    unsigned int count, wchar separator);
  /// Wide printf (see FormatString in qdcore/log.h).
  bool SprintfAttribute(const CZPoolString& name, const wchar* format, ...);
  /// Appends a new attribute; an existing one of that name takes the text.
  bool AddAttribute(const CZPoolString& name, const CZPoolString& text);
  /// Removes attribute `name`; false when it was absent.
  bool DeleteAttribute(const CZPoolString& name);
  /// Copies every attribute of `other`, in its order: an existing attribute
  /// takes the other's text when `overwrite` is true and keeps its own when
  /// false; new ones are appended.
  bool MergeAttributes(const CXMLObject& other, bool overwrite);
  /// The number of attributes.
  unsigned int GetAttributeCount() const noexcept;
  /// The attribute at `index`; false when out of range.
  bool GetAttribute(unsigned int index, CZPoolString& name, CZPoolString& text) const;

  // ---- children (an empty name matches every child)
  // The first child of that name after `previous` (from the start when null);
  // null at the end or when `previous` is not a child of this element.
  /// The first child of that name after `previous` (from the start when null);
  /// null at the end or when `previous` is not a child of this element.
  CXMLObject* FindNextElement(const CZPoolString& name, const CXMLObject* previous);
  /// As the non-const form; null at the end or when `previous` is not a child.
  const CXMLObject* FindNextElement(const CZPoolString& name, const CXMLObject* previous) const;
  /// The first child of that name at or after index `cursor`; `cursor` is set
  /// to the index found (use cursor + 1 to go on). Null when none.
  CXMLObject* FindFirstElement(const CZPoolString& name, unsigned int& cursor);
  /// As the non-const form: the first child of that name at or after `cursor`; null when none.
  const CXMLObject* FindFirstElement(const CZPoolString& name, unsigned int& cursor) const;
  /// The text data of the first child of that name; empty when none.
  CZPoolString FindElementData(const CZPoolString& name) const;
  /// The children as an array and their count; null (count 0) without children.
  CXMLObject* GetElements(unsigned int& count);
  /// The children as an array and their count; null (count 0) without children.
  const CXMLObject* GetElements(unsigned int& count) const;
  /// The number of children of that name (of all names for an empty one).
  unsigned int GetNElements(const CZPoolString& name) const noexcept;
  /// The child at `index`; null out of range.
  CXMLObject* item(unsigned int index);
  /// The child at `index`; null out of range.
  const CXMLObject* item(unsigned int index) const;

  /// Appends a copy of `child`; fails for an element without content.
  xmlret Add(const CXMLObject& child);
  /// Removes the child that `child` points to.
  bool Delete(const CXMLObject* child);
  /// Removes every child; always true.
  bool DeleteElements();

  // ---- data
  /// Makes the element's data `text`; always true.
  bool Set(const CZPoolString& text);
  /// Makes the element's data `text` (null is empty); always true.
  bool Set(const wchar* text);
  /// Makes the element's data `size` bytes; false for null bytes with a size, or too many.
  bool Set(const unsigned char* bytes, std::uint64_t size);
  /// The text data; binary data reads as its base64 text.
  CZPoolString GetData() const;
  /// True when the data was set as bytes.
  bool HasBinaryData() const noexcept;
  /// Binary data; text data is decoded as base64 (text that is not base64
  /// reads as no data).
  std::uint64_t GetDataBinarySize() const;
  /// Copies up to `size` bytes starting at byte `offset`; returns the count.
  std::uint64_t GetDataBinary(unsigned char* buffer, std::uint64_t size,
                              std::uint64_t offset = 0) const;

  /// True when the text contains '<', '>', '&', '"', '\'' or a character
  /// below 0x20: such data is written as CDATA.
  static bool CDATARequired(const wchar* text) noexcept;
  /// As the zero-terminated form.
  static bool CDATARequired(std::u16string_view text) noexcept;

  /// Writes the element and its children to `out`; false for a null or badly named element.
  bool Write(CXMLOut& out) const;

  /// Names, attributes in order, children in order and data compare equal
  /// (binary data compares with its base64 text).
  bool IsEqual(const CXMLObject& other) const;

  // ---- change tracking, for callers that keep what they read
  //
  // The parameter library keeps what its evaluation parsed of a parameter
  // and its keyframes (numbers, times, anchors) and must know, in a load or
  // two per call, that none of it changed, and which part did when some
  // did. A replacement host layer needs to provide exactly this and no
  // more: CXMLWatch, whose counter advances, with the tag given, on every
  // write to storage observed through it (and on every handle dropping or
  // replacing such storage); and, for lookups that watch a whole list,
  // Observe, IsUnchanged and a process-wide counter (XMLWriteEpoch) that
  // advances on every write to storage observed without a watch. A host
  // that cannot track writes may return a fresh stamp from Observe, false
  // from IsUnchanged, advance the counter and note every watch's tags as
  // unknown (CXMLWatch::NoteAll) on every write: evaluation then re-reads
  // each parameter when asked, which costs speed but never a wrong value.
  /// What a handle held when observed: its storage and that storage's version.
  struct Stamp {
    std::uintptr_t storage = 0;  ///< an address, kept only to compare
    /// the storage's version when observed
    std::uint64_t version = 0;
  };
  /// Watches this element's own storage (not its children's) from now on and
  /// returns its stamp. Any later write to watched storage, and any handle
  /// that drops or replaces watched storage, advances XMLWriteEpoch().
  Stamp Observe() const noexcept;
  /// Later writes to this element's own storage, and handles dropping or
  /// replacing it, advance `watch` with `tag`. Storage that several watches
  /// observed tells each of them, under its own tag. False for a null handle,
  /// or when there is no memory to note one more watch: no change is told then.
  bool Observe(CXMLWatch& watch, std::uint32_t tag) const noexcept;
  /// True when this handle still holds the storage `stamp` was taken from,
  /// unchanged since. Never true for a null handle.
  bool IsUnchanged(const Stamp& stamp) const noexcept;

 private:
  Node* Writable();
  Node* m_node = nullptr;
};

namespace detail {
extern QDHOST_API std::atomic<std::uint64_t> xmlWriteEpoch;  ///< read through XMLWriteEpoch()
}  // namespace detail

/// Advances whenever watched storage changes (see CXMLObject::Observe), and
/// only then: what was read of watched elements at one epoch still holds
/// while the epoch stays the same. Writes to unwatched elements cost nothing.
inline std::uint64_t XMLWriteEpoch() noexcept {
  return detail::xmlWriteEpoch.load(std::memory_order_acquire);
}

/// A group of watched storage with a change counter of its own: one
/// parameter's elements, so that a write to one parameter says nothing to
/// the others, and says which of its parts changed. Reference counted: the
/// storage observed through it holds it too.
class QDHOST_API CXMLWatch {
 public:
  /// A tag that stands for every part: the whole is to be read again.
  static constexpr std::uint32_t kEverything = ~0u;

  /// A new watch with one reference; null without memory.
  static CXMLWatch* Create() noexcept;
  /// Takes one more reference.
  void Retain() noexcept;
  /// Drops one reference; the last one frees the watch.
  void Release() noexcept;

  /// Advances whenever storage observed through this watch changes.
  std::uint64_t Changes() const noexcept { return m_changes.load(std::memory_order_acquire); }
  /// The owner lets go: drops its reference, and storage that still holds
  /// one forgets this watch when another joins it.
  void Abandon() noexcept;
  /// True once the owner let go.
  bool Abandoned() const noexcept { return m_abandoned.load(std::memory_order_acquire); }
  /// Records that `tag` changed and advances the counter.
  void Note(std::uint32_t tag) noexcept;
  /// Records that everything may have changed and advances the counter.
  void NoteAll() noexcept { Note(kEverything); }
  /// Moves the tags noted since the last call into `tags` (in the order
  /// noted, repeats included); false when they were too many to keep, or
  /// one was kEverything: then everything is to be read again.
  bool TakeNoted(std::vector<std::uint32_t>& tags);
  /// Starts a new reading of the whole: tags given before it no longer
  /// count once storage is observed again.
  void StartReading() noexcept { m_reading.fetch_add(1, std::memory_order_relaxed); }

 private:
  friend class CXMLObject;
  CXMLWatch() = default;
  static constexpr std::size_t kKept = 64;
  std::atomic<std::uint32_t> m_refs{1};
  std::atomic<std::uint64_t> m_changes{0};
  std::atomic<bool> m_abandoned{false};
  std::atomic<std::uint32_t> m_reading{1};
  std::atomic<std::uint32_t> m_noted{0};
  std::atomic<std::uint32_t> m_tags[kKept] = {};
};

// ---------------------------------------------------------------------------
// Writers
// ---------------------------------------------------------------------------

/// Serialises elements as UTF-8 XML (files) or UTF-16 XML (memory).
class QDHOST_API CXMLOut {
 public:
  virtual ~CXMLOut() = default;
  /// Writes `element`; false when closed or the element cannot be written.
  bool Write(const CXMLObject& element);
  /// Finishes the output; false when it was not open or the last write failed.
  virtual bool Close(int flags = 0) = 0;
  /// True between a successful Open and Close.
  virtual bool IsOpen() const noexcept = 0;

 protected:
  bool m_indent = false;  ///< one element per line, indented by tabs

 private:
  virtual bool Emit(std::u16string_view text) = 0;
  friend class CXMLObject;
};

/// Writes to a file in UTF-8. `flags` bit 0: write the XML declaration and
/// indent. Open(path, mode) starts a file beside `path` (false when `path`
/// names something other than a regular file); Close syncs it and renames it
/// over `path`, so a reader or a crash sees the old file or the new one,
/// never part of one. A failed write makes Close false and leaves the old.
class QDHOST_API CXMLFileOut : public CXMLOut {
 public:
  /// A closed writer; `flags` as above.
  explicit CXMLFileOut(int flags = 1);
  /// Closes the file if open.
  ~CXMLFileOut() override;
  CXMLFileOut(const CXMLFileOut&) = delete;  ///< owns an open file
  CXMLFileOut& operator=(const CXMLFileOut&) = delete;
  /// Creates or truncates the file at `path`; false when it cannot be opened.
  bool Open(const wchar* path, int mode = 0);
  /// Flushes and closes the file; false when not open or a write failed.
  bool Close(int flags = 0) override;
  /// True while a file is open.
  bool IsOpen() const noexcept override;

 private:
  bool Emit(std::u16string_view text) override;
  struct Impl;
  Impl* m_impl;
  int m_flags;
};

/// Writes to memory in UTF-16, without declaration. `flags` bit 0: one
/// element per line, indented (compact by default).
class QDHOST_API CXMLMemOut : public CXMLOut {
 public:
  /// A closed writer; `flags` as above.
  explicit CXMLMemOut(int flags = 0);
  /// Starts a new, empty text; always true.
  bool Open();
  /// Stops writing; the text stays readable. Always true.
  bool Close(int flags = 0) override;
  /// True between Open and Close.
  bool IsOpen() const noexcept override { return m_open; }
  /// The text written so far, zero-terminated.
  operator const wchar*() const noexcept { return m_text.c_str(); }
  /// The text written so far.
  std::u16string_view View() const noexcept { return m_text; }

 private:
  bool Emit(std::u16string_view text) override;
  std::u16string m_text;
  bool m_open = false;
};

// ---------------------------------------------------------------------------
// Documents
// ---------------------------------------------------------------------------

/// An XML document read into a CXMLObject tree.
class QDHOST_API CXMLDoc {
 public:
  /// What an open returns: 0 on success, else why it failed.
  enum Result : int {
    kOk = 0,          ///< read
    kCannotOpen = 1,  ///< no such regular file, or it cannot be read
    kMalformed = 2,   ///< not well-formed XML
    kNotUtf8 = 3,     ///< not UTF-8 text
    kNoElement = 4,   ///< no document element
    kTooLarge = 5     ///< past a limit below: refused rather than read at any cost
  };

  /// What no real document needs; past these a document is refused.
  static constexpr std::size_t kMaxBytes = std::size_t{256} << 20;
  static constexpr std::size_t kMaxDepth = std::size_t{1} << 20;       ///< nested elements
  static constexpr std::size_t kMaxAttributes = std::size_t{1} << 20;  ///< per element

  /// Why the last open failed and where: a 1-based line and column (in
  /// characters) of the text, both 0 when the failure has no place in it.
  struct Failure {
    std::string message;      ///< UTF-8, empty after a successful open
    unsigned int line = 0;    ///< 1-based; 0 without a place
    unsigned int column = 0;  ///< 1-based, in characters
  };

  /// OpenDocFile flags: a symbolic link at `path` is not followed (fails).
  static constexpr int kNoFollow = 1;

  /// 0 on success. Only a regular file is read (a pipe or a device fails at
  /// once, never blocks). `mode` is accepted for the signature.
  int OpenDocFile(const wchar* path, int mode = 0, int flags = 0);
  /// Reads a document from UTF-8 text; 0 on success, else a Result code (see GetLastFailure).
  int OpenDocMemory(std::string_view utf8);
  /// Reads a document from UTF-16 text; 0 on success, else a Result code (see GetLastFailure).
  int OpenDocMemory(std::u16string_view text);
  /// The document element; a null element before a successful open.
  CXMLObject& GetContentElement() noexcept { return m_root; }
  /// The document element; a null element before a successful open.
  const CXMLObject& GetContentElement() const noexcept { return m_root; }

  /// The last open's failure; an empty message after a success.
  const Failure& GetLastFailure() const noexcept { return m_failure; }

  /// Makes the next opens remember where each element starts, for
  /// diagnostics (costs a table entry per element).
  void KeepPositions(bool keep) noexcept { m_keepPositions = keep; }
  /// The 1-based line and column where `element`, an element of the tree as
  /// read, starts; false when not known (not kept, or written since).
  bool GetPosition(const CXMLObject& element, unsigned int& line, unsigned int& column) const;

  /// A reference to an entity that is neither predefined nor a character
  /// ("&name;"): the reader keeps it as literal text. Known only when
  /// positions are kept.
  struct Reference {
    std::string name;         ///< the entity's name, without & and ;
    unsigned int line = 0;    ///< 1-based
    unsigned int column = 0;  ///< 1-based, in characters
  };
  /// Such references of the last open, in text order.
  std::vector<Reference> GetUnresolvedReferences() const;

  struct Positions;  // opaque: element storage to place in the text

 private:
  int Fail(int result, std::string reason, std::string_view text = {}, std::size_t offset = 0);

  CXMLObject m_root;
  Failure m_failure;
  bool m_keepPositions = false;
  std::shared_ptr<const Positions> m_positions;
};

// ---------------------------------------------------------------------------
// Host properties
// ---------------------------------------------------------------------------

/// A host property object; this host's properties carry XML.
class QDHOST_API CZProperty {
 public:
  /// A property without XML.
  CZProperty() = default;
  /// A property carrying `data`.
  explicit CZProperty(const CXMLObject& data) : m_data(data) {}
  /// The property's XML; a null element when it has none.
  const CXMLObject& GetData() const noexcept { return m_data; }

 private:
  CXMLObject m_data;
};

/// Exposes a property's XML. Valid when the property carries an element.
class QDHOST_API CZXMLProperty {
 public:
  /// The XML of `property`.
  explicit CZXMLProperty(const CZProperty& property) : m_data(property.GetData()) {}
  /// True when the property carries an element.
  bool IsValid() const noexcept { return static_cast<bool>(m_data); }
  /// True when the property carries an element.
  explicit operator bool() const noexcept { return IsValid(); }
  /// The property's XML; a null element when it has none.
  CXMLObject GetPropertyData() const { return m_data; }

 private:
  CXMLObject m_data;
};

}  // namespace qdcore
