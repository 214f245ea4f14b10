/// @file
/// The host API: a parameter set and its parameters in plain C++. UTF-8 text
/// in and out, seconds as double, failures as values with a message and the
/// line and column they come from. Nothing here throws; nothing here needs
/// the library's own string, time or XML types.
///
/// Threads: any number of threads may call const members of one Set or Param
/// (and of their copies) at once. An edit must not run beside anything else
/// on the same set: a render thread evaluates a snapshot() while the editing
/// thread changes the original.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qdparam/export.h"

namespace qdcore {
class CParam;
class CParamSet;
}  // namespace qdcore

namespace qd {

/// What went wrong, and where in a document when it came from one.
struct QDPARAM_API Error {
  Error() = default;  ///< no message, no place
  /// A message, with its place in a text when it has one.
  Error(std::string text, unsigned int atLine = 0, unsigned int atColumn = 0)  // NOLINT: implicit
      : message(std::move(text)), line(atLine), column(atColumn) {}

  std::string message;      ///< what went wrong, in words
  unsigned int line = 0;    ///< 1-based; 0 when the failure has no place in a text
  unsigned int column = 0;  ///< 1-based, in characters
  std::string file;         ///< the file read, when one was

  /// "file:line:column: message", leaving out what is not known.
  std::string describe() const;
};

/// A value, or the error that kept it from being made. value() and operator*
/// must only be used when the result holds one (ok()).
template <typename T>
class Result {
 public:
  /// A value.
  Result(T value) : m_value(std::move(value)) {}  // NOLINT: implicit by design
  /// A failure.
  Result(Error error) : m_error(std::move(error)) {}  // NOLINT: implicit by design

  bool ok() const noexcept { return m_value.has_value(); }  ///< true when it holds a value
  explicit operator bool() const noexcept { return ok(); }  ///< ok()
  T& value() & { return *m_value; }                         ///< the value (ok() only)
  const T& value() const& { return *m_value; }              ///< the value (ok() only)
  T&& value() && { return std::move(*m_value); }            ///< the value (ok() only)
  T& operator*() & { return *m_value; }                     ///< the value (ok() only)
  const T& operator*() const& { return *m_value; }          ///< the value (ok() only)
  T* operator->() { return &*m_value; }                     ///< the value (ok() only)
  const T* operator->() const { return &*m_value; }         ///< the value (ok() only)
  const Error& error() const noexcept { return m_error; }   ///< the failure; empty when ok()

 private:
  std::optional<T> m_value;
  Error m_error;
};

/// Success, or the error that prevented it.
class Status {
 public:
  Status() = default;  ///< success
  /// A failure.
  Status(Error error) : m_error(std::move(error)), m_failed(true) {}  // NOLINT: implicit by design

  bool ok() const noexcept { return !m_failed; }            ///< true on success
  explicit operator bool() const noexcept { return ok(); }  ///< ok()
  const Error& error() const noexcept { return m_error; }   ///< the failure; empty on success

 private:
  Error m_error;
  bool m_failed = false;
};

/// A frame rate as a fraction: 25/1, 30000/1001.
struct QDPARAM_API Rate {
  std::int64_t numerator = 25;   ///< frames …
  std::int64_t denominator = 1;  ///< … per this many seconds

  /// A rate from its text, exactly: "25", "29.97" (2997/100), "30000/1001";
  /// the error says why for anything else (zero, negative, not a number).
  static Result<Rate> parse(std::string_view text);
  /// The time of frame `frame` in seconds: frame × denominator / numerator,
  /// rounded once; NaN for a rate that is not positive.
  double frame_time(std::int64_t frame) const noexcept;
};

/// A parameter's value type; Group holds further parameters.
enum class Type { Double, Long, String, Binary, Bool, Group, Undefined };
/// How a keyframe's value blends into the next keyframe's.
enum class Interpolation { Hold, Linear, Bezier, LinLog, Spline, Custom };
/// A keyframe's easing; In and Out may be combined (In | Out).
enum class Ease : unsigned int { None = 0, InOut = 1, AnchorInOut = 2, In = 4, Out = 8 };
/// Both eases: In | Out.
constexpr Ease operator|(Ease a, Ease b) {
  return static_cast<Ease>(static_cast<unsigned int>(a) | static_cast<unsigned int>(b));
}

/// What a keyframed value does before its first or after its last keyframe:
/// the end value holds, the end slope goes on, the keyed span repeats (each
/// repeat from where the last one ended, with an offset), or runs back and forth.
enum class Extrapolation { Hold, Linear, Cycle, CycleWithOffset, Oscillate };
/// The extrapolation of each end.
struct Extrapolations {
  Extrapolation before = Extrapolation::Hold;  ///< before the first keyframe
  Extrapolation after = Extrapolation::Hold;   ///< after the last keyframe
  /// Both ends alike.
  bool operator==(const Extrapolations&) const = default;
};

/// The format's spelling of a type ("Double"); "Undefined" for Undefined.
QDPARAM_API std::string_view name_of(Type type);
/// The format's spelling of an interpolation ("LinLog").
QDPARAM_API std::string_view name_of(Interpolation interpolation);
/// The format's spelling of an extrapolation ("CycleWithOffset"); empty for none of them.
QDPARAM_API std::string_view name_of(Extrapolation extrapolation);
/// The format's spelling of an ease ("EaseInOut"); empty for a combination
/// that has no single name.
QDPARAM_API std::string_view name_of(Ease ease);

/// A Bezier handle point or a spline's extra point.
struct Anchor {
  double position = 0.0;  ///< share of the clip from the keyframe
  double value = 0.0;     ///< the value there (a Bezier handle's: an offset)
};

/// One keyframe as read. `time` is on the set's time line for its current
/// start and duration; `index` is where the parameter stores it.
struct Keyframe {
  unsigned int index = 0;  ///< where the parameter stores it
  double time = 0.0;       ///< seconds on the set's time line
  std::string position;    ///< as written: "0.25" (of the clip), "4s" (scaled), "3fs" (fixed)
  double value = 0.0;      ///< numeric value; 0 for String and Binary
  std::string text;        ///< the value as written
  Interpolation interpolation = Interpolation::Hold;  ///< how it blends into the next
  Ease ease = Ease::None;                             ///< its easing
  std::vector<Anchor> anchors;                        ///< handles or spline points
};

/// What Param::simplify did: how many keyframes there were and are, and the
/// largest difference it measured between the curve before and after.
struct SimplifyReport {
  std::size_t keys_before = 0;  ///< keyframes before
  std::size_t keys_after = 0;   ///< keyframes kept
  double max_deviation = 0.0;   ///< largest |before − after| over the samples compared
};

namespace detail {
struct SetState;
}

/// One parameter of a Set: a handle, cheap to copy, that shares the set. A
/// handle whose parameter was removed or replaced (by a preset that added
/// parameters, a reload) answers nothing: empty results and failed edits.
//
/// Values follow the set's clip: a time is on the set's time line, and
/// absolute keyframes ("4s") of a clip shorter than they need are scaled onto
/// it, as the format describes them.
class QDPARAM_API Param {
 public:
  // ---- identity and definition
  bool valid() const;        ///< false for a stale handle
  std::string name() const;  ///< empty for a stale handle
  long id() const;           ///< -1 for a stale handle
  Type type() const;         ///< Undefined for a stale handle
  bool keyframed() const;    ///< true when keyframes animate it
  bool active() const;       ///< false when set inactive (it then answers its inactive value)
  std::optional<double> min() const;          ///< the "min" limit, when set
  std::optional<double> max() const;          ///< the "max" limit, when set
  std::optional<double> granularity() const;  ///< the step values snap to, when set
  std::string unit() const;                   ///< the "unit" display hint, empty when absent
  /// Any attribute of the "Parameter" element as written; empty when absent.
  std::string attribute(std::string_view name) const;

  // ---- values; every time is in seconds on the set's time line
  /// The number at `time` (Double, Long as a whole number, Bool as 0 or 1);
  /// nullopt for other types or a stale handle.
  std::optional<double> value(double time) const;
  /// The text at `time` of a String parameter; nullopt otherwise.
  std::optional<std::string> text(double time) const;
  /// Samples at start + i × step into `out`; false (out untouched) when the
  /// type is not numeric or the handle is stale.
  bool values(double start, double step, std::span<double> out) const;
  /// Samples at each of `times` into `out` (as many as both hold); false as
  /// above, or when `out` is shorter than `times`.
  bool values(std::span<const double> times, std::span<double> out) const;
  /// Samples at frames first, first + 1, … of `rate`, each at its exact frame
  /// time (never an accumulated step); false as above or for a bad rate.
  bool frames(Rate rate, std::int64_t first, std::span<double> out) const;
  /// How fast value(time) moves, in units per second, analytic; at a keyframe
  /// the slope of the segment it starts; 0 where the value holds, is clamped
  /// by a limit or snapped to a grid; a Long's is that of its unrounded blend.
  /// nullopt for types that are not numeric or a stale handle.
  std::optional<double> slope(double time) const;
  /// The area under a Double parameter from the clip's start to `time`;
  /// nullopt for other types or a stale handle.
  std::optional<double> integral(double time) const;
  /// The earliest time from `after` (the clip's start when left out) to the
  /// clip's end at which the value reaches `target`: equals it, or jumps
  /// across it. nullopt when it never does, for a parameter that is not
  /// Double or Long, a NaN argument or a stale handle.
  std::optional<double> find(double target, std::optional<double> after = std::nullopt) const;
  /// Every such time in order, at most `limit` of them; empty as above.
  std::vector<double> find_all(double target, std::optional<double> after = std::nullopt,
                               std::size_t limit = 100000) const;

  // ---- key navigation: keyframe times on the set's time line, found by a
  // search over the keyframes in time order (O(log N) when they are stored
  // in time order)
  /// The time of the first keyframe at or after `time`; nullopt when none.
  std::optional<double> next_key(double time) const;
  /// The time of the last keyframe at or before `time`; nullopt when none.
  std::optional<double> previous_key(double time) const;
  /// The keyframe time nearest `time`, the earlier of two as near; nullopt
  /// without keyframes.
  std::optional<double> nearest_key(double time) const;
  /// How many keyframes lie in [from, to]; 0 for an empty or NaN range.
  std::size_t count_keys(double from, double to) const;

  // ---- keyframes, in time order (stored order when two share a time)
  std::vector<Keyframe> keys() const;  ///< every keyframe; empty for a stale handle

  // ---- editing; a failed edit changes nothing
  Status set_value(double value);          ///< the static value, clamped to the limits
  Status set_text(std::string_view text);  ///< a String parameter's static text
  /// Adds a keyframe at `time` (stored as a share of the clip) where time
  /// order puts it, with `value`, or the value the curve has there. Returns
  /// its stored index.
  Result<unsigned int> add_key(double time, std::optional<double> value = std::nullopt,
                               Interpolation interpolation = Interpolation::Linear);
  /// Adds a keyframe at `time` without changing the curve: a Bezier segment
  /// (without an ease) is split so that both halves trace it (de Casteljau);
  /// elsewhere the new keyframe takes the segment's interpolation and the
  /// value there, which keeps Hold and Linear segments exactly and others
  /// closely. Returns its stored index.
  Result<unsigned int> insert_key(double time);
  /// Replaces a keyed Double parameter's keyframes by as few of them as keep
  /// its value within `tolerance` of the curve it had, comparing both curves
  /// at every keyframe time, between keyframes and just before each. Runs of
  /// keyframes become one Linear segment, or, with `shape` Bezier, one Bezier
  /// segment fitted by least squares; a segment between two keyframes that
  /// both stay is kept as it was, and each keyframe keeps its time as
  /// written. Refused (nothing changed) for another type, an unkeyed or
  /// inactive parameter, one eased as a whole or snapped to a granularity,
  /// keyframes stored out of time order, a shape other than Linear or Bezier
  /// (or one the parameter does not allow), or a tolerance that is negative
  /// or not finite.
  Result<SimplifyReport> simplify(double tolerance, Interpolation shape = Interpolation::Linear);
  /// Moves keyframe `index` to `time`, in its own kind of position (a share
  /// of the clip, or seconds), and back into time order. Returns its new index.
  Result<unsigned int> move_key(unsigned int index, double time);
  Status remove_key(unsigned int index);                   ///< removes keyframe `index`
  Status set_key_value(unsigned int index, double value);  ///< clamped to the limits
  /// Refused when the parameter does not allow `interpolation`.
  Status set_key_interpolation(unsigned int index, Interpolation interpolation);
  Status set_key_ease(unsigned int index, Ease ease);  ///< the keyframe's easing
  /// What the value does before the first and after the last keyframe;
  /// Hold at both ends for a stale handle or a parameter that eases its clip.
  Extrapolations extrapolation() const;
  /// Sets each end's extrapolation (Hold writes nothing: files stay as they
  /// were); fails for a mode that does not exist or a stale handle.
  Status set_extrapolation(Extrapolation before, Extrapolation after);

  /// The parameter itself, for what this API does not cover; null for a
  /// stale handle. Valid until the set changes.
  const qdcore::CParam* native() const;

 private:
  friend class Set;
  friend class Frame;
  Param(std::shared_ptr<detail::SetState> state, qdcore::CParam* param);
  qdcore::CParam* Resolve() const;

  std::shared_ptr<detail::SetState> m_state;
  qdcore::CParam* m_param = nullptr;
  std::uint64_t m_generation = 0;
};

/// A parameter set (one effect's parameters) and the clip it is evaluated on.
/// Copies share one set; snapshot() makes an independent one.
class QDPARAM_API Set {
 public:
  Set();  ///< no parameters, start 0, duration 1

  /// Reads a set from a file, or from XML text: the document element
  /// "Property", or a "Property" right inside it. The error names the line
  /// and column of what could not be read.
  static Result<Set> load(std::string_view path);
  static Result<Set> parse(std::string_view xml);  ///< as load(), from text
  /// Writes the set to `path` atomically: a reader sees the old file or the
  /// new one, never a part; on failure the old file is left as it was.
  Status store(std::string_view path) const;
  std::string to_xml() const;  ///< the "Property" document the set stores

  // ---- the clip
  double start() const;     ///< where the clip starts on the host's time line, in seconds
  double duration() const;  ///< the clip's length in seconds
  void set_clip(double start, double duration);  ///< a duration ≤ 0 or NaN is refused

  // ---- parameters
  /// The first parameter of that "name" in stored order; nullopt when none.
  std::optional<Param> param(std::string_view name) const;
  /// The first parameter of that "id" in stored order; nullopt when none.
  std::optional<Param> param_by_id(long id) const;
  std::vector<Param> params() const;  ///< in stored order

  // ---- presets and validation
  /// A "Preset" of every parameter's value, as XML text.
  std::string preset() const;
  /// Takes the values of a preset (or any set's XML) by parameter id.
  Status apply(std::string_view xml);
  /// Runs the set's "Validation" rules; true when any limit or value changed.
  Result<bool> validate();

  /// The point at `time` on the motion path through the keyed values of
  /// `params` (Double or Long parameters of this set, one to eight): the
  /// vertices are their values at the first one's keyframes, joined by a
  /// centripetal Catmull-Rom curve travelled at the pace of its keyframes.
  /// One coordinate per parameter into `out`; false (out untouched) for a
  /// count out of range, a stale, foreign or non-numeric parameter, or an
  /// `out` that is too short.
  bool path(std::span<const Param> params, double time, std::span<double> out) const;

  /// An independent copy (copy-on-write: cheap until either side changes).
  Set snapshot() const;

  /// The set itself, for what this API does not cover.
  const qdcore::CParamSet& native() const;

 private:
  explicit Set(std::shared_ptr<detail::SetState> state);
  std::shared_ptr<detail::SetState> m_state;
};

/// Per frame: the parameters a renderer needs, named once, and all their
/// values at a time in one call. Cheap to copy; shares the parameters' sets.
class QDPARAM_API Frame {
 public:
  explicit Frame(std::vector<Param> params);  ///< these parameters, in this order
  /// Every Double, Long and Bool parameter of `set`, in stored order.
  static Frame numeric(const Set& set);

  const std::vector<Param>& params() const { return m_params; }  ///< the parameters
  /// The value of each parameter at `time` into out[i], exactly as
  /// Param::value answers it, NaN where that answers nothing; false (out
  /// untouched) when `out` holds fewer than params().size() values.
  bool values(double time, std::span<double> out) const;

 private:
  std::vector<Param> m_params;
  // By parameter: the keyframe segment its last value came from, where the
  // next frame's search starts. A hint only: any value is safe.
  mutable std::vector<unsigned int> m_cursors;
};

}  // namespace qd
