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

/// One point of a Bezier handle or spline: a position and a value.
struct QDPARAM_API Anchor {
  double position;  ///< share of the clip: a handle's offset, or a spline point's time
  double value;     ///< a handle's value offset, or a spline point's value

  /// Sets both fields to 0.
  void Clear() noexcept { position = value = 0.0; }
};

/// One keyframe of a parameter: an XML element "Keyframe" holding a value at
/// a time with its interpolation, time translation and anchors.
///
/// Carries a reference copy of its parameter's definition so that value
/// setters can clamp to the parameter's limits. The setters report a type
/// mismatch and still write; the typed getters report it and fail.
class QDPARAM_API CKeyFrame : public CXMLObject {
 public:
  // ---- construction and lifetime
  /// An empty "Keyframe" of value type `type` (PARAM_*).
  explicit CKeyFrame(unsigned int type);
  /// Takes `xml` when it is a "Keyframe" element, else starts empty.
  CKeyFrame(unsigned int type, const CXMLObject& xml);
  /// An empty "Keyframe" of `param`'s type, clamping to its limits.
  explicit CKeyFrame(const CParam& param);
  /// Takes `xml` when it is a "Keyframe" element (else starts empty), typed as `param`.
  CKeyFrame(const CParam& param, const CXMLObject& xml);
  /// Shares the other's element and definition.
  CKeyFrame(const CKeyFrame& other);
  /// Shares the other's element and definition.
  CKeyFrame& operator=(const CKeyFrame& other) = default;
  /// Releases the element and the definition.
  ~CKeyFrame();

  void Free() noexcept;               ///< element and definition released; m_Type kept
  void Reset();                       ///< Free, then an empty "Keyframe"
  bool Realloc();                     ///< private element storage; false when it cannot be had
  bool Load(const CXMLObject& xml);   ///< always true; another element name leaves it empty
  bool Store(CXMLObject& xml) const;  ///< `xml` becomes this keyframe's element; always true
  /// The text of attribute `name`; empty when absent.
  CZPoolString GetValue(const CZPoolString& name) const;

  // ---- typed value
  /// The value of a Double (or untyped) keyframe; false when absent or of another type.
  bool GetValueDouble(double& v) const;
  /// The value of a Long (or untyped) keyframe; false when absent or of another type.
  bool GetValueLong(long& v) const;
  /// The value of a Bool keyframe; false when absent or not Bool.
  bool GetValueBool(bool& v) const;
  /// The text of a String (or untyped) keyframe; false when absent, empty or of another type.
  bool GetValueString(CZPoolString& v) const;
  /// The text of a String (or untyped) keyframe; empty when absent or of another type.
  CZPoolString GetValueString() const;
  /// The size of the binary value when `buffer` is null, else the bytes read;
  /// 0 without a binary value or for another type.
  unsigned int GetValueBinary(unsigned char* buffer, unsigned int size, unsigned int offset) const;
  /// The value converted from whatever numeric type the keyframe has; 0 for other types.
  double GetValueDouble() const;
  /// The value as a whole number (a Double rounds half away from zero); 0 for other types.
  long GetValueLong() const;
  /// The value as a boolean (numbers: not 0); false for other types.
  bool GetValueBool() const;

  bool SetValueDouble(double v);  ///< writes the value, clamped to the limits; false on failure
  bool SetValueLong(long v);      ///< writes the value, clamped to the limits; false on failure
  bool SetValueBool(bool v);      ///< writes "True" or "False"; false on failure
  /// Writes the text, as a CDATA child when it needs one; false on failure.
  bool SetValueString(const CZPoolString& s);
  /// Writes the binary value into the "Binary" child; false when it cannot be stored.
  bool SetValueBinary(const unsigned char* data, unsigned int size);

  /// Reads a position text ("0.25", "50%", "2.5s", "2.5fs"): its KEYFRAME_*
  /// qualifier and its number. Always true; text that is no number reads 0.
  static bool ExtractValue(const CZPoolString& text, unsigned int& qualifier, double& number);

  // ---- time and position
  /// The KEYFRAME_* qualifier of "position"; KEYFRAME_NO_TIME when absent.
  unsigned int GetType() const;
  /// The share of the clip of a relative keyframe; false when absent or not relative.
  bool GetPosition(double& pos) const;
  /// The seconds of an absolute or fixed keyframe; false when absent or relative.
  bool GetTime(mtime& t) const;
  /// The keyframe's time within a clip of `duration` seconds, given the
  /// owning parameter's minimum duration; 0 when it has no time.
  mtime GetTime(const mtime& duration, const mtime& minDuration) const;
  /// The keyframe's share of a clip of `duration` seconds; 0 when it has no time.
  double GetPosition(const mtime& duration, const mtime& minDuration) const;
  /// Makes the keyframe relative at share `pos`; false on failure.
  bool SetPosition(double pos);
  /// Makes the keyframe absolute ("s") or, with `fixed`, fixed ("fs") at `t`; false on failure.
  bool SetTime(const mtime& t, bool fixed);
  /// Writes the "position" text as given; false on failure.
  bool SetPositionValue(const CZPoolString& text);

  // ---- interpolation, time translation, anchors
  /// The INTERPOLATION_* of the segment leaving the keyframe; Hold when absent or unknown.
  unsigned int GetInterpolation() const;
  /// Writes one INTERPOLATION_* code; false (nothing written) for any other number.
  bool SetInterpolation(unsigned int code);
  unsigned int GetTimeTranslation() const;  ///< TIMETRANSLATION_* bits; 0 when absent
  /// Writes the TIMETRANSLATION_* bits (0 deletes them); false on failure.
  bool SetTimeTranslation(unsigned int flags);
  /// Fills up to `capacity` anchors; `count` gets the number there are. False
  /// when there are more than `capacity` or one lacks an attribute.
  bool GetAnchors(Anchor* anchors, unsigned int capacity, unsigned int& count) const;
  /// Replaces the anchors by `count` anchors; false when one cannot be written.
  bool SetAnchors(const Anchor* anchors, unsigned int count);
  /// The two handle points of a Bezier segment from one or two anchors;
  /// false (all four 0) for none, more than two or a missing attribute.
  bool GetBezierAnchors(double& x1, double& y1, double& x2, double& y2) const;

  unsigned int m_Type;  ///< PARAM_* value type, fixed at construction

 private:
  /// The inner parameter: the owning parameter's definition, without
  /// keyframes. Only its element is ever read (for the limits), so that is
  /// all a keyframe keeps: one shared handle instead of a whole CParam, which
  /// matters with a hundred thousand keyframes loaded.
  CXMLObject m_Definition;
  CParam Definition() const;
};

}  // namespace qdcore
