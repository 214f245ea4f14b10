// Evaluation of a keyframed parameter: the keyframe walk that brackets a
// time, the blend between two keyframes, and the limits and grid a value is
// forced into. Free functions over a parameter's public accessors, shared by
// the typed getters, keyframe editing and the binary blending.
#pragma once

#include "qdcore/core.h"
#include "qdparam/export.h"

namespace qdcore {

class CKeyFrame;
class CParam;

/// Walks the keyframes in list order: `prev` becomes the last one at or before
/// `time` (a later one of equal time wins), `next` the first one after it.
/// Keyframe times resolve against `duration`, absolute ones also against
/// `minDuration`. After a walk that runs out, `next` is null and `nextTime`
/// -1.0; without keyframes both times stay as the caller left them. With
/// `accumulate`, `integral` receives the integral of the value from 0 to
/// `time`. False when a keyframe's time could not be read (the walk stops there).
QDPARAM_API bool DetermineKeyFrame(mtime time, const CParam& param, mtime duration,
                                   mtime minDuration, const CKeyFrame*& prev, mtime& prevTime,
                                   const CKeyFrame*& next, mtime& nextTime, bool accumulate,
                                   double& integral);

/// The parameter's keyframed value at `time`: the parameter's own time
/// translation, the walk, then InterpolateDouble. `def` where no keyframe
/// gives a value. No limits applied.
QDPARAM_API double InterpolateParamDouble(mtime time, const CParam& param, mtime duration,
                                          mtime minDuration, double def);

/// The value at `time` of the segment from `prev` to `next`, blended by
/// `prev`'s interpolation; either keyframe may be null. `def` when neither
/// gives a value.
QDPARAM_API double InterpolateDouble(mtime time, mtime duration, const CKeyFrame* prev,
                                     mtime prevTime, const CKeyFrame* next, mtime nextTime,
                                     double def);

/// Snaps `value` to the parameter's granularity grid and clamps it to its
/// limits (the limits themselves moved inward onto the grid). Inverted limits
/// are reported and used swapped.
QDPARAM_API double EnforceRestricitionsDouble(const CParam& param, double value);
/// The whole-number form of EnforceRestricitionsDouble.
QDPARAM_API long EnforceRestricitionsLong(const CParam& param, long value);

}  // namespace qdcore
