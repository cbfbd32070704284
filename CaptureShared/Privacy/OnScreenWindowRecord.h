#pragma once

#include <optional>
#include <string>

namespace halvo {

/// A rectangle in pixels of the whole desktop, its origin at the top left.
struct ScreenBounds {
  double x = 0, y = 0, width = 0, height = 0;

  /// Whether the two share an area; touching edges share none.
  bool intersects(const ScreenBounds& other) const {
    return x < other.x + other.width && other.x < x + width && y < other.y + other.height && other.y < y + height;
  }
  bool contains(const ScreenBounds& other) const {
    return x <= other.x && y <= other.y && other.x + other.width <= x + width && other.y + other.height <= y + height;
  }
  bool operator==(const ScreenBounds&) const = default;
};

/// One window on the screen and whose it is.
struct OnScreenWindowRecord {
  std::string appName = {};
  std::optional<std::string> bundleId = {};
  ScreenBounds bounds = {};
  bool operator==(const OnScreenWindowRecord&) const = default;
};

}  // namespace halvo
