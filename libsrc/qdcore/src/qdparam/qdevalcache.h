// The evaluation cache of a parameter: everything its evaluation reads from
// XML, parsed once, and where its keyframes lie on the clips asked about.
//
// Callers never see it: every result, report and trace line is the one the
// XML read at the time of the call would give. It is built by const
// evaluations and checked before each use against the parameter's own
// watch (EvalWatch), which every write to an element it read advances,
// naming the keyframe written, and which every keyframe going in or out of
// the list advances, naming where:
//   - the watch unchanged and the keyframe count unchanged: current (the
//     usual case, three loads); a write to another parameter is not seen;
//   - else what was named is read again in place, which costs the keyframes
//     written, not the keyframes held; or, when the writes named too much
//     (more than the watch keeps), the cache is rebuilt.
// Elements that copies share tell every cache that read them: the one
// whose handle did not write reads them again and finds them unchanged.
// Several threads may evaluate one parameter at once. Writes never overlap
// its reads, so whoever first finds the cache stale after a write has it to
// itself: one refresh runs at a time (others read live meanwhile), it
// patches in place, and readers see the patch only once it is whole. A
// cache replaced by a rebuild lives on with its successor, for readers
// still checking it, and frees the one before.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "qdextrapolation.h"
#include "qdkeys.h"
#include "qdparam/param.h"
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

// What the blend reads of a keyframe; its anchors go to `anchors` (as many
// as the record's anchorCount), to be placed in a cache's pool.
KeyRecord ReadKeyRecord(const CKeyFrame& kf, Anchor (&anchors)[kMaxSplineAnchors]);

// Private to the library, though nested in an exported class.
struct __attribute__((visibility("hidden"))) CParam::EvalWatch {
  CXMLWatch* watch = nullptr;   // one reference
  std::atomic_flag refreshing;  // a refresh of the cache runs
  // The refresh's scratch: what the watch noted, the keyframes to read
  // again, and those only to place again (their neighbours changed).
  std::vector<std::uint32_t> noted, dirty, moved;
  ~EvalWatch() {
    if (watch) watch->Abandon();
  }
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
    if (current && current->m_seen.load(std::memory_order_acquire) == current->m_watch->Changes() &&
        current->m_keyCount == KeyCount(param)) {
      return current;
    }
    return Refresh(param);
  }

  // ---- the parameter's own attributes, read as its getters read them
  unsigned int type = PARAM_UNDEFINED;
  bool inactive = false;
  bool keyFramed = false;
  bool easeInOut = false;       // the parameter's own time translation
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
    View(const CParam& param, const EvalCache& cache, unsigned int cursor = Timeline::kNoHint)
        : m_param(param), m_cache(cache), m_cursor(cursor) {}
    // The segment found last, to start the next call from.
    unsigned int Cursor() const { return m_cursor; }
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
    mutable unsigned int m_cursor;
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
  bool Build(const CParam& param, EvalWatch& watch);
  bool Observe(const CParam& param);
  void ReadParameter(const CParam& param);
  void ReadKeyFrame(const CKeyFrame& kf);
  static const EvalCache* Refresh(const CParam& param);
  static EvalWatch* WatchOf(const CParam& param);
  static const EvalCache* RefreshAlone(const CParam& param, EvalWatch& watch);
  // Reads again, in place, what the watch names; false when it names what
  // only a rebuild can take in.
  bool Patch(const CParam& param, EvalWatch& watch);
  bool PatchElement(const CParam& param);
  bool PatchKeyFrame(const CParam& param, unsigned int index);
  bool Shift(std::uint32_t note, EvalWatch& watch);
  void Reline(unsigned int index);
  bool Compact(const CParam& param);
  void InsertKey(unsigned int index);
  void RemoveKey(unsigned int index);
  bool ObserveKeyFrame(const CKeyFrame& kf, unsigned int index);
  void LinkLogarithm(unsigned int index);
  void RelineKeyFrame(Timeline& line, unsigned int index) const;
  // Until keyframes go in or out anywhere but at the end, tags are indexes:
  // the usual evaluation then skips a dependent load.
  unsigned int TagAt(unsigned int index) const {
    if (__builtin_expect(m_tagsAreIndexes, 1)) return index;
    return m_tagOf[index];
  }
  const KeyRecord& RecordAt(unsigned int index) const { return m_recordByTag[TagAt(index)]; }
  KeyRecord& RecordAt(unsigned int index) { return m_recordByTag[TagAt(index)]; }
  const KeyPosition& PositionAt(unsigned int index) const { return m_positionByTag[TagAt(index)]; }
  KeyPosition& PositionAt(unsigned int index) { return m_positionByTag[TagAt(index)]; }
  // The parameter's keyframes, read as the list keeps them.
  static const CKeyFrame* Keys(const CParam& param) {
    return static_cast<const CKeyFrame*>(static_cast<const void*>(param.m_KeyFrameList));
  }
  static unsigned int KeyCount(const CParam& param) {
    return static_cast<unsigned int>(param.m_KeyFrameList.GetSize() / sizeof(CKeyFrame));
  }
  bool IsCurrent(const CParam& param) const {
    return m_seen.load(std::memory_order_relaxed) == m_watch->Changes() &&
           m_keyCount == KeyCount(param);
  }
  const Timeline* TimelineFor(mtime duration, mtime minDuration) const;
  std::unique_ptr<Timeline> Resolve(mtime duration, mtime minDuration) const;
  Bracket Walk(mtime time, mtime duration, mtime minDuration, unsigned int& cursor) const;
  [[gnu::noinline]] Bracket WalkUnkept(mtime time, mtime duration, mtime minDuration) const;
  CachedKey KeyAt(const CParam& param, unsigned int index, const Timeline* line) const;
  void PrepareBezierSegments(Timeline& line, mtime duration) const;
  void PrepareBezierSegment(Timeline& line, std::size_t i, mtime duration) const;
  double Restrict(double value) const {
    return plainClamp ? ClampToOrderedLimits(doubleLimits, value)
                      : EnforceDoubleLimits(doubleLimits, value);
  }

  // What was read of each keyframe, by its tag (below): a keyframe going in
  // takes a new tag at the end and one going out leaves its slot behind, so
  // that neither moves the others' records. Evaluation goes through m_tagOf.
  std::vector<KeyPosition> m_positionByTag;
  std::vector<KeyRecord> m_recordByTag;
  std::vector<Anchor> m_anchors;  // the Spline keyframes' anchors, back to back
  bool m_liveWalk = false;        // a keyframe's time did not read: walk the list live
  bool m_patchable = true;        // false after a patch cut short: rebuild
  std::size_t m_liveAnchors = 0;  // of m_anchors, those a record still points at

  // ---- what the watch notes: a keyframe's tag (its elements were observed
  // under it), the parameter's element, or a keyframe going in or out at an
  // index. Tags stay with their keyframe as others move in the list.
 public:
  static constexpr std::uint32_t kElementTag = CXMLWatch::kEverything - 1;
  static constexpr std::uint32_t kShiftNote = 1u << 31, kRemovalNote = 1u << 30;
  static constexpr std::uint32_t ShiftNote(unsigned int index, bool removal) {
    return index >= kRemovalNote - 2 ? CXMLWatch::kEverything
                                     : kShiftNote | (removal ? kRemovalNote : 0u) | index;
  }

 private:
  static constexpr std::uint32_t kGone = ~0u;
  std::vector<std::uint32_t> m_tagOf;  // by index: the keyframe's tag
  bool m_tagsAreIndexes = true;        // m_tagOf[i] == i for every index
  // Where a tag's keyframe is: `index` as it was when the shift log had
  // `since` entries; the shifts logged after it tell where it went. Renumbering
  // every place at each shift would cost the keys held; the log keeps that
  // to once per kShiftLogLength shifts.
  struct TagPlace {
    std::uint32_t index = kGone;
    std::uint32_t since = 0;
  };
  static constexpr std::size_t kShiftLogLength = 256;
  std::vector<TagPlace> m_placeOf;  // by tag
  // Keyframes in (an index) and out (kRemovalNote with it) since every place was renumbered.
  std::vector<std::uint32_t> m_shifts;
  // The index of `tag`'s keyframe now, or kGone.
  std::uint32_t IndexOf(std::uint32_t tag);
  void LogShift(unsigned int index, bool removal);

  // ---- what it was read from
  CXMLWatch* m_watch = nullptr;                  // the parameter's (it outlives the cache)
  mutable std::atomic<std::uint64_t> m_seen{0};  // its count of changes read in
  unsigned int m_keyCount = 0;

  // Clip lengths asked about, each resolved once. Slots fill and stay until
  // the cache goes; further lengths are walked without being kept.
  static constexpr std::size_t kTimelines = 4;
  mutable std::array<std::atomic<Timeline*>, kTimelines> m_timelines{};

  EvalCache* m_predecessor = nullptr;
};

}  // namespace qdcore
