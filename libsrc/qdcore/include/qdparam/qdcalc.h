// Numeric building blocks of evaluation: the one-dimensional cubic Bezier,
// its inverse, and the eased time translations. Pure functions over plain
// numbers; the only side effect is the assertion report of the inverse.
#pragma once

#include "qdparam/export.h"

namespace qdcore {

/// B(u) = 3u^2(1-u) p2 + ((1-u)^3 p0 + 3u(1-u)^2 p1) + u^3 p3, summed in that
/// order so that every caller gets the same bits.
QDPARAM_API double BezierValue(double u, double p0, double p1, double p2, double p3) noexcept;

/// The parameter u at which BezierValue(u, p0..p3) equals x, solved
/// analytically (cubic, then quadratic, then linear). Reports an illegal
/// internal state and returns 0.0 when no root lies in range.
QDPARAM_API double FindUForBezierValue(double x, double p0, double p1, double p2, double p3);

/// Eased time translations: t in [a, b] remapped along the Bezier with
/// control values (a, a, b, b), u found on the named easing curve.
QDPARAM_API double TimeTranslationEaseInOut(double t, double a, double b);
/// Ease in: t remapped so that it leaves a slowly and reaches b at full speed.
QDPARAM_API double TimeTranslationEaseIn(double t, double a, double b);
/// Ease out: t remapped so that it leaves a at full speed and reaches b slowly.
QDPARAM_API double TimeTranslationEaseOut(double t, double a, double b);

}  // namespace qdcore
