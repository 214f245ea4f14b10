// The tree of segment bounds (see qdvalueindex.h).
#include "qdvalueindex.h"

#include <algorithm>
#include <limits>

namespace qdcore {

ValueIndex::ValueIndex(const std::vector<double>& lo, const std::vector<double>& hi)
    : m_count(lo.size()) {
  while (m_leaves < m_count) m_leaves *= 2;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  m_lo.assign(2 * m_leaves, kInfinity);
  m_hi.assign(2 * m_leaves, -kInfinity);
  for (std::size_t i = 0; i < m_count; ++i) {
    m_lo[m_leaves + i] = lo[i];
    m_hi[m_leaves + i] = hi[i];
  }
  for (std::size_t node = m_leaves - 1; node >= 1; --node) {
    m_lo[node] = std::min(m_lo[2 * node], m_lo[2 * node + 1]);
    m_hi[node] = std::max(m_hi[2 * node], m_hi[2 * node + 1]);
  }
}

unsigned int ValueIndex::FirstFrom(unsigned int from, double value) const {
  if (from >= m_count) return kNone;
  return Descend(1, 0, m_leaves, from, value);
}

// A node whose bounds miss the value holds no segment that may reach it; of
// the others the left child is looked into first.
unsigned int ValueIndex::Descend(std::size_t node, std::size_t first, std::size_t width,
                                 std::size_t from, double value) const {
  if (first + width <= from || !(m_lo[node] <= value && value <= m_hi[node])) return kNone;
  if (width == 1) return first < m_count ? static_cast<unsigned int>(first) : kNone;
  const std::size_t half = width / 2;
  const unsigned int left = Descend(2 * node, first, half, from, value);
  if (left != kNone) return left;
  return Descend(2 * node + 1, first + half, half, from, value);
}

}  // namespace qdcore
