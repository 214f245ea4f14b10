// Evaluation of keyframed parameters, read live from their XML.
//
//   1. Keyframe times      reading a keyframe's position
//   2. The keyframe walk   DetermineKeyFrame, its running integral, and the
//                          walk-and-interpolate value form
//   3. Live keyframes      what the blend asks of a CKeyFrame
//   4. InterpolateDouble   the blend between two keyframes (qdkeys.h)
#include <algorithm>
#include <iterator>

#include "qdassert.h"
#include "qdderivative.h"
#include "qdkeys.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"
#include "qdparam/qdcalc.h"

namespace qdcore {

namespace {

constexpr const char* kDetermineKeyFrameSignature =
    "bool __cdecl DetermineKeyFrame(class qdcore::mtime,const class qdcore::CParam &,class "
    "qdcore::mtime,class qdcore::mtime,const class qdcore::CKeyFrame *&,class qdcore::mtime "
    "&,const "
    "class qdcore::CKeyFrame *&,class qdcore::mtime &,bool,double &)";

}  // namespace

// ===========================================================================
// 1. Keyframe times
// ===========================================================================

KeyPosition ReadKeyPosition(const CKeyFrame& kf) {
  KeyPosition position;
  position.qualifier = kf.GetType();
  switch (position.qualifier) {
    case KEYFRAME_RELATIVE:
      position.read = kf.GetPosition(position.number);
      break;
    case KEYFRAME_ABSOLUTE:
    case KEYFRAME_FIXED_ABSOLUTE: {
      mtime t;
      position.read = kf.GetTime(t);
      position.number = t;
      break;
    }
    default:
      break;
  }
  return position;
}

// ===========================================================================
// 2. The keyframe walk
// ===========================================================================

namespace {

// The list-order walk over the parameter's keyframes, reading each time as
// it goes. `visit(bracket)` sees each keyframe as `next` once its time is in
// `nextTime`, with the walk's `prev` so far.
template <typename Visit>
bool WalkKeyFrames(mtime time, const CParam& param, mtime duration, mtime minDuration,
                   const CKeyFrame*& prev, mtime& prevTime, const CKeyFrame*& next, mtime& nextTime,
                   Visit visit) {
  VerifyWalkDuration(duration);
  // The list keeps its keyframes side by side, in list order.
  const CKeyFrame* keys = param.FindNextKeyFrame(nullptr);
  const unsigned int count = keys ? param.GetSize() : 0;
  const auto timeOf = [&](unsigned int i, mtime& t) {
    const KeyPosition position = ReadKeyPosition(keys[i]);
    t = KeyTimeOnClip(position, duration, minDuration, t);
    return position.read;
  };
  const auto keyAt = [&](unsigned int i) { return i == kNoKey ? nullptr : keys + i; };
  prev = nullptr;
  const KeyBracket bracket =
      WalkInListOrder(time, count, prevTime, nextTime, timeOf,
                      [&](const KeyBracket& sofar) { visit(keyAt(sofar.prev), keys[sofar.next]); });
  prev = keyAt(bracket.prev);
  next = keyAt(bracket.next);
  return bracket.read;
}

}  // namespace

// Reported, then used as it is.
void VerifyWalkDuration(mtime duration) { QD_VERIFY(duration > 0.0, kDetermineKeyFrameSignature); }

bool DetermineKeyFrame(mtime time, const CParam& param, mtime duration, mtime minDuration,
                       const CKeyFrame*& prev, mtime& prevTime, const CKeyFrame*& next,
                       mtime& nextTime, bool accumulate, double& integral) {
  integral = 0.0;
  const auto addSegment = [&](const CKeyFrame* before, const CKeyFrame& kf) {
    if (!accumulate) return;
    const double value = kf.GetValueDouble();
    if (!before) {  // before the first keyframe its value holds from time 0
      const mtime end = time > nextTime ? nextTime : time;
      integral += static_cast<double>(end) * value;
      return;
    }
    const InterpolationKind* kind = FindInterpolationKind(before->GetInterpolation());
    const Segment s{time > nextTime ? nextTime : time, duration, prevTime, nextTime,
                    before->GetValueDouble(),          value};
    integral += kind ? kind->integral(s) : 1.0;  // an unknown kind counts as curved
  };
  const bool ok =
      WalkKeyFrames(time, param, duration, minDuration, prev, prevTime, next, nextTime, addSegment);
  // After the last keyframe its value holds.
  if (accumulate && !next && prev) {
    integral += static_cast<double>(time - prevTime) * prev->GetValueDouble();
  }
  return ok;
}

double InterpolateParamDouble(mtime time, const CParam& param, mtime duration, mtime minDuration,
                              double def) {
  if (param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) {
    time = TimeTranslationEaseInOut(static_cast<double>(time), 0.0, static_cast<double>(duration));
  }
  const CKeyFrame* prev = nullptr;
  const CKeyFrame* next = nullptr;
  mtime prevTime, nextTime;
  WalkKeyFrames(time, param, duration, minDuration, prev, prevTime, next, nextTime,
                [](const CKeyFrame*, const CKeyFrame&) {});
  return InterpolateDouble(time, duration, prev, prevTime, next, nextTime, def);
}

// InterpolateParamDouble's steps, the slope carried through the parameter's ease.
ValueSlope SlopeParamDouble(mtime time, const CParam& param, mtime duration, mtime minDuration,
                            double def) {
  double rate = 1.0;
  if (param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) {
    const ValueSlope eased = EaseInOutWithSlope(time, 0.0, static_cast<double>(duration));
    time = eased.value;
    rate = eased.slope;
  }
  const CKeyFrame* prev = nullptr;
  const CKeyFrame* next = nullptr;
  mtime prevTime, nextTime;
  WalkKeyFrames(time, param, duration, minDuration, prev, prevTime, next, nextTime,
                [](const CKeyFrame*, const CKeyFrame&) {});
  const ValueSlope blend = SlopeOfKeys(time, duration, prev, prevTime, next, nextTime, def);
  return {blend.value, blend.slope * rate};
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

// ===========================================================================
// 3. Live keyframes
// ===========================================================================

unsigned int TimeTranslationOf(const CKeyFrame& kf) { return kf.GetTimeTranslation(); }
unsigned int InterpolationOf(const CKeyFrame& kf) { return kf.GetInterpolation(); }
double ValueOf(const CKeyFrame& kf) { return kf.GetValueDouble(); }

BezierHandles ReadBezierHandles(const CKeyFrame& kf) {
  BezierHandles h;
  kf.GetBezierAnchors(h.outTime, h.outValue, h.inTime, h.inValue);  // zeros without handles
  return h;
}

unsigned int ReadSplineAnchors(const CKeyFrame& kf, Anchor (&anchors)[kMaxSplineAnchors]) {
  unsigned int count = 0;
  if (!kf.GetAnchors(anchors, kMaxSplineAnchors, count)) {
    // An incomplete or overlong list leaves records unwritten: read them as
    // zeros, never as whatever the stack held.
    std::fill(std::begin(anchors), std::end(anchors), Anchor{0.0, 0.0});
    kf.GetAnchors(anchors, kMaxSplineAnchors, count);
  }
  return std::min(count, kMaxSplineAnchors);
}

// ===========================================================================
// 4. InterpolateDouble
// ===========================================================================

double InterpolateDouble(mtime time, mtime duration, const CKeyFrame* prev, mtime prevTime,
                         const CKeyFrame* next, mtime nextTime, double def) {
  return InterpolateKeys(time, duration, prev, prevTime, next, nextTime, def);
}

}  // namespace qdcore
