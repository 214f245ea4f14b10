// CParam: one typed effect parameter, an XML element "Parameter" whose
// attributes and children hold every property, plus its keyframes.
#pragma once

#include <atomic>

#include "qdcore/core.h"
#include "qdcore/xml.h"
#include "qdparam/czmtime.h"
#include "qdparam/export.h"
#include "qdparam/keyframelist.h"
#include "qdparam/types.h"

namespace qdcore {

/// One typed effect parameter: an XML element "Parameter" whose attributes
/// and children hold every property, plus its keyframes.
///
/// Typed getters return false and leave their output alone when the value is
/// absent or the type does not match (a mismatch is reported); typed setters
/// refuse a mismatching type without writing.
class QDPARAM_API CParam : public CXMLObject {
 public:
  // ---- construction and lifetime
  /// An empty "Parameter" of undefined type.
  CParam();
  /// A parameter of `type` with its "name" and "id" written.
  CParam(unsigned int type, const CZPoolString& name, long id);
  /// Load(xml); a failed load leaves an empty parameter.
  explicit CParam(const CXMLObject& xml);
  /// Shares the other's element and copies its keyframes.
  CParam(const CParam& other);
  /// Becomes a copy of `other`: element, keyframes and cached duration.
  CParam& operator=(const CParam& other);
  /// Releases the element, the keyframes and the cached duration.
  ~CParam();

  void Free() noexcept;  ///< element, keyframes and cached duration released
  void Reset();          ///< Free, then an empty "Parameter" of undefined type
  bool Realloc();        ///< private storage for all three blocks; false when one fails
  /// Takes `p`'s definition (element and cached duration) without keyframes; always true.
  bool SetReference(const CParam& p);
  /// Replaces this parameter by a "Parameter" element and its keyframes; false (and an empty
  /// parameter) when a keyframe or child cannot be taken.
  bool Load(const CXMLObject& xml);

  // ---- type
  /// The PARAM_* type of "type" (Double when absent); PARAM_UNDEFINED for an unknown spelling.
  unsigned int GetType() const;
  /// Writes "type" (Double by leaving it out); SubProp and unknown codes are
  /// refused, since only XML can make a SubProp parameter.
  bool SetType(unsigned int type);

  // ---- limits, granularity, inactive value
  /// The "min" limit of a Double parameter; false when absent or not Double.
  bool GetMinValueDouble(double& v) const;
  /// Writes the "min" limit of a Double parameter; false (nothing written) when not Double.
  bool SetMinValueDouble(double v);
  /// The "min" limit of a Long parameter; false when absent or not Long.
  bool GetMinValueLong(long& v) const;
  /// Writes the "min" limit of a Long parameter; false (nothing written) when not Long.
  bool SetMinValueLong(long v);
  /// The "max" limit of a Double parameter; false when absent or not Double.
  bool GetMaxValueDouble(double& v) const;
  /// Writes the "max" limit of a Double parameter; false (nothing written) when not Double.
  bool SetMaxValueDouble(double v);
  /// The "max" limit of a Long parameter; false when absent or not Long.
  bool GetMaxValueLong(long& v) const;
  /// Writes the "max" limit of a Long parameter; false (nothing written) when not Long.
  bool SetMaxValueLong(long v);
  /// The step values snap to, of a Double parameter; false when absent or not Double.
  bool GetGranularityDouble(double& v) const;
  /// Writes the step of a Double parameter; false (nothing written) when not Double.
  bool SetGranularityDouble(double v);
  /// The step values snap to, of a Long parameter; false when absent or not Long.
  bool GetGranularityLong(long& v) const;
  /// Writes the step of a Long parameter; false (nothing written) when not Long.
  bool SetGranularityLong(long v);
  /// Deletes "min"; false when there was none to delete.
  bool ResetMinValue();
  /// Deletes "max"; false when there was none to delete.
  bool ResetMaxValue();
  /// Deletes "granularity"; false when there was none to delete.
  bool ResetGranularity();

  /// The value of an inactive Double parameter; false when absent or not Double.
  bool GetInactiveValueDouble(double& v) const;
  /// Writes the inactive value of a Double parameter; false when not Double.
  bool SetInactiveValueDouble(double v);
  /// The value of an inactive Long parameter; false when absent or not Long.
  bool GetInactiveValueLong(long& v) const;
  /// Writes the inactive value of a Long parameter; false when not Long.
  bool SetInactiveValueLong(long v);
  /// The value of an inactive Bool parameter; false when absent or not Bool.
  bool GetInactiveValueBool(bool& v) const;
  /// Writes the inactive value of a Bool parameter; false when not Bool.
  bool SetInactiveValueBool(bool v);
  /// The value of an inactive String parameter; false when absent, empty or not String.
  bool GetInactiveValueString(CZPoolString& v) const;
  /// Writes the inactive value of a String parameter; false when not String.
  bool SetInactiveValueString(const CZPoolString& v);

  // ---- static value (numbers are clamped to the limits on the way in)
  /// The static value of a Double parameter; false when absent or not Double.
  bool GetValueDouble(double& v) const;
  /// The static value of a Long parameter; false when absent or not Long.
  bool GetValueLong(long& v) const;
  /// The static value of a Bool parameter; false when absent or not Bool.
  bool GetValueBool(bool& v) const;
  /// The static value of a String parameter; false when absent, empty or not String.
  bool GetValueString(CZPoolString& v) const;
  /// Writes the static value of a Double parameter, clamped; false when not Double.
  bool SetValueDouble(double v);
  /// Writes the static value of a Long parameter, clamped; false when not Long.
  bool SetValueLong(long v);
  /// Writes the static value of a Bool parameter; false when not Bool.
  bool SetValueBool(bool v);
  /// Writes the static value of a String parameter; false when not String.
  bool SetValueString(const CZPoolString& s);
  /// The nested "Propertys" tree of a SubProp parameter; false when there is none.
  bool GetValueProperty(CXMLObject& out) const;
  bool SetValueProperty(const CXMLObject& prop);  ///< `prop` must be a "Propertys"; else false
  /// The size of the binary value when `buffer` is null, else the bytes read; 0 without one.
  unsigned int GetValueBinary(unsigned char* buffer, unsigned int size, unsigned int offset) const;
  /// The whole binary value, or the empty block when it cannot be read.
  CZMemory GetValueBinary() const;
  /// Writes the parameter's own binary value; false when it cannot be stored.
  bool SetValueBinary(const unsigned char* data, unsigned int size);
  /// Writes the parameter's own binary value from a block; false when it cannot be stored.
  bool SetValueBinary(const CZMemory& m);

  // ---- any attribute by name, without type checks
  /// The text of attribute `name`; empty when absent.
  CZPoolString GetValue(const CZPoolString& name) const;
  /// Writes attribute `name`; false when it cannot be written.
  bool SetValue(const CZPoolString& name, const CZPoolString& text);
  /// Attribute `name` read as a boolean; false when absent.
  bool GetValueBool(const CZPoolString& name, bool& v) const;
  /// Attribute `name` read as a number; false when absent.
  bool GetValueDouble(const CZPoolString& name, double& v) const;
  /// Attribute `name` read as a whole number; false when absent.
  bool GetValueLong(const CZPoolString& name, long& v) const;
  /// Attribute (or CDATA child) `name` as text; false when absent or empty.
  bool GetValueString(const CZPoolString& name, CZPoolString& v) const;
  /// Writes attribute `name` as "True" or "False"; false when it cannot be written.
  bool SetValueBool(const CZPoolString& name, bool v);
  /// Writes attribute `name` as a number; false when it cannot be written.
  bool SetValueDouble(const CZPoolString& name, double v);
  /// Writes attribute `name` as a whole number; false when it cannot be written.
  bool SetValueLong(const CZPoolString& name, long v);
  /// Writes text `name` as an attribute, or a CDATA child when it needs one; false on failure.
  bool SetValueString(const CZPoolString& name, const CZPoolString& s);

  // ---- identity and flags
  /// The "name" attribute (not the element's name, which stays "Parameter"); empty when absent.
  CZPoolString GetName() const;
  /// Writes the "name" attribute; false when it cannot be written.
  bool SetName(const CZPoolString& name);
  long GetID() const;  ///< the "id"; -1 (0xFFFFFFFF) when absent
  /// Writes the "id"; false when it cannot be written.
  bool SetID(long id);
  /// Whether the parameter is inactive ("active" is False); false when "active" is absent.
  bool GetInactiveStatus(bool& inactive) const;
  /// Writes "active"; false when it cannot be written.
  bool SetInactiveStatus(bool inactive);
  /// True when "useKeyframe" says the parameter follows its keyframes; false when absent.
  bool GetKeyFrameStatus() const;
  /// Writes "useKeyframe" (a SubProp parameter ignores it); false when it cannot be written.
  bool SetKeyFrameStatus(bool on);
  /// The INTERPOLATION_* bits an editor may offer; INTERPOLATION_DEFAULT_ALLOWED when absent.
  unsigned int GetAllowedInterpolation() const;
  /// Writes the allowed interpolations (0 deletes them); false when they cannot be written.
  bool SetAllowedInterpolation(unsigned int flags);
  unsigned int GetAlphaHandling() const;  ///< ALPHA_*; ALPHA_NONE when absent or unknown
  /// Writes "alpha" (ALPHA_NONE deletes it; an unknown code is reported and deletes it too).
  bool SetAlphaHandling(unsigned int code);
  /// BINARY_INTERPOLATION_* of "binaryInterpolationType"; NONE when absent or unknown.
  unsigned int GetBinaryInterpolationType() const;
  /// EXTRAPOLATION_* before the first keyframe ("extrapolateBefore"); HOLD when absent or unknown.
  unsigned int GetExtrapolationBefore() const;
  /// EXTRAPOLATION_* after the last keyframe ("extrapolateAfter"); HOLD when absent or unknown.
  unsigned int GetExtrapolationAfter() const;
  /// Writes "extrapolateBefore" (HOLD deletes it; an unknown code is reported and deletes it too).
  bool SetExtrapolationBefore(unsigned int code);
  /// Writes "extrapolateAfter" (HOLD deletes it; an unknown code is reported and deletes it too).
  bool SetExtrapolationAfter(unsigned int code);
  /// 0 or TIMETRANSLATION_EASEINOUT, the ease of the whole clip.
  unsigned int GetTimeTranslation() const;
  /// Writes "EaseInOut" for TIMETRANSLATION_EASEINOUT and deletes it otherwise; always true.
  bool SetTimeTranslation(unsigned int flags);

  // ---- keyframes, kept in the order the caller chooses (no sorting).
  // With `setValue` a new keyframe takes the parameter's value at its time.
  /// Appends a copy of `kf` typed as this parameter; false for an empty keyframe.
  bool Add(const CKeyFrame& kf, const mtime& duration, bool setValue);
  /// The index the keyframe was asked for (an index past the end appends), or
  /// -1; the append path with `setValue` answers the new last index.
  int Insert(const CKeyFrame& kf, unsigned int index, const mtime& duration, bool setValue);
  /// Inserts before `before`; 0 without inserting when `before` is null or not in the list.
  int Insert(const CKeyFrame& kf, CKeyFrame* before, const mtime& duration, bool setValue);
  /// Removes the keyframe at `index`; false past the end.
  bool Remove(unsigned int index);
  /// Removes the keyframe `kf` points to; false when it is not in the list.
  bool Remove(CKeyFrame* kf);
  CKeyFrame* Get(unsigned int index);              ///< the keyframe at `index`; null past the end
  const CKeyFrame* Get(unsigned int index) const;  ///< the keyframe at `index`; null past the end
  int GetIndex(const CKeyFrame* kf) const;         ///< index of `kf`; -1 when not in the list
  unsigned int GetSize() const;                    ///< the number of keyframes
  /// The first keyframe for null, else the one after `kf`; null at the end or
  /// when `kf` is not in the list.
  CKeyFrame* FindNextKeyFrame(CKeyFrame* kf);
  /// The first keyframe for null, else the one after `kf`; null at the end or
  /// when `kf` is not in the list.
  const CKeyFrame* FindNextKeyFrame(const CKeyFrame* kf) const;
  /// The span the absolute keyframes need, cached until an absolute keyframe
  /// is inserted or the parameter is reset or loaded; 0 without such keyframes.
  mtime GetMinDuration() const;

  // ---- XML: stored form, updates and presets
  bool Store(CXMLObject& xml) const;  ///< the element with its keyframes; always true
  /// Takes values from a "Parameter", "Value" or "Preset" element; false when it names no
  /// source for this parameter or a part cannot be taken.
  bool Update(const CXMLObject& xml, bool replace);
  /// Takes values from another parameter, as the XML form; false as there.
  bool Update(const CParam& other, bool replace);
  /// A complete "Value" preset entry (id, value, keyframes); always true.
  bool CreatePreset(CXMLObject& out) const;
  /// Only what differs from `reference`; `out` stays empty when nothing does. Always true.
  bool CreatePreset(CXMLObject& out, const CParam& reference) const;

  // ---- value at a time of an effect of `duration` (the host calls these
  // per frame). Failures report and return the default.
  /// The number at `time`, limited and snapped (Long and Bool converted); `def` when a Double
  /// parameter has no value there or the type is not numeric.
  double GetValueDouble(const mtime& time, const mtime& duration, double def) const;
  /// The whole number at `time` (a Double truncated, a Long limited and snapped); `def` when a
  /// Long parameter has no value there or the type is not numeric.
  long GetValueLong(const mtime& time, const mtime& duration, long def) const;
  /// The boolean at `time` (numbers: not 0); `def` when there is no value.
  bool GetValueBool(const mtime& time, const mtime& duration, bool def) const;
  /// The text at `time` of a String parameter; `def` when there is none.
  CZPoolString GetValueString(const mtime& time, const mtime& duration,
                              const CZPoolString& def) const;
  /// The parameter's own binary value, whatever the time; the empty block when not Binary.
  CZMemory GetValueBinary(const mtime& time, const mtime& duration) const;
  /// The blended payload at `time`: its size when `buffer` is null; 0 when not Binary.
  unsigned int GetValueBinary(const mtime& time, const mtime& duration, unsigned char* buffer,
                              unsigned int size) const;
  /// The slope of GetValueDouble's value at `time` in units per second, analytic; at a keyframe
  /// that of the segment it starts. 0 where the value stands still (static, inactive, Bool, Hold,
  /// before the first or after the last keyframe, clamped by a limit, snapped to a grid) and,
  /// reported, when the type is not numeric. A Long parameter's is that of its unrounded blend.
  double GetDerivativeDouble(const mtime& time, const mtime& duration) const;
  /// The area under the value from 0 to `time`; 0 when not Double or a keyframe time is unreadable.
  double GetIntegralDouble(const mtime& time, const mtime& duration) const;
  /// Samples at start + i * step, each as the single-time getter with default 0;
  /// false (nothing written) for a null array.
  bool GetValueArrayDouble(const mtime& duration, const mtime& start, const mtime& step,
                           double* pValues, unsigned long uNValues) const;
  /// The whole-number form of GetValueArrayDouble; false likewise.
  bool GetValueArrayLong(const mtime& duration, const mtime& start, const mtime& step,
                         long* pValues, unsigned long uNValues) const;

  // ---- the inverse: times at which the value, exactly as GetValueDouble
  // gives it on a clip of `duration`, reaches `value` (equals it, or jumps
  // across it). Only an active, keyframed Double or Long parameter moves; a
  // constant or inactive one reaches only its own value, at `from`.

  /// The earliest such time in [from, duration]; false, `position`
  /// untouched, when there is none, the type is not a number or an argument is NaN.
  bool GetPositionFromValueDouble(double value, const mtime& duration, mtime& position,
                                  const mtime& from = mtime::null) const;
  /// Every such time in [from, duration], earliest first; the first
  /// `capacity` go to `positions` (null: only counted). Returns how many
  /// there are, 0 on the failures above.
  unsigned int GetPositionsFromValueDouble(double value, const mtime& duration, mtime* positions,
                                           unsigned int capacity,
                                           const mtime& from = mtime::null) const;

 protected:
  /// Appends `kf` (with `setValue`, given the value there); false when empty or of another type.
  bool AddKey(CKeyFrame& kf, const mtime& duration, bool setValue);

 private:
  // ---- binary blending between keyframes, by the kind the parameter names
  unsigned int InterpolateBinary(mtime time, mtime duration, const CKeyFrame* prev, mtime prevTime,
                                 const CKeyFrame* next, mtime nextTime, unsigned char* buffer,
                                 unsigned int size) const;
  unsigned int InterpolateBinary(mtime time, const CParam& source, mtime duration,
                                 mtime minDuration, unsigned char* buffer, unsigned int size) const;
  unsigned int InterpolateBinary_SplitGraph(mtime time, mtime duration, const CKeyFrame* prev,
                                            mtime prevTime, const CKeyFrame* next, mtime nextTime,
                                            unsigned char* buffer, unsigned int size) const;
  unsigned int InterpolateBinary_GeometryMask(mtime time, mtime duration, const CKeyFrame* prev,
                                              mtime prevTime, const CKeyFrame* next, mtime nextTime,
                                              unsigned char* buffer, unsigned int size) const;
  unsigned int InterpolateBinary_ToneCurve(mtime time, mtime duration, const CKeyFrame* prev,
                                           mtime prevTime, const CKeyFrame* next, mtime nextTime,
                                           unsigned char* buffer, unsigned int size) const;
  unsigned int InterpolateBinary_ColorWheel(mtime time, mtime duration, const CKeyFrame* prev,
                                            mtime prevTime, const CKeyFrame* next, mtime nextTime,
                                            unsigned char* buffer, unsigned int size) const;
  unsigned int InterpolateBinary_MaskMultiPolygon(mtime time, mtime duration, const CKeyFrame* prev,
                                                  mtime prevTime, const CKeyFrame* next,
                                                  mtime nextTime, unsigned char* buffer,
                                                  unsigned int size) const;

  /// Hands each crossing of `value` in [from, duration] to `sink` in time
  /// order until it returns false; false when the parameter cannot be searched.
  /// `minDuration` as evaluation takes it (ParamEvaluation).
  bool FindValueCrossings(double value, const mtime& duration, mtime minDuration, const mtime& from,
                          bool (*sink)(void* context, double time), void* context) const;

  /// What evaluation reads, parsed once and kept until a write changes it;
  /// built by const evaluations, never seen by callers (qdevalcache.h).
  struct EvalCache;
  void DropEvalCache() noexcept;  ///< for writes that replace the whole parameter
  /// What tells this parameter's cache which of its parts changed, and keeps
  /// two refreshes of the cache from running at once (qdevalcache.h).
  struct EvalWatch;
  /// A keyframe is about to go in at `index`, or `index` to go out: the
  /// ones after it move, which no element write shows.
  void NoteKeyInserted(unsigned int index) noexcept;
  void NoteKeyRemoved(unsigned int index) noexcept;  ///< as NoteKeyInserted
  void DropEvalWatch() noexcept;                     ///< with the parameter
  // The getters above with the minimum duration given, shared with the host
  // API, which fits absolute keyframes onto short clips its own way.
  friend struct ParamEvaluation;

  CKeyFrameList m_KeyFrameList;
  mutable CZMTime m_MinDuration;  ///< mtime::unassigned: recompute (GetMinDuration fills it)
  mutable unsigned int m_Type;    ///< PARAM_UNDEFINED until GetType has read "type"
  /// Owned; never shared by copies. A plain pointer inside, so that the
  /// parameter stays relocatable byte by byte; a released one holds none.
  mutable std::atomic<EvalCache*> m_EvalCache{nullptr};
  /// Owned and never shared by copies, as the cache; made by the first evaluation.
  mutable std::atomic<EvalWatch*> m_EvalWatch{nullptr};
};

}  // namespace qdcore
