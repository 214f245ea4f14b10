// Parameter set documents for the loading benchmarks: keyframed parameters
// written the way the library writes numbers.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace qdbench {

// The text of one parameter with `keyframes` keyframes, appended to `out`.
inline void AppendParameter(std::string& out, int p, int keyframes) {
  static const char* const kInterpolations[] = {"Linear", "Hold", "Bezier", "Spline"};
  char line[512];
  const bool isLong = p % 4 == 3;
  std::snprintf(line, sizeof line,
                "\t<Parameter id=\"%d\" name=\"param%d\" type=\"%s\" value=\"%.12f\" "
                "min=\"%.12f\" max=\"%.12f\" useKeyframe=\"%s\">\n",
                p, p, isLong ? "Long" : "Double", p * 0.37, -100.0 - p, 100.0 + p,
                keyframes ? "True" : "False");
  out += line;
  for (int k = 0; k < keyframes; ++k) {
    std::snprintf(line, sizeof line,
                  "\t\t<Keyframe position=\"%.12f\" value=\"%.12f\" interpolation=\"%s\"/>\n",
                  k / double(keyframes - 1 > 0 ? keyframes - 1 : 1), (p + 1) * 0.001 * k - 3.5,
                  kInterpolations[(p + k) % 4]);
    out += line;
  }
  out += "\t</Parameter>\n";
}

constexpr const char* kDocumentHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Property name=\"Bench\">\n";
constexpr const char* kDocumentTail = "</Property>\n";

// A set of `parameters` parameters with `keyframes` keyframes each.
// 6,848 x 16 is about 10 MB.
inline std::string MakeDocument(int parameters, int keyframes) {
  std::string out = kDocumentHead;
  for (int p = 0; p < parameters; ++p) AppendParameter(out, p, keyframes);
  return out + kDocumentTail;
}

// A set of parameters with `keyframes` keyframes each, as many as make the
// document at least `bytes` long.
inline std::string MakeDocumentOfSize(std::size_t bytes, int keyframes) {
  std::string out = kDocumentHead;
  out.reserve(bytes + 4096);
  for (int p = 0; out.size() < bytes; ++p) AppendParameter(out, p, keyframes);
  return out + kDocumentTail;
}

}  // namespace qdbench
