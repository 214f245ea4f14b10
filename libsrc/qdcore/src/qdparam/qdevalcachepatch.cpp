// Reading again, in place, what the writes since the last evaluation named
// (see qdevalcache.h): the keyframes written, the parameter's element, and
// keyframes going in or out of the list. Only the first reader after a
// write gets here, alone (EvalWatch::refreshing), and no reader sees the
// cache until the patch is whole.
#include <algorithm>

#include "qdevalcache.h"
#include "qdparam/keyframe.h"

namespace qdcore {

// A cache marks itself unpatchable while a patch is under way, so that one
// cut short is rebuilt. Going in or out of the list is replayed in the
// order noted; the keyframes written and those that came in are read last,
// each once, by the tag that stays with it, and the neighbours of each move
// take their places again.
bool CParam::EvalCache::Patch(const CParam& param, EvalWatch& watch) {
  if (!m_patchable || m_liveWalk) return false;
  m_patchable = false;
  const std::uint64_t changes = m_watch->Changes();
  std::vector<std::uint32_t>& noted = watch.noted;
  std::vector<std::uint32_t>& dirty = watch.dirty;
  std::vector<std::uint32_t>& moved = watch.moved;
  if (!m_watch->TakeNoted(noted)) return false;
  dirty.clear();
  moved.clear();
  bool element = false;
  for (const std::uint32_t note : noted) {
    if (note == kElementTag) {
      element = true;
    } else if (note & kShiftNote) {
      if (!Shift(note, watch)) return false;
    } else {
      dirty.push_back(note);
    }
  }
  if (KeyCount(param) != m_keyCount) return false;
  if (element && !PatchElement(param)) return false;
  const auto sortUnique = [](std::vector<std::uint32_t>& tags) {
    std::sort(tags.begin(), tags.end());
    tags.erase(std::unique(tags.begin(), tags.end()), tags.end());
  };
  sortUnique(dirty);
  sortUnique(moved);
  for (const std::uint32_t tag : dirty) {
    if (tag >= m_placeOf.size()) return false;  // not a tag this cache gave
    const std::uint32_t index = IndexOf(tag);
    if (index != kGone && !PatchKeyFrame(param, index)) return false;
  }
  for (const std::uint32_t tag : moved) {
    if (std::binary_search(dirty.begin(), dirty.end(), tag)) continue;  // placed as it was read
    const std::uint32_t index = IndexOf(tag);
    if (index != kGone) Reline(index);
  }
  // What moved out of the list leaves room behind: close it up once it is
  // as much as what is in use.
  if ((m_placeOf.size() > 2 * std::size_t{m_keyCount} + 64 ||
       m_anchors.size() > 2 * m_liveAnchors + 64) &&
      !Compact(param)) {
    return false;
  }
  // Lengths asked about as keys move (an absolute key's minimum duration)
  // would fill the slots for good: once full, they start again.
  const auto taken = [](const std::atomic<Timeline*>& slot) {
    return slot.load(std::memory_order_relaxed) != nullptr;
  };
  if (std::all_of(m_timelines.begin(), m_timelines.end(), taken)) {
    for (std::atomic<Timeline*>& slot : m_timelines) {
      delete slot.exchange(nullptr, std::memory_order_relaxed);
    }
  }
  m_patchable = true;
  m_seen.store(changes, std::memory_order_release);
  return true;
}

bool CParam::EvalCache::PatchElement(const CParam& param) {
  const CXMLObject& element = param;
  if (param.GetType() != type) return false;
  if (!element.Observe(*m_watch, kElementTag)) return false;
  ReadParameter(param);
  return true;
}

// False where only a rebuild can take the keyframe in: a time that no
// longer reads (the walk goes live).
bool CParam::EvalCache::PatchKeyFrame(const CParam& param, unsigned int index) {
  const CKeyFrame& kf = Keys(param)[index];
  if (!ObserveKeyFrame(kf, index)) return false;
  const KeyPosition position = ReadKeyPosition(kf);
  if (!position.read) return false;
  Anchor anchors[kMaxSplineAnchors];
  KeyRecord record = ReadKeyRecord(kf, anchors);
  KeyRecord& kept = RecordAt(index);
  record.firstAnchor = kept.firstAnchor;
  if (record.anchorCount != kept.anchorCount) {
    record.firstAnchor = static_cast<unsigned int>(m_anchors.size());
    m_anchors.resize(m_anchors.size() + record.anchorCount);
    m_liveAnchors = m_liveAnchors + record.anchorCount - kept.anchorCount;
  }
  std::copy(anchors, anchors + record.anchorCount, m_anchors.begin() + record.firstAnchor);
  kept = record;
  PositionAt(index) = position;
  Reline(index);
  return true;
}

// The records close up in list order, their anchors too, and every
// keyframe is observed again with its index as its tag; nothing is read.
bool CParam::EvalCache::Compact(const CParam& param) {
  std::vector<KeyPosition> positions;
  std::vector<KeyRecord> records;
  std::vector<Anchor> anchors;
  positions.reserve(m_keyCount);
  records.reserve(m_keyCount);
  anchors.reserve(m_liveAnchors);
  for (unsigned int i = 0; i < m_keyCount; ++i) {
    KeyRecord record = RecordAt(i);
    const auto first = m_anchors.begin() + record.firstAnchor;
    record.firstAnchor = static_cast<unsigned int>(anchors.size());
    anchors.insert(anchors.end(), first, first + record.anchorCount);
    records.push_back(record);
    positions.push_back(PositionAt(i));
  }
  m_positionByTag = std::move(positions);
  m_recordByTag = std::move(records);
  m_anchors = std::move(anchors);
  m_watch->StartReading();
  return Observe(param);
}

// What keyframe `index` and its neighbours share: the logarithms a LinLog
// segment takes, and its time and segments on each clip's line.
void CParam::EvalCache::Reline(unsigned int index) {
  for (unsigned int i = index > 0 ? index - 1 : 0; i <= index + 1 && i < m_keyCount; ++i) {
    LinkLogarithm(i);
  }
  for (std::atomic<Timeline*>& slot : m_timelines) {
    if (Timeline* line = slot.load(std::memory_order_relaxed)) RelineKeyFrame(*line, index);
  }
}

// A keyframe in or out at an index: the records and lines make room or
// close it. The keyframe that came in is read; those whose neighbours
// changed, and the first (its time has a rule of its own), keep what was
// read of them and are only placed again. Where each of them is, is known
// now, which spares looking it up in the log.
bool CParam::EvalCache::Shift(std::uint32_t note, EvalWatch& watch) {
  const unsigned int index = note & (kRemovalNote - 1);
  const bool removal = (note & kRemovalNote) != 0;
  if (removal ? index >= m_keyCount : index > m_keyCount) return false;
  if (removal) {
    RemoveKey(index);
  } else {
    InsertKey(index);
  }
  const auto take = [&](unsigned int i, std::vector<std::uint32_t>& into) {
    if (i >= m_keyCount) return;
    into.push_back(m_tagOf[i]);
    m_placeOf[m_tagOf[i]] = {i, static_cast<std::uint32_t>(m_shifts.size())};
  };
  take(0, watch.moved);
  if (index > 0) take(index - 1, watch.moved);
  take(index, removal ? watch.moved : watch.dirty);
  if (!removal) take(index + 1, watch.moved);
  return true;
}

void CParam::EvalCache::InsertKey(unsigned int index) {
  const auto tag = static_cast<std::uint32_t>(m_placeOf.size());
  m_placeOf.emplace_back();
  m_positionByTag.emplace_back();
  m_recordByTag.emplace_back();
  m_tagOf.insert(m_tagOf.begin() + index, tag);
  m_tagsAreIndexes = m_tagsAreIndexes && tag == index;
  ++m_keyCount;
  LogShift(index, false);
  m_placeOf[tag] = {index, static_cast<std::uint32_t>(m_shifts.size())};
  for (std::atomic<Timeline*>& slot : m_timelines) {
    if (Timeline* line = slot.load(std::memory_order_relaxed)) line->InsertKeyAt(index);
  }
}

void CParam::EvalCache::RemoveKey(unsigned int index) {
  const std::uint32_t tag = m_tagOf[index];
  m_placeOf[tag].index = kGone;
  m_liveAnchors -= m_recordByTag[tag].anchorCount;
  m_tagOf.erase(m_tagOf.begin() + index);
  m_tagsAreIndexes = m_tagsAreIndexes && index == m_tagOf.size();
  --m_keyCount;
  LogShift(index, true);
  for (std::atomic<Timeline*>& slot : m_timelines) {
    if (Timeline* line = slot.load(std::memory_order_relaxed)) line->RemoveKeyAt(index);
  }
}

// A full log is folded into every live place at once.
void CParam::EvalCache::LogShift(unsigned int index, bool removal) {
  if (m_shifts.size() < kShiftLogLength) {
    m_shifts.push_back((removal ? kRemovalNote : 0u) | index);
    return;
  }
  for (unsigned int i = 0; i < m_tagOf.size(); ++i) m_placeOf[m_tagOf[i]] = {i, 0};
  m_shifts.clear();
}

// The shifts logged since the place was taken, replayed; the place is kept
// up to date for the next time.
std::uint32_t CParam::EvalCache::IndexOf(std::uint32_t tag) {
  TagPlace& place = m_placeOf[tag];
  if (place.index == kGone) return kGone;
  std::uint32_t index = place.index;
  for (std::size_t j = place.since; j < m_shifts.size(); ++j) {
    const std::uint32_t at = m_shifts[j] & (kRemovalNote - 1);
    if (m_shifts[j] & kRemovalNote) {
      index -= at < index ? 1 : 0;
    } else {
      index += at <= index ? 1 : 0;
    }
  }
  place = {index, static_cast<std::uint32_t>(m_shifts.size())};
  return index;
}

}  // namespace qdcore
