// CKeyFrame: one keyframe of a parameter, kept in its XML element "Keyframe".
#include <cstddef>
#include <iterator>
#include <new>
#include <string_view>
#include <utility>

#include "codetable.h"
#include "paramhelper.h"
#include "qdassert.h"
#include "qdformatnames.h"
#include "qdnumberlocale.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"

namespace qdcore {

using namespace names;

namespace {

// ---------------------------------------------------------------------------
// Position texts
// ---------------------------------------------------------------------------

struct TimeSuffix {
  std::u16string_view text;
  unsigned int qualifier;
  bool percent;  // the number is a percentage of the duration
};

// "fs" is tried before "s", which it ends with.
constexpr TimeSuffix kTimeSuffixes[] = {
    {u"fs", KEYFRAME_FIXED_ABSOLUTE, false},
    {u"s", KEYFRAME_ABSOLUTE, false},
    {u"%", KEYFRAME_RELATIVE, true},
};

// Room for the number of a position text; longer numbers are not numbers.
constexpr std::size_t kNumberBuffer = 128;

const TimeSuffix* FindSuffix(const CZPoolString& text) noexcept {
  for (const TimeSuffix& suffix : kTimeSuffixes) {
    if (text.cmp_p(suffix.text.data()) == 0) return &suffix;
  }
  return nullptr;
}

double ParseNumber(std::u16string_view digits) noexcept {
  if (digits.size() >= kNumberBuffer) return 0.0;
  wchar buffer[kNumberBuffer];
  buffer[digits.copy(buffer, digits.size())] = 0;
  return ReadDouble(buffer);
}

// The qualifier and number of the keyframe's "position"; false when absent.
bool ReadPosition(const CKeyFrame& kf, unsigned int& qualifier, double& number) {
  const CZPoolString text = kf.FindAttribute(kPosition);
  if (!text) return false;
  return CKeyFrame::ExtractValue(text, qualifier, number);
}

// ---------------------------------------------------------------------------
// Anchors
// ---------------------------------------------------------------------------

// Anchor numbers are relative; another qualifier is reported, the number kept.
double ParseAnchorNumber(const CZPoolString& text, const char* signature) {
  unsigned int type = KEYFRAME_RELATIVE;
  double number = 0.0;
  CKeyFrame::ExtractValue(text, type, number);
  QD_VERIFY(type == KEYFRAME_RELATIVE, signature);
  return number;
}

// False, and `anchor` untouched, when an attribute is missing.
bool ReadAnchor(const CXMLObject& element, Anchor& anchor, const char* signature) {
  const CZPoolString position = element.FindAttribute(kPosition);
  const CZPoolString value = element.FindAttribute(kValue);
  if (!position || !value) return false;
  anchor.position = ParseAnchorNumber(position, signature);
  anchor.value = ParseAnchorNumber(value, signature);
  return true;
}

// Counts every "Anchor" child and fills up to `capacity` of them; after one
// lacks an attribute no later one is stored. True when there are none, or
// when all fit and all were complete.
bool CollectAnchors(const CXMLObject& kf, Anchor* anchors, unsigned int capacity,
                    unsigned int& count, const char* signature) {
  count = 0;
  bool ok = true;
  for (const CXMLObject* child = kf.FindNextElement(kAnchor, nullptr); child;
       child = kf.FindNextElement(kAnchor, child)) {
    ++count;
    if (count > capacity || !anchors || !ok) continue;
    ok = ReadAnchor(*child, anchors[count - 1], signature);
  }
  return count == 0 || (ok && count <= capacity);
}

// Makes `element` an empty "Keyframe", or takes `xml` when it is one. `xml`
// is held first: it may be part of what is released.
void TakeKeyframeElement(CXMLObject& element, const CXMLObject& xml) {
  const CXMLObject source(xml);
  element.Free();
  if (source.IsName(kKeyframe)) {
    element.Reassign(source);
  } else {
    element.SetName(kKeyframe);
  }
}

// The inner parameter of a keyframe made from a bare type: an empty
// parameter of that type.
CXMLObject DefinitionOfType(unsigned int type) {
  CParam definition;
  definition.SetType(type);
  return definition;
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction and lifetime
// ---------------------------------------------------------------------------

CKeyFrame::CKeyFrame(unsigned int type)
    : CXMLObject(kKeyframe), m_Type(type), m_Definition(DefinitionOfType(type)) {}

CKeyFrame::CKeyFrame(unsigned int type, const CXMLObject& xml)
    : m_Type(type), m_Definition(DefinitionOfType(type)) {
  TakeKeyframeElement(*this, xml);
}

CKeyFrame::CKeyFrame(const CParam& param)
    : CXMLObject(kKeyframe), m_Type(param.GetType()), m_Definition(param) {}

CKeyFrame::CKeyFrame(const CParam& param, const CXMLObject& xml)
    : m_Type(param.GetType()), m_Definition(param) {
  TakeKeyframeElement(*this, xml);
}

CKeyFrame::CKeyFrame(const CKeyFrame& other)
    : CXMLObject(other), m_Type(other.m_Type), m_Definition(other.m_Definition) {}

// Quietly, as a parameter goes: keyframes in a list are dropped through Free.
CKeyFrame::~CKeyFrame() = default;

// The definition's handle is private and never watched; the parameter's
// own handle to the same element is. So it goes quietly, as in the
// destructor: a note would make the parameter's cache read its element again.
void CKeyFrame::Free() noexcept {
  CXMLObject::Free();
  m_Definition.~CXMLObject();
  new (&m_Definition) CXMLObject();
}

void CKeyFrame::Reset() {
  Free();
  SetName(kKeyframe);
}

bool CKeyFrame::Realloc() { return CXMLObject::Realloc(); }

// A parameter sharing the definition's element, as SetReference makes it.
CParam CKeyFrame::Definition() const {
  CParam definition;
  static_cast<CXMLObject&>(definition) = m_Definition;
  return definition;
}

bool CKeyFrame::Load(const CXMLObject& xml) {
  m_Definition.Free();
  TakeKeyframeElement(*this, xml);
  return true;
}

bool CKeyFrame::Store(CXMLObject& xml) const {
  xml.Reassign(*this);
  return true;
}

CZPoolString CKeyFrame::GetValue(const CZPoolString& name) const { return FindAttribute(name); }

// ---------------------------------------------------------------------------
// Typed value
// ---------------------------------------------------------------------------

bool CKeyFrame::GetValueDouble(double& v) const {
  return QD_VERIFY(m_Type == PARAM_UNDEFINED || m_Type == PARAM_DOUBLE,
                   "bool __cdecl qdcore::CKeyFrame::GetValueDouble(double &) const") &&
         ParamHelper::GetValueDouble(*this, kValue, v);
}

bool CKeyFrame::GetValueLong(long& v) const {
  return QD_VERIFY(m_Type == PARAM_UNDEFINED || m_Type == PARAM_LONG,
                   "bool __cdecl qdcore::CKeyFrame::GetValueLong(long &) const") &&
         ParamHelper::GetValueLong(*this, kValue, v);
}

bool CKeyFrame::GetValueBool(bool& v) const {
  return QD_VERIFY(m_Type == PARAM_BOOL,
                   "bool __cdecl qdcore::CKeyFrame::GetValueBool(bool &) const") &&
         ParamHelper::GetValueBool(*this, kValue, v);
}

bool CKeyFrame::GetValueString(CZPoolString& v) const {
  return QD_VERIFY(m_Type == PARAM_UNDEFINED || m_Type == PARAM_STRING,
                   "bool __cdecl qdcore::CKeyFrame::GetValueString(class qdcore::CZPoolString &) "
                   "const") &&
         ParamHelper::GetValueString(*this, kValue, v);
}

CZPoolString CKeyFrame::GetValueString() const {
  CZPoolString text;
  if (QD_VERIFY(
          m_Type == PARAM_UNDEFINED || m_Type == PARAM_STRING,
          "class qdcore::CZPoolString __cdecl qdcore::CKeyFrame::GetValueString(void) const")) {
    ParamHelper::GetValueString(*this, kValue, text);
  }
  return text;
}

unsigned int CKeyFrame::GetValueBinary(unsigned char* buffer, unsigned int size,
                                       unsigned int offset) const {
  if (!QD_VERIFY(m_Type == PARAM_UNDEFINED || m_Type == PARAM_BINARY,
                 "unsigned int __cdecl qdcore::CKeyFrame::GetValueBinary(unsigned char *,unsigned "
                 "int,unsigned int) const")) {
    return 0;
  }
  return ParamHelper::GetValueBinary(*this, kBinary, buffer, size, offset);
}

double CKeyFrame::GetValueDouble() const {
  switch (m_Type) {
    case PARAM_DOUBLE:
      return FindAttributeDouble(kValue, 0.0);
    case PARAM_LONG:
      return static_cast<double>(FindAttributeInt(kValue, 0));
    case PARAM_BOOL:
      return FindAttributeBool(kValue, false) ? 1.0 : 0.0;
    default:
      return 0.0;
  }
}

long CKeyFrame::GetValueLong() const {
  switch (m_Type) {
    case PARAM_DOUBLE:
      return RoundHalfAwayFromZero(FindAttributeDouble(kValue, 0.0));
    case PARAM_LONG:
      return FindAttributeInt(kValue, 0);
    case PARAM_BOOL:
      return FindAttributeBool(kValue, false) ? 1 : 0;
    default:
      QD_ILLEGAL_CODE_POINT("type needs to be PARAM_BOOL, PARAM_LONG or PARAM_DOUBLE",
                            "long __cdecl qdcore::CKeyFrame::GetValueLong(void) const");
      return 0;
  }
}

bool CKeyFrame::GetValueBool() const {
  switch (m_Type) {
    case PARAM_DOUBLE:
      return FindAttributeDouble(kValue, 0.0) != 0.0;
    case PARAM_LONG:
      return FindAttributeInt(kValue, 0) != 0;
    case PARAM_BOOL:
      return FindAttributeBool(kValue, false);
    default:
      return false;
  }
}

// The setters report a type mismatch but still write: a keyframe of an
// undefined type takes any value, and a wrong one is the caller's bug to see.

bool CKeyFrame::SetValueDouble(double v) {
  constexpr const char* kSignature = "bool __cdecl qdcore::CKeyFrame::SetValueDouble(double)";
  QD_VERIFY(m_Type == PARAM_UNDEFINED || m_Type == PARAM_DOUBLE, kSignature);
  double value = v;
  double minmax = 0.0;
  const CParam definition = Definition();
  // Written as the conditions that must hold, so that a NaN never passes a limit.
  if (definition.GetMinValueDouble(minmax) && !QD_VERIFY(value >= minmax, kSignature))
    value = minmax;
  if (definition.GetMaxValueDouble(minmax) && !QD_VERIFY(value <= minmax, kSignature))
    value = minmax;
  return ParamHelper::SetValueDouble(*this, kValue, value);
}

bool CKeyFrame::SetValueLong(long v) {
  constexpr const char* kSignature = "bool __cdecl qdcore::CKeyFrame::SetValueLong(long)";
  QD_VERIFY(m_Type == PARAM_UNDEFINED || m_Type == PARAM_LONG, kSignature);
  long value = ToInt32(v);
  long minmax = 0;
  const CParam definition = Definition();
  if (definition.GetMinValueLong(minmax) && !QD_VERIFY(value >= minmax, kSignature)) value = minmax;
  if (definition.GetMaxValueLong(minmax) && !QD_VERIFY(value <= minmax, kSignature)) value = minmax;
  return ParamHelper::SetValueLong(*this, kValue, value);
}

bool CKeyFrame::SetValueBool(bool v) {
  QD_VERIFY(m_Type == PARAM_BOOL, "bool __cdecl qdcore::CKeyFrame::SetValueBool(bool)");
  return ParamHelper::SetValueBool(*this, kValue, v);
}

bool CKeyFrame::SetValueString(const CZPoolString& s) {
  QD_VERIFY(m_Type == PARAM_UNDEFINED || m_Type == PARAM_STRING,
            "bool __cdecl qdcore::CKeyFrame::SetValueString(const class qdcore::CZPoolString &)");
  return ParamHelper::SetValueString(*this, kValue, s);
}

bool CKeyFrame::SetValueBinary(const unsigned char* data, unsigned int size) {
  QD_VERIFY(m_Type == PARAM_UNDEFINED || m_Type == PARAM_BINARY,
            "bool __cdecl qdcore::CKeyFrame::SetValueBinary(const unsigned char *,unsigned int)");
  return ParamHelper::SetValueBinary(*this, kBinary, data, size);
}

bool CKeyFrame::ExtractValue(const CZPoolString& text, unsigned int& qualifier, double& number) {
  std::u16string_view digits = text.view();
  const TimeSuffix* suffix = FindSuffix(text);
  if (suffix) digits.remove_suffix(suffix->text.size());
  qualifier = suffix ? suffix->qualifier : KEYFRAME_RELATIVE;
  number = ParseNumber(digits);
  if (suffix && suffix->percent) number /= 100.0;
  return true;
}

// ---------------------------------------------------------------------------
// Time and position
// ---------------------------------------------------------------------------

unsigned int CKeyFrame::GetType() const {
  const CZPoolString text = FindAttribute(kPosition);
  if (!text) return KEYFRAME_NO_TIME;
  const TimeSuffix* suffix = FindSuffix(text);
  return suffix ? suffix->qualifier : KEYFRAME_RELATIVE;
}

bool CKeyFrame::GetPosition(double& pos) const {
  unsigned int type = KEYFRAME_NO_TIME;
  double number = 0.0;
  if (!ReadPosition(*this, type, number)) return false;
  if (!QD_VERIFY(type == KEYFRAME_RELATIVE,
                 "bool __cdecl qdcore::CKeyFrame::GetPosition(double &) const")) {
    return false;
  }
  pos = number;
  return true;
}

bool CKeyFrame::GetTime(mtime& t) const {
  unsigned int type = KEYFRAME_NO_TIME;
  double number = 0.0;
  if (!ReadPosition(*this, type, number)) return false;
  if (!QD_VERIFY(type == KEYFRAME_ABSOLUTE || type == KEYFRAME_FIXED_ABSOLUTE,
                 "bool __cdecl qdcore::CKeyFrame::GetTime(class qdcore::mtime &) const")) {
    return false;
  }
  t = number;
  return true;
}

// An absolute time counts from the start, a negative one back from the end.
// On a clip shorter than the parameter's minimum duration, absolute times
// shrink with the clip while fixed ones keep their seconds (a negative fixed
// time then counts back from the end of the minimum duration).
mtime CKeyFrame::GetTime(const mtime& duration, const mtime& minDuration) const {
  constexpr const char* kSignature =
      "class qdcore::mtime __cdecl qdcore::CKeyFrame::GetTime(const class qdcore::mtime &,const "
      "class qdcore::mtime &) const";
  const unsigned int type = GetType();
  if (type == KEYFRAME_RELATIVE) {
    double position = 0.0;
    GetPosition(position);
    return position * duration;
  }
  mtime t;
  if (!GetTime(t)) {
    QD_ILLEGAL_CODE_POINT("GetTime - no valid time information", kSignature);
    return mtime::null;
  }
  if (duration >= minDuration) return t >= mtime::null ? t : duration + t;
  if (type == KEYFRAME_FIXED_ABSOLUTE) return t >= mtime::null ? t : minDuration + t;
  if (type == KEYFRAME_ABSOLUTE) {
    const mtime fromStart = t >= mtime::null ? t : minDuration + t;
    const double share = static_cast<double>(fromStart / static_cast<double>(minDuration));
    return share * duration;
  }
  QD_ILLEGAL_CODE_POINT("GetTime - unknown time value qualifier", kSignature);
  return mtime(0.0);
}

// Negative times are not folded here, unlike GetTime.
double CKeyFrame::GetPosition(const mtime& duration, const mtime& minDuration) const {
  const unsigned int type = GetType();
  if (type == KEYFRAME_RELATIVE) {
    double position = 0.0;
    GetPosition(position);
    return position;
  }
  if (type == KEYFRAME_ABSOLUTE || type == KEYFRAME_FIXED_ABSOLUTE) {
    mtime t;
    GetTime(t);
    const bool scaled = type == KEYFRAME_ABSOLUTE && !(duration < minDuration);
    const mtime& span = scaled ? duration : minDuration;
    return static_cast<double>(t / static_cast<double>(span));
  }
  QD_ILLEGAL_CODE_POINT("GetPosition - unknown time value qualifier",
                        "double __cdecl qdcore::CKeyFrame::GetPosition(const class qdcore::mtime "
                        "&,const class qdcore::mtime &) const");
  return 0.0;
}

bool CKeyFrame::SetPosition(double pos) { return SprintfAttribute(kPosition, u"%.12f", pos); }

bool CKeyFrame::SetTime(const mtime& t, bool fixed) {
  return SprintfAttribute(kPosition, u"%.12f%s", static_cast<double>(t), fixed ? u"fs" : u"s");
}

bool CKeyFrame::SetPositionValue(const CZPoolString& text) { return SetAttribute(kPosition, text); }

// ---------------------------------------------------------------------------
// Interpolation, time translation, anchors
// ---------------------------------------------------------------------------

unsigned int CKeyFrame::GetInterpolation() const {
  return CodeOf(FindAttribute(kInterpolation), kKeyframeInterpolationNames, INTERPOLATION_HOLD);
}

bool CKeyFrame::SetInterpolation(unsigned int code) {
  const CZPoolString* name = NameOf(code, kKeyframeInterpolationNames);
  return name && SetAttribute(kInterpolation, *name);
}

unsigned int CKeyFrame::GetTimeTranslation() const {
  return FindAttributeFlags(kTimeTranslation, kTimeTranslationNames,
                            static_cast<unsigned int>(std::size(kTimeTranslationNames)),
                            kFlagSeparator);
}

// No translation is no attribute: "Linear" is never written.
bool CKeyFrame::SetTimeTranslation(unsigned int flags) {
  if (flags == TIMETRANSLATION_LINEAR) {
    DeleteAttribute(kTimeTranslation);
    return true;
  }
  return SetAttribute(kTimeTranslation, flags, kTimeTranslationNames,
                      static_cast<unsigned int>(std::size(kTimeTranslationNames)), kFlagSeparator);
}

bool CKeyFrame::GetAnchors(Anchor* anchors, unsigned int capacity, unsigned int& count) const {
  return CollectAnchors(*this, anchors, capacity, count,
                        "bool __cdecl qdcore::CKeyFrame::GetAnchors(struct qdcore::Anchor "
                        "*,unsigned int,unsigned int &) const");
}

bool CKeyFrame::SetAnchors(const Anchor* anchors, unsigned int count) {
  while (const CXMLObject* old = std::as_const(*this).FindNextElement(kAnchor, nullptr)) {
    Delete(old);
  }
  if (!anchors || count == 0) return true;
  bool ok = true;
  for (unsigned int i = 0; i < count; ++i) {
    CXMLObject element(kAnchor);
    ok = ParamHelper::SetValueDouble(element, kPosition, anchors[i].position) && ok;
    ok = ParamHelper::SetValueDouble(element, kValue, anchors[i].value) && ok;
    ok = Add(element) && ok;
  }
  return ok;
}

// One anchor stands for both handles: the second is the same point measured
// back from the next keyframe.
bool CKeyFrame::GetBezierAnchors(double& x1, double& y1, double& x2, double& y2) const {
  Anchor handles[2] = {};
  unsigned int count = 0;
  if (!CollectAnchors(*this, handles, 2, count,
                      "bool __cdecl qdcore::CKeyFrame::GetBezierAnchors(double &,double &,double "
                      "&,double &) const") ||
      count == 0) {
    x1 = y1 = x2 = y2 = 0.0;
    return false;
  }
  x1 = handles[0].position;
  y1 = handles[0].value;
  if (count == 2) {
    x2 = handles[1].position;
    y2 = handles[1].value;
    return true;
  }
  y2 = y1;
  x2 = x1 < 0.0 ? x1 - 1.0 : -(1.0 - x1);
  return true;
}

}  // namespace qdcore
