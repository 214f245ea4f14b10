// The time line of a parameter's keyframes on one clip: their times
// resolved once per clip length, and the search that stands for the
// list-order walk.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "qdbezierinverse.h"
#include "qdcore/core.h"

namespace qdcore {

class ValueIndex;

// Keyframe times resolved for one clip length and minimum duration.
struct Timeline {
  std::uint64_t duration = 0, minDuration = 0;  // bit patterns: NaN matches itself
  unsigned int descents = 0;                    // neighbours out of list order (NaN included)
  // Never decreasing in list order: a binary search is the walk.
  bool Ordered() const { return descents == 0; }
  std::vector<mtime> times;
  // By keyframe: the time curve of the Bezier segment it starts (to the
  // next keyframe in the list, as the walk pairs them). Empty without one.
  std::vector<BezierInverse> bezier;
  // The bounds of each segment's values (walk stop i: the segment between
  // keyframes i - 1 and i), made by the first search over values that needs
  // them (qdinverse.h); null until then. Owned.
  mutable std::atomic<const ValueIndex*> valueIndex{nullptr};

  Timeline() = default;
  Timeline(const Timeline&) = delete;
  Timeline& operator=(const Timeline&) = delete;
  ~Timeline();

  // The index of the keyframe the list-order walk stops at (the first one
  // not at or before `time`), the count when it runs out. `cursor` is the
  // last answer, or kNoHint: nearby times are found from it in constant time.
  unsigned int Find(mtime time, unsigned int& cursor) const;
  static constexpr unsigned int kNoHint = ~0u;

  // Room for a keyframe going in at `index` (its time and segments to be
  // worked out), or the room of one going out closed; the value bounds go.
  void InsertKeyAt(std::size_t index);
  void RemoveKeyAt(std::size_t index);
  // Neighbours out of order among the pairs that hold keyframe `index`.
  unsigned int DescentsAround(std::size_t index) const;
};

}  // namespace qdcore
