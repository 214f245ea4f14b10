// The host API's keyframes: read in time order, and edited so that the list
// stays in time order and every later evaluation sees the real minimum
// duration.
#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

#include "qdextrapolation.h"
#include "qdformatnames.h"
#include "qdhostapi.h"
#include "qdkeys.h"
#include "qdparam/keyframe.h"
#include "qdparamevaluation.h"

namespace qd {

using namespace qdcore;
using namespace qdcore::names;
using detail::ClipFit;
using detail::Failure;
using detail::ToPooled;
using detail::ToText;

namespace {

constexpr unsigned int kMaxAnchors = 64;

unsigned int InterpolationCode(Interpolation interpolation) {
  return 1u << static_cast<unsigned int>(interpolation);
}

Interpolation FromCode(unsigned int code) {
  const auto bit = static_cast<unsigned int>(std::countr_zero(code));
  return bit <= static_cast<unsigned int>(Interpolation::Custom) ? static_cast<Interpolation>(bit)
                                                                 : Interpolation::Hold;
}

// Each keyframe's time on the set's clip, in stored order, as evaluation
// places it (a keyframe without a time sits at the clip's start).
double KeyTime(const CParam& p, const CParamSet& set, mtime fit, unsigned int index) {
  const mtime onClip =
      KeyTimeOnClip(ReadKeyPosition(*p.Get(index)), set.GetDuration(), fit, mtime::null);
  return static_cast<double>(onClip) + static_cast<double>(set.GetStartTime());
}

std::vector<double> KeyTimes(const CParam& p, const CParamSet& set) {
  const mtime fit = ClipFit(p);
  std::vector<double> times;
  times.reserve(p.GetSize());
  for (unsigned int i = 0; i < p.GetSize(); ++i) times.push_back(KeyTime(p, set, fit, i));
  return times;
}

// True when keyframe `index` moved to `time` keeps its place in time order:
// at or after the keyframe before it, and before the one after it.
bool StaysBetweenNeighbours(const CParam& p, const CParamSet& set, unsigned int index,
                            double time) {
  const mtime fit = ClipFit(p);
  if (index > 0 && !(KeyTime(p, set, fit, index - 1) <= time)) return false;
  return index + 1 >= p.GetSize() || KeyTime(p, set, fit, index + 1) > time;
}

bool IsAbsolute(const CKeyFrame& kf) {
  const unsigned int kind = kf.GetType();
  return kind == KEYFRAME_ABSOLUTE || kind == KEYFRAME_FIXED_ABSOLUTE;
}

// A moved keyframe keeps its kind of position: a share of the clip stays a
// share, seconds stay seconds (unscaled).
void SetKeyTime(CKeyFrame& kf, const CParamSet& set, double onClip) {
  const unsigned int kind = kf.GetType();
  if (IsAbsolute(kf)) {
    kf.SetTime(onClip, kind == KEYFRAME_FIXED_ABSOLUTE);
  } else {
    kf.SetPosition(onClip / set.GetDuration());
  }
}

// Where a keyframe at `time` goes to keep time order: after every keyframe
// at or before it.
unsigned int IndexInTimeOrder(const std::vector<double>& times, double time) {
  unsigned int index = 0;
  while (index < times.size() && !(times[index] > time)) ++index;
  return index;
}

// As IndexInTimeOrder over KeyTimes, by a binary search when the keyframes
// are known to be stored in time order.
unsigned int InsertionIndex(const CParam& p, const CParamSet& set, double time) {
  const double start = set.GetStartTime();
  const auto* times = ParamEvaluation::OrderedKeyTimes(p, set.GetDuration(), ClipFit(p));
  if (!times) return IndexInTimeOrder(KeyTimes(p, set), time);
  const auto after = [start](double t, mtime key) { return static_cast<double>(key) + start > t; };
  return static_cast<unsigned int>(std::upper_bound(times->begin(), times->end(), time, after) -
                                   times->begin());
}

Keyframe Describe(const CKeyFrame& kf, unsigned int index, double time) {
  Keyframe key;
  key.index = index;
  key.time = time;
  key.position = ToText(kf.GetValue(kPosition));
  key.text = ToText(kf.GetValue(kValue));
  const unsigned int type = kf.m_Type;
  if (type == PARAM_DOUBLE || type == PARAM_LONG || type == PARAM_BOOL) {
    key.value = kf.GetValueDouble();
  }
  key.interpolation = FromCode(kf.GetInterpolation());
  key.ease = static_cast<Ease>(kf.GetTimeTranslation());
  Anchor anchors[kMaxAnchors];
  unsigned int count = 0;
  if (kf.GetAnchors(reinterpret_cast<qdcore::Anchor*>(anchors), kMaxAnchors, count)) {
    key.anchors.assign(anchors, anchors + std::min(count, kMaxAnchors));
  }
  return key;
}

// Writes a number as the keyframe's or parameter's own type takes it.
template <typename Target>
bool SetNumber(Target& target, unsigned int type, double value) {
  if (!std::isfinite(value)) return false;
  switch (type) {
    case PARAM_DOUBLE:
      return target.SetValueDouble(value);
    case PARAM_LONG:
      if (std::fabs(value) > 2147483647.0) return false;
      return target.SetValueLong(std::lround(value));
    case PARAM_BOOL:
      return target.SetValueBool(value != 0.0);
    default:
      return false;
  }
}

Error NoKey(unsigned int index) { return Failure("there is no keyframe " + std::to_string(index)); }

const Error kStale = Failure("the parameter is no longer in its set");

// Runs `edit` on keyframe `index` of `param`; a stale handle or a keyframe
// that is not there fails without it.
template <typename Edit>
Status EditKey(CParam* param, unsigned int index, Edit edit) {
  if (!param) return kStale;
  CKeyFrame* kf = param->Get(index);
  if (!kf) return NoKey(index);
  return edit(*param, *kf);
}

}  // namespace

static_assert(sizeof(Anchor) == sizeof(qdcore::Anchor), "anchors are read in place");

std::vector<Keyframe> Param::keys() const {
  const CParam* p = Resolve();
  if (!p) return {};
  const std::vector<double> times = KeyTimes(*p, m_state->set);
  std::vector<unsigned int> order(times.size());
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(),
                   [&](unsigned int a, unsigned int b) { return times[a] < times[b]; });
  std::vector<Keyframe> keys;
  keys.reserve(order.size());
  for (const unsigned int i : order) keys.push_back(Describe(*p->Get(i), i, times[i]));
  return keys;
}

Status Param::set_value(double value) {
  CParam* p = Resolve();
  if (!p) return kStale;
  if (!SetNumber(*p, p->GetType(), value)) {
    return Failure("cannot set " + name() + " (" + std::string(name_of(type())) + ") to " +
                   std::to_string(value));
  }
  return {};
}

Status Param::set_text(std::string_view text) {
  CParam* p = Resolve();
  if (!p) return kStale;
  CZPoolString pooled;
  if (p->GetType() != PARAM_STRING) return Failure(name() + " is not a String parameter");
  if (!ToPooled(text, pooled)) return Failure("the text is not UTF-8");
  if (!p->SetValueString(pooled)) return Failure("cannot set the text of " + name());
  return {};
}

Result<unsigned int> Param::add_key(double time, std::optional<double> value,
                                    Interpolation interpolation) {
  CParam* p = Resolve();
  if (!p) return kStale;
  const CParamSet& set = m_state->set;
  const double duration = set.GetDuration();
  const double position = (time - set.GetStartTime()) / duration;
  if (!std::isfinite(position)) return Failure("the time is not a number");
  if (!(p->GetAllowedInterpolation() & InterpolationCode(interpolation))) {
    return Failure(std::string(name_of(interpolation)) + " is not allowed for " + name());
  }
  CKeyFrame kf(*p);
  kf.SetPosition(position);
  kf.SetInterpolation(InterpolationCode(interpolation));
  if (value && !SetNumber(kf, p->GetType(), *value)) {
    return Failure("a keyframe of " + name() + " cannot take that value");
  }
  const unsigned int index = InsertionIndex(*p, set, time);
  if (!p->GetKeyFrameStatus()) p->SetKeyFrameStatus(true);
  const int placed = p->Insert(kf, index, duration, !value.has_value());
  if (placed < 0) return Failure("the keyframe cannot be added to " + name());
  return static_cast<unsigned int>(placed);
}

// A keyframe dragged between its neighbours is written where it is, which
// the evaluation cache reads in place; one that passes a neighbour moves in
// the list.
Result<unsigned int> Param::move_key(unsigned int index, double time) {
  CParam* p = Resolve();
  if (!p) return kStale;
  CKeyFrame* found = p->Get(index);
  if (!found) return NoKey(index);
  const CParamSet& set = m_state->set;
  const double onClip = time - set.GetStartTime();
  if (!std::isfinite(onClip)) return Failure("the time is not a number");
  const bool absolute = IsAbsolute(*found);
  if (StaysBetweenNeighbours(*p, set, index, time)) {
    SetKeyTime(*found, set, onClip);
    if (absolute) ParamEvaluation::ForgetMinDuration(*p);
    return index;
  }
  CKeyFrame moved(*found);
  moved.Realloc();
  SetKeyTime(moved, set, onClip);
  p->Remove(index);
  const unsigned int to = InsertionIndex(*p, set, time);
  const int placed = p->Insert(moved, to, set.GetDuration(), false);
  ParamEvaluation::ForgetMinDuration(*p);
  if (placed < 0) return Failure("the keyframe cannot be moved");
  return static_cast<unsigned int>(placed);
}

Status Param::remove_key(unsigned int index) {
  CParam* p = Resolve();
  if (!p) return kStale;
  const CKeyFrame* kf = p->Get(index);
  if (!kf) return NoKey(index);
  const bool absolute = IsAbsolute(*kf);
  p->Remove(index);
  if (absolute) ParamEvaluation::ForgetMinDuration(*p);
  return {};
}

Status Param::set_key_value(unsigned int index, double value) {
  return EditKey(Resolve(), index, [&](CParam&, CKeyFrame& kf) -> Status {
    if (!SetNumber(kf, kf.m_Type, value)) return Failure("the keyframe cannot take that value");
    return {};
  });
}

Status Param::set_key_interpolation(unsigned int index, Interpolation interpolation) {
  return EditKey(Resolve(), index, [&](CParam& p, CKeyFrame& kf) -> Status {
    if (!(p.GetAllowedInterpolation() & InterpolationCode(interpolation))) {
      return Failure(std::string(name_of(interpolation)) + " is not allowed for " + name());
    }
    if (!kf.SetInterpolation(InterpolationCode(interpolation))) {
      return Failure("the keyframe's interpolation cannot be set");
    }
    return {};
  });
}

Status Param::set_key_ease(unsigned int index, Ease ease) {
  return EditKey(Resolve(), index, [&](CParam&, CKeyFrame& kf) -> Status {
    if (static_cast<unsigned int>(ease) > 15u) return Failure("no such ease");
    if (!kf.SetTimeTranslation(static_cast<unsigned int>(ease))) {
      return Failure("the keyframe's ease cannot be set");
    }
    return {};
  });
}

Extrapolations Param::extrapolation() const {
  const CParam* p = Resolve();
  if (!p) return {};
  const qdcore::Extrapolation modes = ReadExtrapolation(*p);
  return {static_cast<Extrapolation>(modes.before), static_cast<Extrapolation>(modes.after)};
}

Status Param::set_extrapolation(Extrapolation before, Extrapolation after) {
  CParam* p = Resolve();
  if (!p) return kStale;
  const auto code = [](Extrapolation e) { return static_cast<unsigned int>(e); };
  if (code(before) > EXTRAPOLATION_OSCILLATE || code(after) > EXTRAPOLATION_OSCILLATE) {
    return Failure("no such extrapolation");
  }
  if (!p->SetExtrapolationBefore(code(before)) || !p->SetExtrapolationAfter(code(after))) {
    return Failure("the extrapolation of " + name() + " cannot be set");
  }
  return {};
}

}  // namespace qd
