#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "CaptureShared/Privacy/Denylist.h"
#include "Platform/Desktop/DesktopFacts.h"

/// Paints out what must not be recorded. Pure.
namespace halvo::WindowMask {

/// Pixels around a window's content that count as the window: the window manager's frame, whose title bar shows the title.
inline constexpr double titleBarPixels = 64, borderPixels = 16;

/// The rectangles of every denied window on the screen, whether or not another one covers it.
std::vector<Rect> rectangles(const std::vector<WindowInfo>& windows, const Denylist& denylist);

/// A picture of 4 bytes a pixel of the desktop's rectangle `bounds`.
struct Picture {
  std::span<std::uint8_t> pixels;
  Rect bounds = {};
};
/// Makes everything inside the rectangles black.
void paint(const Picture& picture, std::span<const Rect> rectangles);

}  // namespace halvo::WindowMask
