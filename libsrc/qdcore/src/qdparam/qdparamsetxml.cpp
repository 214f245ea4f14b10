// CParamSet and XML: loading from and storing to a "Property" element,
// merging updates from another set or an XML fragment, and presets.
#include "qdformatnames.h"
#include "qdparam/paramset.h"
#include "qdparamindex.h"

namespace qdcore {

using namespace names;

namespace {

// The trace category and the levels that tell which operation dumped a set.
constexpr int kTraceCategory = 398;
constexpr int kLoadLevel = 5;
constexpr int kUpdateLevel = 6;
constexpr int kStoreLevel = 7;
constexpr int kPresetLevel = 8;

// The id an update addresses; an element without one addresses id 0.
unsigned long UpdateId(const CXMLObject& element) {
  return static_cast<unsigned long>(element.FindAttributeInt(kId, 0));
}

// Adds the parameter `xml` describes as the set's Add would, but loads it in
// its slot: a copy of a loaded parameter would clone every keyframe only to
// drop the originals. `blank` is an empty parameter to start the slot from.
bool AddLoaded(CParamList& list, const CParam& blank, const CXMLObject& xml) {
  if (!list.Add(blank)) return false;
  unsigned int count = 0;
  CParam& slot = list.GetArray(count)[count - 1];
  bool accepted = false;
  try {
    accepted = slot.Load(xml) && slot.GetID() >= 0;
  } catch (...) {
    list.Delete(count - 1);  // out of memory: no half-loaded parameter stays
    throw;
  }
  if (!accepted) list.Delete(count - 1);  // the set holds only what Add accepts
  return accepted;
}

// Parameters of a list by id while an update writes them: each lookup is
// what the set's Get(id) would answer at that moment, without a scan of
// the list per lookup.
class UpdateLookup {
 public:
  explicit UpdateLookup(CParamList& list) : m_list(list), m_ids(kId) {
    unsigned int count = 0;
    const CParam* params = list.GetArray(count);
    m_ids.Build(params, count);
  }

  // The position of the parameter with that id; -1 when none.
  long Find(unsigned long id) const { return m_ids.Find(IdText(id).view()); }
  CParam& At(long position) {
    unsigned int count = 0;
    return m_list.GetArray(count)[position];
  }
  // After the parameter at `position` was written or added.
  void Wrote(long position) {
    if (position < 0) return;
    unsigned int count = 0;
    const CParam* params = m_list.GetArray(count);
    m_ids.Refresh(params, count, static_cast<unsigned int>(position));
  }

 private:
  CParamList& m_list;
  ParamPositions m_ids;
};

// Calls `visit` for every child `name` of `xml`, in document order.
template <typename Visit>
void ForEachChild(const CXMLObject& xml, const CZPoolString& name, Visit visit) {
  for (const CXMLObject* child = xml.FindNextElement(name, nullptr); child;
       child = xml.FindNextElement(name, child)) {
    visit(*child);
  }
}

}  // namespace

// ---------------------------------------------------------------------------
// Load and store
// ---------------------------------------------------------------------------

// Loading goes on past a bad parameter so that the result covers them all,
// but a set is loaded whole or not at all.
bool CParamSet::Load(const CXMLObject& xml) {
  const CXMLObject source(xml);  // `xml` may be this set's own element
  Reset();
  if (!source.IsName(kProperty)) return false;
  bool ok = MergeAttributes(source, true);
  // Room for every parameter at once: growing step by step would move the
  // whole list again and again on documents with many thousands of them.
  if (const unsigned int count = source.GetNElements(kParameter); count > 0) {
    m_Params.CZMemory::Realloc(std::uint64_t{count} * sizeof(CParam));
  }
  const CParam blank;
  ForEachChild(source, kParameter, [&](const CXMLObject& child) {
    ok = AddLoaded(m_Params, blank, child) && ok;
  });
  if (!ok) Reset();
  Display(kTraceCategory, kLoadLevel);
  return ok;
}

bool CParamSet::Load(const CZProperty& property) {
  const CZXMLProperty wrapper(property);
  if (!wrapper.IsValid()) return false;
  const CXMLObject data = wrapper.GetPropertyData();
  const CXMLObject* set = data.FindNextElement(kProperty, nullptr);
  return set && Load(*set);
}

// A parameter that cannot be stored is left out rather than failing the set.
bool CParamSet::Store(CXMLObject& out) const {
  out.Reassign(*this);
  for (const CParam* param = FindNextParam(nullptr); param; param = FindNextParam(param)) {
    CXMLObject stored;
    if (param->Store(stored)) out.Add(stored);
  }
  Display(kTraceCategory, kStoreLevel);
  return true;
}

// ---------------------------------------------------------------------------
// Updates
// ---------------------------------------------------------------------------

// Parameters are merged, never replaced, whatever `flag` says: a whole set
// carries every parameter's full state, so merging it is complete already.
// Indexes rather than pointers walk `other`, which may be this set growing.
bool CParamSet::Update(const CParamSet& other, bool /*flag*/) {
  bool ok = true;
  UpdateLookup lookup(m_Params);
  const unsigned int count = other.GetSize();
  for (unsigned int i = 0; i < count; ++i) {
    unsigned int size = 0;
    const CParam& incoming = other.m_Params.GetArray(size)[i];
    if (const long found = lookup.Find(static_cast<unsigned long>(incoming.GetID())); found >= 0) {
      ok = lookup.At(found).Update(incoming, false) && ok;
      lookup.Wrote(found);
      continue;
    }
    CParam copy(incoming);
    copy.Realloc();
    ok = Add(copy) && ok;
    lookup.Wrote(static_cast<long>(GetSize()) - 1);
  }
  Display(kTraceCategory, kUpdateLevel);
  return ok;
}

// Unknown "Parameter" children are new parameters; unknown "Value" children
// have nothing to set and are ignored.
bool CParamSet::Update(const CXMLObject& xml, bool flag) {
  const CXMLObject source(xml);  // `xml` may live inside what a reset releases
  bool ok = true;
  if (source.IsName(kProperty)) ok = MergeAttributes(source, true);
  const CParam blank;
  UpdateLookup lookup(m_Params);
  ForEachChild(source, kParameter, [&](const CXMLObject& child) {
    const long found = lookup.Find(UpdateId(child));
    ok = (found >= 0 ? lookup.At(found).Update(child, flag) : AddLoaded(m_Params, blank, child)) &&
         ok;
    lookup.Wrote(found >= 0 ? found : static_cast<long>(GetSize()) - 1);
  });
  ForEachChild(source, kValueElement, [&](const CXMLObject& child) {
    const long found = lookup.Find(UpdateId(child));
    if (found < 0) return;
    ok = lookup.At(found).Update(child, flag) && ok;
    lookup.Wrote(found);
  });
  if (!ok) Reset();
  Display(kTraceCategory, kUpdateLevel);
  return ok;
}

bool CParamSet::Update(const CParam& /*param*/, bool /*flag*/) { return true; }

// ---------------------------------------------------------------------------
// Presets
// ---------------------------------------------------------------------------

bool CParamSet::CreatePreset(CXMLObject& out) const {
  out.SetName(kPreset);
  for (const CParam* param = FindNextParam(nullptr); param; param = FindNextParam(param)) {
    CXMLObject preset;
    if (param->CreatePreset(preset)) out.Add(preset);
  }
  Display(kTraceCategory, kPresetLevel);
  return true;
}

bool CParamSet::CreatePreset(CXMLObject& /*out*/, const CParamSet& /*reference*/) const {
  return true;
}

}  // namespace qdcore
