// The evaluation cache of a parameter (see qdevalcache.h). Where its
// keyframes lie on a clip is qdtimeline.cpp; value arrays are qdvaluearrays.cpp.
//
//   1. Reading      the parameter and its keyframes, as their getters read them
//   2. Publishing   one cache per parameter, shared by concurrent readers
// Reading again in place what a write named is qdevalcachepatch.cpp.
#include "qdevalcache.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <numeric>
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

}  // namespace

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
  if (record.interpolation == INTERPOLATION_SPLINE) {
    record.anchorCount = ReadSplineAnchors(kf, anchors);
  }
  return record;
}

CParam::EvalCache::~EvalCache() {
  for (std::atomic<Timeline*>& slot : m_timelines) delete slot.load(std::memory_order_relaxed);
  delete m_predecessor;
}

bool CParam::EvalCache::Build(const CParam& param, EvalWatch& watch) {
  // What the watch noted before is read in now; what counts is noted after.
  m_watch = watch.watch;
  m_watch->TakeNoted(watch.noted);
  m_seen.store(m_watch->Changes(), std::memory_order_relaxed);
  m_watch->StartReading();
  if (!Observe(param)) return false;
  ReadParameter(param);
  const CKeyFrame* keys = Keys(param);
  const unsigned int count = m_keyCount;
  m_positionByTag.reserve(count);
  m_recordByTag.reserve(count);
  for (unsigned int i = 0; i < count; ++i) ReadKeyFrame(keys[i]);
  for (unsigned int i = 0; i < count; ++i) LinkLogarithm(i);
  return true;
}

// A LinLog segment takes the logarithms of both its values.
void CParam::EvalCache::LinkLogarithm(unsigned int i) {
  KeyRecord& record = RecordAt(i);
  const bool linLog = record.interpolation == INTERPOLATION_LINLOG ||
                      (i > 0 && RecordAt(i - 1).interpolation == INTERPOLATION_LINLOG);
  record.logValue = linLog ? LogOnePlus(record.value) : 0.0;
}

// Watches every element that evaluation reads, each under the tag of the
// keyframe it belongs to. A handle without storage would take new storage
// unseen by any watcher, so it cannot be cached.
bool CParam::EvalCache::Observe(const CParam& param) {
  const CXMLObject& element = param;
  if (!element) return false;
  unsigned int count = 0;
  const CKeyFrame* keys = param.m_KeyFrameList.GetArray(count);
  m_keyCount = count;
  m_tagOf.resize(count);
  std::iota(m_tagOf.begin(), m_tagOf.end(), 0u);
  m_tagsAreIndexes = true;
  m_placeOf.resize(count);
  for (unsigned int i = 0; i < count; ++i) m_placeOf[i] = {i, 0};
  m_shifts.clear();
  if (!element.Observe(*m_watch, kElementTag)) return false;
  for (unsigned int i = 0; i < count; ++i) {
    if (!ObserveKeyFrame(keys[i], i)) return false;
  }
  return true;
}

// Keyframe `index` and its children, under the keyframe's tag; false for a
// handle without storage, or one the watch cannot take on.
bool CParam::EvalCache::ObserveKeyFrame(const CKeyFrame& keyFrame, unsigned int index) {
  const CXMLObject& kf = keyFrame;
  const std::uint32_t tag = m_tagOf[index];
  if (!kf.Observe(*m_watch, tag)) return false;
  unsigned int children = 0;
  const CXMLObject* child = kf.GetElements(children);
  for (unsigned int j = 0; j < children; ++j) {
    if (!child[j].Observe(*m_watch, tag)) return false;
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
  extrapolation = ReadExtrapolation(param);
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
  m_positionByTag.push_back(position);
  Anchor anchors[kMaxSplineAnchors];
  KeyRecord record = ReadKeyRecord(kf, anchors);
  record.firstAnchor = static_cast<unsigned int>(m_anchors.size());
  m_anchors.insert(m_anchors.end(), anchors, anchors + record.anchorCount);
  m_liveAnchors += record.anchorCount;
  m_recordByTag.push_back(record);
}

// ===========================================================================
// 2. Publishing
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
  // Only numbers are cached: the other types are read live, with nothing made.
  const unsigned int kind = param.GetType();
  if (kind != PARAM_DOUBLE && kind != PARAM_LONG && kind != PARAM_BOOL) return nullptr;
  EvalWatch* watch = WatchOf(param);
  if (!watch || watch->refreshing.test_and_set(std::memory_order_acquire)) return nullptr;
  const EvalCache* cache = RefreshAlone(param, *watch);
  watch->refreshing.clear(std::memory_order_release);
  return cache;
}

const CParam::EvalCache* CParam::EvalCache::RefreshAlone(const CParam& param, EvalWatch& watch) {
  EvalCache* current = param.m_EvalCache.load(std::memory_order_acquire);
  try {
    if (current && current->IsCurrent(param)) return current;
    if (current && current->Patch(param, watch)) return current;
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
void CParam::NoteKeyInserted(unsigned int index) noexcept {
  if (EvalWatch* watch = m_EvalWatch.load(std::memory_order_relaxed)) {
    watch->watch->Note(EvalCache::ShiftNote(index, false));
  }
}

void CParam::NoteKeyRemoved(unsigned int index) noexcept {
  if (EvalWatch* watch = m_EvalWatch.load(std::memory_order_relaxed)) {
    watch->watch->Note(EvalCache::ShiftNote(index, true));
  }
}

}  // namespace qdcore
