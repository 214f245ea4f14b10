// CParam: the times at which a parameter's value reaches a given value (the
// search itself is qdinverse.h).
#include "qdinverse.h"

#include <new>

#include "qdderivative.h"
#include "qdinverseextrapolated.h"
#include "qdminduration.h"

namespace qdcore {

namespace {

// Keyframes read from the evaluation cache, on a time line it keeps.
template <typename Cache>
class CachedKeys {
 public:
  CachedKeys(const CParam& param, const Cache& cache, const Timeline& line)
      : m_param(param), m_cache(cache), m_line(line) {}
  const mtime* Times() const { return m_line.times.data(); }
  unsigned int Count() const { return static_cast<unsigned int>(m_line.times.size()); }
  bool Ordered() const { return m_line.Ordered(); }
  // The line's index of segment bounds, made by `build` the first time; null
  // without memory for it.
  template <typename Build>
  const ValueIndex* Index(Build build) const {
    std::atomic<const ValueIndex*>& slot = m_line.valueIndex;
    if (const ValueIndex* index = slot.load(std::memory_order_acquire)) return index;
    const ValueIndex* fresh = nullptr;
    try {
      fresh = build();
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
    const ValueIndex* published = nullptr;
    if (slot.compare_exchange_strong(published, fresh, std::memory_order_acq_rel,
                                     std::memory_order_acquire)) {
      return fresh;
    }
    delete fresh;  // another search published first, from the same records
    return published;
  }
  // Calls use(prev, next) with the keyframes around walk stop `stop`.
  template <typename Use>
  void WithPair(unsigned int stop, Use use) const {
    CachedKey prev{}, next{};
    if (stop > 0) prev = m_cache.Key(m_param, stop - 1, &m_line);
    if (stop < Count()) next = m_cache.Key(m_param, stop, &m_line);
    use(stop > 0 ? &prev : nullptr, stop < Count() ? &next : nullptr);
  }

 private:
  const CParam& m_param;
  const Cache& m_cache;
  const Timeline& m_line;
};

// Keyframes read live, their times resolved as the list-order walk
// resolves them; a time that does not read ends the list, as it ends the walk.
class LiveKeys {
 public:
  LiveKeys(const CParam& param, mtime duration, mtime minDuration) {
    for (const CKeyFrame* kf = param.FindNextKeyFrame(nullptr); kf;
         kf = param.FindNextKeyFrame(kf)) {
      const KeyPosition position = ReadKeyPosition(*kf);
      const mtime carried = m_keys.empty() ? mtime() : mtime(kNoNextTime);
      m_times.push_back(KeyTimeOnClip(position, duration, minDuration, carried));
      m_keys.push_back(kf);
      if (!position.read) break;
    }
    const auto outOfOrder = [](mtime before, mtime after) { return !(after >= before); };
    m_ordered = std::adjacent_find(m_times.begin(), m_times.end(), outOfOrder) == m_times.end();
  }
  const mtime* Times() const { return m_times.data(); }
  unsigned int Count() const { return static_cast<unsigned int>(m_times.size()); }
  bool Ordered() const { return m_ordered; }
  // Read live, the keyframes may change between searches: no index is kept.
  template <typename Build>
  const ValueIndex* Index(Build) const {
    return nullptr;
  }
  template <typename Use>
  void WithPair(unsigned int stop, Use use) const {
    use(stop > 0 ? m_keys[stop - 1] : nullptr, stop < Count() ? m_keys[stop] : nullptr);
  }

 private:
  std::vector<mtime> m_times;
  std::vector<const CKeyFrame*> m_keys;
  bool m_ordered = true;
};

// An inactive or constant parameter holds one value all along.
template <typename Param>
bool IsConstant(const Param& param) {
  return param.Inactive() || !param.KeyFramed();
}

template <typename Param>
bool HasConstantValue(const Param& param) {
  double v = 0.0;
  return param.Inactive() ? param.InactiveValue(v) : param.StaticValue(v);
}

template <typename Param, typename Keys>
bool SearchKeys(const ValueCurve<Param>& curve, const Keys& keys, double value, double from,
                double to, CrossingSink sink, void* context) {
  CrossingSearch<Param, Keys> search(curve, keys, value, from, to, sink, context);
  search.Run(keys.Ordered());
  return true;
}

// The search over one way of reading the parameter.
template <typename Param, typename Search>
bool SearchParam(const Param& param, mtime duration, mtime minDuration, double value, double from,
                 CrossingSink sink, void* context, Search searchKeys) {
  const unsigned int type = param.Type();
  if (type != PARAM_DOUBLE && type != PARAM_LONG) return false;
  const bool eased = param.Param().GetTimeTranslation() == TIMETRANSLATION_EASEINOUT;
  const ValueCurve<Param> curve{param, duration, minDuration, type == PARAM_LONG, eased};
  if (IsConstant(param)) {
    if (HasConstantValue(param) && curve.At(from) == value) sink(context, from);
    return true;
  }
  // The clip's ease is defined over the clip alone.
  if (eased && from < 0.0) from = 0.0;
  return searchKeys(curve, from);
}

// The crossings of an extrapolated parameter (qdinverseextrapolated.h);
// false when it cannot be searched.
template <typename Search>
bool SearchExtrapolated(const CParam& param, const Extrapolation& modes, const KeyedSpan& span,
                        double value, mtime duration, mtime minDuration, double from, double to,
                        CrossingSink sink, void* context, Search search) {
  const unsigned int type = param.GetType();
  if (type != PARAM_DOUBLE && type != PARAM_LONG) return false;
  const LiveParam live(param);
  if (live.Inactive()) return search(value, from, to, sink, context);  // one value all along
  const ValueCurve<LiveParam> curve{live, duration, minDuration, type == PARAM_LONG, false};
  const double fallback = curve.Fallback();
  const auto collect = [](void* out, double t) {
    static_cast<std::vector<double>*>(out)->push_back(t);
    return true;
  };
  const auto inSpan = [&](double a, double b, double target, std::vector<double>& out) {
    search(target, a, b, collect, &out);
  };
  const auto at = [&](double t) { return curve.At(t); };
  const auto rawAt = [&](double t) {
    return SlopeParamDouble(t, param, duration, minDuration, fallback).value;
  };
  ExtrapolatedCrossings crossings(modes, span, value, sink, context, inSpan, at, rawAt);
  crossings.Run(from, to);
  return true;
}

}  // namespace

bool CParam::FindValueCrossings(double value, const mtime& duration, mtime minDuration,
                                const mtime& from, CrossingSink sink, void* context) const {
  const double start = static_cast<double>(from), end = static_cast<double>(duration);
  if (std::isnan(value) || std::isnan(start) || !(end > 0.0) || !(start <= end)) return false;
  // The search of [a, b] as the keyframes lie.
  const auto search = [&](double target, double a, double b, CrossingSink to, void* with) {
    if (const EvalCache* cache = EvalCache::For(*this)) {
      const EvalCache::View view = cache->Bind(*this);
      return SearchParam(view, duration, minDuration, target, a, to, with,
                         [&](const ValueCurve<EvalCache::View>& curve, double searchFrom) {
                           if (const Timeline* line = cache->LineFor(duration, minDuration)) {
                             const CachedKeys<EvalCache> keys(*this, *cache, *line);
                             return SearchKeys(curve, keys, target, searchFrom, b, to, with);
                           }
                           const LiveKeys keys(*this, duration, minDuration);
                           return SearchKeys(curve, keys, target, searchFrom, b, to, with);
                         });
    }
    const LiveParam live(*this);
    return SearchParam(live, duration, minDuration, target, a, to, with,
                       [&](const ValueCurve<LiveParam>& curve, double searchFrom) {
                         const LiveKeys keys(*this, duration, minDuration);
                         return SearchKeys(curve, keys, target, searchFrom, b, to, with);
                       });
  };
  try {
    const EvalCache* cache = EvalCache::For(*this);
    const Extrapolation modes = cache ? cache->extrapolation : ReadExtrapolation(*this);
    if (!modes.Any() || !GetKeyFrameStatus()) [[likely]] {
      return search(value, start, end, sink, context);
    }
    const KeyedSpan span = SpanOnClip(*this, duration, minDuration);
    if (span.Holds()) return search(value, start, end, sink, context);
    return SearchExtrapolated(*this, modes, span, value, duration, minDuration, start, end, sink,
                              context, search);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool CParam::GetPositionFromValueDouble(double value, const mtime& duration, mtime& position,
                                        const mtime& from) const {
  struct First {
    bool found = false;
    double time = 0.0;
  } first;
  const auto take = [](void* context, double time) {
    auto* f = static_cast<First*>(context);
    f->found = true;
    f->time = time;
    return false;
  };
  if (!FindValueCrossings(value, duration, CachedMinDuration(m_MinDuration), from, take, &first) ||
      !first.found)
    return false;
  position = first.time;
  return true;
}

unsigned int CParam::GetPositionsFromValueDouble(double value, const mtime& duration,
                                                 mtime* positions, unsigned int capacity,
                                                 const mtime& from) const {
  struct All {
    mtime* out;
    unsigned int capacity, count = 0;
  } all{positions, positions ? capacity : 0u};
  const auto take = [](void* context, double time) {
    auto* a = static_cast<All*>(context);
    if (a->count < a->capacity) a->out[a->count] = time;
    return ++a->count != ~0u;  // the count cannot go further
  };
  if (!FindValueCrossings(value, duration, CachedMinDuration(m_MinDuration), from, take, &all))
    return 0;
  return all.count;
}

}  // namespace qdcore
