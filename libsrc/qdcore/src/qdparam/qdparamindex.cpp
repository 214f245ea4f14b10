// Lookups of a set's parameters by attribute text (see qdparamindex.h).
#include "qdparamindex.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

namespace qdcore {

namespace {

// Four code units at a time, each step folding the product's high half back
// down so that every unit reaches the low bits that pick a slot. Names are
// short: the chain of multiplies is the cost of a lookup.
std::uint32_t Hash(std::u16string_view text) noexcept {
  constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
  std::uint64_t hash = text.size();
  const auto mix = [&](std::uint64_t word) {
    hash = (hash ^ word) * kMultiplier;
    hash ^= hash >> 32;
  };
  std::size_t i = 0;
  for (; i + 4 <= text.size(); i += 4) {
    std::uint64_t word;
    std::memcpy(&word, text.data() + i, sizeof word);
    mix(word);
  }
  if (i < text.size()) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + i, (text.size() - i) * sizeof(wchar));
    mix(word);
  }
  return static_cast<std::uint32_t>(hash);
}

const CParam* Scan(const CParam* params, unsigned int count, const CZPoolString& attribute,
                   std::u16string_view text) {
  for (unsigned int i = 0; i < count; ++i) {
    if (params[i].AttributeEquals(attribute, text)) return params + i;
  }
  return nullptr;
}

// One list's parameters by one attribute's text: open addressing over the
// texts' hashes, in storage of its own, so that lookups never allocate (a
// build may, once per change of the list).
class AttributeIndex {
 public:
  // Lists up to this long are indexed without allocating: the storage is
  // taken once, with the thread's first lookup.
  static constexpr unsigned int kPreallocated = 256;

  AttributeIndex() {
    m_slots.reserve(2 * kPreallocated);
    m_texts.reserve(kPreallocated);
  }

  bool Describes(const CParam* params, unsigned int count, const CZPoolString& attribute) const {
    return m_params == params && m_count == count && m_attribute.same(attribute) && m_params;
  }

  // A lookup of a list this index does not describe: it describes it from
  // now on, and is built when the next lookup finds nothing written since.
  void Take(const CParam* params, unsigned int count, const CZPoolString& attribute) {
    m_params = params;
    m_count = count;
    m_attribute = attribute;
    m_epoch = XMLWriteEpoch();
    m_built = false;
  }

  const CParam* Find(std::u16string_view text) {
    const std::uint64_t epoch = XMLWriteEpoch();
    if (epoch != m_epoch) {
      m_epoch = epoch;
      m_built = false;
    } else if (!m_built) {
      m_built = Build();
    }
    if (!m_built) return Scan(m_params, m_count, m_attribute, text);
    const std::uint32_t hash = Hash(text);
    for (std::size_t at = hash & m_mask; m_slots[at].position; at = (at + 1) & m_mask) {
      const unsigned int i = m_slots[at].position - 1;
      if (m_slots[at].hash == hash && m_texts[i] == text) return m_params + i;
    }
    return nullptr;
  }

 private:
  struct Slot {
    std::uint32_t position = 0;  // in the list, plus one; 0: empty
    std::uint32_t hash = 0;
  };

  // False when the list cannot be indexed: a parameter without storage,
  // which would take new storage that no watcher sees.
  bool Build() {
    std::size_t size = 4;
    while (size < 2 * std::size_t{m_count}) size *= 2;
    m_mask = size - 1;
    m_slots.assign(size, Slot{});
    m_texts.resize(m_count);
    for (unsigned int i = 0; i < m_count; ++i) {
      const CXMLObject& element = m_params[i];
      if (!element) return false;
      element.Observe();
      Insert(i);
    }
    return true;
  }

  // Equal texts keep the first parameter: lookups answer the first match.
  void Insert(unsigned int position) {
    const std::u16string_view text = m_params[position].FindAttribute(m_attribute).view();
    m_texts[position] = text;
    const std::uint32_t hash = Hash(text);
    std::size_t at = hash & m_mask;
    for (; m_slots[at].position; at = (at + 1) & m_mask) {
      if (m_slots[at].hash == hash && m_texts[m_slots[at].position - 1] == text) return;
    }
    m_slots[at] = {position + 1, hash};
  }

  const CParam* m_params = nullptr;
  unsigned int m_count = 0;
  CZPoolString m_attribute;
  std::uint64_t m_epoch = 0;
  bool m_built = false;
  std::size_t m_mask = 0;
  std::vector<Slot> m_slots;
  // Each parameter's text, seen where its element keeps it: the element is
  // watched, so while the epoch holds the text is there and unchanged.
  std::vector<std::u16string_view> m_texts;
};

// Per thread, so that readers share nothing. A few, for a host that asks
// several sets (and both names and ids) in turn.
struct RecentIndexes {
  std::array<AttributeIndex, 4> indexes;
  std::size_t next = 0;  // the one to take over next

  AttributeIndex& For(const CParam* params, unsigned int count, const CZPoolString& attribute) {
    for (AttributeIndex& index : indexes) {
      if (index.Describes(params, count, attribute)) return index;
    }
    AttributeIndex& taken = indexes[next];
    next = (next + 1) % indexes.size();
    taken.Take(params, count, attribute);
    return taken;
  }
};

}  // namespace

const CParam* FindParam(const CParam* params, unsigned int count, const CZPoolString& attribute,
                        std::u16string_view text) {
  if (!params || count == 0) return nullptr;
  thread_local RecentIndexes recent;
  return recent.For(params, count, attribute).Find(text);
}

long ParamPositions::Find(std::u16string_view text) const {
  const auto found = m_positions.find(text);
  if (found == m_positions.end() || found->second.empty()) return -1;
  return static_cast<long>(*found->second.begin());
}

void ParamPositions::Refresh(const CParam* params, unsigned int count, unsigned int position) {
  if (position >= count || position > m_texts.size()) return;
  const std::u16string_view text = params[position].FindAttribute(m_attribute).view();
  if (position == m_texts.size()) {
    m_texts.emplace_back(text);
  } else if (m_texts[position] != text) {
    const auto old = m_positions.find(std::u16string_view(m_texts[position]));
    if (old != m_positions.end()) {
      old->second.erase(position);
      if (old->second.empty()) m_positions.erase(old);
    }
    m_texts[position] = text;
  } else {
    return;
  }
  auto slot = m_positions.find(text);
  if (slot == m_positions.end())
    slot = m_positions.emplace(std::u16string(text), std::set<unsigned int>{}).first;
  slot->second.insert(position);
}

void ParamPositions::Build(const CParam* params, unsigned int count) {
  m_texts.clear();
  m_positions.clear();
  m_texts.reserve(count);
  for (unsigned int i = 0; i < count; ++i) Refresh(params, count, i);
}

}  // namespace qdcore
