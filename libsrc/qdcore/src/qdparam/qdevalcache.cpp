// The evaluation cache of a parameter (see qdevalcache.h).
//
//   1. Reading      the parameter and its keyframes, as their getters read them
//   2. Checking     whether a cache still describes its parameter
//   3. Publishing   one cache per parameter, shared by concurrent readers
//   4. Walking      where a time falls among the keyframes
#include "qdevalcache.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <new>
#include <utility>

#include "paramhelper.h"
#include "qdparam/keyframe.h"
#include "qdparam/processing.h"
#include "qdparam/qdcalc.h"

namespace qdcore {

namespace {

CZPoolString Pooled(const wchar* text) { return CStringPool::GetStringRef(text); }

const CZPoolString kValue = Pooled(u"value");
const CZPoolString kPosition = Pooled(u"position");
const CZPoolString kAnchor = Pooled(u"Anchor");

// ===========================================================================
// 1. Reading
// ===========================================================================

// Where the walk would put the keyframe; false when its time does not read,
// which stops the walk.
bool ReadPosition(const CKeyFrame& kf, KeyPosition& position) {
  position.qualifier = kf.GetType();
  switch (position.qualifier) {
    case KEYFRAME_RELATIVE:
      return kf.GetPosition(position.number);
    case KEYFRAME_ABSOLUTE:
    case KEYFRAME_FIXED_ABSOLUTE: {
      mtime t;
      const bool ok = kf.GetTime(t);
      position.number = t;
      return ok;
    }
    default:
      return true;
  }
}

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

// The keyframe's time on a clip of `duration`, as the walk resolves it. A
// keyframe without one keeps the walk's time: the caller's start value
// before the first keyframe, the "none after" mark after one was passed.
mtime ResolvedTime(const KeyPosition& position, unsigned int index, mtime duration,
                   mtime minDuration) {
  switch (position.qualifier) {
    case KEYFRAME_RELATIVE: {
      mtime k = position.number * duration;
      if (k < 0.0) k = k + duration;
      return k;
    }
    case KEYFRAME_ABSOLUTE: {
      mtime k = position.number;
      if (duration < minDuration) k = k / static_cast<double>(minDuration);
      if (k < 0.0) k = k + duration;
      return k;
    }
    case KEYFRAME_FIXED_ABSOLUTE:
      return position.number;
    default:
      return index == 0 ? mtime() : mtime(kNoNextTime);
  }
}

std::uint64_t Bits(mtime t) { return std::bit_cast<std::uint64_t>(static_cast<double>(t)); }

// A Bezier keyframe whose handles the record holds: its segment's time
// curve is worked out once per clip length.
bool IsPreparedBezier(const KeyRecord& record) {
  return record.interpolation == INTERPOLATION_BEZIER && !record.anchorsReport;
}

}  // namespace

// The parameter's keyframes, read as the list keeps them.
const CKeyFrame* CParam::EvalCache::Keys(const CParam& param) {
  return static_cast<const CKeyFrame*>(static_cast<const void*>(param.m_KeyFrameList));
}

CParam::EvalCache::~EvalCache() {
  for (std::atomic<Timeline*>& slot : m_timelines) delete slot.load(std::memory_order_relaxed);
  delete m_predecessor;
}

// Only numbers are cached: the other types are read live.
bool CParam::EvalCache::Build(const CParam& param) {
  m_epoch.store(XMLWriteEpoch(), std::memory_order_relaxed);  // first: later writes must show
  const unsigned int kind = param.GetType();
  if (kind != PARAM_DOUBLE && kind != PARAM_LONG && kind != PARAM_BOOL) return false;
  if (!Observe(param)) return false;
  ReadParameter(param);
  const CKeyFrame* keys = Keys(param);
  const unsigned int count = m_keyCount;
  m_positions.reserve(count);
  m_keys.reserve(count);
  for (unsigned int i = 0; i < count; ++i) ReadKeyFrame(keys[i]);
  // A LinLog segment takes the logarithms of both its values.
  for (unsigned int i = 0; i < count; ++i) {
    const bool linLog = m_keys[i].interpolation == INTERPOLATION_LINLOG ||
                        (i > 0 && m_keys[i - 1].interpolation == INTERPOLATION_LINLOG);
    if (linLog) m_keys[i].logValue = LogOnePlus(m_keys[i].value);
  }
  return true;
}

// Stamps every element that evaluation reads. A handle without storage
// would take new storage unseen by any watcher, so it cannot be cached.
bool CParam::EvalCache::Observe(const CParam& param) {
  const CXMLObject& element = param;
  if (!element) return false;
  unsigned int count = 0;
  const CKeyFrame* keys = param.m_KeyFrameList.GetArray(count);
  m_keyCount = count;
  m_childCounts.reserve(count);
  m_stamps.reserve(1 + std::size_t{count});
  m_stamps.push_back(element.Observe());
  for (unsigned int i = 0; i < count; ++i) {
    const CXMLObject& kf = keys[i];
    if (!kf) return false;
    m_stamps.push_back(kf.Observe());
    unsigned int children = 0;
    const CXMLObject* child = kf.GetElements(children);
    m_childCounts.push_back(children);
    for (unsigned int j = 0; j < children; ++j) {
      if (!child[j]) return false;
      m_stamps.push_back(child[j].Observe());
    }
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
  KeyPosition position;
  if (!ReadPosition(kf, position)) m_liveWalk = true;
  m_positions.push_back(position);

  KeyRecord record;
  record.valueType = kf.m_Type;
  record.value = kf.GetValueDouble();
  record.hasBool = ParamHelper::GetValueBool(kf, kValue, record.boolValue);
  record.interpolation = kf.GetInterpolation();
  record.timeTranslation = kf.GetTimeTranslation();
  record.anchorsReport = AnchorsReport(kf);
  record.firstAnchor = static_cast<unsigned int>(m_anchors.size());
  if (!record.anchorsReport && record.interpolation == INTERPOLATION_BEZIER) {
    BezierHandles h;
    kf.GetBezierAnchors(h.outTime, h.outValue, h.inTime, h.inValue);
    m_anchors.push_back({h.outTime, h.outValue});
    m_anchors.push_back({h.inTime, h.inValue});
    record.anchorCount = 2;
  }
  if (!record.anchorsReport && record.interpolation == INTERPOLATION_SPLINE) {
    Anchor anchors[kMaxSplineAnchors];
    record.anchorCount = ReadSplineAnchors(kf, anchors);
    m_anchors.insert(m_anchors.end(), anchors, anchors + record.anchorCount);
  }
  m_keys.push_back(record);
}

// ===========================================================================
// 2. Checking
// ===========================================================================

// The keyframe count is compared every time: adding a keyframe writes to no
// element that the cache watches.
bool CParam::EvalCache::IsCurrent(const CParam& param, std::uint64_t epoch) const {
  if (KeyCount(param) != m_keyCount) return false;
  if (m_epoch.load(std::memory_order_acquire) == epoch) return true;
  // Something watched changed, most often another parameter: look again.
  if (!StillHolds(param)) return false;
  m_epoch.store(epoch, std::memory_order_release);
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
// 3. Publishing
// ===========================================================================

const CParam::EvalCache* CParam::EvalCache::Refresh(const CParam& param) {
  EvalCache* current = param.m_EvalCache.load(std::memory_order_acquire);
  if (current && current->IsCurrent(param, XMLWriteEpoch())) return current;
  std::unique_ptr<EvalCache> fresh;
  try {
    fresh = std::make_unique<EvalCache>();
    if (!fresh->Build(param)) return nullptr;
  } catch (const std::bad_alloc&) {
    return nullptr;  // evaluation reads the XML instead
  }
  // Readers that took `current` before it went stale may still be checking
  // it: it lives on with its successor. The one before it has no readers
  // left, since a write came between.
  fresh->m_predecessor = current;
  if (param.m_EvalCache.compare_exchange_strong(current, fresh.get(), std::memory_order_acq_rel,
                                                std::memory_order_acquire)) {
    if (current) delete std::exchange(current->m_predecessor, nullptr);
    return fresh.release();
  }
  // Another reader published first, built from the same state.
  fresh->m_predecessor = nullptr;
  return current && current->IsCurrent(param, XMLWriteEpoch()) ? current : nullptr;
}

// Writes never overlap reads, so no reader can be taking it meanwhile; most
// parameters (a keyframe's copy of its definition, say) never had one.
void CParam::DropEvalCache() noexcept {
  EvalCache* cache = m_EvalCache.load(std::memory_order_relaxed);
  if (!cache) return;
  m_EvalCache.store(nullptr, std::memory_order_relaxed);
  delete cache;
}

// ===========================================================================
// 4. Walking
// ===========================================================================

// Comparing a few times at once costs less than halving down to one.
constexpr std::size_t kCounted = 16;

unsigned int Timeline::Find(mtime time, unsigned int& cursor) const {
  const auto count = static_cast<unsigned int>(times.size());
  const mtime* t = times.data();
  // The walk passes a keyframe when `time` is at or after it.
  const auto passes = [time](mtime at) { return time >= at; };
  if (!ordered) {
    unsigned int i = 0;
    while (i < count && passes(t[i])) ++i;
    return i;
  }
  // In time order the walk passes every keyframe before its stop and none
  // from it on. Arrays of samples mostly stay in a segment or move to the
  // next one.
  const auto stopsAt = [&](unsigned int i) {
    return (i == 0 || passes(t[i - 1])) && (i == count || !passes(t[i]));
  };
  if (cursor <= count && stopsAt(cursor)) return cursor;
  if (cursor < count && stopsAt(cursor + 1)) return ++cursor;
  // Else search without branches to mispredict on random times. The stop
  // lies within [first, first + length]: a passed middle moves it up, and
  // once few are left, the passed ones are counted.
  const mtime* first = t;
  std::size_t length = count;
  while (length > kCounted) {
    const std::size_t half = length / 2;
    first = passes(first[half]) ? first + half : first;
    length -= half;
  }
  unsigned int passed = 0;
  for (std::size_t i = 0; i < length; ++i) passed += passes(first[i]) ? 1 : 0;
  cursor = static_cast<unsigned int>(first - t) + passed;
  return cursor;
}

std::unique_ptr<Timeline> CParam::EvalCache::Resolve(mtime duration, mtime minDuration) const {
  auto line = std::make_unique<Timeline>();
  line->duration = Bits(duration);
  line->minDuration = Bits(minDuration);
  line->times.reserve(m_positions.size());
  for (unsigned int i = 0; i < m_positions.size(); ++i) {
    line->times.push_back(ResolvedTime(m_positions[i], i, duration, minDuration));
  }
  // NaN is never in order, so an ordered line has none.
  const auto outOfOrder = [](mtime before, mtime after) { return !(after >= before); };
  line->ordered =
      std::adjacent_find(line->times.begin(), line->times.end(), outOfOrder) == line->times.end();
  PrepareBezierSegments(*line, duration);
  return line;
}

void CParam::EvalCache::PrepareBezierSegments(Timeline& line, mtime duration) const {
  const std::size_t count = line.times.size();
  for (std::size_t i = 0; i + 1 < count; ++i) {
    if (!IsPreparedBezier(m_keys[i])) continue;
    if (line.bezier.empty()) line.bezier.resize(count - 1);
    const Segment s{mtime(), duration, line.times[i], line.times[i + 1], 0.0, 0.0};
    line.bezier[i] = BezierTimeCurve(s, HandlesOf(m_keys[i], m_anchors.data()));
  }
}

// The first slot is looked at first: most parameters are only ever asked
// about one clip.
const Timeline* CParam::EvalCache::TimelineFor(mtime duration, mtime minDuration) const {
  const std::uint64_t d = Bits(duration), m = Bits(minDuration);
  for (std::atomic<Timeline*>& slot : m_timelines) {
    Timeline* line = slot.load(std::memory_order_acquire);
    if (!line) {
      std::unique_ptr<Timeline> fresh;
      try {
        fresh = Resolve(duration, minDuration);
      } catch (const std::bad_alloc&) {
        return nullptr;
      }
      // Another reader may fill the slot first; then its line is looked at.
      if (slot.compare_exchange_strong(line, fresh.get(), std::memory_order_acq_rel,
                                       std::memory_order_acquire)) {
        line = fresh.release();
      }
    }
    if (line->duration == d && line->minDuration == m) return line;
  }
  return nullptr;
}

// The walk's outcome: it stops at keyframe `index` (the count when it ran
// out), having passed the one before at `prevTime`.
struct CParam::EvalCache::Bracket {
  unsigned int index = 0;
  mtime prevTime, nextTime;  // as the walk leaves them, starting default
  const Timeline* line = nullptr;  // the times it walked, when they were kept
};

CParam::EvalCache::Bracket CParam::EvalCache::Walk(mtime time, mtime duration, mtime minDuration,
                                                   unsigned int& cursor) const {
  const unsigned int count = m_keyCount;
  Bracket bracket;
  if (count == 0) return bracket;
  const Timeline* line = TimelineFor(duration, minDuration);
  // Without a line (too many clip lengths), resolve the times as the walk goes.
  const auto timeAt = [&](unsigned int i) {
    return line ? line->times[i] : ResolvedTime(m_positions[i], i, duration, minDuration);
  };
  if (line) {
    bracket.index = line->Find(time, cursor);
  } else {
    while (bracket.index < count && time >= timeAt(bracket.index)) ++bracket.index;
  }
  if (bracket.index > 0) bracket.prevTime = timeAt(bracket.index - 1);
  bracket.nextTime = bracket.index < count ? timeAt(bracket.index) : mtime(kNoNextTime);
  bracket.line = line;
  return bracket;
}

CachedKey CParam::EvalCache::KeyAt(const CParam& param, unsigned int index,
                                   const Timeline* line) const {
  const bool prepared = line && index < line->bezier.size() && IsPreparedBezier(m_keys[index]);
  return {&m_keys[index], Keys(param) + index, m_anchors.data(),
          prepared ? &line->bezier[index] : nullptr};
}

double CParam::EvalCache::Interpolate(const CParam& param, mtime time, mtime duration,
                                      mtime minDuration, double def, unsigned int& cursor) const {
  if (m_liveWalk) return InterpolateParamDouble(time, param, duration, minDuration, def);
  if (easeInOut) {
    time = TimeTranslationEaseInOut(static_cast<double>(time), 0.0, static_cast<double>(duration));
  }
  if (!(duration > 0.0)) VerifyWalkDuration(duration);
  const Bracket bracket = Walk(time, duration, minDuration, cursor);
  const unsigned int i = bracket.index;
  const CachedKey prev = i > 0 ? KeyAt(param, i - 1, bracket.line) : CachedKey{};
  const CachedKey next = i < m_keyCount ? KeyAt(param, i, bracket.line) : CachedKey{};
  return InterpolateKeys(time, duration, i > 0 ? &prev : nullptr, bracket.prevTime,
                         i < m_keyCount ? &next : nullptr, bracket.nextTime, def);
}

// ---- value arrays, a segment at a time
//
// Each sample is what GetValueDouble gives for its time, computed by the
// same functions; only what is the same for every sample of a segment is
// done once. Sample times never decrease (or never increase) with a finite
// step, so the samples of one segment follow each other.

namespace {

mtime SampleTime(mtime start, mtime step, unsigned long i) {
  return start + static_cast<double>(i) * step;
}

// The first sample from `from` (which is in) on that is out, by doubling
// then halving: a run costs the logarithm of its length.
template <typename In>
unsigned long EndOfRun(unsigned long from, unsigned long count, In in) {
  unsigned long inside = from, reach = 1;
  while (count - inside > reach && in(inside + reach)) {
    inside += reach;
    reach *= 2;
  }
  unsigned long outside = count - inside > reach ? inside + reach : count;
  while (outside - inside > 1) {
    const unsigned long middle = inside + (outside - inside) / 2;
    (in(middle) ? inside : outside) = middle;
  }
  return outside;
}

constexpr unsigned int kNoPiece = ~0u;

// The time translations a Spline segment eases by.
constexpr unsigned int kSplineEases =
    TIMETRANSLATION_ANCHOREASEINOUT | TIMETRANSLATION_EASEIN | TIMETRANSLATION_EASEOUT;

// Linear samples with a clamp alone: free of reports and branches, so the
// compiler does several at once. A limit that is absent is an infinite one,
// which no value passes (NaN included), so the comparisons stay as they are.
// Sample numbers are counted in 32-bit pieces, which convert to double
// several at a time; every sum stays an exact whole number.
void FillLinear(const Segment& segment, const DoubleLimits& limits, mtime start, mtime step,
                double* values, unsigned long from, unsigned long end) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const double lower = limits.hasMin ? limits.min : -kInfinity;
  const double upper = limits.hasMax ? limits.max : kInfinity;
  constexpr unsigned long kPiece = 1ul << 30;
  for (unsigned long piece = from; piece < end; piece += kPiece) {
    const auto count = static_cast<int>(std::min(end - piece, kPiece));
    const double base = static_cast<double>(piece);
    double* out = values + piece;
    for (int j = 0; j < count; ++j) {
      Segment s = segment;
      s.time = start + (base + static_cast<double>(j)) * step;
      double value = LinearValue(s);
      value = lower > value ? lower : value;
      value = upper < value ? upper : value;
      out[j] = value;
    }
  }
}

}  // namespace

// Only what cannot report is filled here: segments with a clamp alone, and
// of a Bezier segment the samples up to one whose solve would report. The
// rest is measured and left to go sample by sample, with reports and trace
// lines in order.
CParam::EvalCache::Run CParam::EvalCache::FillRun(const CParam& param, mtime duration,
                                                  mtime minDuration, mtime start, mtime step,
                                                  double def, double* values, unsigned long from,
                                                  unsigned long count, unsigned int& cursor) const {
  // The parameter's own easing and a clip length that reports go sample by sample.
  if (m_liveWalk || easeInOut || !(duration > 0.0)) return {};
  if (!std::isfinite(static_cast<double>(start)) || !std::isfinite(static_cast<double>(step))) {
    return {};
  }
  const Timeline* line = TimelineFor(duration, minDuration);
  if (!line || !line->ordered) return {};
  const unsigned int k = line->Find(SampleTime(start, step, from), cursor);
  const auto stopsAtK = [&](unsigned long j) {
    const mtime t = SampleTime(start, step, j);
    return (k == 0 || t >= line->times[k - 1]) && (k == m_keyCount || !(t >= line->times[k]));
  };
  const unsigned long end = EndOfRun(from, count, stopsAtK);
  const Run bySample{end - from, false};

  const CachedKey prev = k > 0 ? KeyAt(param, k - 1, line) : CachedKey{};
  const CachedKey next = k < m_keyCount ? KeyAt(param, k, line) : CachedKey{};
  const CachedKey* first = k > 0 ? &prev : nullptr;
  const CachedKey* second = k < m_keyCount ? &next : nullptr;
  const mtime prevTime = k > 0 ? line->times[k - 1] : mtime();
  const mtime nextTime = k < m_keyCount ? line->times[k] : mtime(kNoNextTime);
  // Limits that may report, and easing within the segment, go sample by sample.
  if (!plainClamp) return bySample;
  if (first && (first->record->timeTranslation & TIMETRANSLATION_EASEINOUT)) return bySample;
  const unsigned int code = first ? first->record->interpolation : INTERPOLATION_HOLD;
  const bool holds = nextTime - prevTime < kShortestSegment || code == INTERPOLATION_HOLD ||
                     code == INTERPOLATION_CUSTOM || !second;
  if (holds) {
    // Every sample of the segment is the same value.
    const double value = InterpolateKeys(SampleTime(start, step, from), duration, first, prevTime,
                                         second, nextTime, def);
    std::fill(values + from, values + end, ClampToOrderedLimits(doubleLimits, value));
    return {end - from, true};
  }
  const Segment segment{mtime(), duration, prevTime, nextTime, ValueOf(prev), ValueOf(next)};
  const auto fillEach = [&](auto blend) {
    Segment s = segment;
    for (unsigned long j = from; j < end; ++j) {
      s.time = SampleTime(start, step, j);
      values[j] = ClampToOrderedLimits(doubleLimits, blend(s));
    }
  };
  switch (code) {
    case INTERPOLATION_LINEAR:
      FillLinear(segment, doubleLimits, start, step, values, from, end);
      break;
    case INTERPOLATION_LINLOG:
      fillEach([&](const Segment& s) { return LinLogOf(s, prev, next, def); });
      break;
    case INTERPOLATION_SPLINE: {
      // Eased splines solve a Bezier, which can report.
      const KeyRecord& record = *prev.record;
      if (record.anchorsReport || (record.timeTranslation & kSplineEases)) return bySample;
      if (record.anchorCount == 0) {
        fillEach([&](const Segment& s) { return SplineOf(s, prev); });
        break;
      }
      // A piece between two points serves all the samples that fall in it.
      const Anchor* anchors = prev.anchors + record.firstAnchor;
      SplinePiece piece;
      unsigned int pieceIndex = kNoPiece;
      fillEach([&](const Segment& s) {
        const unsigned int i = SplinePieceAt(s, anchors, record.anchorCount);
        if (i != pieceIndex) piece = MakeSplinePiece(s, anchors, record.anchorCount, pieceIndex = i);
        return SplinePieceValue(piece, s.time, record.timeTranslation);
      });
      break;
    }
    case INTERPOLATION_BEZIER: {
      // A time without a root would report: the run stops before it, and
      // that sample goes alone, report and all.
      if (!prev.timeCurve) return bySample;
      const BezierHandles h = HandlesOf(*prev.record, prev.anchors);
      Segment s = segment;
      for (unsigned long j = from; j < end; ++j) {
        s.time = SampleTime(start, step, j);
        double u = 0.0;
        if (!TrySolveBezierInverse(*prev.timeCurve, static_cast<double>(s.time), u)) {
          return {j - from, j > from};
        }
        values[j] = ClampToOrderedLimits(doubleLimits, BezierValueAt(s, h, u));
      }
      break;
    }
    default:
      return bySample;
  }
  return {end - from, true};
}

const CKeyFrame* LiveSteppedKeyFrame(const CParam& param, mtime time, mtime duration,
                                     mtime minDuration) {
  const CKeyFrame* prev = nullptr;
  const CKeyFrame* next = nullptr;
  mtime prevTime, nextTime;
  double integral = 0.0;
  DetermineKeyFrame(time, param, duration, minDuration, prev, prevTime, next, nextTime, false,
                    integral);
  return prev ? prev : next;
}

const CKeyFrame* CParam::EvalCache::Stepped(const CParam& param, mtime time, mtime duration,
                                            mtime minDuration, const KeyRecord*& record,
                                            unsigned int& cursor) const {
  record = nullptr;
  if (m_liveWalk) return LiveSteppedKeyFrame(param, time, duration, minDuration);
  if (!(duration > 0.0)) VerifyWalkDuration(duration);
  const unsigned int stop = Walk(time, duration, minDuration, cursor).index;
  if (m_keyCount == 0) return nullptr;
  const unsigned int i = stop > 0 ? stop - 1 : 0;  // the last one passed, else the first
  record = &m_keys[i];
  return Keys(param) + i;
}

bool CParam::EvalCache::View::SteppedBool(mtime time, mtime duration, mtime minDuration,
                                          bool def) const {
  const KeyRecord* record = nullptr;
  const CKeyFrame* kf = m_cache.Stepped(m_param, time, duration, minDuration, record, m_cursor);
  bool v = false;
  if (!kf) return StaticBool(v) ? v : def;
  // Only a Bool keyframe answers from its record; another type reports.
  if (!record || kf->m_Type != PARAM_BOOL) return kf->GetValueBool(v) ? v : def;
  return record->hasBool ? record->boolValue : def;
}

}  // namespace qdcore
