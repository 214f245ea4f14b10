// Keyframes as evaluation reads them, from wherever they come: live from
// their XML (CKeyFrame) or from records the evaluation cache read once
// (CachedKey, qdevalcache.h). The keyframe-time rule, the list-order walk
// and the blend between two keyframes are written once here, generic over
// the two, so both routes give the same values and reports by construction.
#pragma once

#include "qdcore/core.h"
#include "qdinterpolation.h"
#include "qdparam/keyframe.h"

namespace qdcore {

// `nextTime` once the walk has passed a keyframe and found none after it.
inline constexpr double kNoNextTime = -1.0;

// ===========================================================================
// Keyframe times
// ===========================================================================

// Where a keyframe's position text puts it, before a clip length is known.
struct KeyPosition {
  unsigned int qualifier = KEYFRAME_NO_TIME;  // KEYFRAME_*
  double number = 0.0;                        // fraction or seconds
  bool read = true;                           // false: the text holds no time of its kind
};

// The keyframe's position, read as the walk reads it (reports included).
KeyPosition ReadKeyPosition(const CKeyFrame& kf);

// How absolute keyframes fit a clip shorter than they need. Stored effects
// divide by the bare minimum duration (the walk's rule below); the host API
// scales them onto the clip, as the keyframe's own GetTime does, so that a
// "4s" key of an 8 s effect lands at 2 s of a 4 s clip. That rule travels
// as the minimum duration negated: a real one is never negative, and every
// evaluation path then carries it without another argument.
inline mtime ScaleOntoClip(mtime minDuration) { return -minDuration; }

// The minimum duration a host-API evaluation carries, else unassigned.
inline mtime FitsOntoClip(mtime minDuration) {
  return minDuration < 0.0 && minDuration.isassigned() ? -minDuration : mtime::unassigned;
}

// An absolute time of a clip shorter than `need`, as CKeyFrame::GetTime
// scales it (a negative time counts back from the end of `need`).
inline mtime ScaledOntoClip(mtime time, mtime duration, mtime need) {
  const mtime fromStart = time >= mtime::null ? time : need + time;
  const double share = static_cast<double>(fromStart / static_cast<double>(need));
  return share * duration;
}

// The keyframe's time on a clip of `duration`. `walkTime` is the walk's
// time so far: a keyframe without a time keeps it (the caller's start value
// before the first keyframe, the "none after" mark once one was passed), and
// so do seconds that did not read.
inline mtime KeyTimeOnClip(const KeyPosition& position, mtime duration, mtime minDuration,
                           mtime walkTime) {
  switch (position.qualifier) {
    case KEYFRAME_RELATIVE: {
      mtime k = position.number * duration;
      if (k < 0.0) k = k + duration;  // negative positions count back from the end
      return k;
    }
    case KEYFRAME_ABSOLUTE: {
      mtime k = position.read ? mtime(position.number) : walkTime;
      if (const mtime need = FitsOntoClip(minDuration); need.isassigned()) {
        return duration < need ? ScaledOntoClip(k, duration, need) : (k < 0.0 ? k + duration : k);
      }
      // A clip shorter than the keyframes need divides by the bare minimum
      // duration (no rescaling to the clip): stored effects are timed so.
      if (duration < minDuration) k = k / static_cast<double>(minDuration);
      if (k < 0.0) k = k + duration;
      return k;
    }
    case KEYFRAME_FIXED_ABSOLUTE:
      return position.read ? mtime(position.number) : walkTime;
    default:
      return walkTime;
  }
}

// ===========================================================================
// The list-order walk
// ===========================================================================

inline constexpr unsigned int kNoKey = ~0u;

// Where the walk stopped: `prev` the last keyframe at or before the time (a
// later one of equal time wins), `next` the first one after it; kNoKey for
// none. The times are as the walk leaves them.
struct KeyBracket {
  unsigned int prev = kNoKey, next = kNoKey;
  bool read = true;  // every time the walk took read
};

// Visits `count` keyframes in list order until one lies after `time`. Each
// keyframe's time goes into `nextTime` (`timeOf(i, nextTime)`, false when it
// did not read), `visit(bracket)` sees it as `next` with the walk's `prev`
// so far, and if it lies at or before `time` it becomes `prev`. A time that did not read ends the
// walk: the times after it mean nothing.
template <typename TimeOf, typename Visit>
KeyBracket WalkInListOrder(mtime time, unsigned int count, mtime& prevTime, mtime& nextTime,
                           TimeOf timeOf, Visit visit) {
  KeyBracket bracket;
  for (unsigned int i = 0; i < count; ++i) {
    bracket.next = i;
    bracket.read = timeOf(i, nextTime) && bracket.read;
    visit(bracket);
    if (!(time >= nextTime)) return bracket;
    bracket.prev = i;
    prevTime = nextTime;
    bracket.next = kNoKey;
    nextTime = kNoNextTime;
    if (!bracket.read) break;
  }
  return bracket;
}

// The walk's check of the clip length, reported where the walk reports it.
void VerifyWalkDuration(mtime duration);

// ===========================================================================
// What the blend asks of a keyframe
// ===========================================================================
//
// Overloads for both kinds of keyframe: TimeTranslationOf, InterpolationOf,
// ValueOf, and WithShape, which reads what a kind needs beyond the values
// (SegmentShape) and hands it to `use`.

// ---- live

unsigned int TimeTranslationOf(const CKeyFrame& kf);
unsigned int InterpolationOf(const CKeyFrame& kf);
double ValueOf(const CKeyFrame& kf);

// The anchors a Spline blend uses: up to kMaxSplineAnchors read into
// `anchors`, unread records zero. Returns how many to use.
unsigned int ReadSplineAnchors(const CKeyFrame& kf, Anchor (&anchors)[kMaxSplineAnchors]);
BezierHandles ReadBezierHandles(const CKeyFrame& kf);

template <typename Use>
[[gnu::always_inline]] inline auto WithShape(ShapeNeeds needs, const Segment& s,
                                             const CKeyFrame& prev, const CKeyFrame&, Use use) {
  if (needs == ShapeNeeds::Nothing) return use(kNoShape);
  SegmentShape shape;
  switch (needs) {
    case ShapeNeeds::Nothing:
      break;
    case ShapeNeeds::Logarithms:
      shape.log0 = LogOnePlus(s.y0);
      shape.log1 = LogOnePlus(s.y1);
      break;
    case ShapeNeeds::Handles:
      shape.handles = ReadBezierHandles(prev);
      break;
    case ShapeNeeds::Anchors: {
      Anchor anchors[kMaxSplineAnchors];
      shape.anchorCount = ReadSplineAnchors(prev, anchors);
      shape.anchors = anchors;
      shape.eases = prev.GetTimeTranslation();
      return use(shape);
    }
  }
  return use(shape);
}

// ---- cached

// One keyframe as the blend reads it.
struct KeyRecord {
  unsigned int valueType = PARAM_UNDEFINED;  // the keyframe's m_Type that `value` was read for
  double value = 0.0;                        // CKeyFrame::GetValueDouble() for that type
  bool hasBool = false;                      // a "value" for a Bool keyframe's GetValueBool
  bool boolValue = false;
  double logValue = 0.0;  // LogOnePlus(value), next to a LinLog segment
  unsigned int interpolation = INTERPOLATION_HOLD;
  unsigned int timeTranslation = TIMETRANSLATION_LINEAR;
  // Reading the anchors reports (a time suffix on an anchor): such
  // keyframes read them live at every blend, reports and all.
  bool anchorsReport = false;
  // In the cache's pool: a Spline keyframe's anchors, or a Bezier
  // keyframe's two handle points as GetBezierAnchors gives them.
  unsigned int firstAnchor = 0, anchorCount = 0;
};

// A record with the keyframe it describes. The keyframe is read only where
// its record cannot answer: a value type changed since, or anchors that report.
struct CachedKey {
  const KeyRecord* record;
  const CKeyFrame* live;
  const Anchor* anchors;  // the pool that `firstAnchor` indexes
  // The time curve of the Bezier segment this keyframe starts, worked out
  // for the clip being asked about; null when there is none.
  const BezierInverse* timeCurve = nullptr;
};

inline BezierHandles HandlesOf(const KeyRecord& record, const Anchor* anchors) {
  const Anchor* h = anchors + record.firstAnchor;
  return {h[0].position, h[0].value, h[1].position, h[1].value};
}

inline unsigned int TimeTranslationOf(const CachedKey& key) { return key.record->timeTranslation; }
inline unsigned int InterpolationOf(const CachedKey& key) { return key.record->interpolation; }

// The value type is a public member that may change without a write to the
// element: the record answers only for the type it was read for.
inline bool RecordHoldsValue(const CachedKey& key) {
  return key.live->m_Type == key.record->valueType;
}
inline double ValueOf(const CachedKey& key) {
  return RecordHoldsValue(key) ? key.record->value : ValueOf(*key.live);
}

// The shape from the records alone; false when the anchors must be read live.
inline bool RecordedShape(ShapeNeeds needs, const Segment& s, const CachedKey& prev,
                          const CachedKey& next, SegmentShape& shape) {
  const KeyRecord& record = *prev.record;
  switch (needs) {
    case ShapeNeeds::Nothing:
      return true;
    case ShapeNeeds::Logarithms:
      // A record's logarithm is that of the value it holds: for another
      // value type the logarithm is taken afresh.
      shape.log0 = RecordHoldsValue(prev) ? record.logValue : LogOnePlus(s.y0);
      shape.log1 = RecordHoldsValue(next) ? next.record->logValue : LogOnePlus(s.y1);
      return true;
    case ShapeNeeds::Handles:
      if (record.anchorsReport) return false;
      shape.handles = HandlesOf(record, prev.anchors);
      shape.timeCurve = prev.timeCurve;
      return true;
    case ShapeNeeds::Anchors:
      if (record.anchorsReport) return false;
      shape.eases = record.timeTranslation;
      shape.anchors = prev.anchors + record.firstAnchor;
      shape.anchorCount = record.anchorCount;
      return true;
  }
  return true;
}

template <typename Use>
[[gnu::always_inline]] inline auto WithShape(ShapeNeeds needs, const Segment& s,
                                             const CachedKey& prev, const CachedKey& next,
                                             Use use) {
  if (needs == ShapeNeeds::Nothing) return use(kNoShape);
  SegmentShape shape;
  if (RecordedShape(needs, s, prev, next, shape)) return use(shape);
  return WithShape(needs, s, *prev.live, *next.live, use);
}

// ===========================================================================
// The blend between two keyframes
// ===========================================================================

// The value at `time` of the segment from `prev` (at `prevTime`) to `next`
// (at `nextTime`), blended by `prev`'s interpolation; either may be null.
// The same steps, reads and reports in the same order for both kinds of key.
template <typename Key>
double InterpolateKeys(mtime time, mtime duration, const Key* prev, mtime prevTime, const Key* next,
                       mtime nextTime, double def) {
  if (!prev && !next) return def;
  if (prev && (TimeTranslationOf(*prev) & TIMETRANSLATION_EASEINOUT)) {
    time = TimeTranslationEaseInOut(time, prevTime, nextTime);
  }
  // The segment's first keyframe governs it; before the first keyframe the
  // second one's value holds.
  const InterpolationKind* kind =
      FindInterpolationKind(prev ? InterpolationOf(*prev) : INTERPOLATION_HOLD);
  if (nextTime - prevTime < kShortestSegment || (kind && kind->holds)) {
    return prev ? ValueOf(*prev) : ValueOf(*next);
  }
  if (!kind || !kind->value) return UnknownInterpolation(def);
  const double y0 = ValueOf(*prev);  // prev is set: without it the kind holds
  if (!next) return y0;
  const Segment s{time, duration, prevTime, nextTime, y0, ValueOf(*next)};
  return WithShape(kind->needs, s, *prev, *next,
                   [&](const SegmentShape& shape) { return kind->value(s, shape, def); });
}

// The value InterpolateKeys gives with its slope per second of `time`: the
// same walk's segment, reads and reports, the derivative taken through the
// keyframe's ease. Where the value holds (before the first keyframe, after
// the last, Hold, an instant segment, an unknown kind) the slope is 0.
template <typename Key>
ValueSlope SlopeOfKeys(mtime time, mtime duration, const Key* prev, mtime prevTime, const Key* next,
                       mtime nextTime, double def) {
  if (!prev && !next) return {def, 0.0};
  double rate = 1.0;
  if (prev && (TimeTranslationOf(*prev) & TIMETRANSLATION_EASEINOUT)) {
    const ValueSlope eased = EaseInOutWithSlope(time, prevTime, nextTime);
    time = eased.value;
    rate = eased.slope;
  }
  const InterpolationKind* kind =
      FindInterpolationKind(prev ? InterpolationOf(*prev) : INTERPOLATION_HOLD);
  if (nextTime - prevTime < kShortestSegment || (kind && kind->holds)) {
    return {prev ? ValueOf(*prev) : ValueOf(*next), 0.0};
  }
  if (!kind || !kind->slope) return {UnknownInterpolation(def), 0.0};
  const double y0 = ValueOf(*prev);
  if (!next) return {y0, 0.0};
  const Segment s{time, duration, prevTime, nextTime, y0, ValueOf(*next)};
  const ValueSlope blend = WithShape(kind->needs, s, *prev, *next, [&](const SegmentShape& shape) {
    return kind->slope(s, shape, def);
  });
  return {blend.value, blend.slope * rate};
}

}  // namespace qdcore
