// The inverse of an extrapolated value: the times at which it reaches a
// value, outside the keyed span as well. The span is searched as its
// keyframes lie (qdinverse.h); a repeat outside it is the span moved in
// time (run backwards on Oscillate's odd swings) and, with an offset, the
// value sought moved by the offset; a linear end is monotone and searched
// by halving. Where two pieces meet, a jump across the value counts at the
// second piece's start, and a value that only carries on is not reported again.
// A repeat with an offset is searched for the value less the offset, which
// is exact wherever the limits change neither of the two.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "qdextrapolation.h"
#include "qdinverse.h"

namespace qdcore {

// Repeats searched at each end at most: further crossings of a very short
// span repeated over a long clip are not reported.
inline constexpr double kMaxSearchedRepeats = 10000.0;

// `search(a, b, target, out)` appends the crossings of `target` in [a, b] of
// the span as its keyframes lie, in time order; `at(t)` is the value at t
// (limits included); `rawAt(t)` the keyframed value before limits.
template <typename Search, typename At, typename RawAt>
class ExtrapolatedCrossings {
 public:
  ExtrapolatedCrossings(const Extrapolation& modes, const KeyedSpan& span, double value,
                        CrossingSink sink, void* context, Search search, At at, RawAt rawAt)
      : m_modes(modes),
        m_span(span),
        m_value(value),
        m_sink(sink),
        m_context(context),
        m_search(search),
        m_at(at),
        m_rawAt(rawAt) {}

  // Every crossing in [from, to], in time order, until the sink declines.
  void Run(double from, double to) {
    m_from = from;
    const bool holdsBefore = m_modes.before == EXTRAPOLATION_HOLD;
    const bool holdsAfter = m_modes.after == EXTRAPOLATION_HOLD;
    // A held end is the span's own search, which knows the held values.
    const double spanFrom = holdsBefore ? from : std::max(from, m_span.first);
    const double spanTo = holdsAfter ? to : std::min(to, m_span.last);
    if (!holdsBefore && from < m_span.first) {
      Outside(m_modes.before, from, std::min(to, Before(m_span.first)));
    }
    if (spanFrom <= spanTo) {
      const auto inSpan = [&](double a, double b, std::vector<double>& out) {
        m_search(a, b, m_value, out);
      };
      Piece(spanFrom, spanTo, inSpan, true);
    }
    if (!holdsAfter && to > m_span.last) {
      Outside(m_modes.after, std::max(from, std::nextafter(m_span.last, kInfinity)), to);
    }
  }

 private:
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();

  void Emit(double t) {
    if (!m_going || t == m_lastEmitted) return;
    m_lastEmitted = t;
    m_going = m_sink(m_context, t);
  }

  // The crossings of one piece [a, b], found by `find`: a jump into it
  // counts at its start; its start is not reported again where the value
  // only carries on into it.
  // `native`: the span's own search, which knows what lies before `from`.
  template <typename Find>
  void Piece(double a, double b, Find find, bool native = false) {
    if (!m_going) return;
    bool carriesOn = false;
    if (a > m_from) {
      const double left = m_at(Before(a)), right = m_at(a);
      if ((left < m_value && m_value < right) || (right < m_value && m_value < left)) Emit(a);
      carriesOn = left == m_value;
    }
    m_found.clear();
    find(a, b, m_found);
    for (double t : m_found) {
      if (t < a || t > b) continue;
      // A jump into the start was judged above, against the true left; a
      // repeat's search sees another left there.
      if (t == a && (a > m_from || !native) && (carriesOn || m_at(a) != m_value)) continue;
      Emit(t);
    }
  }

  void Outside(unsigned int mode, double a, double b) {
    if (!(a <= b)) return;
    if (mode == EXTRAPOLATION_LINEAR)
      return Piece(a, b, [&](double x, double y, auto& out) { Monotone(x, y, out); });
    const double length = m_span.Length();
    const double offset =
        mode == EXTRAPOLATION_CYCLEWITHOFFSET ? m_rawAt(m_span.last) - m_rawAt(m_span.first) : 0.0;
    double k = std::floor((a - m_span.first) / length);
    const double lastRepeat = std::floor((b - m_span.first) / length);
    for (double searched = 0.0; k <= lastRepeat && m_going; k += 1.0, searched += 1.0) {
      if (searched >= kMaxSearchedRepeats) return;
      const double start = m_span.first + k * length;
      const double pieceFrom = std::max(a, start);
      const double pieceTo = std::min(b, Before(start + length));
      if (pieceFrom > pieceTo) continue;
      const bool back = mode == EXTRAPOLATION_OSCILLATE && std::fmod(k, 2.0) != 0.0;
      const double target = m_value - k * offset;
      Piece(pieceFrom, pieceTo, [&](double x, double y, std::vector<double>& out) {
        if (std::isfinite(target)) Repeat(start, back, target, x, y, out);
      });
    }
  }

  // The span's crossings of `target` moved into the repeat from `start`.
  void Repeat(double start, bool back, double target, double a, double b,
              std::vector<double>& out) {
    std::vector<double> mapped;
    if (back) {
      m_search(m_span.last - (b - start), m_span.last - (a - start), target, mapped);
      for (auto m = mapped.rbegin(); m != mapped.rend(); ++m) {
        const double t = std::clamp(start + (m_span.last - *m), a, b);
        // A jump the search saw at its start lies at the next piece's start.
        if (t == b && m_at(b) != m_value) continue;
        out.push_back(t);
      }
      return;
    }
    m_search(m_span.first + (a - start), m_span.first + (b - start), target, mapped);
    for (double m : mapped) out.push_back(std::clamp(start + (m - m_span.first), a, b));
  }

  // A linear end, limits included, never turns: the earliest time in
  // [a, b] at which it has come to the value, found by halving.
  void Monotone(double a, double b, std::vector<double>& out) {
    const double va = m_at(a), vb = m_at(b);
    if (va == m_value) return out.push_back(a);
    const bool rising = va < m_value;
    if (rising ? !(vb >= m_value) : !(vb <= m_value)) return;
    out.push_back(FirstWhere(a, b, [&](double t) {
      const double v = m_at(t);
      return rising ? v >= m_value : v <= m_value;
    }));
  }

  const Extrapolation m_modes;
  const KeyedSpan m_span;
  const double m_value;
  const CrossingSink m_sink;
  void* const m_context;
  Search m_search;
  At m_at;
  RawAt m_rawAt;
  double m_from = 0.0;
  bool m_going = true;
  double m_lastEmitted = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> m_found;
};

}  // namespace qdcore
