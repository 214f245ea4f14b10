// ToneCurve: four tone curves, each a list of control points ascending in x.
//
//   4 records: u32 m (number of f32 that follow, two per point; 0 is the
//   identity curve), then m / 2 points of f32 x, f32 y
//
// The two keyframes' curves may have different points at different places, so
// points are not paired by index: the two lists of each curve are merged by x,
// and where only one keyframe has a point, the other keyframe's curve is
// evaluated there through a natural cubic spline.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <optional>
#include <vector>

#include "qdblend.h"
#include "qdparam/param.h"

namespace qdcore {

namespace {

constexpr std::size_t kCurves = 4;
constexpr std::size_t kMinPayloadBytes = 16;  // one count word per curve
// Points closer than this in x are the same point.
constexpr float kSamePointX = 0.01f;
// Within this many seconds of a keyframe its own curves are returned unblended,
// so that a frame at a keyframe shows exactly what was keyframed.
constexpr double kSnapSeconds = 0.04;

struct Point {
  float x, y;
};
using Curve = std::vector<Point>;
using Curves = std::array<Curve, kCurves>;

Curve IdentityCurve() { return {{0.0f, 0.0f}, {1.0f, 1.0f}}; }

// ---------------------------------------------------------------------------
// Parsing and encoding
// ---------------------------------------------------------------------------

// Malformed payloads never fail: short or misaligned ones read as four
// identity curves; a record whose count runs past the end, is odd, or holds
// fewer than two points leaves it and every later curve empty.
Curves ParseCurves(Bytes payload) {
  Curves curves;
  if (payload.size() < kMinPayloadBytes || payload.size() % 4 != 0) {
    curves.fill(IdentityCurve());
    return curves;
  }
  const unsigned char* words = payload.data();
  const std::size_t wordCount = payload.size() / 4;
  std::size_t at = 0;
  for (std::size_t c = 0; c < kCurves; ++c) {
    if (at == wordCount) {
      for (; c < kCurves; ++c) curves[c] = IdentityCurve();
      break;
    }
    const std::uint32_t values = ReadU32(words + 4 * at++);
    if (values > wordCount - at) break;
    if (values == 0) {
      curves[c] = IdentityCurve();
      continue;
    }
    if (values < 4 || values % 2 != 0) break;
    Curve& curve = curves[c];
    curve.resize(values / 2);
    for (Point& point : curve) {
      point = {ReadF32(words + 4 * at), ReadF32(words + 4 * at + 4)};
      at += 2;
    }
  }
  return curves;
}

std::uint64_t EncodedBytes(const Curves& curves) {
  std::uint64_t bytes = kMinPayloadBytes;
  for (const Curve& curve : curves) bytes += 8 * std::uint64_t{curve.size()};
  return bytes;
}

// Writes the encoding's first `size` bytes and nothing past them. Identity
// curves are written as their two points.
class BoundedWriter {
 public:
  BoundedWriter(unsigned char* out, std::size_t size) : m_out(out), m_size(size) {}
  void Word(std::uint32_t value) {
    unsigned char bytes[4];
    WriteU32(bytes, value);
    for (unsigned char byte : bytes) {
      if (m_at < m_size) m_out[m_at] = byte;
      ++m_at;
    }
  }

 private:
  unsigned char* m_out;
  std::size_t m_size;
  std::size_t m_at = 0;
};

void Encode(const Curves& curves, unsigned char* buffer, unsigned int size) {
  BoundedWriter writer(buffer, size);
  for (const Curve& curve : curves) {
    writer.Word(static_cast<std::uint32_t>(2 * curve.size()));
    for (const Point& point : curve) {
      writer.Word(std::bit_cast<std::uint32_t>(point.x));
      writer.Word(std::bit_cast<std::uint32_t>(point.y));
    }
  }
}

// ---------------------------------------------------------------------------
// Natural cubic spline
// ---------------------------------------------------------------------------

// A natural cubic spline (second derivative 0 at both ends) through a curve's
// points widened to double. Per interval it keeps y and three coefficients and
// evaluates ((a h + b) h + c) h + y with h = x - x_i.
class Spline {
 public:
  explicit Spline(const Curve& curve) {
    m_knots.reserve(curve.size());
    for (const Point& point : curve) m_knots.push_back({point.x, point.y, 0.0, 0.0, 0.0});
    if (m_knots.size() >= 2) Solve();
  }

  // The curve's value at x, clamped into [0, 1]. A curve without points
  // (left empty by a truncated payload) acts as the identity; so does a
  // two-point curve from x = 0 to x = 1, whatever its y values.
  double operator()(double x) const {
    const std::size_t count = m_knots.size();
    if (count < 2 || (count == 2 && m_knots[0].x == 0.0 && m_knots[1].x == 1.0)) {
      return ClampInto(x, 0.0, 1.0);
    }
    x = ClampInto(x, m_knots.front().x, m_knots.back().x);
    const Knot& knot = m_knots[IntervalOf(x)];
    const double h = x - knot.x;
    return ClampInto(((knot.a * h + knot.b) * h + knot.c) * h + knot.y, 0.0, 1.0);
  }

 private:
  struct Knot {
    double x, y;
    double a, b, c;  // cubic, quadratic and linear coefficients of the interval it starts
  };

  static double ClampInto(double v, double low, double high) {
    if (v < low) v = low;
    if (v > high) v = high;
    return v;
  }

  // The knot before the first one not less than x (the first knot at
  // least), kept an interval start whatever order hostile x values are in.
  std::size_t IntervalOf(double x) const {
    std::size_t low = 0;
    std::size_t high = m_knots.size();
    while (low < high) {
      const std::size_t middle = low + (high - low) / 2;
      if (m_knots[middle].x < x) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    const std::size_t before = low > 0 ? low - 1 : 0;
    return std::min(before, m_knots.size() - 2);
  }

  // The tridiagonal system of the C2 conditions, solved forward and back
  // (Thomas). During the forward sweep each knot's c holds mu (the
  // elimination factor) and b holds z (the reduced right side); the back
  // substitution turns them into the coefficients.
  void Solve() {
    const std::size_t n = m_knots.size() - 1;  // intervals
    auto step = [this](std::size_t i) { return m_knots[i + 1].x - m_knots[i].x; };
    m_knots[0].c = 0.0;
    m_knots[0].b = 0.0;
    for (std::size_t i = 1; i < n; ++i) {
      const double hBefore = step(i - 1);
      const double h = step(i);
      const double alpha = 3.0 / h * (m_knots[i + 1].y - m_knots[i].y) -
                           3.0 / hBefore * (m_knots[i].y - m_knots[i - 1].y);
      const double l = 2.0 * (m_knots[i + 1].x - m_knots[i - 1].x) - hBefore * m_knots[i - 1].c;
      m_knots[i].c = h / l;
      m_knots[i].b = (alpha - hBefore * m_knots[i - 1].b) / l;
    }
    m_knots[n].b = 0.0;  // natural end
    for (std::size_t j = n; j-- > 0;) {
      Knot& knot = m_knots[j];
      const Knot& after = m_knots[j + 1];
      const double h = step(j);
      knot.b = knot.b - knot.c * after.b;
      knot.c = (after.y - knot.y) / h - h * (after.b + 2.0 * knot.b) / 3.0;
      knot.a = (after.b - knot.b) / (3.0 * h);
    }
  }

  std::vector<Knot> m_knots;
};

// A curve's spline, built the first time a point of the other curve needs it:
// curves that share their x values never build one.
class LazySpline {
 public:
  explicit LazySpline(const Curve& curve) : m_curve(curve) {}
  float operator()(float x) {
    if (!m_spline) m_spline.emplace(m_curve);
    return NarrowToFloat((*m_spline)(x));
  }

 private:
  const Curve& m_curve;
  std::optional<Spline> m_spline;
};

// ---------------------------------------------------------------------------
// Merging by x
// ---------------------------------------------------------------------------

// One list's place in the merge. A used-up list stays on its last point,
// which goes on standing in the comparisons for the rest of the other list.
struct MergeIndex {
  std::size_t index = 0;
  bool done;

  explicit MergeIndex(const Curve& curve) : done(curve.empty()) {}
  void Advance(const Curve& curve) {
    if (index + 1 < curve.size()) {
      ++index;
    } else {
      done = true;
    }
  }
};

// The merged points of one curve: where both keyframes have a point within
// 0.01 in x the two are blended (x taken from the second); elsewhere a
// point of one keyframe is blended with the other keyframe's spline at its x.
// The merge ends once both lists are used up: the rest of the longer list is
// blended against the other curve's spline, and an empty list (left by a
// broken record) is used up from the start. Without `values` only the x
// values are right, which is all a size needs.
Curve MergeCurves(const Curve& first, const Curve& second, double w, bool values) {
  Curve merged;
  merged.reserve(first.size() + second.size());
  LazySpline firstSpline(first);
  LazySpline secondSpline(second);
  MergeIndex j(first);   // the first keyframe's point
  MergeIndex i(second);  // the second keyframe's point
  // Weighted in double, rounded once; the sum may list its terms in either
  // order, as addition commutes exactly.
  auto blend = [w, values](float fromFirst, float fromSecond) {
    return values ? BlendF32(fromFirst, fromSecond, w) : 0.0f;
  };
  while (!j.done || !i.done) {
    const Point* p1 = first.empty() ? nullptr : &first[j.index];
    const Point* p2 = second.empty() ? nullptr : &second[i.index];
    if (p1 && p2 && p2->x + kSamePointX > p1->x && p1->x > p2->x - kSamePointX) {
      merged.push_back({p2->x, blend(p1->y, p2->y)});
      i.Advance(second);
      j.Advance(first);
    } else if (j.done || (!i.done && p1->x > p2->x)) {
      merged.push_back({p2->x, blend(values ? firstSpline(p2->x) : 0.0f, p2->y)});
      i.Advance(second);
    } else {
      merged.push_back({p1->x, blend(p1->y, values ? secondSpline(p1->x) : 0.0f)});
      j.Advance(first);
    }
  }
  return merged;
}

// A keyframe's own curves, re-encoded. The answer is the payload's size (16 at
// least), which a payload with identity (m = 0) records, trailing words or
// fewer than 16 bytes does not share with its encoding: then the encoding is
// cut at `size`.
unsigned int Unblended(Bytes payload, unsigned char* buffer, unsigned int size) {
  if (payload.size() > std::numeric_limits<unsigned int>::max()) return 0;
  const auto result = static_cast<unsigned int>(std::max(payload.size(), kMinPayloadBytes));
  if (buffer && result == size) Encode(ParseCurves(payload), buffer, size);
  return result;
}

bool Near(double time, double keyTime) {
  return keyTime - kSnapSeconds < time && time < keyTime + kSnapSeconds;
}

}  // namespace

unsigned int BlendToneCurve(Bytes first, Bytes second, double time, double prevTime,
                            double nextTime, unsigned char* buffer, unsigned int size) {
  if (Near(time, prevTime)) return Unblended(first, buffer, size);
  if (Near(time, nextTime)) return Unblended(second, buffer, size);
  const double w = FirstWeight(time, prevTime, nextTime);
  const Curves a = ParseCurves(first);
  const Curves b = ParseCurves(second);
  Curves merged;
  for (std::size_t c = 0; c < kCurves; ++c) {
    merged[c] = MergeCurves(a[c], b[c], w, buffer != nullptr);
  }
  // Two payloads of nearly 4 GiB could merge to a length no count can tell.
  const std::uint64_t bytes = EncodedBytes(merged);
  if (bytes > std::numeric_limits<unsigned int>::max()) return 0;
  if (buffer && bytes == size) Encode(merged, buffer, size);
  return static_cast<unsigned int>(bytes);
}

unsigned int CParam::InterpolateBinary_ToneCurve(mtime time, mtime, const CKeyFrame* prev,
                                                 mtime prevTime, const CKeyFrame* next,
                                                 mtime nextTime, unsigned char* buffer,
                                                 unsigned int size) const {
  return BlendToneCurve(ReadPayload(*prev), ReadPayload(*next), time, prevTime, nextTime, buffer,
                        size);
}

}  // namespace qdcore
