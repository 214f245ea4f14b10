// The codes shared by keyframes, parameters and their users: value types,
// keyframe time qualifiers, interpolations, time translations, alpha handling
// and binary interpolation kinds.
#pragma once

namespace qdcore {

// ---- value type of a parameter or keyframe ("type" attribute)
inline constexpr unsigned int PARAM_UNDEFINED = 0xFFFFFFFF;
inline constexpr unsigned int PARAM_DOUBLE = 1;  // also when "type" is absent
inline constexpr unsigned int PARAM_LONG = 2;
inline constexpr unsigned int PARAM_STRING = 3;
inline constexpr unsigned int PARAM_BINARY = 4;
inline constexpr unsigned int PARAM_BOOL = 5;
inline constexpr unsigned int PARAM_SUBPROP = 6;

// ---- how a keyframe's "position" text counts time
inline constexpr unsigned int KEYFRAME_RELATIVE = 0;        // fraction of the duration
inline constexpr unsigned int KEYFRAME_ABSOLUTE = 1;        // seconds, "s", scaled on short clips
inline constexpr unsigned int KEYFRAME_FIXED_ABSOLUTE = 2;  // seconds, "fs", never scaled
inline constexpr unsigned int KEYFRAME_NO_TIME = 0xFFFFFFFF;  // no "position"

// ---- interpolation codes; bits, so that a parameter can allow a set of them
inline constexpr unsigned int INTERPOLATION_HOLD = 1;
inline constexpr unsigned int INTERPOLATION_LINEAR = 2;
inline constexpr unsigned int INTERPOLATION_BEZIER = 4;
inline constexpr unsigned int INTERPOLATION_LINLOG = 8;
inline constexpr unsigned int INTERPOLATION_SPLINE = 16;
inline constexpr unsigned int INTERPOLATION_CUSTOM = 32;
inline constexpr unsigned int INTERPOLATION_NONE = 64;  // allowed-set only
// What a parameter allows when it says nothing: Hold, Linear, Bezier, Spline.
inline constexpr unsigned int INTERPOLATION_DEFAULT_ALLOWED = 23;

// ---- time-translation flags of a keyframe (the parameter uses EASEINOUT only)
inline constexpr unsigned int TIMETRANSLATION_LINEAR = 0;
inline constexpr unsigned int TIMETRANSLATION_EASEINOUT = 1;
inline constexpr unsigned int TIMETRANSLATION_ANCHOREASEINOUT = 2;
inline constexpr unsigned int TIMETRANSLATION_EASEIN = 4;
inline constexpr unsigned int TIMETRANSLATION_EASEOUT = 8;

// ---- alpha handling of a parameter
inline constexpr unsigned int ALPHA_NONE = 0;
inline constexpr unsigned int ALPHA_GENERATE = 1;
inline constexpr unsigned int ALPHA_REMOVE = 2;

// ---- the kind of payload a binary parameter blends
inline constexpr unsigned int BINARY_INTERPOLATION_NONE = 0;
inline constexpr unsigned int BINARY_INTERPOLATION_SPLITGRAPH = 1;
inline constexpr unsigned int BINARY_INTERPOLATION_GEOMETRYMASK = 2;
inline constexpr unsigned int BINARY_INTERPOLATION_TONECURVE = 4;
inline constexpr unsigned int BINARY_INTERPOLATION_COLORWHEEL = 8;
inline constexpr unsigned int BINARY_INTERPOLATION_MASKMULTIPOLYGON = 16;
inline constexpr unsigned int BINARY_INTERPOLATION_MASKSHAPEDROPPER = 32;

}  // namespace qdcore
