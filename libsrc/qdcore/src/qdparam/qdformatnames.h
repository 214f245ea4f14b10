// The names of the parameter format: its elements and attributes, and the
// spellings of its enumerated codes. Pooled once for the whole library, so
// that every comparison with an element's or attribute's name is one of
// pointers, and each spelling is written down once.
#pragma once

#include <span>

#include "qdcore/xml.h"
#include "qdparam/types.h"

namespace qdcore::names {

inline CZPoolString Pooled(const wchar* text) { return CStringPool::GetStringRef(text); }

// ---- elements
inline const CZPoolString kProperty = Pooled(u"Property");
inline const CZPoolString kParameter = Pooled(u"Parameter");
inline const CZPoolString kKeyframe = Pooled(u"Keyframe");
inline const CZPoolString kAnchor = Pooled(u"Anchor");
inline const CZPoolString kValueElement = Pooled(u"Value");
inline const CZPoolString kPreset = Pooled(u"Preset");
inline const CZPoolString kBinary = Pooled(u"Binary");  // also the type's spelling
inline const CZPoolString kPropertys = Pooled(u"Propertys");
inline const CZPoolString kValidation = Pooled(u"Validation");
inline const CZPoolString kCondition = Pooled(u"Condition");
inline const CZPoolString kAction = Pooled(u"Action");
inline const CZPoolString kStaticSource = Pooled(u"StaticSource");
inline const CZPoolString kRoot = Pooled(u"Root");

// ---- attributes
inline const CZPoolString kType = Pooled(u"type");
inline const CZPoolString kName = Pooled(u"name");
inline const CZPoolString kId = Pooled(u"id");
inline const CZPoolString kStaticSourceId = Pooled(u"ID");  // a static source's own spelling
inline const CZPoolString kValue = Pooled(u"value");
inline const CZPoolString kMin = Pooled(u"min");
inline const CZPoolString kMax = Pooled(u"max");
inline const CZPoolString kGranularity = Pooled(u"granularity");
inline const CZPoolString kActive = Pooled(u"active");
inline const CZPoolString kInactive = Pooled(u"inactive");
inline const CZPoolString kUseKeyframe = Pooled(u"useKeyframe");
inline const CZPoolString kInterpolation = Pooled(u"interpolation");
inline const CZPoolString kTimeTranslation = Pooled(u"timeTranslation");
inline const CZPoolString kAlpha = Pooled(u"alpha");
inline const CZPoolString kBinaryInterpolationType = Pooled(u"binaryInterpolationType");
inline const CZPoolString kPosition = Pooled(u"position");
inline const CZPoolString kRelation = Pooled(u"relation");
inline const CZPoolString kAllowedValues = Pooled(u"allowedValues");
inline const CZPoolString kExtrapolateBefore = Pooled(u"extrapolateBefore");
inline const CZPoolString kExtrapolateAfter = Pooled(u"extrapolateAfter");

// ---- texts
inline const CZPoolString kTrue = Pooled(u"True");
inline const CZPoolString kFalse = Pooled(u"False");
inline const CZPoolString kEaseInOut = Pooled(u"EaseInOut");

// ---- enumerated codes

// Between the names of a flag attribute's set flags.
inline constexpr wchar kFlagSeparator = u';';

inline const tagXMLFLAGMAP kTypeNames[] = {
    {PARAM_DOUBLE, Pooled(u"Double")}, {PARAM_LONG, Pooled(u"Long")},
    {PARAM_STRING, Pooled(u"String")}, {PARAM_BINARY, kBinary},
    {PARAM_BOOL, Pooled(u"Bool")},     {PARAM_SUBPROP, Pooled(u"SubProp")},
};

// The order matters: a parameter's set of allowed interpolations is
// written in this order. "None" belongs only to that set: a keyframe blends
// by one of the others (kKeyframeInterpolationNames).
inline const tagXMLFLAGMAP kInterpolationNames[] = {
    {INTERPOLATION_HOLD, Pooled(u"Hold")},     {INTERPOLATION_LINEAR, Pooled(u"Linear")},
    {INTERPOLATION_BEZIER, Pooled(u"Bezier")}, {INTERPOLATION_LINLOG, Pooled(u"LinLog")},
    {INTERPOLATION_SPLINE, Pooled(u"Spline")}, {INTERPOLATION_CUSTOM, Pooled(u"Custom")},
    {INTERPOLATION_NONE, Pooled(u"None")},
};
inline const std::span<const tagXMLFLAGMAP> kKeyframeInterpolationNames =
    std::span(kInterpolationNames).first(std::size(kInterpolationNames) - 1);

// Flags joined in this order when written.
inline const tagXMLFLAGMAP kTimeTranslationNames[] = {
    {TIMETRANSLATION_LINEAR, Pooled(u"Linear")},
    {TIMETRANSLATION_EASEINOUT, kEaseInOut},
    {TIMETRANSLATION_ANCHOREASEINOUT, Pooled(u"AnchorEaseInOut")},
    {TIMETRANSLATION_EASEIN, Pooled(u"EaseIn")},
    {TIMETRANSLATION_EASEOUT, Pooled(u"EaseOut")},
};

// In code order. Hold is written as no attribute, and read when written.
inline const tagXMLFLAGMAP kExtrapolationNames[] = {
    {EXTRAPOLATION_HOLD, Pooled(u"Hold")},
    {EXTRAPOLATION_LINEAR, Pooled(u"Linear")},
    {EXTRAPOLATION_CYCLE, Pooled(u"Cycle")},
    {EXTRAPOLATION_CYCLEWITHOFFSET, Pooled(u"CycleWithOffset")},
    {EXTRAPOLATION_OSCILLATE, Pooled(u"Oscillate")},
};

// No handling is no attribute.
inline const tagXMLFLAGMAP kAlphaNames[] = {
    {ALPHA_GENERATE, Pooled(u"Generate")},
    {ALPHA_REMOVE, Pooled(u"Remove")},
};

inline const tagXMLFLAGMAP kBinaryInterpolationNames[] = {
    {BINARY_INTERPOLATION_SPLITGRAPH, Pooled(u"SplitGraph")},
    {BINARY_INTERPOLATION_GEOMETRYMASK, Pooled(u"GeometryMask")},
    {BINARY_INTERPOLATION_TONECURVE, Pooled(u"ToneCurve")},
    {BINARY_INTERPOLATION_COLORWHEEL, Pooled(u"ColorWheel")},
    {BINARY_INTERPOLATION_MASKMULTIPOLYGON, Pooled(u"MaskMultiPolygon")},
    {BINARY_INTERPOLATION_MASKSHAPEDROPPER, Pooled(u"MaskShapeDropper")},
};

}  // namespace qdcore::names
