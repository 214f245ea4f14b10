// The inverse of a one-dimensional cubic Bezier in two steps: what depends
// on the curve alone, worked out once, then the solve for one value. A
// segment's time curve stays the same while its time is asked for again and
// again, so evaluation keeps the first step (qdevalcache.h).
// FindUForBezierValue is these two steps back to back: every caller gets
// the same bits.
#pragma once

#include "qdparam/export.h"

namespace qdcore {

struct BezierInverse {
  double p0 = 0.0, p3 = 0.0;  // the ends, which answer without solving
  double a = 0.0;             // a u^3 + b u^2 + c u + d = 0, d = p0 - x
  double b = 0.0, c = 0.0;
  bool cubic = false;  // a is not zero
  // The normalised cubic u^3 + e1 u^2 + e2 u + e3: the parts of its Q and R
  // that do not depend on e3, and its three-root form.
  double e1 = 0.0, e2 = 0.0;
  double rLead = 0.0;  // 2 e1^3 - 9 e1 e2, the start of R's numerator
  double q = 0.0, q3 = 0.0;
  double rootQ3 = 0.0, k = 0.0;  // sqrt(Q^3) and -2 sqrt(Q)
  bool rootMayFit[3] = {true, true, true};  // each of the three-root form's roots
  double e1Third = 0.0;
  // The quadratic's discriminant, but for d.
  double cSquared = 0.0, fourB = 0.0;
};

// Exported, though the header is private, so that the tests reach them.
QDPARAM_API BezierInverse PrepareBezierInverse(double p0, double p1, double p2, double p3);
// The u at which the curve equals x; reports and gives 0.0 when none is in
// range.
QDPARAM_API double SolveBezierInverse(const BezierInverse& curve, double x);
// The same without the report: false, and `u` unspecified, when none is.
QDPARAM_API bool TrySolveBezierInverse(const BezierInverse& curve, double x, double& u);

}  // namespace qdcore
