// The library's codes spelt as people read them.
#pragma once

#include <string>
#include <string_view>

#include "qdcore/core.h"

namespace qdtool {

std::string Utf8(const qdcore::CZPoolString& text);
qdcore::CZPoolString Pooled(std::u16string_view text);
// A pooled string from UTF-8 typed by the user; false when it is not UTF-8.
bool PooledFromUtf8(std::string_view text, qdcore::CZPoolString& out);

std::string TypeName(unsigned int type);             // PARAM_*
std::string InterpolationName(unsigned int code);    // one INTERPOLATION_* code
std::string InterpolationNames(unsigned int flags);  // a set of them, "Hold, Linear"
std::string EasingName(unsigned int flags);          // TIMETRANSLATION_* bits, "" for none
std::string BinaryKindName(unsigned int code);       // BINARY_INTERPOLATION_*
std::string TimeKindName(unsigned int qualifier);    // KEYFRAME_*

}  // namespace qdtool
