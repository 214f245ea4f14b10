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

// Typed getters return false and leave their output alone when the value is
// absent or the type does not match (a mismatch is reported); typed setters
// refuse a mismatching type without writing.
class QDPARAM_API CParam : public CXMLObject {
 public:
  // ---- construction and lifetime
  CParam();
  CParam(unsigned int type, const CZPoolString& name, long id);
  explicit CParam(const CXMLObject& xml);  // Load(xml)
  CParam(const CParam& other);
  CParam& operator=(const CParam& other);
  ~CParam();

  void Free() noexcept;  // element, keyframes and cached duration released
  void Reset();          // Free, then an empty "Parameter" of undefined type
  bool Realloc();        // private storage for all three blocks
  // Takes `p`'s definition (element and cached duration) without keyframes.
  bool SetReference(const CParam& p);
  // Replaces this parameter by a "Parameter" element and its keyframes.
  bool Load(const CXMLObject& xml);

  // ---- type
  unsigned int GetType() const;
  // Writes "type" (Double by leaving it out); SubProp and unknown codes are
  // refused, since only XML can make a SubProp parameter.
  bool SetType(unsigned int type);

  // ---- limits, granularity, inactive value
  bool GetMinValueDouble(double& v) const;
  bool SetMinValueDouble(double v);
  bool GetMinValueLong(long& v) const;
  bool SetMinValueLong(long v);
  bool GetMaxValueDouble(double& v) const;
  bool SetMaxValueDouble(double v);
  bool GetMaxValueLong(long& v) const;
  bool SetMaxValueLong(long v);
  bool GetGranularityDouble(double& v) const;
  bool SetGranularityDouble(double v);
  bool GetGranularityLong(long& v) const;
  bool SetGranularityLong(long v);
  bool ResetMinValue();
  bool ResetMaxValue();
  bool ResetGranularity();

  bool GetInactiveValueDouble(double& v) const;
  bool SetInactiveValueDouble(double v);
  bool GetInactiveValueLong(long& v) const;
  bool SetInactiveValueLong(long v);
  bool GetInactiveValueBool(bool& v) const;
  bool SetInactiveValueBool(bool v);
  bool GetInactiveValueString(CZPoolString& v) const;
  bool SetInactiveValueString(const CZPoolString& v);

  // ---- static value (numbers are clamped to the limits on the way in)
  bool GetValueDouble(double& v) const;
  bool GetValueLong(long& v) const;
  bool GetValueBool(bool& v) const;
  bool GetValueString(CZPoolString& v) const;
  bool SetValueDouble(double v);
  bool SetValueLong(long v);
  bool SetValueBool(bool v);
  bool SetValueString(const CZPoolString& s);
  bool GetValueProperty(CXMLObject& out) const;
  bool SetValueProperty(const CXMLObject& prop);  // `prop` must be a "Propertys"
  // The size of the binary value when `buffer` is null, else the bytes read.
  unsigned int GetValueBinary(unsigned char* buffer, unsigned int size, unsigned int offset) const;
  // The whole binary value, or the empty block when it cannot be read.
  CZMemory GetValueBinary() const;
  bool SetValueBinary(const unsigned char* data, unsigned int size);
  bool SetValueBinary(const CZMemory& m);

  // ---- any attribute by name, without type checks
  CZPoolString GetValue(const CZPoolString& name) const;
  bool SetValue(const CZPoolString& name, const CZPoolString& text);
  bool GetValueBool(const CZPoolString& name, bool& v) const;
  bool GetValueDouble(const CZPoolString& name, double& v) const;
  bool GetValueLong(const CZPoolString& name, long& v) const;
  bool GetValueString(const CZPoolString& name, CZPoolString& v) const;
  bool SetValueBool(const CZPoolString& name, bool v);
  bool SetValueDouble(const CZPoolString& name, double v);
  bool SetValueLong(const CZPoolString& name, long v);
  bool SetValueString(const CZPoolString& name, const CZPoolString& s);

  // ---- identity and flags
  // The "name" attribute (not the element's name, which stays "Parameter").
  CZPoolString GetName() const;
  bool SetName(const CZPoolString& name);
  long GetID() const;  // -1 (0xFFFFFFFF) when absent
  bool SetID(long id);
  bool GetInactiveStatus(bool& inactive) const;
  bool SetInactiveStatus(bool inactive);
  bool GetKeyFrameStatus() const;
  bool SetKeyFrameStatus(bool on);
  unsigned int GetAllowedInterpolation() const;  // INTERPOLATION_* bits
  bool SetAllowedInterpolation(unsigned int flags);
  unsigned int GetAlphaHandling() const;  // ALPHA_*
  bool SetAlphaHandling(unsigned int code);
  unsigned int GetBinaryInterpolationType() const;  // BINARY_INTERPOLATION_*
  unsigned int GetTimeTranslation() const;          // 0 or TIMETRANSLATION_EASEINOUT
  bool SetTimeTranslation(unsigned int flags);

  // ---- keyframes, kept in the order the caller chooses (no sorting).
  // With `setValue` a new keyframe takes the parameter's value at its time.
  bool Add(const CKeyFrame& kf, const mtime& duration, bool setValue);
  // The index the keyframe was asked for (an index past the end appends), or
  // -1; the append path with `setValue` answers the new last index.
  int Insert(const CKeyFrame& kf, unsigned int index, const mtime& duration, bool setValue);
  // 0 without inserting when `before` is null or not in the list.
  int Insert(const CKeyFrame& kf, CKeyFrame* before, const mtime& duration, bool setValue);
  bool Remove(unsigned int index);
  bool Remove(CKeyFrame* kf);
  CKeyFrame* Get(unsigned int index);  // null past the end
  const CKeyFrame* Get(unsigned int index) const;
  int GetIndex(const CKeyFrame* kf) const;  // -1 when not in the list
  unsigned int GetSize() const;
  // The first keyframe for null, else the one after `kf`; null at the end or
  // when `kf` is not in the list.
  CKeyFrame* FindNextKeyFrame(CKeyFrame* kf);
  const CKeyFrame* FindNextKeyFrame(const CKeyFrame* kf) const;
  // The span the absolute keyframes need, cached until an absolute keyframe
  // is inserted or the parameter is reset or loaded.
  mtime GetMinDuration() const;

  // ---- XML: stored form, updates and presets
  bool Store(CXMLObject& xml) const;  // the element with its keyframes; always true
  bool Update(const CXMLObject& xml, bool replace);
  bool Update(const CParam& other, bool replace);
  bool CreatePreset(CXMLObject& out) const;
  // Only what differs from `reference`; `out` stays empty when nothing does.
  bool CreatePreset(CXMLObject& out, const CParam& reference) const;

  // ---- value at a time of an effect of `duration` (the host calls these
  // per frame). Failures report and return the default.
  double GetValueDouble(const mtime& time, const mtime& duration, double def) const;
  long GetValueLong(const mtime& time, const mtime& duration, long def) const;
  bool GetValueBool(const mtime& time, const mtime& duration, bool def) const;
  CZPoolString GetValueString(const mtime& time, const mtime& duration,
                              const CZPoolString& def) const;
  // The parameter's own binary value, whatever the time.
  CZMemory GetValueBinary(const mtime& time, const mtime& duration) const;
  // The blended payload at `time`: its size when `buffer` is null.
  unsigned int GetValueBinary(const mtime& time, const mtime& duration, unsigned char* buffer,
                              unsigned int size) const;
  double GetIntegralDouble(const mtime& time, const mtime& duration) const;
  // Samples at start + i * step, each as the single-time getter with default 0.
  bool GetValueArrayDouble(const mtime& duration, const mtime& start, const mtime& step,
                           double* pValues, unsigned long uNValues) const;
  bool GetValueArrayLong(const mtime& duration, const mtime& start, const mtime& step,
                         long* pValues, unsigned long uNValues) const;

  // ---- the inverse: times at which the value, exactly as GetValueDouble
  // gives it on a clip of `duration`, reaches `value` (equals it, or jumps
  // across it). Only an active, keyframed Double or Long parameter moves; a
  // constant or inactive one reaches only its own value, at `from`.
  // The earliest such time in [from, duration]; false, `position`
  // untouched, when there is none, the type is not a number or an argument is NaN.
  bool GetPositionFromValueDouble(double value, const mtime& duration, mtime& position,
                                  const mtime& from = mtime::null) const;
  // Every such time in [from, duration], earliest first; the first
  // `capacity` go to `positions` (null: only counted). Returns how many
  // there are, 0 on the failures above.
  unsigned int GetPositionsFromValueDouble(double value, const mtime& duration, mtime* positions,
                                           unsigned int capacity,
                                           const mtime& from = mtime::null) const;

 protected:
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

  // Hands each crossing of `value` in [from, duration] to `sink` in time
  // order until it returns false; false when the parameter cannot be searched.
  // `minDuration` as evaluation takes it (ParamEvaluation).
  bool FindValueCrossings(double value, const mtime& duration, mtime minDuration, const mtime& from,
                          bool (*sink)(void* context, double time), void* context) const;

  // What evaluation reads, parsed once and kept until a write changes it;
  // built by const evaluations, never seen by callers (qdevalcache.h).
  struct EvalCache;
  void DropEvalCache() noexcept;  // for writes that replace the whole parameter
  // The getters above with the minimum duration given, shared with the host
  // API, which fits absolute keyframes onto short clips its own way.
  friend struct ParamEvaluation;

  CKeyFrameList m_KeyFrameList;
  mutable CZMTime m_MinDuration;  // mtime::unassigned: recompute (GetMinDuration fills it)
  mutable unsigned int m_Type;    // PARAM_UNDEFINED until GetType has read "type"
  // Owned; never shared by copies. A plain pointer inside, so that the
  // parameter stays relocatable byte by byte; a released one holds none.
  mutable std::atomic<EvalCache*> m_EvalCache{nullptr};
};

}  // namespace qdcore
