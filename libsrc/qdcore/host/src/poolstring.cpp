// Pooled strings: one heap entry per text, shared by reference count; the
// pool's entries are interned and immortal.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unordered_map>

#include "qdcore/core.h"

namespace qdcore {

struct CZPoolString::Entry {
  std::atomic<std::uint32_t> refs;
  // One header word for both: a number written to an attribute then takes
  // one heap chunk size less.
  std::uint32_t length : 31;
  std::uint32_t pooled : 1;  // interned entries are never counted nor freed
  wchar text[1];
};

namespace {

using Entry = CZPoolString::Entry;

Entry* NewEntry(std::u16string_view text, bool pooled) {
  if (text.size() > 0x7fffffffu) throw std::bad_alloc();
  const std::size_t bytes = offsetof(Entry, text) + (text.size() + 1) * sizeof(wchar);
  void* memory = ::operator new(bytes);  // counted like every other heap use
  Entry* entry = static_cast<Entry*>(memory);
  new (&entry->refs) std::atomic<std::uint32_t>(1);
  entry->length = static_cast<std::uint32_t>(text.size()) & 0x7fffffffu;
  entry->pooled = pooled ? 1 : 0;
  if (!text.empty()) std::memcpy(entry->text, text.data(), text.size() * sizeof(wchar));
  entry->text[text.size()] = 0;
  return entry;
}

void Retain(Entry* entry) noexcept {
  if (entry && !entry->pooled) entry->refs.fetch_add(1, std::memory_order_relaxed);
}

void Drop(Entry* entry) noexcept {
  if (!entry || entry->pooled) return;
  if (entry->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) ::operator delete(entry);
}

std::u16string_view ViewOf(const wchar* text) noexcept {
  return text ? std::u16string_view(text) : std::u16string_view();
}

Entry* EntryFor(std::u16string_view text) { return text.empty() ? nullptr : NewEntry(text, false); }

CZPoolString FromNumber(long long number) {
  char digits[24];
  const int count = std::snprintf(digits, sizeof digits, "%lld", number);
  wchar wide[24];
  for (int i = 0; i < count; ++i) wide[i] = static_cast<wchar>(digits[i]);
  return CZPoolString(std::u16string_view(wide, static_cast<std::size_t>(count)));
}

// The pool lives as long as the process: pooled constants of other libraries
// are made by their static initialisers and may outlive any static here.
struct Pool {
  std::mutex lock;
  std::unordered_map<std::u16string_view, Entry*> entries;
};

Pool& ThePool() {
  static Pool* pool = new Pool;  // never destroyed, on purpose
  return *pool;
}

}  // namespace

CZPoolString::CZPoolString(const wchar* text) : m_entry(EntryFor(ViewOf(text))) {}
CZPoolString::CZPoolString(std::u16string_view text) : m_entry(EntryFor(text)) {}
CZPoolString::CZPoolString(int number) : CZPoolString(FromNumber(number)) {}
// Whole numbers are 32-bit values whatever the width of long.
CZPoolString::CZPoolString(long number) : CZPoolString(FromNumber(static_cast<std::int32_t>(number))) {}

CZPoolString::CZPoolString(const CZPoolString& other) noexcept : m_entry(other.m_entry) {
  Retain(m_entry);
}

CZPoolString& CZPoolString::operator=(const CZPoolString& other) noexcept {
  Retain(other.m_entry);
  Drop(m_entry);
  m_entry = other.m_entry;
  return *this;
}

CZPoolString& CZPoolString::operator=(CZPoolString&& other) noexcept {
  if (this != &other) {
    Drop(m_entry);
    m_entry = other.m_entry;
    other.m_entry = nullptr;
  }
  return *this;
}

CZPoolString::~CZPoolString() { Drop(m_entry); }

bool CZPoolString::operator==(const CZPoolString& other) const noexcept {
  if (m_entry == other.m_entry) return true;
  // Interning gives each text one pooled entry, so two differ in text.
  if (m_entry && other.m_entry && m_entry->pooled && other.m_entry->pooled) return false;
  return view() == other.view();
}

bool CZPoolString::operator==(const wchar* text) const noexcept { return view() == ViewOf(text); }

const wchar* CZPoolString::c_str() const noexcept { return m_entry ? m_entry->text : u""; }

std::u16string_view CZPoolString::view() const noexcept {
  return m_entry ? std::u16string_view(m_entry->text, m_entry->length) : std::u16string_view();
}

unsigned int CZPoolString::len() const noexcept { return m_entry ? m_entry->length : 0; }

int CZPoolString::cmp_p(const wchar* suffix) const noexcept {
  const std::u16string_view tail = ViewOf(suffix);
  return view().ends_with(tail) ? 0 : 1;
}

CZPoolString CStringPool::GetStringRef(const wchar* text) { return GetStringRef(ViewOf(text)); }

CZPoolString CStringPool::GetStringRef(std::u16string_view text) {
  if (text.empty()) return CZPoolString();
  Pool& pool = ThePool();
  std::lock_guard<std::mutex> hold(pool.lock);
  auto found = pool.entries.find(text);
  if (found != pool.entries.end()) return CZPoolString(found->second);
  Entry* entry = NewEntry(text, true);
  pool.entries.emplace(std::u16string_view(entry->text, entry->length), entry);
  return CZPoolString(entry);
}

}  // namespace qdcore
