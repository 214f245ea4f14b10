#include "names.h"

#include "qdparam/types.h"

namespace qdtool {

using namespace qdcore;

namespace {

struct Spelling {
  unsigned int code;
  const char* name;
};

constexpr Spelling kTypes[] = {{PARAM_DOUBLE, "Double"}, {PARAM_LONG, "Long"},
                               {PARAM_STRING, "String"}, {PARAM_BINARY, "Binary"},
                               {PARAM_BOOL, "Bool"},     {PARAM_SUBPROP, "SubProp"}};

constexpr Spelling kInterpolations[] = {
    {INTERPOLATION_HOLD, "Hold"},     {INTERPOLATION_LINEAR, "Linear"},
    {INTERPOLATION_BEZIER, "Bezier"}, {INTERPOLATION_LINLOG, "LinLog"},
    {INTERPOLATION_SPLINE, "Spline"}, {INTERPOLATION_CUSTOM, "Custom"},
    {INTERPOLATION_NONE, "None"}};

constexpr Spelling kEasings[] = {{TIMETRANSLATION_EASEINOUT, "EaseInOut"},
                                 {TIMETRANSLATION_ANCHOREASEINOUT, "AnchorEaseInOut"},
                                 {TIMETRANSLATION_EASEIN, "EaseIn"},
                                 {TIMETRANSLATION_EASEOUT, "EaseOut"}};

constexpr Spelling kBinaryKinds[] = {{BINARY_INTERPOLATION_SPLITGRAPH, "SplitGraph"},
                                     {BINARY_INTERPOLATION_GEOMETRYMASK, "GeometryMask"},
                                     {BINARY_INTERPOLATION_TONECURVE, "ToneCurve"},
                                     {BINARY_INTERPOLATION_COLORWHEEL, "ColorWheel"},
                                     {BINARY_INTERPOLATION_MASKMULTIPOLYGON, "MaskMultiPolygon"},
                                     {BINARY_INTERPOLATION_MASKSHAPEDROPPER, "MaskShapeDropper"}};

constexpr Spelling kTimeKinds[] = {{KEYFRAME_RELATIVE, "relative"},
                                   {KEYFRAME_ABSOLUTE, "absolute"},
                                   {KEYFRAME_FIXED_ABSOLUTE, "fixed"}};

template <std::size_t N>
std::string Find(const Spelling (&table)[N], unsigned int code, const char* otherwise) {
  for (const Spelling& entry : table) {
    if (entry.code == code) return entry.name;
  }
  return otherwise;
}

template <std::size_t N>
std::string Join(const Spelling (&table)[N], unsigned int flags) {
  std::string text;
  for (const Spelling& entry : table) {
    if ((flags & entry.code) == 0) continue;
    if (!text.empty()) text += ", ";
    text += entry.name;
  }
  return text;
}

}  // namespace

std::string Utf8(const CZPoolString& text) { return ToUtf8(text.view()); }

CZPoolString Pooled(std::u16string_view text) { return CStringPool::GetStringRef(text); }

bool PooledFromUtf8(std::string_view text, CZPoolString& out) {
  std::u16string wide;
  if (!FromUtf8(text, wide)) return false;
  out = Pooled(wide);
  return true;
}

std::string TypeName(unsigned int type) { return Find(kTypes, type, "undefined"); }

std::string InterpolationName(unsigned int code) { return Find(kInterpolations, code, "?"); }

std::string InterpolationNames(unsigned int flags) { return Join(kInterpolations, flags); }

std::string EasingName(unsigned int flags) { return Join(kEasings, flags); }

std::string BinaryKindName(unsigned int code) { return Find(kBinaryKinds, code, "none"); }

std::string TimeKindName(unsigned int qualifier) { return Find(kTimeKinds, qualifier, "no time"); }

}  // namespace qdtool
