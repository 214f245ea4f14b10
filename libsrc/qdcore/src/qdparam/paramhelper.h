// How keyframes and parameters keep typed values in their XML elements:
// numbers and booleans as attribute texts, strings as attribute or child
// element, binary data in a child element.
#pragma once

#include <cstdint>

#include "qdcore/core.h"
#include "qdcore/xml.h"

namespace qdcore {

namespace ParamHelper {

// ---- strings
// Writes a string as attribute `name`, or, when the text cannot live in an
// attribute, as the data of a child element `name`; the other form is removed.
bool SetValueString(CXMLObject& xml, const CZPoolString& name, const CZPoolString& value);
// Reads what SetValueString wrote: the child's data, else the attribute.
// False (and `out` untouched) when both are empty.
bool GetValueString(const CXMLObject& xml, const CZPoolString& name, CZPoolString& out);

// ---- numbers and booleans: an attribute with empty text counts as absent,
// and readers leave `v` untouched then and return false.
bool HasValue(const CXMLObject& xml, const CZPoolString& name) noexcept;
bool GetValueDouble(const CXMLObject& xml, const CZPoolString& name, double& v) noexcept;
bool GetValueLong(const CXMLObject& xml, const CZPoolString& name, long& v) noexcept;
bool GetValueBool(const CXMLObject& xml, const CZPoolString& name, bool& v) noexcept;
bool SetValueDouble(CXMLObject& xml, const CZPoolString& name, double v);  // "%.12f"
bool SetValueLong(CXMLObject& xml, const CZPoolString& name, long v);      // "%d"
bool SetValueBool(CXMLObject& xml, const CZPoolString& name, bool v);      // "True", "False"

// ---- binary data
// The binary data of the first child `name`: its size when `buffer` is null,
// else the count of bytes read from `offset`; 0 without such a child.
unsigned int GetValueBinary(const CXMLObject& xml, const CZPoolString& name, unsigned char* buffer,
                            unsigned int size, unsigned int offset);
// Sets the data of the first child `name`, or adds a new child holding it.
bool SetValueBinary(CXMLObject& xml, const CZPoolString& name, const unsigned char* data,
                    std::uint64_t size);

}  // namespace ParamHelper

}  // namespace qdcore
