// CParam: the definition and static value of one typed parameter, kept in its
// XML element "Parameter".
#include <atomic>
#include <iterator>
#include <utility>

#include "codetable.h"
#include "paramhelper.h"
#include "qdassert.h"
#include "qdformatnames.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"

namespace qdcore {

using namespace names;

namespace {

// ---------------------------------------------------------------------------
// Type requirements
// ---------------------------------------------------------------------------

struct TypeRequirement {
  unsigned int type;
  const char* expression;  // what the report says should have held
};

constexpr TypeRequirement kNeedsDouble{PARAM_DOUBLE, "type == PARAM_DOUBLE"};
constexpr TypeRequirement kNeedsLong{PARAM_LONG, "type == PARAM_LONG"};
constexpr TypeRequirement kNeedsBool{PARAM_BOOL, "type == PARAM_BOOL"};
constexpr TypeRequirement kNeedsString{PARAM_STRING, "type == PARAM_STRING"};
constexpr TypeRequirement kNeedsSubProp{PARAM_SUBPROP, "type == PARAM_SUBPROP"};

bool Requires(const CParam& param, const TypeRequirement& need, const char* signature) {
  if (param.GetType() == need.type) return true;
  QD_ASSUMPTION_FAILED(need.expression, signature);
  return false;
}

// Typed access to one attribute of a parameter of the required type.
bool GetDouble(const CParam& p, const CZPoolString& name, double& v, const char* signature) {
  return Requires(p, kNeedsDouble, signature) && ParamHelper::GetValueDouble(p, name, v);
}

bool SetDouble(CParam& p, const CZPoolString& name, double v, const char* signature) {
  return Requires(p, kNeedsDouble, signature) && ParamHelper::SetValueDouble(p, name, v);
}

bool GetLong(const CParam& p, const CZPoolString& name, long& v, const char* signature) {
  return Requires(p, kNeedsLong, signature) && ParamHelper::GetValueLong(p, name, v);
}

bool SetLong(CParam& p, const CZPoolString& name, long v, const char* signature) {
  return Requires(p, kNeedsLong, signature) && ParamHelper::SetValueLong(p, name, v);
}

// The cached type, which a const GetType on another thread may be filling in.
unsigned int CachedTypeOf(unsigned int& type) noexcept {
  return std::atomic_ref<unsigned int>(type).load(std::memory_order_relaxed);
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction and lifetime
// ---------------------------------------------------------------------------

CParam::CParam() : CXMLObject(kParameter), m_Type(PARAM_UNDEFINED) {
  *m_MinDuration = mtime::unassigned;
}

CParam::CParam(unsigned int type, const CZPoolString& name, long id) : CParam() {
  SetType(type);
  ParamHelper::SetValueString(*this, kName, name);
  ParamHelper::SetValueLong(*this, kId, id);
}

CParam::CParam(const CXMLObject& xml) : CParam() { Load(xml); }

CParam::CParam(const CParam& other)
    : CXMLObject(other),
      m_KeyFrameList(other.m_KeyFrameList),
      m_MinDuration(other.m_MinDuration),
      m_Type(CachedTypeOf(other.m_Type)) {}

CParam& CParam::operator=(const CParam& other) {
  DropEvalCache();
  CXMLObject::operator=(other);
  m_KeyFrameList = other.m_KeyFrameList;
  m_MinDuration = other.m_MinDuration;
  m_Type = CachedTypeOf(other.m_Type);
  return *this;
}

// A handle going away changes nothing another handle to its storage sees,
// so it tells no watch (parameters in a list are dropped through Free).
// Its own cache and watch go with it.
CParam::~CParam() {
  DropEvalCache();
  DropEvalWatch();
}

void CParam::Free() noexcept {
  DropEvalCache();
  DropEvalWatch();
  CXMLObject::Free();
  m_KeyFrameList.Free();
  m_MinDuration.Free();
}

// The released time block reads as mtime::unassigned, and so does every
// copy of it, which costs no block: a loaded parameter's keyframes each
// carry a copy of its definition.
void CParam::Reset() {
  Free();
  CXMLObject::SetName(kParameter);
  m_Type = PARAM_UNDEFINED;
}

bool CParam::Realloc() {
  const bool element = CXMLObject::Realloc();
  const bool keyframes = m_KeyFrameList.Realloc();
  const bool duration = m_MinDuration.Realloc(CZMemory::kKeepSize);
  return element && keyframes && duration;
}

bool CParam::SetReference(const CParam& p) {
  DropEvalCache();
  CXMLObject::operator=(p);
  m_MinDuration = p.m_MinDuration;
  m_Type = PARAM_UNDEFINED;
  m_KeyFrameList.Free();
  return true;
}

// ---------------------------------------------------------------------------
// Type
// ---------------------------------------------------------------------------

// Concurrent const calls may fill the cached type at once, with the same value.
unsigned int CParam::GetType() const {
  const unsigned int known = CachedTypeOf(m_Type);
  if (known != PARAM_UNDEFINED) return known;
  const CZPoolString text = FindAttribute(kType);
  const unsigned int type = text ? CodeOf(text, kTypeNames, PARAM_UNDEFINED) : PARAM_DOUBLE;
  std::atomic_ref<unsigned int>(m_Type).store(type, std::memory_order_relaxed);
  return type;
}

// The cached type is not updated: it keeps what was read before, and the
// report says that changing a known type is a mistake.
bool CParam::SetType(unsigned int type) {
  QD_VERIFY(m_Type == PARAM_UNDEFINED, "bool __cdecl qdcore::CParam::SetType(unsigned int)");
  if (type == PARAM_DOUBLE) {
    DeleteAttribute(kType);
    return true;
  }
  if (type == PARAM_SUBPROP) return false;
  const CZPoolString* name = NameOf(type, kTypeNames);
  return name && SetAttribute(kType, *name);
}

// ---------------------------------------------------------------------------
// Limits, granularity, inactive value
// ---------------------------------------------------------------------------

bool CParam::GetMinValueDouble(double& v) const {
  return GetDouble(*this, kMin, v,
                   "bool __cdecl qdcore::CParam::GetMinValueDouble(double &) const");
}

bool CParam::SetMinValueDouble(double v) {
  return SetDouble(*this, kMin, v, "bool __cdecl qdcore::CParam::SetMinValueDouble(double)");
}

bool CParam::GetMinValueLong(long& v) const {
  return GetLong(*this, kMin, v, "bool __cdecl qdcore::CParam::GetMinValueLong(long &) const");
}

bool CParam::SetMinValueLong(long v) {
  return SetLong(*this, kMin, v, "bool __cdecl qdcore::CParam::SetMinValueLong(long)");
}

bool CParam::GetMaxValueDouble(double& v) const {
  return GetDouble(*this, kMax, v,
                   "bool __cdecl qdcore::CParam::GetMaxValueDouble(double &) const");
}

bool CParam::SetMaxValueDouble(double v) {
  return SetDouble(*this, kMax, v, "bool __cdecl qdcore::CParam::SetMaxValueDouble(double)");
}

bool CParam::GetMaxValueLong(long& v) const {
  return GetLong(*this, kMax, v, "bool __cdecl qdcore::CParam::GetMaxValueLong(long &) const");
}

bool CParam::SetMaxValueLong(long v) {
  return SetLong(*this, kMax, v, "bool __cdecl qdcore::CParam::SetMaxValueLong(long)");
}

bool CParam::GetGranularityDouble(double& v) const {
  return GetDouble(*this, kGranularity, v,
                   "bool __cdecl qdcore::CParam::GetGranularityDouble(double &) const");
}

bool CParam::SetGranularityDouble(double v) {
  return SetDouble(*this, kGranularity, v,
                   "bool __cdecl qdcore::CParam::SetGranularityDouble(double)");
}

bool CParam::GetGranularityLong(long& v) const {
  return GetLong(*this, kGranularity, v,
                 "bool __cdecl qdcore::CParam::GetGranularityLong(long &) const");
}

bool CParam::SetGranularityLong(long v) {
  return SetLong(*this, kGranularity, v, "bool __cdecl qdcore::CParam::SetGranularityLong(long)");
}

bool CParam::ResetMinValue() { return DeleteAttribute(kMin); }

bool CParam::ResetMaxValue() { return DeleteAttribute(kMax); }

bool CParam::ResetGranularity() { return DeleteAttribute(kGranularity); }

bool CParam::GetInactiveValueDouble(double& v) const {
  return GetDouble(*this, kInactive, v,
                   "bool __cdecl qdcore::CParam::GetInactiveValueDouble(double &) const");
}

bool CParam::SetInactiveValueDouble(double v) {
  return SetDouble(*this, kInactive, v,
                   "bool __cdecl qdcore::CParam::SetInactiveValueDouble(double)");
}

bool CParam::GetInactiveValueLong(long& v) const {
  return GetLong(*this, kInactive, v,
                 "bool __cdecl qdcore::CParam::GetInactiveValueLong(long &) const");
}

bool CParam::SetInactiveValueLong(long v) {
  return SetLong(*this, kInactive, v, "bool __cdecl qdcore::CParam::SetInactiveValueLong(long)");
}

bool CParam::GetInactiveValueBool(bool& v) const {
  return Requires(*this, kNeedsBool,
                  "bool __cdecl qdcore::CParam::GetInactiveValueBool(bool &) const") &&
         ParamHelper::GetValueBool(*this, kInactive, v);
}

bool CParam::SetInactiveValueBool(bool v) {
  return Requires(*this, kNeedsBool, "bool __cdecl qdcore::CParam::SetInactiveValueBool(bool)") &&
         ParamHelper::SetValueBool(*this, kInactive, v);
}

bool CParam::GetInactiveValueString(CZPoolString& v) const {
  return Requires(*this, kNeedsString,
                  "bool __cdecl qdcore::CParam::GetInactiveValueString(class qdcore::CZPoolString "
                  "&) const") &&
         ParamHelper::GetValueString(*this, kInactive, v);
}

bool CParam::SetInactiveValueString(const CZPoolString& v) {
  return Requires(*this, kNeedsString,
                  "bool __cdecl qdcore::CParam::SetInactiveValueString(const class "
                  "qdcore::CZPoolString &)") &&
         ParamHelper::SetValueString(*this, kInactive, v);
}

// ---------------------------------------------------------------------------
// Static value
// ---------------------------------------------------------------------------

bool CParam::GetValueDouble(double& v) const {
  return GetDouble(*this, kValue, v, "bool __cdecl qdcore::CParam::GetValueDouble(double &) const");
}

bool CParam::GetValueLong(long& v) const {
  return GetLong(*this, kValue, v, "bool __cdecl qdcore::CParam::GetValueLong(long &) const");
}

bool CParam::GetValueBool(bool& v) const {
  return Requires(*this, kNeedsBool, "bool __cdecl qdcore::CParam::GetValueBool(bool &) const") &&
         ParamHelper::GetValueBool(*this, kValue, v);
}

bool CParam::GetValueString(CZPoolString& v) const {
  return Requires(*this, kNeedsString,
                  "bool __cdecl qdcore::CParam::GetValueString(class qdcore::CZPoolString &) "
                  "const") &&
         ParamHelper::GetValueString(*this, kValue, v);
}

bool CParam::SetValueDouble(double v) {
  constexpr const char* kSignature = "bool __cdecl qdcore::CParam::SetValueDouble(double)";
  if (!Requires(*this, kNeedsDouble, kSignature)) return false;
  double dValue = v;
  double minmax = 0.0;
  // Written as the conditions that must hold, so that a NaN never passes a limit.
  if (GetMinValueDouble(minmax) && !QD_VERIFY(dValue >= minmax, kSignature)) dValue = minmax;
  if (GetMaxValueDouble(minmax) && !QD_VERIFY(dValue <= minmax, kSignature)) dValue = minmax;
  return ParamHelper::SetValueDouble(*this, kValue, dValue);
}

bool CParam::SetValueLong(long v) {
  constexpr const char* kSignature = "bool __cdecl qdcore::CParam::SetValueLong(long)";
  if (!Requires(*this, kNeedsLong, kSignature)) return false;
  long lValue = ToInt32(v);
  long minmax = 0;
  if (GetMinValueLong(minmax) && !QD_VERIFY(lValue >= minmax, kSignature)) lValue = minmax;
  if (GetMaxValueLong(minmax) && !QD_VERIFY(lValue <= minmax, kSignature)) lValue = minmax;
  return ParamHelper::SetValueLong(*this, kValue, lValue);
}

bool CParam::SetValueBool(bool v) {
  return Requires(*this, kNeedsBool, "bool __cdecl qdcore::CParam::SetValueBool(bool)") &&
         ParamHelper::SetValueBool(*this, kValue, v);
}

bool CParam::SetValueString(const CZPoolString& s) {
  return Requires(*this, kNeedsString,
                  "bool __cdecl qdcore::CParam::SetValueString(const class qdcore::CZPoolString "
                  "&)") &&
         ParamHelper::SetValueString(*this, kValue, s);
}

bool CParam::GetValueProperty(CXMLObject& out) const {
  if (!Requires(*this, kNeedsSubProp,
                "bool __cdecl qdcore::CParam::GetValueProperty(class qdcore::CXMLObject &) "
                "const")) {
    return false;
  }
  const CXMLObject* tree = FindNextElement(kPropertys, nullptr);
  return tree && out.Reassign(*tree);
}

bool CParam::SetValueProperty(const CXMLObject& prop) {
  if (!prop.IsName(kPropertys)) return false;
  CXMLObject copy(prop);  // taken first: `prop` may be the child replaced here
  copy.Realloc();
  if (const CXMLObject* old = std::as_const(*this).FindNextElement(kPropertys, nullptr)) {
    Delete(old);
  }
  return CXMLObject::Add(copy);
}

// A binary getter of another type reports and still reads.
unsigned int CParam::GetValueBinary(unsigned char* buffer, unsigned int size,
                                    unsigned int offset) const {
  QD_VERIFY(GetType() == PARAM_BINARY,
            "unsigned int __cdecl qdcore::CParam::GetValueBinary(unsigned char *,unsigned "
            "int,unsigned int) const");
  return ParamHelper::GetValueBinary(*this, kBinary, buffer, size, offset);
}

CZMemory CParam::GetValueBinary() const {
  QD_VERIFY(GetType() == PARAM_BINARY,
            "class qdcore::CZMemory __cdecl qdcore::CParam::GetValueBinary(void) const");
  const CXMLObject* data = FindNextElement(kBinary, nullptr);
  const std::uint64_t size = data ? data->GetDataBinarySize() : 0;
  CZMemory block;
  if (!block.Alloc(size)) return CZMemory::pnull;
  const std::uint64_t read =
      size ? data->GetDataBinary(static_cast<unsigned char*>(static_cast<void*>(block)), size) : 0;
  if (read != size) return CZMemory::pnull;
  return block;
}

bool CParam::SetValueBinary(const unsigned char* data, unsigned int size) {
  return ParamHelper::SetValueBinary(*this, kBinary, data, size);
}

bool CParam::SetValueBinary(const CZMemory& m) {
  const auto* data = static_cast<const unsigned char*>(static_cast<const void*>(m));
  return ParamHelper::SetValueBinary(*this, kBinary, data, m.GetSize());
}

// ---------------------------------------------------------------------------
// Any attribute by name
// ---------------------------------------------------------------------------

CZPoolString CParam::GetValue(const CZPoolString& name) const { return FindAttribute(name); }

bool CParam::SetValue(const CZPoolString& name, const CZPoolString& text) {
  return SetAttribute(name, text);
}

bool CParam::GetValueBool(const CZPoolString& name, bool& v) const {
  return ParamHelper::GetValueBool(*this, name, v);
}

bool CParam::GetValueDouble(const CZPoolString& name, double& v) const {
  return ParamHelper::GetValueDouble(*this, name, v);
}

bool CParam::GetValueLong(const CZPoolString& name, long& v) const {
  return ParamHelper::GetValueLong(*this, name, v);
}

bool CParam::GetValueString(const CZPoolString& name, CZPoolString& v) const {
  return ParamHelper::GetValueString(*this, name, v);
}

bool CParam::SetValueBool(const CZPoolString& name, bool v) {
  return ParamHelper::SetValueBool(*this, name, v);
}

bool CParam::SetValueDouble(const CZPoolString& name, double v) {
  return ParamHelper::SetValueDouble(*this, name, v);
}

bool CParam::SetValueLong(const CZPoolString& name, long v) {
  return ParamHelper::SetValueLong(*this, name, v);
}

bool CParam::SetValueString(const CZPoolString& name, const CZPoolString& s) {
  return ParamHelper::SetValueString(*this, name, s);
}

// ---------------------------------------------------------------------------
// Identity and flags
// ---------------------------------------------------------------------------

CZPoolString CParam::GetName() const {
  CZPoolString name;
  ParamHelper::GetValueString(*this, kName, name);
  return name;
}

bool CParam::SetName(const CZPoolString& name) {
  return ParamHelper::SetValueString(*this, kName, name);
}

long CParam::GetID() const {
  long id = -1;  // 0xFFFFFFFF as a 32-bit number: no id
  ParamHelper::GetValueLong(*this, kId, id);
  return id;
}

bool CParam::SetID(long id) { return ParamHelper::SetValueLong(*this, kId, id); }

bool CParam::GetInactiveStatus(bool& inactive) const {
  bool active = false;
  if (!ParamHelper::GetValueBool(*this, kActive, active)) return false;
  inactive = !active;
  return true;
}

bool CParam::SetInactiveStatus(bool inactive) {
  return ParamHelper::SetValueBool(*this, kActive, !inactive);
}

bool CParam::GetKeyFrameStatus() const { return FindAttributeBool(kUseKeyframe, false); }

// A property tree is never animated; asking for it is not an error.
bool CParam::SetKeyFrameStatus(bool on) {
  if (GetType() == PARAM_SUBPROP) return true;
  return ParamHelper::SetValueBool(*this, kUseKeyframe, on);
}

unsigned int CParam::GetAllowedInterpolation() const {
  const unsigned int flags =
      FindAttributeFlags(kInterpolation, kInterpolationNames,
                         static_cast<unsigned int>(std::size(kInterpolationNames)), kFlagSeparator);
  return flags ? flags : INTERPOLATION_DEFAULT_ALLOWED;
}

bool CParam::SetAllowedInterpolation(unsigned int flags) {
  if (flags == 0) {
    DeleteAttribute(kInterpolation);
    return true;
  }
  return SetAttribute(kInterpolation, flags, kInterpolationNames,
                      static_cast<unsigned int>(std::size(kInterpolationNames)), kFlagSeparator);
}

unsigned int CParam::GetAlphaHandling() const {
  return CodeOf(FindAttribute(kAlpha), kAlphaNames, ALPHA_NONE);
}

// An unknown code is reported and treated as none.
bool CParam::SetAlphaHandling(unsigned int code) {
  if (const CZPoolString* name = NameOf(code, kAlphaNames)) return SetAttribute(kAlpha, *name);
  if (code != ALPHA_NONE) {
    QD_ILLEGAL_CODE_POINT("SetAlphaHandling - invalid type specified",
                          "bool __cdecl qdcore::CParam::SetAlphaHandling(unsigned int)");
  }
  DeleteAttribute(kAlpha);
  return true;
}

unsigned int CParam::GetBinaryInterpolationType() const {
  return CodeOf(FindAttribute(kBinaryInterpolationType), kBinaryInterpolationNames,
                BINARY_INTERPOLATION_NONE);
}

unsigned int CParam::GetExtrapolationBefore() const {
  return CodeOf(FindAttribute(kExtrapolateBefore), kExtrapolationNames, EXTRAPOLATION_HOLD);
}

unsigned int CParam::GetExtrapolationAfter() const {
  return CodeOf(FindAttribute(kExtrapolateAfter), kExtrapolationNames, EXTRAPOLATION_HOLD);
}

namespace {

// An unknown code is reported and treated as Hold, which is no attribute.
bool WriteExtrapolation(CParam& param, const CZPoolString& attribute, unsigned int code,
                        const char* signature) {
  const CZPoolString* name = NameOf(code, kExtrapolationNames);
  if (name && code != EXTRAPOLATION_HOLD) return param.SetValue(attribute, *name);
  if (!name) QD_ILLEGAL_CODE_POINT("SetExtrapolation - invalid mode specified", signature);
  param.DeleteAttribute(attribute);
  return true;
}

}  // namespace

bool CParam::SetExtrapolationBefore(unsigned int code) {
  return WriteExtrapolation(*this, kExtrapolateBefore, code,
                            "bool __cdecl qdcore::CParam::SetExtrapolationBefore(unsigned int)");
}

bool CParam::SetExtrapolationAfter(unsigned int code) {
  return WriteExtrapolation(*this, kExtrapolateAfter, code,
                            "bool __cdecl qdcore::CParam::SetExtrapolationAfter(unsigned int)");
}

unsigned int CParam::GetTimeTranslation() const {
  return FindAttribute(kTimeTranslation) == kEaseInOut ? TIMETRANSLATION_EASEINOUT
                                                       : TIMETRANSLATION_LINEAR;
}

bool CParam::SetTimeTranslation(unsigned int flags) {
  if (flags == TIMETRANSLATION_EASEINOUT) {
    SetAttribute(kTimeTranslation, kEaseInOut);
  } else {
    DeleteAttribute(kTimeTranslation);
  }
  return true;
}

}  // namespace qdcore
