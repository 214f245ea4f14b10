// The evaluation cache of a parameter: everything its evaluation reads from
// XML, parsed once, and where its keyframes lie on the clips asked about.
//
// Callers never see it: every result, report and trace line is the one the
// XML read at the time of the call would give. It is built by const
// evaluations, stamped with XMLWriteEpoch(), and checked before each use:
//   - the epoch unchanged and the keyframe count unchanged: current (the
//     usual case, two loads);
//   - else every element it read is looked at again (the same storage,
//     unchanged): still current, it takes the new epoch; or rebuilt.
// Several threads may evaluate one parameter at once. Writes never overlap
// its reads, so a cache is replaced only after a write to this parameter,
// when no reader can still hold the cache before it: each cache keeps its
// predecessor alive and frees the one before that.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "qdparam/param.h"
#include "qdextrapolation.h"
#include "qdkeys.h"
#include "qdtimeline.h"

namespace qdcore {

// The keyframe whose value a stepping (Bool, String) parameter takes at
// `time`, by the list-order walk: the last one at or before it, else the
// first; null without keyframes.
const CKeyFrame* LiveSteppedKeyFrame(const CParam& param, mtime time, mtime duration,
                                     mtime minDuration);

// A typed value of the parameter (static or inactive) as its getter reads it.
struct StoredValue {
  bool present = false;
  double real = 0.0;
  long whole = 0;
  bool flag = false;
};

// Private to the library, though nested in an exported class.
struct __attribute__((visibility("hidden"))) CParam::EvalCache {
  EvalCache() = default;
  EvalCache(const EvalCache&) = delete;
  EvalCache& operator=(const EvalCache&) = delete;
  ~EvalCache();

  // The cache of `param`, current for what it holds now; null when none can
  // be had (not a number type, an element without storage, or no memory):
  // read live then.
  static const EvalCache* For(const CParam& param) {
    const EvalCache* current = param.m_EvalCache.load(std::memory_order_acquire);
    if (current && current->m_epoch.load(std::memory_order_acquire) == XMLWriteEpoch() &&
        current->m_keyCount == KeyCount(param)) {
      return current;
    }
    return Refresh(param);
  }

  // ---- the parameter's own attributes, read as its getters read them
  unsigned int type = PARAM_UNDEFINED;
  bool inactive = false;
  bool keyFramed = false;
  bool easeInOut = false;  // the parameter's own time translation
  Extrapolation extrapolation;  // before the first and after the last keyframe
  StoredValue inactiveValue, staticValue;
  DoubleLimits doubleLimits;
  bool plainClamp = false;  // the double limits are a clamp alone (IsPlainClamp)
  LongLimits longLimits;

  // Samples of a value array that lie in one segment (see SampleRun).
  using Run = SampleRun;

  // The cache with the parameter it describes, answering the questions the
  // typed getters ask (LiveParam in qdparamevaluation.cpp answers the same
  // from XML). Holds the segment found last, for the next nearby time.
  class View {
   public:
    View(const CParam& param, const EvalCache& cache) : m_param(param), m_cache(cache) {}
    const CParam& Param() const { return m_param; }
    unsigned int Type() const { return m_cache.type; }
    bool Inactive() const { return m_cache.inactive; }
    bool KeyFramed() const { return m_cache.keyFramed; }
    bool InactiveValue(double& v) const { return Take(m_cache.inactiveValue, v); }
    bool InactiveValue(long& v) const { return Take(m_cache.inactiveValue, v); }
    bool InactiveValue(bool& v) const { return Take(m_cache.inactiveValue, v); }
    bool StaticValue(double& v) const { return Take(m_cache.staticValue, v); }
    bool StaticValue(long& v) const { return Take(m_cache.staticValue, v); }
    bool StaticValue(bool& v) const { return Take(m_cache.staticValue, v); }
    double Enforce(double v) const { return m_cache.Restrict(v); }
    long Enforce(long v) const { return EnforceLongLimits(m_cache.longLimits, v); }
    double Interpolate(mtime time, mtime duration, mtime minDuration, double def) const {
      return m_cache.Interpolate(m_param, time, duration, minDuration, def, m_cursor);
    }
    ValueSlope Slope(mtime time, mtime duration, mtime minDuration, double def) const {
      return m_cache.Slope(m_param, time, duration, minDuration, def, m_cursor);
    }
    const Extrapolation& Extrapolations() const { return m_cache.extrapolation; }
    bool Snaps() const {
      return m_cache.type == PARAM_LONG ? m_cache.longLimits.grid > 0
                                        : m_cache.doubleLimits.grid > 0.0;
    }
    // A keyframed Bool parameter's value: it steps from keyframe to keyframe.
    bool SteppedBool(mtime time, mtime duration, mtime minDuration, bool def) const;
    // Value array samples of an active, keyframed Double parameter from
    // sample `from` on, as many as lie in one segment (see Run). `def` is
    // the keyframes' fallback.
    Run FillRun(mtime duration, mtime minDuration, mtime start, mtime step, double def,
                double* values, unsigned long from, unsigned long count) const {
      return m_cache.FillRun(m_param, duration, minDuration, start, step, def, values, from, count,
                             m_cursor);
    }

   private:
    // As a getter: false and `v` untouched when the value is absent.
    static bool Take(const StoredValue& value, double& v) { return Assign(value, value.real, v); }
    static bool Take(const StoredValue& value, long& v) { return Assign(value, value.whole, v); }
    static bool Take(const StoredValue& value, bool& v) { return Assign(value, value.flag, v); }
    template <typename T>
    static bool Assign(const StoredValue& value, T typed, T& v) {
      if (value.present) v = typed;
      return value.present;
    }

    const CParam& m_param;
    const EvalCache& m_cache;
    mutable unsigned int m_cursor = Timeline::kNoHint;
  };
  View Bind(const CParam& param) const { return View(param, *this); }

  // ---- the keyframed value
  // `time` eased as the parameter says, walked and blended: the keyframed
  // value before limits. `cursor` carries the last segment between calls.
  double Interpolate(const CParam& param, mtime time, mtime duration, mtime minDuration, double def,
                     unsigned int& cursor) const;
  // Interpolate's value with its slope per second (qdderivative.h).
  ValueSlope Slope(const CParam& param, mtime time, mtime duration, mtime minDuration, double def,
                   unsigned int& cursor) const;
  Run FillRun(const CParam& param, mtime duration, mtime minDuration, mtime start, mtime step,
              double def, double* values, unsigned long from, unsigned long count,
              unsigned int& cursor) const;
  // The keyframe whose value a stepped (Bool) parameter takes: the last one
  // at or before `time`, else the first after it; null without keyframes.
  // `record` gets its record.
  const CKeyFrame* Stepped(const CParam& param, mtime time, mtime duration, mtime minDuration,
                           const KeyRecord*& record, unsigned int& cursor) const;

  // ---- the keyframes laid out on one clip, for searches over time
  // The clip's time line; null when the walk must read the list live or the
  // line cannot be kept.
  const Timeline* LineFor(mtime duration, mtime minDuration) const {
    return m_liveWalk ? nullptr : TimelineFor(duration, minDuration);
  }
  // Keyframe `index` as the blend reads it on `line`.
  CachedKey Key(const CParam& param, unsigned int index, const Timeline* line) const {
    return KeyAt(param, index, line);
  }

 private:
  struct Bracket;
  bool Build(const CParam& param);
  bool Observe(const CParam& param);
  void ReadParameter(const CParam& param);
  void ReadKeyFrame(const CKeyFrame& kf);
  static const EvalCache* Refresh(const CParam& param);
  // The parameter's keyframes, read as the list keeps them.
  static const CKeyFrame* Keys(const CParam& param) {
    return static_cast<const CKeyFrame*>(static_cast<const void*>(param.m_KeyFrameList));
  }
  static unsigned int KeyCount(const CParam& param) {
    return static_cast<unsigned int>(param.m_KeyFrameList.GetSize() / sizeof(CKeyFrame));
  }
  bool IsCurrent(const CParam& param, std::uint64_t epoch) const;
  bool StillHolds(const CParam& param) const;
  const Timeline* TimelineFor(mtime duration, mtime minDuration) const;
  std::unique_ptr<Timeline> Resolve(mtime duration, mtime minDuration) const;
  Bracket Walk(mtime time, mtime duration, mtime minDuration, unsigned int& cursor) const;
  [[gnu::noinline]] Bracket WalkUnkept(mtime time, mtime duration, mtime minDuration) const;
  CachedKey KeyAt(const CParam& param, unsigned int index, const Timeline* line) const;
  void PrepareBezierSegments(Timeline& line, mtime duration) const;
  double Restrict(double value) const {
    return plainClamp ? ClampToOrderedLimits(doubleLimits, value)
                      : EnforceDoubleLimits(doubleLimits, value);
  }

  std::vector<KeyPosition> m_positions;
  std::vector<KeyRecord> m_keys;
  std::vector<Anchor> m_anchors;  // the Spline keyframes' anchors, back to back
  bool m_liveWalk = false;        // a keyframe's time did not read: walk the list live

  // ---- what it was read from
  mutable std::atomic<std::uint64_t> m_epoch{0};
  unsigned int m_keyCount = 0;
  // The element, then each keyframe followed by each of its children.
  std::vector<CXMLObject::Stamp> m_stamps;
  std::vector<unsigned int> m_childCounts;

  // Clip lengths asked about, each resolved once. Slots fill and stay until
  // the cache goes; further lengths are walked without being kept.
  static constexpr std::size_t kTimelines = 4;
  mutable std::array<std::atomic<Timeline*>, kTimelines> m_timelines{};

  EvalCache* m_predecessor = nullptr;
};

}  // namespace qdcore
