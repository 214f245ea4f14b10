// The host API's key navigation: what an editor's "next keyframe" button
// and its keyframe counter ask, by a binary search over the key times.
#include <algorithm>
#include <cmath>

#include "qdhostapi.h"
#include "qdparamevaluation.h"

namespace qd {

using namespace qdcore;
using detail::ClipFit;

namespace {

// Runs `search` over the keyframe times of `p` on its set's clip, with the
// set's start taken off the time asked about and put back on the answer.
template <typename Search>
auto OnKeyTimes(const CParam* p, const CParamSet& set, Search search) {
  decltype(search(std::span<const mtime>(), 0.0)) answer{};
  if (!p || !p->GetKeyFrameStatus()) return answer;
  ParamEvaluation::SortedKeyTimes(
      *p, set.GetDuration(), ClipFit(*p),
      [&](std::span<const mtime> times) { answer = search(times, set.GetStartTime()); });
  return answer;
}

// The first time not before `t`.
const mtime* AtOrAfter(std::span<const mtime> times, double t) {
  const auto found = std::lower_bound(times.begin(), times.end(), t,
                                      [](mtime key, double at) { return key < at; });
  return found == times.end() ? nullptr : &*found;
}

// The last time not after `t`.
const mtime* AtOrBefore(std::span<const mtime> times, double t) {
  const auto found = std::upper_bound(times.begin(), times.end(), t,
                                      [](double at, mtime key) { return at < key; });
  return found == times.begin() ? nullptr : &*(found - 1);
}

}  // namespace

std::optional<double> Param::next_key(double time) const {
  if (std::isnan(time)) return std::nullopt;
  return OnKeyTimes(Resolve(), m_state->set, [&](std::span<const mtime> times, double start) {
    const mtime* key = AtOrAfter(times, time - start);
    return key ? std::optional<double>(static_cast<double>(*key) + start) : std::nullopt;
  });
}

std::optional<double> Param::previous_key(double time) const {
  if (std::isnan(time)) return std::nullopt;
  return OnKeyTimes(Resolve(), m_state->set, [&](std::span<const mtime> times, double start) {
    const mtime* key = AtOrBefore(times, time - start);
    return key ? std::optional<double>(static_cast<double>(*key) + start) : std::nullopt;
  });
}

std::optional<double> Param::nearest_key(double time) const {
  const std::optional<double> before = previous_key(time), after = next_key(time);
  if (!before || !after) return before ? before : after;
  return time - *before <= *after - time ? before : after;
}

std::size_t Param::count_keys(double from, double to) const {
  if (!(from <= to)) return 0;
  return OnKeyTimes(Resolve(), m_state->set, [&](std::span<const mtime> times, double start) {
    const mtime* first = AtOrAfter(times, from - start);
    const mtime* last = AtOrBefore(times, to - start);
    if (!first || !last || last < first) return std::size_t{0};
    return static_cast<std::size_t>(last - first) + 1;
  });
}

}  // namespace qd
