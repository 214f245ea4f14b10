// CKeyFrame: one keyframe of a parameter, an XML element "Keyframe" holding a
// value at a time with its interpolation, time translation and anchors; and
// Anchor, one point of a Bezier handle.
#pragma once

#include "qdcore/core.h"
#include "qdcore/xml.h"
#include "qdparam/export.h"
#include "qdparam/param.h"
#include "qdparam/types.h"

namespace qdcore {

struct QDPARAM_API Anchor {
  double position;  // fraction of the segment
  double value;

  void Clear() noexcept { position = value = 0.0; }
};

// Carries a reference copy of its parameter's definition so that value
// setters can clamp to the parameter's limits. The setters report a type
// mismatch and still write; the typed getters report it and fail.
class QDPARAM_API CKeyFrame : public CXMLObject {
 public:
  // ---- construction and lifetime
  explicit CKeyFrame(unsigned int type);
  // Takes `xml` when it is a "Keyframe" element, else starts empty.
  CKeyFrame(unsigned int type, const CXMLObject& xml);
  explicit CKeyFrame(const CParam& param);
  CKeyFrame(const CParam& param, const CXMLObject& xml);
  CKeyFrame(const CKeyFrame& other);
  CKeyFrame& operator=(const CKeyFrame& other) = default;
  ~CKeyFrame();

  void Free() noexcept;  // element and definition released; m_Type kept
  void Reset();          // Free, then an empty "Keyframe"
  bool Realloc();        // private element storage
  bool Load(const CXMLObject& xml);  // always true; another element name leaves it empty
  bool Store(CXMLObject& xml) const;
  CZPoolString GetValue(const CZPoolString& name) const;

  // ---- typed value
  bool GetValueDouble(double& v) const;
  bool GetValueLong(long& v) const;
  bool GetValueBool(bool& v) const;  // only a Bool keyframe
  bool GetValueString(CZPoolString& v) const;
  CZPoolString GetValueString() const;
  // The size of the binary value when `buffer` is null, else the bytes read.
  unsigned int GetValueBinary(unsigned char* buffer, unsigned int size, unsigned int offset) const;
  // The value converted from whatever numeric type the keyframe has.
  double GetValueDouble() const;
  long GetValueLong() const;  // a Double value rounds half away from zero
  bool GetValueBool() const;

  bool SetValueDouble(double v);  // clamped to the parameter's limits
  bool SetValueLong(long v);      // clamped to the parameter's limits
  bool SetValueBool(bool v);
  bool SetValueString(const CZPoolString& s);
  bool SetValueBinary(const unsigned char* data, unsigned int size);

  // Reads a position text ("0.25", "50%", "2.5s", "2.5fs"): its KEYFRAME_*
  // qualifier and its number. Always true; text that is no number reads 0.
  static bool ExtractValue(const CZPoolString& text, unsigned int& qualifier, double& number);

  // ---- time and position
  unsigned int GetType() const;  // KEYFRAME_* qualifier of "position", KEYFRAME_NO_TIME if absent
  bool GetPosition(double& pos) const;  // relative keyframes only
  bool GetTime(mtime& t) const;         // absolute and fixed keyframes only
  // The keyframe's time within a clip of `duration` seconds, given the
  // owning parameter's minimum duration.
  mtime GetTime(const mtime& duration, const mtime& minDuration) const;
  double GetPosition(const mtime& duration, const mtime& minDuration) const;
  bool SetPosition(double pos);
  bool SetTime(const mtime& t, bool fixed);
  bool SetPositionValue(const CZPoolString& text);

  // ---- interpolation, time translation, anchors
  unsigned int GetInterpolation() const;  // INTERPOLATION_*, Hold when unknown
  bool SetInterpolation(unsigned int code);  // one code only
  unsigned int GetTimeTranslation() const;   // TIMETRANSLATION_* bits
  bool SetTimeTranslation(unsigned int flags);
  // Fills up to `capacity` anchors; `count` gets the number there are.
  bool GetAnchors(Anchor* anchors, unsigned int capacity, unsigned int& count) const;
  bool SetAnchors(const Anchor* anchors, unsigned int count);
  // The two handle points of a Bezier segment from one or two anchors.
  bool GetBezierAnchors(double& x1, double& y1, double& x2, double& y2) const;

  unsigned int m_Type;  // PARAM_* value type, fixed at construction

 private:
  // The inner parameter: the owning parameter's definition, without
  // keyframes. Only its element is ever read (for the limits), so that is
  // all a keyframe keeps: one shared handle instead of a whole CParam, which
  // matters with a hundred thousand keyframes loaded.
  CXMLObject m_Definition;
  CParam Definition() const;
};

}  // namespace qdcore
