// Bounds of the values each segment of a time line may take, in a tree that
// finds the first segment from a given one whose bounds hold a value: a
// search over values passes over every other segment in O(log N).
#pragma once

#include <cstddef>
#include <vector>

#include "qdparam/export.h"

namespace qdcore {

// Exported, though the header is private, so that the tests reach it.
class QDPARAM_API ValueIndex {
 public:
  static constexpr unsigned int kNone = ~0u;

  // Segment i may take the values in [lo[i], hi[i]]; an empty range
  // (lo > hi) never holds one.
  ValueIndex(const std::vector<double>& lo, const std::vector<double>& hi);

  // The first segment at or after `from` whose bounds hold `value`; kNone
  // when there is none.
  unsigned int FirstFrom(unsigned int from, double value) const;

 private:
  unsigned int Descend(std::size_t node, std::size_t first, std::size_t width, std::size_t from,
                       double value) const;
  std::size_t m_count = 0, m_leaves = 1;
  std::vector<double> m_lo, m_hi;  // by node: 1 is the root, leaves from m_leaves
};

}  // namespace qdcore
