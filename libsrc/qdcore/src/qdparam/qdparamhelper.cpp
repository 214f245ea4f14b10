// Typed values in XML elements: attribute texts, child elements, binary data.
#include "paramhelper.h"

#include <limits>
#include <utility>

#include "qdassert.h"
#include "qdformatnames.h"
#include "qdnumbers.h"

namespace qdcore {

using namespace names;

namespace ParamHelper {

// ---------------------------------------------------------------------------
// Strings
// ---------------------------------------------------------------------------

bool SetValueString(CXMLObject& xml, const CZPoolString& name, const CZPoolString& value) {
  if (!CXMLObject::CDATARequired(value.view())) {
    if (const CXMLObject* child = std::as_const(xml).FindNextElement(name, nullptr)) {
      xml.Delete(child);
    }
    return xml.SetAttribute(name, value);
  }
  xml.DeleteAttribute(name);
  CXMLObject* child = xml.FindNextElement(name, nullptr);
  if (!child) {
    xml.Add(CXMLObject(name));
    child = xml.FindNextElement(name, nullptr);
  }
  if (!child) {
    QD_ASSUMPTION_FAILED("pXML",
                         "bool __cdecl qdcore::ParamHelper::SetValueString(class qdcore::CXMLObject "
                         "&,const class qdcore::CZPoolString &,const class qdcore::CZPoolString &)");
    return false;
  }
  return child->Set(value);
}

bool GetValueString(const CXMLObject& xml, const CZPoolString& name, CZPoolString& out) {
  CZPoolString text = xml.FindElementData(name);
  if (!text) text = xml.FindAttribute(name);
  if (!text) return false;
  out = text;
  return true;
}

// ---------------------------------------------------------------------------
// Numbers and booleans
// ---------------------------------------------------------------------------

bool HasValue(const CXMLObject& xml, const CZPoolString& name) noexcept {
  return static_cast<bool>(xml.FindAttribute(name));
}

bool GetValueDouble(const CXMLObject& xml, const CZPoolString& name, double& v) noexcept {
  if (!HasValue(xml, name)) return false;
  v = xml.FindAttributeDouble(name, 0.0);  // present: the default is never used
  return true;
}

bool GetValueLong(const CXMLObject& xml, const CZPoolString& name, long& v) noexcept {
  if (!HasValue(xml, name)) return false;
  v = xml.FindAttributeInt(name, 0);
  return true;
}

bool GetValueBool(const CXMLObject& xml, const CZPoolString& name, bool& v) noexcept {
  if (!HasValue(xml, name)) return false;
  // Text that is no boolean leaves `v` as it was, without reading it: the
  // caller's variable may be uninitialised.
  const bool asFalse = xml.FindAttributeBool(name, false);
  if (asFalse == xml.FindAttributeBool(name, true)) v = asFalse;
  return true;
}

bool SetValueDouble(CXMLObject& xml, const CZPoolString& name, double v) {
  return xml.SprintfAttribute(name, u"%.12f", v);
}

bool SetValueLong(CXMLObject& xml, const CZPoolString& name, long v) {
  return xml.SprintfAttribute(name, u"%d", ToInt32(v));
}

bool SetValueBool(CXMLObject& xml, const CZPoolString& name, bool v) {
  return xml.SetAttribute(name, v ? kTrue : kFalse);
}

// ---------------------------------------------------------------------------
// Binary data
// ---------------------------------------------------------------------------

unsigned int GetValueBinary(const CXMLObject& xml, const CZPoolString& name, unsigned char* buffer,
                            unsigned int size, unsigned int offset) {
  const CXMLObject* child = xml.FindNextElement(name, nullptr);
  if (!child) return 0;
  // A count that cannot be told in 32 bits reads as nothing rather than wrong.
  const std::uint64_t count = buffer ? child->GetDataBinary(buffer, size, offset)
                                     : child->GetDataBinarySize();
  return count <= std::numeric_limits<unsigned int>::max() ? static_cast<unsigned int>(count) : 0;
}

bool SetValueBinary(CXMLObject& xml, const CZPoolString& name, const unsigned char* data,
                    std::uint64_t size) {
  if (std::as_const(xml).FindNextElement(name, nullptr)) {
    return xml.FindNextElement(name, nullptr)->Set(data, size);
  }
  CXMLObject child(name);
  if (!child.Set(data, size)) return false;
  return xml.Add(child);
}

}  // namespace ParamHelper

}  // namespace qdcore
