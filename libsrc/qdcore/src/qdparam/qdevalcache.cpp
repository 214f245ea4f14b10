// The evaluation cache of a parameter (see qdevalcache.h). Where its
// keyframes lie on a clip is qdtimeline.cpp; value arrays are qdvaluearrays.cpp.
//
//   1. Reading      the parameter and its keyframes, as their getters read them
//   2. Checking     whether a cache still describes its parameter
//   3. Publishing   one cache per parameter, shared by concurrent readers
#include "qdevalcache.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "paramhelper.h"
#include "qdformatnames.h"
#include "qdparam/keyframe.h"
#include "qdparam/processing.h"
#include "qdparam/qdcalc.h"

namespace qdcore {

using namespace names;

namespace {

// ===========================================================================
// 1. Reading
// ===========================================================================

// An anchor number with a time suffix is reported each time it is read.
bool ReportsAsAnchorNumber(const CZPoolString& text) {
  unsigned int qualifier = KEYFRAME_RELATIVE;
  double number = 0.0;
  CKeyFrame::ExtractValue(text, qualifier, number);
  return qualifier != KEYFRAME_RELATIVE;
}

bool AnchorsReport(const CKeyFrame& kf) {
  for (const CXMLObject* anchor = kf.FindNextElement(kAnchor, nullptr); anchor;
       anchor = kf.FindNextElement(kAnchor, anchor)) {
    if (ReportsAsAnchorNumber(anchor->FindAttribute(kPosition)) ||
        ReportsAsAnchorNumber(anchor->FindAttribute(kValue))) {
      return true;
    }
  }
  return false;
}

// What the blend reads of a keyframe; its anchors go to `anchors` (as many
// as the record's anchorCount), to be placed in the cache's pool.
KeyRecord ReadKeyRecord(const CKeyFrame& kf, Anchor (&anchors)[kMaxSplineAnchors]) {
  KeyRecord record;
  record.valueType = kf.m_Type;
  record.value = kf.GetValueDouble();
  record.hasBool = ParamHelper::GetValueBool(kf, kValue, record.boolValue);
  record.interpolation = kf.GetInterpolation();
  record.timeTranslation = kf.GetTimeTranslation();
  record.anchorsReport = AnchorsReport(kf);
  if (record.anchorsReport) return record;
  if (record.interpolation == INTERPOLATION_BEZIER) {
    BezierHandles h;
    kf.GetBezierAnchors(h.outTime, h.outValue, h.inTime, h.inValue);
    anchors[0] = {h.outTime, h.outValue};
    anchors[1] = {h.inTime, h.inValue};
    record.anchorCount = 2;
  }
  if (record.interpolation == INTERPOLATION_SPLINE)
    record.anchorCount = ReadSplineAnchors(kf, anchors);
  return record;
}

}  // namespace

CParam::EvalCache::~EvalCache() {
  for (std::atomic<Timeline*>& slot : m_timelines) delete slot.load(std::memory_order_relaxed);
  delete m_predecessor;
}

// Only numbers are cached: the other types are read live.
bool CParam::EvalCache::Build(const CParam& param, EvalWatch& watch) {
  // What the watch noted before is read in now; what counts is noted after.
  m_watch = watch.watch;
  m_watch->TakeNoted(watch.noted);
  m_seen.store(m_watch->Changes(), std::memory_order_relaxed);
  m_epoch.store(XMLWriteEpoch(), std::memory_order_relaxed);
  const unsigned int kind = param.GetType();
  if (kind != PARAM_DOUBLE && kind != PARAM_LONG && kind != PARAM_BOOL) return false;
  m_watch->StartReading();
  if (!Observe(param)) return false;
  m_shared = m_watch->Shared();
  ReadParameter(param);
  const CKeyFrame* keys = Keys(param);
  const unsigned int count = m_keyCount;
  m_positions.reserve(count);
  m_keys.reserve(count);
  for (unsigned int i = 0; i < count; ++i) ReadKeyFrame(keys[i]);
  for (unsigned int i = 0; i < count; ++i) LinkLogarithm(i);
  return true;
}

// A LinLog segment takes the logarithms of both its values.
void CParam::EvalCache::LinkLogarithm(unsigned int i) {
  const bool linLog = m_keys[i].interpolation == INTERPOLATION_LINLOG ||
                      (i > 0 && m_keys[i - 1].interpolation == INTERPOLATION_LINLOG);
  m_keys[i].logValue = linLog ? LogOnePlus(m_keys[i].value) : 0.0;
}

// Stamps every element that evaluation reads, each under the tag of the
// keyframe it belongs to. A handle without storage would take new storage
// unseen by any watcher, so it cannot be cached.
bool CParam::EvalCache::Observe(const CParam& param) {
  const CXMLObject& element = param;
  if (!element) return false;
  unsigned int count = 0;
  const CKeyFrame* keys = param.m_KeyFrameList.GetArray(count);
  m_keyCount = count;
  m_childCounts.reserve(count);
  m_stampsAt.reserve(count);
  m_stamps.reserve(1 + std::size_t{count});
  m_stamps.push_back(element.Observe(*m_watch, kElementTag));
  for (unsigned int i = 0; i < count; ++i) {
    const CXMLObject& kf = keys[i];
    if (!kf) return false;
    unsigned int children = 0;
    kf.GetElements(children);
    m_stampsAt.push_back(m_stamps.size());
    m_childCounts.push_back(children);
    m_stamps.resize(m_stamps.size() + 1 + children);
    if (!ObserveKeyFrame(keys[i], i)) return false;
  }
  return true;
}

// Keyframe `index` and its children into their stamps; false for a handle
// without storage, or a child count that no longer fits them.
bool CParam::EvalCache::ObserveKeyFrame(const CKeyFrame& keyFrame, unsigned int index) {
  const CXMLObject& kf = keyFrame;
  if (!kf) return false;
  unsigned int children = 0;
  const CXMLObject* child = kf.GetElements(children);
  if (children != m_childCounts[index]) return false;
  std::size_t at = m_stampsAt[index];
  m_stamps[at++] = kf.Observe(*m_watch, index);
  for (unsigned int j = 0; j < children; ++j) {
    if (!child[j]) return false;
    m_stamps[at++] = child[j].Observe(*m_watch, index);
  }
  return true;
}

// Through the parameter's own getters, for the type it has: the values are
// the ones a live evaluation reads, and no getter reports.
void CParam::EvalCache::ReadParameter(const CParam& param) {
  type = param.GetType();
  bool status = false;
  inactive = param.GetInactiveStatus(status) && status;
  keyFramed = param.GetKeyFrameStatus();
  easeInOut = param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT;
  switch (type) {
    case PARAM_DOUBLE:
      inactiveValue.present = param.GetInactiveValueDouble(inactiveValue.real);
      staticValue.present = param.GetValueDouble(staticValue.real);
      doubleLimits = ReadDoubleLimits(param);
      plainClamp = IsPlainClamp(doubleLimits);
      break;
    case PARAM_LONG:
      inactiveValue.present = param.GetInactiveValueLong(inactiveValue.whole);
      staticValue.present = param.GetValueLong(staticValue.whole);
      longLimits = ReadLongLimits(param);
      break;
    case PARAM_BOOL:
      inactiveValue.present = param.GetInactiveValueBool(inactiveValue.flag);
      staticValue.present = param.GetValueBool(staticValue.flag);
      break;
    default:
      break;
  }
}

void CParam::EvalCache::ReadKeyFrame(const CKeyFrame& kf) {
  const KeyPosition position = ReadKeyPosition(kf);
  if (!position.read) m_liveWalk = true;
  m_positions.push_back(position);
  Anchor anchors[kMaxSplineAnchors];
  KeyRecord record = ReadKeyRecord(kf, anchors);
  record.firstAnchor = static_cast<unsigned int>(m_anchors.size());
  m_anchors.insert(m_anchors.end(), anchors, anchors + record.anchorCount);
  m_keys.push_back(record);
}

// ===========================================================================
// 2. Checking
// ===========================================================================

// The keyframe count is compared every time: adding a keyframe writes to no
// element that the cache watches.
bool CParam::EvalCache::IsCurrent(const CParam& param, EvalWatch& watch) const {
  if (KeyCount(param) != m_keyCount) return false;
  const std::uint64_t changes = m_watch->Changes(), epoch = XMLWriteEpoch();
  const bool seen = m_seen.load(std::memory_order_relaxed) == changes;
  if (seen && (!m_shared || m_epoch.load(std::memory_order_relaxed) == epoch)) return true;
  if (!m_shared) return false;  // a patch reads what changed
  // Something watched changed, most often another parameter: look again.
  if (!StillHolds(param)) return false;
  m_watch->TakeNoted(watch.noted);
  m_epoch.store(epoch, std::memory_order_release);
  m_seen.store(changes, std::memory_order_release);
  return true;
}

bool CParam::EvalCache::StillHolds(const CParam& param) const {
  if (param.GetType() != type) return false;
  const CXMLObject& element = param;
  if (!element.IsUnchanged(m_stamps[0])) return false;
  unsigned int count = 0;
  const CKeyFrame* keys = param.m_KeyFrameList.GetArray(count);
  std::size_t at = 1;
  for (unsigned int i = 0; i < count; ++i) {
    const CXMLObject& kf = keys[i];
    if (!kf.IsUnchanged(m_stamps[at++])) return false;
    unsigned int children = 0;
    const CXMLObject* child = kf.GetElements(children);
    if (children != m_childCounts[i]) return false;
    for (unsigned int j = 0; j < children; ++j) {
      if (!child[j].IsUnchanged(m_stamps[at++])) return false;
    }
  }
  return true;
}

// ===========================================================================
// 3. Patching
// ===========================================================================

// The element sorts after every keyframe's tag; a cache marks itself
// unpatchable while a patch is under way, so one cut short is rebuilt.
bool CParam::EvalCache::Patch(const CParam& param, std::vector<std::uint32_t>& noted) {
  if (!m_patchable || m_shared || m_liveWalk || KeyCount(param) != m_keyCount) return false;
  m_patchable = false;
  const std::uint64_t changes = m_watch->Changes();
  if (!m_watch->TakeNoted(noted)) return false;
  std::sort(noted.begin(), noted.end());
  noted.erase(std::unique(noted.begin(), noted.end()), noted.end());
  if (!noted.empty() && noted.back() == kElementTag) {
    noted.pop_back();
    if (!PatchElement(param)) return false;
  }
  for (const std::uint32_t index : noted) {
    if (!PatchKeyFrame(param, index)) return false;
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
  if (!element || param.GetType() != type) return false;
  m_stamps[0] = element.Observe(*m_watch, kElementTag);
  ReadParameter(param);
  return true;
}

// False where only a rebuild can take the keyframe in: a time that no
// longer reads (the walk goes live), other children, other anchors.
bool CParam::EvalCache::PatchKeyFrame(const CParam& param, unsigned int index) {
  if (index >= m_keyCount) return false;
  const CKeyFrame& kf = Keys(param)[index];
  if (!ObserveKeyFrame(kf, index)) return false;
  const KeyPosition position = ReadKeyPosition(kf);
  if (!position.read) return false;
  Anchor anchors[kMaxSplineAnchors];
  KeyRecord record = ReadKeyRecord(kf, anchors);
  KeyRecord& kept = m_keys[index];
  if (record.anchorCount != kept.anchorCount) return false;
  record.firstAnchor = kept.firstAnchor;
  std::copy(anchors, anchors + record.anchorCount, m_anchors.begin() + record.firstAnchor);
  kept = record;
  m_positions[index] = position;
  for (unsigned int i = index > 0 ? index - 1 : 0; i <= index + 1 && i < m_keyCount; ++i) {
    LinkLogarithm(i);
  }
  for (std::atomic<Timeline*>& slot : m_timelines) {
    if (Timeline* line = slot.load(std::memory_order_relaxed)) RelineKeyFrame(*line, index);
  }
  return true;
}

// ===========================================================================
// 4. Publishing
// ===========================================================================

namespace {

// QD_EVALCACHE=off makes every evaluation read the XML: the test suite runs
// its evaluation tests once more so, which holds the live route to the same
// numbers as the cached one.
bool CachingIsOff() {
  static const bool off = [] {
    const char* setting = std::getenv("QD_EVALCACHE");
    return setting && std::strcmp(setting, "off") == 0;
  }();
  return off;
}

}  // namespace

// The parameter's watch, made by the first evaluation; null without memory.
CParam::EvalWatch* CParam::EvalCache::WatchOf(const CParam& param) {
  CParam::EvalWatch* current = param.m_EvalWatch.load(std::memory_order_acquire);
  if (current) return current;
  std::unique_ptr<CParam::EvalWatch> fresh(new (std::nothrow) CParam::EvalWatch);
  if (!fresh || !(fresh->watch = CXMLWatch::Create())) return nullptr;
  if (param.m_EvalWatch.compare_exchange_strong(current, fresh.get(), std::memory_order_acq_rel,
                                                std::memory_order_acquire)) {
    return fresh.release();
  }
  return current;  // another reader made it first
}

// One refresh at a time: a reader that finds one running (on another
// thread, or a report hook evaluating this parameter from inside one)
// reads the XML this once.
const CParam::EvalCache* CParam::EvalCache::Refresh(const CParam& param) {
  if (CachingIsOff()) return nullptr;
  EvalWatch* watch = WatchOf(param);
  if (!watch || watch->refreshing.test_and_set(std::memory_order_acquire)) return nullptr;
  const EvalCache* cache = RefreshAlone(param, *watch);
  watch->refreshing.clear(std::memory_order_release);
  return cache;
}

const CParam::EvalCache* CParam::EvalCache::RefreshAlone(const CParam& param, EvalWatch& watch) {
  EvalCache* current = param.m_EvalCache.load(std::memory_order_acquire);
  try {
    if (current && current->IsCurrent(param, watch)) return current;
    if (current && current->Patch(param, watch.noted)) return current;
    if (current) current->m_patchable = false;
    auto fresh = std::make_unique<EvalCache>();
    if (!fresh->Build(param, watch)) return nullptr;
    // Readers that took `current` before it went stale may still be
    // checking it: it lives on with its successor. The one before it has no
    // readers left, since a write came between.
    fresh->m_predecessor = current;
    param.m_EvalCache.store(fresh.get(), std::memory_order_release);
    if (current) delete std::exchange(current->m_predecessor, nullptr);
    return fresh.release();
  } catch (const std::bad_alloc&) {
    if (current) current->m_patchable = false;
    return nullptr;  // evaluation reads the XML instead
  }
}

// Writes never overlap reads, so no reader can be taking it meanwhile; most
// parameters (a keyframe's copy of its definition, say) never had one.
void CParam::DropEvalCache() noexcept {
  EvalCache* cache = m_EvalCache.load(std::memory_order_relaxed);
  if (!cache) return;
  m_EvalCache.store(nullptr, std::memory_order_relaxed);
  delete cache;
}

void CParam::DropEvalWatch() noexcept {
  delete m_EvalWatch.exchange(nullptr, std::memory_order_relaxed);
}

// Insertions and removals move the keyframes after them to other places
// in the list, which no element write shows.
void CParam::NoteKeysShifted() noexcept {
  if (EvalWatch* watch = m_EvalWatch.load(std::memory_order_relaxed)) watch->watch->NoteAll();
}

}  // namespace qdcore
