// The codes shared by keyframes, parameters and their users: value types,
// keyframe time qualifiers, interpolations, time translations, alpha handling
// and binary interpolation kinds.
#pragma once

namespace qdcore {

// ---- value type of a parameter or keyframe ("type" attribute)
inline constexpr unsigned int PARAM_UNDEFINED = 0xFFFFFFFF;  ///< an unknown "type" spelling
inline constexpr unsigned int PARAM_DOUBLE = 1;              ///< also when "type" is absent
inline constexpr unsigned int PARAM_LONG = 2;                ///< "Long", 32-bit
inline constexpr unsigned int PARAM_STRING = 3;              ///< "String"
inline constexpr unsigned int PARAM_BINARY = 4;              ///< "Binary"
inline constexpr unsigned int PARAM_BOOL = 5;                ///< "Bool"
inline constexpr unsigned int PARAM_SUBPROP = 6;             ///< "SubProp", only from XML

// ---- how a keyframe's "position" text counts time
inline constexpr unsigned int KEYFRAME_RELATIVE = 0;        ///< fraction of the duration
inline constexpr unsigned int KEYFRAME_ABSOLUTE = 1;        ///< seconds, "s", scaled on short clips
inline constexpr unsigned int KEYFRAME_FIXED_ABSOLUTE = 2;  ///< seconds, "fs", never scaled
inline constexpr unsigned int KEYFRAME_NO_TIME = 0xFFFFFFFF;  ///< no "position"

// ---- interpolation codes; bits, so that a parameter can allow a set of them
inline constexpr unsigned int INTERPOLATION_HOLD = 1;     ///< "Hold"
inline constexpr unsigned int INTERPOLATION_LINEAR = 2;   ///< "Linear"
inline constexpr unsigned int INTERPOLATION_BEZIER = 4;   ///< "Bezier"
inline constexpr unsigned int INTERPOLATION_LINLOG = 8;   ///< "LinLog"
inline constexpr unsigned int INTERPOLATION_SPLINE = 16;  ///< "Spline"
inline constexpr unsigned int INTERPOLATION_CUSTOM = 32;  ///< "Custom", holds
inline constexpr unsigned int INTERPOLATION_NONE = 64;    ///< allowed-set only
/// What a parameter allows when it says nothing: Hold, Linear, Bezier, Spline.
inline constexpr unsigned int INTERPOLATION_DEFAULT_ALLOWED = 23;

// ---- time-translation flags of a keyframe (the parameter uses EASEINOUT only)
inline constexpr unsigned int TIMETRANSLATION_LINEAR = 0;           ///< "Linear": no ease
inline constexpr unsigned int TIMETRANSLATION_EASEINOUT = 1;        ///< "EaseInOut"
inline constexpr unsigned int TIMETRANSLATION_ANCHOREASEINOUT = 2;  ///< "AnchorEaseInOut", splines
inline constexpr unsigned int TIMETRANSLATION_EASEIN = 4;           ///< "EaseIn", splines
inline constexpr unsigned int TIMETRANSLATION_EASEOUT = 8;          ///< "EaseOut", splines

// ---- what a keyframed parameter does before its first and after its last keyframe
inline constexpr unsigned int EXTRAPOLATION_HOLD = 0;    ///< no attribute: the end value holds
inline constexpr unsigned int EXTRAPOLATION_LINEAR = 1;  ///< "Linear": the end slope goes on
inline constexpr unsigned int EXTRAPOLATION_CYCLE = 2;   ///< "Cycle": the keyed span repeats
inline constexpr unsigned int EXTRAPOLATION_CYCLEWITHOFFSET = 3;  ///< "CycleWithOffset"
inline constexpr unsigned int EXTRAPOLATION_OSCILLATE = 4;        ///< "Oscillate": back and forth

// ---- alpha handling of a parameter
inline constexpr unsigned int ALPHA_NONE = 0;      ///< no "alpha" attribute
inline constexpr unsigned int ALPHA_GENERATE = 1;  ///< "Generate"
inline constexpr unsigned int ALPHA_REMOVE = 2;    ///< "Remove"

// ---- the kind of payload a binary parameter blends
inline constexpr unsigned int BINARY_INTERPOLATION_NONE = 0;               ///< never blended
inline constexpr unsigned int BINARY_INTERPOLATION_SPLITGRAPH = 1;         ///< "SplitGraph"
inline constexpr unsigned int BINARY_INTERPOLATION_GEOMETRYMASK = 2;       ///< "GeometryMask"
inline constexpr unsigned int BINARY_INTERPOLATION_TONECURVE = 4;          ///< "ToneCurve"
inline constexpr unsigned int BINARY_INTERPOLATION_COLORWHEEL = 8;         ///< "ColorWheel"
inline constexpr unsigned int BINARY_INTERPOLATION_MASKMULTIPOLYGON = 16;  ///< "MaskMultiPolygon"
inline constexpr unsigned int BINARY_INTERPOLATION_MASKSHAPEDROPPER = 32;  ///< "MaskShapeDropper"

}  // namespace qdcore
