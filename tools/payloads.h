// Binary payloads read as what they are: the points of tone curves, the
// colours of colour wheels. Every read is bounded by the payload's size: a
// count past the end reads as nothing.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qdtool {

// Four curves of (x, y) points; an empty curve is the identity.
using ToneCurves = std::array<std::vector<std::pair<double, double>>, 4>;

struct ColorWheel {
  bool enabled = false;
  int hue = 0;         // degrees
  int saturation = 0;  // percent
  int level = 0;
};
using ColorWheels = std::array<ColorWheel, 5>;

// Polygons of (x, y) points, each as a share of the mask's frame.
using Polygons = std::vector<std::vector<std::pair<double, double>>>;

// Nothing for a payload too short to hold the records (or, for polygons,
// whose counts run past its end).
std::optional<ToneCurves> ReadToneCurves(const std::vector<unsigned char>& bytes);
std::optional<ColorWheels> ReadColorWheels(const std::vector<unsigned char>& bytes);
std::optional<Polygons> ReadPolygons(const std::vector<unsigned char>& bytes);

// The wheel's colour at mid lightness, as "#rrggbb".
std::string WheelColour(const ColorWheel& wheel);

// The payload in words ("tone curves: 1: (0, 0) (0.5, 0.6) (1, 1); 2:
// identity; …", "shadows 190° 40 % level 0 #5a9aa8; …"); empty for kinds not
// read here.
std::string DescribePayload(unsigned int kind, const std::vector<unsigned char>& bytes);

}  // namespace qdtool
