#include "agents/Capturer/WindowMask.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace halvo::WindowMask {

std::vector<Rect> rectangles(const std::vector<WindowInfo>& windows, const Denylist& denylist) {
  std::vector<Rect> found;
  for (const auto& window : windows)
    if (denylist.excludes(window.ownerName, window.bundleID))
      found.push_back({.x = window.bounds.x - borderPixels,
                       .y = window.bounds.y - titleBarPixels,
                       .width = window.bounds.width + 2 * borderPixels,
                       .height = window.bounds.height + titleBarPixels + borderPixels});
  return found;
}

void paint(const Picture& picture, std::span<const Rect> rectangles) {
  const auto within = [](double value, double limit) { return static_cast<std::size_t>(std::clamp(value, 0.0, limit)); };
  const auto& [pixels, bounds] = picture;
  for (const auto& rect : rectangles) {
    const auto left = within(std::floor(rect.x - bounds.x), bounds.width);
    const auto right = within(std::ceil(rect.x + rect.width - bounds.x), bounds.width);
    const auto top = within(std::floor(rect.y - bounds.y), bounds.height);
    const auto bottom = within(std::ceil(rect.y + rect.height - bounds.y), bounds.height);
    for (auto y = top; y < bottom && left < right; ++y)
      std::memset(pixels.data() + (y * static_cast<std::size_t>(bounds.width) + left) * 4, 0, (right - left) * 4);
  }
}

}  // namespace halvo::WindowMask
