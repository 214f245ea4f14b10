// CParamUtil: the motion path through several parameters of a set. The
// curve and its arc length are qdmotionpath.cpp.
#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "qdinterpolation.h"
#include "qdinverse.h"
#include "qdmotionpath.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/paramset.h"
#include "qdparam/paramutil.h"
#include "qdparam/processing.h"
#include "qdparamevaluation.h"

namespace qdcore {

namespace {

static_assert(CParamUtil::kMaxPathParams == kPathDimensions);

using Params = std::array<const CParam*, kPathDimensions>;

bool IsNumber(const CParam& param) {
  const unsigned int type = param.GetType();
  return type == PARAM_DOUBLE || type == PARAM_LONG;
}

// One keyframe of the first parameter: its time on the clip, as the walk
// sees time, and the clip time at which the walk reaches it.
struct PathKey {
  double walkTime;
  double clipTime;
  const CKeyFrame* keyFrame;
  unsigned int listIndex;
};

// The clip's ease of the first parameter, if it has one.
struct ClipEase {
  bool eased;
  double duration;
  double WalkTime(double t) const { return eased ? TimeTranslationEaseInOut(t, 0.0, duration) : t; }
  double ClipTime(double walkTime) const {
    if (!eased || !(walkTime > 0.0)) return walkTime;
    if (!(walkTime < duration)) return duration;
    return FirstWhere(0.0, duration, [&](double t) { return WalkTime(t) >= walkTime; });
  }
};

// The first parameter's keyframes in time order; of several at one time the
// last in the list, which the walk takes.
std::vector<PathKey> KeysInTimeOrder(const CParam& param, mtime duration, const ClipEase& ease) {
  std::vector<PathKey> keys;
  const mtime minDuration = param.GetMinDuration();
  unsigned int index = 0;
  for (const CKeyFrame* kf = param.FindNextKeyFrame(nullptr); kf;
       kf = param.FindNextKeyFrame(kf), ++index) {
    const double t = static_cast<double>(kf->GetTime(duration, minDuration));
    if (std::isfinite(t)) keys.push_back({t, 0.0, kf, index});
  }
  std::sort(keys.begin(), keys.end(), [](const PathKey& a, const PathKey& b) {
    return a.walkTime < b.walkTime || (a.walkTime == b.walkTime && a.listIndex < b.listIndex);
  });
  std::vector<PathKey> distinct;
  for (const PathKey& key : keys) {
    if (!distinct.empty() && distinct.back().walkTime == key.walkTime) distinct.pop_back();
    distinct.push_back(key);
  }
  for (PathKey& key : distinct) key.clipTime = ease.ClipTime(key.walkTime);
  return distinct;
}

// A parameter's value as evaluation gives it, with absolute keyframes
// scaled onto a short clip as the vertices' times are (CKeyFrame::GetTime),
// and a coordinate forced into its grid and limits the same way.
double ValueAt(const CParam& param, double time, mtime duration) {
  return ParamEvaluation::Double(param, time, duration, ScaleOntoClip(param.GetMinDuration()), 0.0);
}
double Restrict(const CParam& param, double value) {
  if (param.GetType() == PARAM_LONG) {
    return static_cast<double>(EnforceRestricitionsLong(param, RoundHalfAwayFromZero(value)));
  }
  return EnforceRestricitionsDouble(param, value);
}

PathPoint Vertex(const Params& params, unsigned int count, double clipTime, mtime duration) {
  PathPoint p{};
  for (unsigned int j = 0; j < count; ++j) p[j] = ValueAt(*params[j], clipTime, duration);
  return p;
}

// How far along segment [a, b] the point is at walk time `t`: the share
// its first keyframe's time translation gives, as evaluation eases a blend.
double SegmentShare(const CKeyFrame& kf, double t, double a, double b) {
  const unsigned int flags = kf.GetTimeTranslation();
  if (flags & TIMETRANSLATION_EASEINOUT) t = TimeTranslationEaseInOut(t, a, b);
  if (kf.GetInterpolation() == INTERPOLATION_SPLINE) {
    for (const Ease& ease : kSplineEases) {
      if (flags & ease.flag) {
        t = ease.translate(t, a, b);
        break;
      }
    }
  }
  return std::clamp((t - a) / (b - a), 0.0, 1.0);
}

bool Holds(const CKeyFrame& kf, double a, double b) {
  const InterpolationKind* kind = FindInterpolationKind(kf.GetInterpolation());
  return !(b - a >= kShortestSegment) || !kind || kind->holds || !kind->value;
}

void Write(const Params& params, unsigned int count, const PathPoint& point, double* values) {
  for (unsigned int j = 0; j < count; ++j) values[j] = Restrict(*params[j], point[j]);
}

bool Interpolate(const CParamSet& set, const Params& params, unsigned int count, const mtime& time,
                 double* values) {
  const mtime duration = set.GetDuration();
  const double clipTime = static_cast<double>(time - set.GetStartTime());
  const CParam& first = *params[0];
  bool inactive = false;
  const bool moving = first.GetKeyFrameStatus() && !(first.GetInactiveStatus(inactive) && inactive);
  const ClipEase ease{first.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT,
                      static_cast<double>(duration)};
  const std::vector<PathKey> keys =
      moving ? KeysInTimeOrder(first, duration, ease) : std::vector<PathKey>{};
  if (keys.size() < 2) {
    for (unsigned int j = 0; j < count; ++j) values[j] = ValueAt(*params[j], clipTime, duration);
    return true;
  }
  const double walkTime = ease.WalkTime(clipTime);
  // The last keyframe at or before the time; held before the first and after the last.
  const auto after = std::upper_bound(keys.begin(), keys.end(), walkTime,
                                      [](double t, const PathKey& k) { return t < k.walkTime; });
  if (after == keys.begin() || after == keys.end()) {
    const PathKey& held = after == keys.begin() ? keys.front() : keys.back();
    Write(params, count, Vertex(params, count, held.clipTime, duration), values);
    return true;
  }
  const auto i = static_cast<std::size_t>(after - keys.begin()) - 1;
  const PathKey& a = keys[i];
  const PathKey& b = keys[i + 1];
  const PathPoint p1 = Vertex(params, count, a.clipTime, duration);
  if (Holds(*a.keyFrame, a.walkTime, b.walkTime) || walkTime == a.walkTime) {
    Write(params, count, p1, values);
    return true;
  }
  const PathPoint p2 = Vertex(params, count, b.clipTime, duration);
  // Past either end the missing neighbour mirrors the other point.
  const PathPoint p0 = i > 0 ? Vertex(params, count, keys[i - 1].clipTime, duration) : PathPoint{};
  const PathPoint p3 =
      i + 2 < keys.size() ? Vertex(params, count, keys[i + 2].clipTime, duration) : PathPoint{};
  PathPoint before = p0, beyond = p3;
  for (unsigned int j = 0; j < count; ++j) {
    if (i == 0) before[j] = p1[j] + (p1[j] - p2[j]);
    if (i + 2 >= keys.size()) beyond[j] = p2[j] + (p2[j] - p1[j]);
  }
  const PathSegment segment = CentripetalSegment(before, p1, p2, beyond, count);
  const PathArcLength length(segment);
  const double share = SegmentShare(*a.keyFrame, walkTime, a.walkTime, b.walkTime);
  Write(params, count, PointOnSegment(segment, length.ParameterAt(share)), values);
  return true;
}

template <typename Find>
bool InterpolateFound(const CParamSet& set, unsigned int count, const mtime& time, double* values,
                      Find find) {
  if (count == 0 || count > kPathDimensions || !values) return false;
  Params params{};
  for (unsigned int j = 0; j < count; ++j) {
    params[j] = find(j);
    if (!params[j] || !IsNumber(*params[j])) return false;
  }
  if (std::isnan(static_cast<double>(time))) return false;
  try {
    return Interpolate(set, params, count, time, values);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

bool InterpolateParamsPath(const CParamSet& set, const CParam* const* params, unsigned int count,
                           const mtime& time, double* values) {
  if (!params) return false;
  return InterpolateFound(set, count, time, values, [&](unsigned int j) { return params[j]; });
}

bool CParamUtil::InterpolateParamsSpline(const CParamSet& set, const CZPoolString* names,
                                         unsigned int count, const mtime& time, double* values) {
  if (!names) return false;
  return InterpolateFound(set, count, time, values,
                          [&](unsigned int j) { return set.Get(names[j]); });
}

bool CParamUtil::InterpolateParamsSpline(const CParamSet& set, const unsigned long* ids,
                                         unsigned int count, const mtime& time, double* values) {
  if (!ids) return false;
  return InterpolateFound(set, count, time, values,
                          [&](unsigned int j) { return set.Get(ids[j]); });
}

}  // namespace qdcore
