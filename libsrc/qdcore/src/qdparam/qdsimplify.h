// Curve simplification over plain numbers: a densely keyed curve, sampled,
// replaced by as few of its own keyframes as keep it within a tolerance,
// joined by straight lines or by cubic Bezier pieces fitted to the samples.
//
// The kept keyframes are a subset of the original ones, so each keeps its
// own time. Between two kept keyframes that were neighbours the original
// segment stays as it was (exact whatever its kind); longer runs become one
// fitted piece. A piece is accepted only when every sample it covers lies
// within the tolerance of it, its value restricted to the parameter's grid
// and limits as evaluation restricts it.
//
// Cost: a greedy forward scan. From each kept keyframe the piece is
// lengthened by doubling until it fails, then by halving between the last
// length that fitted and the first that did not; each try costs its length.
// A piece of L keyframes costs O(L log L), the whole curve O(N log N) for N
// keyframes, whatever the shape of the curve. The result is not always the
// smallest possible, only close to it: a shorter piece may fail where a
// longer one fits.
#pragma once

#include <span>
#include <vector>

#include "qdparam/export.h"
#include "qdrestrictions.h"

namespace qdcore::simplify {

// How a run of keyframes is replaced.
enum class Shape { Linear, Bezier };

// An original curve, sampled. Each interval between two neighbouring
// keyframes holds `perInterval` samples: the first ones inside it, the last
// one just before its end, where a jump at the next keyframe shows.
struct Samples {
  std::span<const double> keyTimes;   // the keyframes' times, ascending
  std::span<const double> keyValues;  // their values as stored
  std::span<const double> atKeys;     // the curve's value at each keyframe's time
  std::span<const double> times;      // (keys − 1) × perInterval sample times (SampleTimes)
  std::span<const double> values;     // the curve's value at each of them
  unsigned int perInterval = 0;
  // Keyframes that must stay (may be empty); keyframes that share a time
  // with a neighbour always stay, since they make a jump.
  std::span<const unsigned char> pinned;
};

// One piece of the simplified curve, from keyframe `from` to keyframe `to`.
struct Piece {
  unsigned int from = 0, to = 0;  // to == from + 1: the original segment, as it was
  // Bezier: the value offsets of the two handles, at a third of the piece
  // from `from` and a third back from `to`.
  double outValue = 0.0, inValue = 0.0;
};

// The times of the samples of `keyTimes`' intervals, as Samples lays them
// out: `perInterval` − 1 evenly inside each interval, and the time just
// before its end.
QDPARAM_API std::vector<double> SampleTimes(std::span<const double> keyTimes,
                                            unsigned int perInterval);

// The pieces of the simplified curve, in time order, covering every
// keyframe; empty for fewer than two keyframes or mismatched sizes.
QDPARAM_API std::vector<Piece> Simplify(const Samples& curve, double tolerance, Shape shape,
                                        const DoubleLimits& limits);

}  // namespace qdcore::simplify
