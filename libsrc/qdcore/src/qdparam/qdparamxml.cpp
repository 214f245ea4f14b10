// CParam and XML: loading from and storing to "Parameter" elements, updates
// from parameters, "Value" and "Preset" elements, and presets.
#include <cstdint>

#include "qdassert.h"
#include "qdformatnames.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"

namespace qdcore {

using namespace names;

namespace {

// Limits and the inactive value an update takes over when the source has them.
const CZPoolString kCopiedWhenPresent[] = {kInactive, kMin, kMax};

// Adds a private copy of every child `name` of `from` (of the first one only
// when `firstOnly`); false when an addition fails.
bool CopyChildren(const CXMLObject& from, CXMLObject& to, const CZPoolString& name,
                  bool firstOnly) {
  bool ok = true;
  for (const CXMLObject* child = from.FindNextElement(name, nullptr); child;
       child = firstOnly ? nullptr : from.FindNextElement(name, child)) {
    CXMLObject copy(*child);
    copy.Realloc();
    ok = to.Add(copy) && ok;
  }
  return ok;
}

// Removes the first child `name`, if any.
void DeleteFirstChild(CXMLObject& xml, const CZPoolString& name) {
  xml.Delete(xml.FindNextElement(name, nullptr));
}

// An attribute that is already absent is as deleted as it can be.
bool RemoveAttribute(CXMLObject& xml, const CZPoolString& name) {
  return xml.DeleteAttribute(name) || !xml.HasAttribute(name);
}

// The element an update takes its values from: the element itself for a
// parameter or a value, the parameter of the same id inside a preset.
const CXMLObject* FindUpdateSource(const CXMLObject& xml, long id) {
  if (xml.IsName(kParameter) || xml.IsName(kValueElement)) return &xml;
  if (!xml.IsName(kPreset)) return nullptr;
  for (const CXMLObject* child = xml.FindNextElement(kParameter, nullptr); child;
       child = xml.FindNextElement(kParameter, child)) {
    if (child->FindAttributeInt(kId, 0x7FFFFFFF) == id) return child;
  }
  return nullptr;
}

bool SameBezierAnchors(const CKeyFrame& a, const CKeyFrame& b) {
  double a1 = 0, b1 = 0, a2 = 0, b2 = 0, c1 = 0, d1 = 0, c2 = 0, d2 = 0;
  if (!a.GetBezierAnchors(a1, b1, a2, b2) || !b.GetBezierAnchors(c1, d1, c2, d2)) return false;
  return a1 == c1 && b1 == d1 && a2 == c2 && b2 == d2;
}

// Whether a keyframe stands as it does in the reference: the same position,
// value and interpolation texts and, for a Bezier segment, the same handles.
bool SameKeyFrame(const CKeyFrame& kf, const CKeyFrame& reference) {
  for (const CZPoolString* name : {&kPosition, &kValue, &kInterpolation}) {
    if (kf.FindAttribute(*name) != reference.FindAttribute(*name)) return false;
  }
  return kf.GetInterpolation() != INTERPOLATION_BEZIER || SameBezierAnchors(kf, reference);
}

}  // namespace

// ---------------------------------------------------------------------------
// Load and store
// ---------------------------------------------------------------------------

// Keyframes live only in the list while the parameter lives: the "Keyframe"
// children become list entries and are not copied into the element. Of the
// other children only the stored values are taken over.
bool CParam::Load(const CXMLObject& xml) {
  constexpr const char* kSignature =
      "bool __cdecl qdcore::CParam::Load(const class qdcore::CXMLObject &)";
  const CXMLObject source(xml);  // `xml` may be part of what Reset releases
  Reset();
  bool ok = true;
  if (source.IsName(kParameter)) ok = MergeAttributes(source, true);
  // Room for every keyframe at once: no growth steps, no moves. Children
  // are mostly all keyframes, so room for every child saves a count of them;
  // what others leave over is given back below.
  unsigned int children = 0;
  source.GetElements(children);
  if (children) m_KeyFrameList.CZMemory::Realloc(std::uint64_t{children} * sizeof(CKeyFrame));
  unsigned int keyframes = 0;
  // Each keyframe is what CKeyFrame(*this, child) makes: this definition
  // with the stored element (named "Keyframe", as the search says). The
  // definition is made once and copied into the list, where it takes the
  // element.
  const CKeyFrame definition(*this);
  const auto takeElement = [this](const CXMLObject& element) {
    try {
      static_cast<CXMLObject&>(*Get(GetSize() - 1)) = element;
    } catch (...) {
      Remove(GetSize() - 1);  // out of memory: no keyframe without its element stays
      throw;
    }
  };
  for (const CXMLObject* child = source.FindNextElement(kKeyframe, nullptr); child;
       child = source.FindNextElement(kKeyframe, child)) {
    const bool added = QD_VERIFY_TEXT(definition.m_Type == GetType(),
                                      "keyFrame.m_Type == GetType()", kSignature) &&
                       m_KeyFrameList.Add(definition);
    if (added) takeElement(*child);
    ok = added && ok;
    ++keyframes;
  }
  // Most parameters hold keyframes alone: no slack, no search for the others.
  if (children > keyframes) {
    m_KeyFrameList.CZMemory::Realloc(std::uint64_t{keyframes} * sizeof(CKeyFrame));
    ok = CopyChildren(source, *this, kBinary, false) && ok;
    ok = CopyChildren(source, *this, kPropertys, true) && ok;
    ok = CopyChildren(source, *this, kValue, false) && ok;
  }
  if (!ok) {
    Reset();
    return false;
  }
  // Room for the minimum duration now, so that the first const
  // GetMinDuration can keep what it counts instead of counting every time.
  *m_MinDuration = mtime::unassigned;
  return true;
}

// Storing into this parameter's own element is harmless: the keyframes come
// from the list, which the element does not hold. A keyframe stores its own
// element (CKeyFrame::Store), so that is what is added.
bool CParam::Store(CXMLObject& xml) const {
  xml.Reassign(*this);
  for (const CKeyFrame* kf = FindNextKeyFrame(nullptr); kf; kf = FindNextKeyFrame(kf)) {
    xml.Add(*kf);
  }
  return true;
}

// ---------------------------------------------------------------------------
// Updates
// ---------------------------------------------------------------------------

// Only the value, "useKeyframe" and the keyframes count in the result: the
// rest is taken over as far as it goes.
bool CParam::Update(const CXMLObject& xml, bool replace) {
  const CXMLObject whole(xml);  // keeps the source alive while this element changes
  const CXMLObject* found = FindUpdateSource(whole, GetID());
  if (!found) return false;
  const CXMLObject source(*found);
  bool ok = true;

  const CXMLObject* valueChild = source.FindNextElement(kValue, nullptr);
  const CZPoolString valueText = source.FindAttribute(kValue);
  MergeAttributes(source, replace);
  if (valueChild || valueText) {
    DeleteAttribute(kValue);
    DeleteFirstChild(*this, kValue);
    if (valueText) {
      ok = SetAttribute(kValue, valueText);
    } else {
      CXMLObject copy(*valueChild);
      copy.Realloc();
      ok = CXMLObject::Add(copy);
    }
  }

  for (const CZPoolString& name : kCopiedWhenPresent) {
    if (source.HasAttribute(name)) SetAttribute(name, source.FindAttribute(name));
  }
  ok = (source.HasAttribute(kUseKeyframe)
            ? SetAttribute(kUseKeyframe, source.FindAttribute(kUseKeyframe))
            : RemoveAttribute(*this, kUseKeyframe)) &&
       ok;

  if (replace || source.FindNextElement(kKeyframe, nullptr)) m_KeyFrameList.Free();
  for (const CXMLObject* child = source.FindNextElement(kKeyframe, nullptr); child;
       child = source.FindNextElement(kKeyframe, child)) {
    ok = Add(CKeyFrame(*this, *child), mtime(), false) && ok;
  }

  if (replace || source.FindNextElement(kPropertys, nullptr)) {
    DeleteFirstChild(*this, kPropertys);
    CopyChildren(source, *this, kPropertys, true);
  }
  if (replace || source.FindNextElement(kBinary, nullptr)) {
    DeleteFirstChild(*this, kBinary);
    CopyChildren(source, *this, kBinary, false);
  }

  // A bare value carries keyframes exactly when it starts with one.
  if (source.IsName(kValueElement)) {
    const CXMLObject* first = source.item(0);
    if (first && first->IsName(kKeyframe)) {
      SetAttribute(kUseKeyframe, kTrue);
    } else {
      DeleteAttribute(kUseKeyframe);
    }
  }
  return ok;
}

bool CParam::Update(const CParam& other, bool replace) {
  CXMLObject stored;
  other.Store(stored);
  return Update(stored, replace);
}

// ---------------------------------------------------------------------------
// Presets
// ---------------------------------------------------------------------------

namespace {

void AddIdAndValue(CXMLObject& out, const CZPoolString& id, const CZPoolString& value) {
  out.AddAttribute(kId, id);
  out.AddAttribute(kValue, value);
}

void AddKeyFrames(CXMLObject& out, const CParam& param) {
  for (const CKeyFrame* kf = param.FindNextKeyFrame(nullptr); kf; kf = param.FindNextKeyFrame(kf)) {
    CXMLObject stored;
    kf->Store(stored);
    out.Add(stored);
  }
}

// A parameter without keyframes never differs in them: a preset cannot take
// keyframes away.
bool KeyFramesDiffer(const CParam& param, const CParam& reference) {
  const unsigned int count = param.GetSize();
  if (count == 0) return false;
  if (reference.GetSize() != count) return true;
  for (unsigned int i = 0; i < count; ++i) {
    if (!SameKeyFrame(*param.Get(i), *reference.Get(i))) return true;
  }
  return false;
}

}  // namespace

// The texts are read before `out` changes, since `out` may be this
// parameter's or the reference's own element.
bool CParam::CreatePreset(CXMLObject& out) const {
  const CZPoolString id = FindAttribute(kId), value = FindAttribute(kValue);
  out.SetName(kValueElement);
  AddIdAndValue(out, id, value);
  AddKeyFrames(out, *this);
  return true;
}

bool CParam::CreatePreset(CXMLObject& out, const CParam& reference) const {
  const CZPoolString id = FindAttribute(kId), value = FindAttribute(kValue);
  const bool valueDiffers = value != reference.FindAttribute(kValue);
  const bool keysDiffer = KeyFramesDiffer(*this, reference);
  out.Free();
  if (!valueDiffers && !keysDiffer) return true;
  out.SetName(kValueElement);
  if (valueDiffers) AddIdAndValue(out, id, value);
  if (keysDiffer) AddKeyFrames(out, *this);
  return true;
}

}  // namespace qdcore
