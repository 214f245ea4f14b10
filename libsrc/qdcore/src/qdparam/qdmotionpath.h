// A motion path: a centripetal Catmull-Rom curve through points of up to
// kPathDimensions coordinates, travelled by arc length. Pure functions over
// plain numbers; CParamUtil (qdparamutil.cpp) gathers the points.
#pragma once

#include <array>

#include "qdparam/export.h"

namespace qdcore {

inline constexpr unsigned int kPathDimensions = 8;

using PathPoint = std::array<double, kPathDimensions>;

// One segment of the curve, from `start` to `end`, in Hermite form over
// u in [0, 1]: the tangents are scaled to that span.
struct PathSegment {
  unsigned int dimensions = 0;
  PathPoint start{}, end{}, startTangent{}, endTangent{};
};

// The segment from p1 to p2 with p0 before and p3 after, knots spaced by
// the square root of the distances (alpha 0.5: no cusp, no loop inside the
// segment). A neighbour that coincides with its end is mirrored instead.
QDPARAM_API PathSegment CentripetalSegment(const PathPoint& p0, const PathPoint& p1,
                                           const PathPoint& p2, const PathPoint& p3,
                                           unsigned int dimensions);

QDPARAM_API PathPoint PointOnSegment(const PathSegment& segment, double u);

// The segment's arc length, worked out once, and the u at which a share of
// it is covered.
class QDPARAM_API PathArcLength {
 public:
  explicit PathArcLength(const PathSegment& segment);
  double Total() const { return m_prefix[kPanels]; }
  // The arc length from u = 0 to `u`.
  double LengthTo(double u) const;
  // The u at which `share` (0 to 1) of the length is covered.
  double ParameterAt(double share) const;

 private:
  static constexpr unsigned int kPanels = 32;
  double Speed(double u) const;
  double PanelLength(double from, double to) const;
  const PathSegment& m_segment;
  std::array<double, kPanels + 1> m_prefix{};
};

}  // namespace qdcore
