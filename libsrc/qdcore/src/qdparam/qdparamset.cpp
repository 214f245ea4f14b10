// CParamSet: lifetime, time line, lookup, editing and alpha handling.
#include "qdparam/paramset.h"

#include <cstdint>
#include <string_view>
#include <utility>

#include "codetable.h"
#include "qdassert.h"
#include "qdformatnames.h"
#include "qdparamindex.h"

namespace qdcore {

using namespace names;

namespace {

constexpr double kDefaultStartTime = 0.0;
constexpr double kDefaultDuration = 1.0;

// What the set promises of every parameter it holds.
bool IsStorable(const CParam& param) {
  return static_cast<bool>(param) && param.GetID() >= 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// Lifetime
// ---------------------------------------------------------------------------

CParamSet::CParamSet() : CXMLObject(kProperty) {
  *m_Duration = kDefaultDuration;
  *m_StartTime = kDefaultStartTime;
}

CParamSet::CParamSet(const CXMLObject& xml) { Load(xml); }

CParamSet::CParamSet(const CZProperty& property) { Load(property); }

CParamSet::~CParamSet() { Free(); }

void CParamSet::Reset() {
  Free();
  SetName(kProperty);
  *m_Duration = kDefaultDuration;
  *m_StartTime = kDefaultStartTime;
}

void CParamSet::Free() {
  CXMLObject::Free();
  m_Params.Free();
  m_Duration.Free();
  m_StartTime.Free();
}

bool CParamSet::Realloc() {
  const bool element = CXMLObject::Realloc();
  const bool params = m_Params.Realloc();
  const bool duration = m_Duration.Realloc(CZMemory::kKeepSize);
  const bool start = m_StartTime.Realloc(CZMemory::kKeepSize);
  return element && params && duration && start;
}

// ---------------------------------------------------------------------------
// Time line
// ---------------------------------------------------------------------------

mtime CParamSet::GetStartTime() const { return *m_StartTime; }
void CParamSet::SetStartTime(const mtime& start) { *m_StartTime = start; }
mtime CParamSet::GetDuration() const { return *m_Duration; }
void CParamSet::SetDuration(const mtime& duration) { *m_Duration = duration; }

// ---------------------------------------------------------------------------
// Lookup
// ---------------------------------------------------------------------------

// Lookups run per frame: an index answers once the set stops changing.
const CParam* CParamSet::Get(const CZPoolString& attribute, const CZPoolString& value) const {
  unsigned int count = 0;
  const CParam* params = m_Params.GetArray(count);
  return FindParam(params, count, attribute, value.view());
}

CParam* CParamSet::Get(const CZPoolString& attribute, const CZPoolString& value) {
  return const_cast<CParam*>(std::as_const(*this).Get(attribute, value));
}

const CParam* CParamSet::Get(const CZPoolString& name) const { return Get(kName, name); }

CParam* CParamSet::Get(const CZPoolString& name) { return Get(kName, name); }

const CParam* CParamSet::Get(unsigned long id) const {
  const IdText text(id);
  unsigned int count = 0;
  const CParam* params = m_Params.GetArray(count);
  return FindParam(params, count, kId, text.view());
}

CParam* CParamSet::Get(unsigned long id) {
  return const_cast<CParam*>(std::as_const(*this).Get(id));
}

// Pointers are compared as addresses: one from elsewhere is simply not found.
int CParamSet::IndexOf(const CParam* param) const noexcept {
  unsigned int count = 0;
  const CParam* first = m_Params.GetArray(count);
  if (!param || !first) return -1;
  const auto address = reinterpret_cast<std::uintptr_t>(param);
  const auto begin = reinterpret_cast<std::uintptr_t>(first);
  if (address < begin) return -1;
  const std::uintptr_t index = (address - begin) / sizeof(CParam);
  return index < count ? static_cast<int>(index) : -1;
}

const CParam* CParamSet::FindNextParam(const CParam* previous) const {
  unsigned int count = 0;
  const CParam* params = m_Params.GetArray(count);
  if (!previous) return params;
  const int index = IndexOf(previous);
  if (index < 0 || static_cast<unsigned int>(index) + 1 >= count) return nullptr;
  return &params[index + 1];
}

CParam* CParamSet::FindNextParam(CParam* previous) {
  return const_cast<CParam*>(std::as_const(*this).FindNextParam(previous));
}

unsigned int CParamSet::GetSize() const {
  unsigned int count = 0;
  m_Params.GetArray(count);
  return count;
}

// ---------------------------------------------------------------------------
// Editing
// ---------------------------------------------------------------------------

bool CParamSet::Add(const CParam& param) { return IsStorable(param) && m_Params.Add(param); }

bool CParamSet::Insert(const CParam& param, unsigned int index) {
  if (!IsStorable(param)) return false;
  return index < GetSize() ? m_Params.Insert(param, index) : m_Params.Add(param);
}

bool CParamSet::Insert(const CParam& param, const CParam* after) {
  const int index = IndexOf(after);
  return Insert(param, static_cast<unsigned int>(index + 1));
}

bool CParamSet::Remove(unsigned int index) {
  if (index < GetSize()) return m_Params.Delete(index);
  QD_ILLEGAL_CODE_POINT("Remove - out of boundary access",
                        "bool __cdecl qdcore::CParamSet::Remove(unsigned int)");
  return false;
}

bool CParamSet::Remove(const CParam* param) {
  const int index = IndexOf(param);
  return index >= 0 && Remove(static_cast<unsigned int>(index));
}

// ---------------------------------------------------------------------------
// Alpha handling
// ---------------------------------------------------------------------------

bool CParamSet::SetAlphaHandling(unsigned int type) {
  if (type != ALPHA_NONE) {
    if (const CZPoolString* spelling = NameOf(type, kAlphaNames)) {
      SetAttribute(kAlpha, *spelling);
      return true;
    }
    QD_ILLEGAL_CODE_POINT("SetAlphaHandling - invalid type specified",
                          "bool __cdecl qdcore::CParamSet::SetAlphaHandling(unsigned int)");
  }
  DeleteAttribute(kAlpha);
  return true;
}

unsigned int CParamSet::GetAlphaHandling() const {
  return CodeOf(FindAttribute(kAlpha), kAlphaNames, ALPHA_NONE);
}

}  // namespace qdcore
