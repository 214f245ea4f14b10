// The host API's shape-preserving key insertion: a Bezier segment split in
// two by de Casteljau's construction, so that both halves trace it.
#include <array>
#include <cmath>

#include "qdhostapi.h"
#include "qdparam/keyframe.h"

namespace qd {

using namespace qdcore;

namespace {

struct XY {
  double x, y;
};

XY Lerp(XY a, XY b, double s) { return {a.x + (b.x - a.x) * s, a.y + (b.y - a.y) * s}; }

double CubicX(const std::array<XY, 4>& p, double s) {
  const double r = 1 - s;
  return r * r * r * p[0].x + 3 * r * r * s * p[1].x + 3 * r * s * s * p[2].x + s * s * s * p[3].x;
}

// The curve parameter at which the time curve reaches `t`, by halving: the
// time curve of a Bezier segment rises from its first keyframe to its last.
double ParameterAt(const std::array<XY, 4>& p, double t) {
  double lo = 0, hi = 1;
  for (int i = 0; i < 200 && hi - lo > 0; ++i) {
    const double mid = (lo + hi) / 2;
    if (mid == lo || mid == hi) break;
    (CubicX(p, mid) < t ? lo : hi) = mid;
  }
  return (lo + hi) / 2;
}

// The segment from keyframe `key` to `next`, split at `time` (clip times);
// false when it is no plain Bezier segment.
bool SplitBezier(CParam& param, unsigned int keyIndex, const Keyframe& key, const Keyframe& next,
                 double start, double duration, double time, unsigned int& placed) {
  if (key.interpolation != Interpolation::Bezier || key.ease != Ease::None) return false;
  if (key.anchors.empty() || key.anchors.size() > 2 || next.index != key.index + 1) return false;
  const Anchor out = key.anchors[0];
  const Anchor in = key.anchors.size() == 2 ? key.anchors[1] : Anchor{out.position - 1, out.value};
  const double t0 = key.time - start, t1 = next.time - start;
  const std::array<XY, 4> p{
      XY{t0, key.value}, XY{t0 + out.position * duration, key.value + out.value},
      XY{t1 + in.position * duration, next.value + in.value}, XY{t1, next.value}};
  const double s = ParameterAt(p, time - start);
  const XY q1 = Lerp(p[0], p[1], s), r = Lerp(p[1], p[2], s), s2 = Lerp(p[2], p[3], s);
  const XY q2 = Lerp(q1, r, s), s1 = Lerp(r, s2, s), m = Lerp(q2, s1, s);
  CKeyFrame middle(param);
  middle.SetPosition(m.x / duration);
  middle.SetInterpolation(INTERPOLATION_BEZIER);
  middle.SetValueDouble(m.y);
  const qdcore::Anchor after[2] = {{(s1.x - m.x) / duration, s1.y - m.y},
                                   {(s2.x - t1) / duration, s2.y - next.value}};
  middle.SetAnchors(after, 2);
  const qdcore::Anchor before[2] = {{(q1.x - t0) / duration, q1.y - key.value},
                                    {(q2.x - m.x) / duration, q2.y - m.y}};
  const int at = param.Insert(middle, keyIndex + 1, duration, false);
  if (at < 0) return false;
  param.Get(keyIndex)->SetAnchors(before, 2);
  placed = static_cast<unsigned int>(at);
  return true;
}

}  // namespace

Result<unsigned int> Param::insert_key(double time) {
  CParam* p = Resolve();
  if (!p) return detail::Failure("the parameter is no longer in its set");
  if (!std::isfinite(time)) return detail::Failure("the time is not a number");
  const std::vector<Keyframe> all = keys();
  for (std::size_t i = 0; i + 1 < all.size(); ++i) {
    if (!(all[i].time < time && time < all[i + 1].time)) continue;
    const CParamSet& set = m_state->set;
    unsigned int placed = 0;
    if (p->GetType() == PARAM_DOUBLE &&
        SplitBezier(*p, all[i].index, all[i], all[i + 1], set.GetStartTime(), set.GetDuration(),
                    time, placed)) {
      return placed;
    }
    return add_key(time, std::nullopt, all[i].interpolation);
  }
  return add_key(time);
}

}  // namespace qd
