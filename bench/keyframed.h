// The keyframed parameter the evaluation benchmarks share: keys spread evenly
// over a clip, of one interpolation kind, and the random times asked about.
#pragma once

#include <random>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/param.h"

namespace qdbench {

inline constexpr double kDuration = 10.0;  // seconds

struct Key {
  double position;  // fraction of the clip
  double value;
};

inline std::vector<Key> EvenKeys(unsigned int count) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> value(0.0, 100.0);
  std::vector<Key> keys(count);
  for (unsigned int i = 0; i < count; ++i) keys[i] = {double(i) / (count - 1), value(random)};
  return keys;
}

// Bezier keys carry handles (`handleTime`, a fraction of the segment, before
// and after each key) and Spline keys an anchor in the middle of their
// segment, as edited effects do.
inline qdcore::CParam KeyframedParam(const std::vector<Key>& keys, unsigned int kind,
                                     double handleTime = 0.3) {
  using namespace qdcore;
  CParam param(PARAM_DOUBLE, u"gain", 1);
  param.SetKeyFrameStatus(true);
  param.SetMinValueDouble(0.0);
  param.SetMaxValueDouble(100.0);
  const double segment = 1.0 / (keys.size() - 1);
  for (const Key& key : keys) {
    CKeyFrame kf(param);
    kf.SetPosition(key.position);
    kf.SetValueDouble(key.value);
    kf.SetInterpolation(kind);
    const Anchor handles[] = {{handleTime * segment, 5.0}, {-handleTime * segment, -5.0}};
    const Anchor middle{key.position + 0.5 * segment, key.value};
    if (kind == INTERPOLATION_BEZIER) kf.SetAnchors(handles, 2);
    if (kind == INTERPOLATION_SPLINE) kf.SetAnchors(&middle, 1);
    param.Add(kf, kDuration, false);
  }
  return param;
}

inline std::vector<double> RandomTimes() {
  std::mt19937 random(2);
  std::uniform_real_distribution<double> time(0.0, kDuration);
  std::vector<double> times(4096);
  for (double& t : times) t = time(random);
  return times;
}

inline const char* KindName(unsigned int kind) {
  switch (kind) {
    case qdcore::INTERPOLATION_HOLD: return "Hold";
    case qdcore::INTERPOLATION_LINEAR: return "Linear";
    case qdcore::INTERPOLATION_BEZIER: return "Bezier";
    case qdcore::INTERPOLATION_LINLOG: return "LinLog";
    default: return "Spline";
  }
}

}  // namespace qdbench
