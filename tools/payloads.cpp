#include "payloads.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "qdparam/types.h"
#include "textformat.h"

namespace qdtool {

namespace {

// Little-endian fields at `offset`; false past the end.
template <typename T>
bool Field(const std::vector<unsigned char>& bytes, std::size_t offset, T& out) {
  if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) return false;
  std::memcpy(&out, bytes.data() + offset, sizeof(T));
  return true;
}

constexpr const char* kWheelNames[] = {"shadows", "midtones", "highlights", "offset", "master"};

}  // namespace

std::optional<ToneCurves> ReadToneCurves(const std::vector<unsigned char>& bytes) {
  if (bytes.size() < 16) return std::nullopt;
  ToneCurves curves;
  std::size_t offset = 0;
  for (auto& curve : curves) {
    std::uint32_t count = 0;
    if (!Field(bytes, offset, count)) break;
    offset += 4;
    if (count % 2 != 0 || count > (bytes.size() - offset) / 4) break;  // the rest reads as none
    for (std::uint32_t i = 0; i < count; i += 2, offset += 8) {
      float x = 0, y = 0;
      Field(bytes, offset, x);
      Field(bytes, offset + 4, y);
      curve.emplace_back(x, y);
    }
  }
  return curves;
}

std::optional<ColorWheels> ReadColorWheels(const std::vector<unsigned char>& bytes) {
  if (bytes.size() < 80) return std::nullopt;
  ColorWheels wheels;
  for (std::size_t i = 0; i < wheels.size(); ++i) {
    std::uint32_t enabled = 0;
    std::int32_t hue = 0, saturation = 0, level = 0;
    Field(bytes, 16 * i, enabled);
    Field(bytes, 16 * i + 4, hue);
    Field(bytes, 16 * i + 8, saturation);
    Field(bytes, 16 * i + 12, level);
    wheels[i] = {enabled != 0, hue, saturation, level};
  }
  return wheels;
}

std::optional<Polygons> ReadPolygons(const std::vector<unsigned char>& bytes) {
  std::int32_t count = 0;
  if (!Field(bytes, 24, count) || count < 0) return std::nullopt;
  Polygons polygons;
  std::size_t offset = 28;
  for (std::int32_t p = 0; p < count; ++p) {
    std::int32_t points = 0;
    if (!Field(bytes, offset, points) || points < 0) return std::nullopt;
    offset += 4;
    if (static_cast<std::size_t>(points) > (bytes.size() - offset) / 8) return std::nullopt;
    std::vector<std::pair<double, double>> polygon;
    for (std::int32_t i = 0; i < points; ++i, offset += 8) {
      float x = 0, y = 0;
      Field(bytes, offset, x);
      Field(bytes, offset + 4, y);
      polygon.emplace_back(x, y);
    }
    polygons.push_back(std::move(polygon));
  }
  return polygons;
}

std::string WheelColour(const ColorWheel& wheel) {
  // HSL at lightness one half: the chroma is the saturation itself.
  const double h = std::fmod(std::fmod(wheel.hue, 360.0) + 360.0, 360.0) / 60.0;
  const double c = std::clamp(wheel.saturation / 100.0, 0.0, 1.0);
  const double x = c * (1 - std::fabs(std::fmod(h, 2.0) - 1));
  const double m = 0.5 - c / 2;
  double r = 0, g = 0, b = 0;
  if (h < 1)
    r = c, g = x;
  else if (h < 2)
    r = x, g = c;
  else if (h < 3)
    g = c, b = x;
  else if (h < 4)
    g = x, b = c;
  else if (h < 5)
    r = x, b = c;
  else
    r = c, b = x;
  char text[8];
  const auto byte = [](double v) {
    return static_cast<int>(std::lround(std::clamp(v, 0.0, 1.0) * 255));
  };
  std::snprintf(text, sizeof text, "#%02x%02x%02x", byte(r + m), byte(g + m), byte(b + m));
  return text;
}

std::string DescribePayload(unsigned int kind, const std::vector<unsigned char>& bytes) {
  if (kind == qdcore::BINARY_INTERPOLATION_TONECURVE) {
    const auto curves = ReadToneCurves(bytes);
    if (!curves) return "";
    std::string text = "tone curves:";
    for (std::size_t i = 0; i < curves->size(); ++i) {
      const auto& curve = (*curves)[i];
      text += (i ? "; " : " ") + std::to_string(i + 1) + ":";
      if (curve.empty()) text += " identity";
      for (const auto& [x, y] : curve) text += " (" + TidyNumber(x) + ", " + TidyNumber(y) + ")";
    }
    return text;
  }
  if (kind == qdcore::BINARY_INTERPOLATION_MASKMULTIPOLYGON) {
    const auto polygons = ReadPolygons(bytes);
    if (!polygons) return "";
    std::string text = std::to_string(polygons->size());
    text += " polygons, points:";
    for (const auto& polygon : *polygons) {
      text += ' ';
      text += std::to_string(polygon.size());
    }
    return text;
  }
  if (kind == qdcore::BINARY_INTERPOLATION_COLORWHEEL) {
    const auto wheels = ReadColorWheels(bytes);
    if (!wheels) return "";
    std::string text;
    for (std::size_t i = 0; i < wheels->size(); ++i) {
      const ColorWheel& w = (*wheels)[i];
      if (!text.empty()) text += "; ";
      text += std::string(kWheelNames[i]) + " " + std::to_string(w.hue) + "\u00b0 " +
              std::to_string(w.saturation) + " % level " + std::to_string(w.level) + " " +
              WheelColour(w);
    }
    return text;
  }
  return "";
}

}  // namespace qdtool
