// Where a parameter's keyframes lie on a clip, for its evaluation cache:
// their times resolved once per clip length, the search that stands for the
// list-order walk, and the blend at a time from the records.
#include <algorithm>
#include <bit>
#include <memory>
#include <new>

#include "qdderivative.h"
#include "qdevalcache.h"
#include "qdparam/processing.h"
#include "qdvalueindex.h"

namespace qdcore {

namespace {

std::uint64_t Bits(mtime t) { return std::bit_cast<std::uint64_t>(static_cast<double>(t)); }

bool OutOfOrder(mtime before, mtime after) { return !(after >= before); }

// A Bezier keyframe whose handles the record holds: its segment's time
// curve is worked out once per clip length.
bool IsPreparedBezier(const KeyRecord& record) {
  return record.interpolation == INTERPOLATION_BEZIER && !record.anchorsReport;
}

}  // namespace

Timeline::~Timeline() { delete valueIndex.load(std::memory_order_relaxed); }

// Comparing a few times at once costs less than halving down to one.
constexpr std::size_t kCounted = 16;

unsigned int Timeline::Find(mtime time, unsigned int& cursor) const {
  const auto count = static_cast<unsigned int>(times.size());
  const mtime* t = times.data();
  // The walk passes a keyframe when `time` is at or after it.
  const auto passes = [time](mtime at) { return time >= at; };
  if (!Ordered()) {
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
  line->times.reserve(m_keyCount);
  // Every time read (else the walk is live): each takes the walk's rule,
  // with the time a walk would carry into it.
  for (unsigned int i = 0; i < m_keyCount; ++i) {
    const mtime carried = i == 0 ? mtime() : mtime(kNoNextTime);
    line->times.push_back(KeyTimeOnClip(PositionAt(i), duration, minDuration, carried));
  }
  // NaN is never in order, so an ordered line has none.
  for (std::size_t i = 1; i < line->times.size(); ++i) {
    line->descents += OutOfOrder(line->times[i - 1], line->times[i]) ? 1 : 0;
  }
  PrepareBezierSegments(*line, duration);
  return line;
}

unsigned int Timeline::DescentsAround(std::size_t index) const {
  unsigned int n = 0;
  if (index > 0) n += OutOfOrder(times[index - 1], times[index]) ? 1 : 0;
  if (index + 1 < times.size()) n += OutOfOrder(times[index], times[index + 1]) ? 1 : 0;
  return n;
}

// The new time is a placeholder until the keyframe is read; the count of
// descents stays true for whatever it holds.
void Timeline::InsertKeyAt(std::size_t index) {
  if (index > 0 && index < times.size()) {
    descents -= OutOfOrder(times[index - 1], times[index]) ? 1 : 0;
  }
  times.insert(times.begin() + static_cast<std::ptrdiff_t>(index), mtime());
  descents += DescentsAround(index);
  if (!bezier.empty()) {
    const std::size_t at = std::min(index, bezier.size());
    bezier.insert(bezier.begin() + static_cast<std::ptrdiff_t>(at), BezierInverse{});
  }
  delete valueIndex.exchange(nullptr, std::memory_order_acq_rel);
}

void Timeline::RemoveKeyAt(std::size_t index) {
  descents -= DescentsAround(index);
  times.erase(times.begin() + static_cast<std::ptrdiff_t>(index));
  if (index > 0 && index < times.size()) {
    descents += OutOfOrder(times[index - 1], times[index]) ? 1 : 0;
  }
  if (!bezier.empty()) {
    const std::size_t at = std::min(index, bezier.size() - 1);
    bezier.erase(bezier.begin() + static_cast<std::ptrdiff_t>(at));
  }
  delete valueIndex.exchange(nullptr, std::memory_order_acq_rel);
}

// Keyframe `index` was read again: its time, whether the line is still in
// order, and the Bezier segments it ends and starts. The value bounds go;
// the next search over values makes them again.
void CParam::EvalCache::RelineKeyFrame(Timeline& line, unsigned int index) const {
  const mtime duration = std::bit_cast<double>(line.duration);
  const mtime minDuration = std::bit_cast<double>(line.minDuration);
  line.descents -= line.DescentsAround(index);
  const mtime carried = index == 0 ? mtime() : mtime(kNoNextTime);
  line.times[index] = KeyTimeOnClip(PositionAt(index), duration, minDuration, carried);
  line.descents += line.DescentsAround(index);
  for (unsigned int i = index > 0 ? index - 1 : 0; i <= index && i + 1 < line.times.size(); ++i) {
    PrepareBezierSegment(line, i, duration);
  }
  delete line.valueIndex.exchange(nullptr, std::memory_order_acq_rel);
}

void CParam::EvalCache::PrepareBezierSegments(Timeline& line, mtime duration) const {
  for (std::size_t i = 0; i + 1 < line.times.size(); ++i) PrepareBezierSegment(line, i, duration);
}

void CParam::EvalCache::PrepareBezierSegment(Timeline& line, std::size_t i, mtime duration) const {
  const KeyRecord& record = RecordAt(static_cast<unsigned int>(i));
  if (!IsPreparedBezier(record)) return;
  if (line.bezier.empty()) line.bezier.resize(line.times.size() - 1);
  const Segment s{mtime(), duration, line.times[i], line.times[i + 1], 0.0, 0.0};
  line.bezier[i] = BezierTimeCurve(s, HandlesOf(record, m_anchors.data()));
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
  mtime prevTime, nextTime;        // as the walk leaves them, starting default
  const Timeline* line = nullptr;  // the times it walked, when they were kept
};

// Too many clip lengths to keep a line for this one: the times are resolved
// as the walk goes. Out of line, to keep the usual walk small.
CParam::EvalCache::Bracket CParam::EvalCache::WalkUnkept(mtime time, mtime duration,
                                                         mtime minDuration) const {
  Bracket bracket;
  const auto timeOf = [&](unsigned int i, mtime& t) {
    t = KeyTimeOnClip(PositionAt(i), duration, minDuration, t);
    return true;
  };
  const KeyBracket walked = WalkInListOrder(time, m_keyCount, bracket.prevTime, bracket.nextTime,
                                            timeOf, [](const KeyBracket&) {});
  bracket.index = walked.next != kNoKey ? walked.next : m_keyCount;
  return bracket;
}

CParam::EvalCache::Bracket CParam::EvalCache::Walk(mtime time, mtime duration, mtime minDuration,
                                                   unsigned int& cursor) const {
  const unsigned int count = m_keyCount;
  Bracket bracket;
  if (count == 0) return bracket;
  const Timeline* line = TimelineFor(duration, minDuration);
  if (!line) return WalkUnkept(time, duration, minDuration);
  bracket.line = line;
  bracket.index = line->Find(time, cursor);
  if (bracket.index > 0) bracket.prevTime = line->times[bracket.index - 1];
  bracket.nextTime = bracket.index < count ? line->times[bracket.index] : mtime(kNoNextTime);
  return bracket;
}

CachedKey CParam::EvalCache::KeyAt(const CParam& param, unsigned int index,
                                   const Timeline* line) const {
  const KeyRecord& record = RecordAt(index);
  const bool prepared = line && index < line->bezier.size() && IsPreparedBezier(record);
  return {&record, Keys(param) + index, m_anchors.data(),
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

// Interpolate's steps, the slope carried through the parameter's ease.
ValueSlope CParam::EvalCache::Slope(const CParam& param, mtime time, mtime duration,
                                    mtime minDuration, double def, unsigned int& cursor) const {
  if (m_liveWalk) return SlopeParamDouble(time, param, duration, minDuration, def);
  double rate = 1.0;
  if (easeInOut) {
    const ValueSlope eased = EaseInOutWithSlope(time, 0.0, static_cast<double>(duration));
    time = eased.value;
    rate = eased.slope;
  }
  if (!(duration > 0.0)) VerifyWalkDuration(duration);
  const Bracket bracket = Walk(time, duration, minDuration, cursor);
  const unsigned int i = bracket.index;
  const CachedKey prev = i > 0 ? KeyAt(param, i - 1, bracket.line) : CachedKey{};
  const CachedKey next = i < m_keyCount ? KeyAt(param, i, bracket.line) : CachedKey{};
  const ValueSlope blend = SlopeOfKeys(time, duration, i > 0 ? &prev : nullptr, bracket.prevTime,
                                       i < m_keyCount ? &next : nullptr, bracket.nextTime, def);
  return {blend.value, blend.slope * rate};
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
  record = &RecordAt(i);
  return Keys(param) + i;
}

bool CParam::EvalCache::View::SteppedBool(mtime time, mtime duration, mtime minDuration,
                                          bool def) const {
  const KeyRecord* record = nullptr;
  const CKeyFrame* kf = m_cache.Stepped(m_param, time, duration, minDuration, record, m_cursor);
  bool v = false;
  if (!kf) return StaticValue(v) ? v : def;
  // Only a Bool keyframe answers from its record; another type reports.
  if (!record || kf->m_Type != PARAM_BOOL) return kf->GetValueBool(v) ? v : def;
  return record->hasBool ? record->boolValue : def;
}

}  // namespace qdcore
