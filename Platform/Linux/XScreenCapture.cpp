#include "Platform/Linux/XScreenCapture.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xcb/randr.h>
#include <xcb/shm.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "Platform/Linux/PNGWriter.h"
#include "Platform/Linux/XConnection.h"
#include "Platform/Linux/XPixels.h"

namespace halvo {
namespace {

using Kind = ScreenCaptureError::Kind;

constexpr double setupTimeoutSec = 2;

ScreenCaptureError asCaptureError(const XUnavailable& error) {
  switch (error.kind()) {
    case XUnavailable::Kind::noDisplay: return {Kind::noDisplay, error.what()};
    case XUnavailable::Kind::refused: return {Kind::refused, error.what()};
    case XUnavailable::Kind::silent: return {Kind::timedOut, error.what()};
  }
  return {Kind::failed, error.what()};
}

/// Memory without a name that the server maps too.
class SharedMemory {
 public:
  explicit SharedMemory(std::size_t size) : file_(::memfd_create("halvo-screen", MFD_CLOEXEC)), size_(size) {
    if (!file_ || ::ftruncate(file_.fd(), static_cast<off_t>(size)) != 0) return;
    void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file_.fd(), 0);
    if (memory != MAP_FAILED) bytes_ = static_cast<std::uint8_t*>(memory);
  }
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;
  ~SharedMemory() {
    if (bytes_) ::munmap(bytes_, size_);
  }
  explicit operator bool() const { return bytes_ != nullptr; }
  std::span<const std::uint8_t> bytes() const { return {bytes_, size_}; }
  /// The descriptor for the server; libxcb closes it.
  int handOver() { return file_.release(); }

 private:
  FileHandle file_;
  std::size_t size_;
  std::uint8_t* bytes_ = nullptr;
};

struct PixelRect {
  int x = 0, y = 0, width = 0, height = 0;
};

/// The whole pixels that `bounds` touches, without what lies outside a desktop of the given sides.
PixelRect clipped(const Rect& bounds, int desktopWidth, int desktopHeight) {
  const auto inside = [](double value, int limit) { return static_cast<int>(std::clamp(value, 0.0, static_cast<double>(limit))); };
  if (!std::isfinite(bounds.x) || !std::isfinite(bounds.y) || !std::isfinite(bounds.width) || !std::isfinite(bounds.height)) return {};
  const int left = inside(std::floor(bounds.x), desktopWidth), top = inside(std::floor(bounds.y), desktopHeight);
  const int right = inside(std::ceil(bounds.x + bounds.width), desktopWidth),
            bottom = inside(std::ceil(bounds.y + bounds.height), desktopHeight);
  return {.x = left, .y = top, .width = right - left, .height = bottom - top};
}

}  // namespace

struct XScreenCapture::Live {
  XConnection connection;
  bool canShare = false;
  bool hasMonitors = false;

  explicit Live(const std::optional<std::string>& display) : connection(display, setupTimeoutSec) {
    auto* const x = connection.raw();
    canShare = connection.hasExtension("MIT-SHM", setupTimeoutSec);
    hasMonitors = connection.hasExtension("RANDR", setupTimeoutSec);
    std::optional<xcb_shm_query_version_cookie_t> sharing;
    std::optional<xcb_randr_query_version_cookie_t> monitors;
    if (canShare) sharing = xcb_shm_query_version(x);
    if (hasMonitors) monitors = xcb_randr_query_version(x, 1, 5);
    connection.settle(setupTimeoutSec, {});
    if (sharing) {  // descriptors can be handed over since 1.2
      const XReply<xcb_shm_query_version_reply_t> version{xcb_shm_query_version_reply(x, *sharing, nullptr)};
      canShare = version && std::pair(version->major_version, version->minor_version) >= std::pair<std::uint16_t, std::uint16_t>(1, 2);
    }
    if (monitors) {  // monitors are known since 1.5
      const XReply<xcb_randr_query_version_reply_t> version{xcb_randr_query_version_reply(x, *monitors, nullptr)};
      hasMonitors = version && std::pair(version->major_version, version->minor_version) >= std::pair<std::uint32_t, std::uint32_t>(1, 5);
    }
  }

  /// The root window's present sides: the ones in the greeting are as old as the connection.
  std::pair<int, int> desktopSize(double timeoutSec, const std::stop_token& stop) {
    const auto asked = xcb_get_geometry(connection.raw(), connection.screen().root);
    connection.settle(timeoutSec, stop);
    const XReply<xcb_get_geometry_reply_t> geometry{xcb_get_geometry_reply(connection.raw(), asked, nullptr)};
    if (!geometry) throw ScreenCaptureError(Kind::failed, "the display doesn't tell its size");
    return {geometry->width, geometry->height};
  }

  XPixels::Layout layout(const PixelRect& rect) {
    const auto* setup = xcb_get_setup(connection.raw());
    XPixels::Layout layout{.width = static_cast<std::uint32_t>(rect.width),
                           .height = static_cast<std::uint32_t>(rect.height),
                           .lowByteFirst = setup->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST};
    for (auto format = xcb_setup_pixmap_formats_iterator(setup); format.rem != 0; xcb_format_next(&format))
      if (format.data->depth == connection.screen().root_depth)
        layout.bitsPerPixel = format.data->bits_per_pixel, layout.padBits = format.data->scanline_pad;
    for (auto depth = xcb_screen_allowed_depths_iterator(&connection.screen()); depth.rem != 0; xcb_depth_next(&depth))
      for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem != 0; xcb_visualtype_next(&visual))
        if (visual.data->visual_id == connection.screen().root_visual)
          layout.red = visual.data->red_mask, layout.green = visual.data->green_mask, layout.blue = visual.data->blue_mask;
    return layout;
  }

  /// Memory that the server keeps mapped from one raw picture to the next.
  std::unique_ptr<SharedMemory> kept;
  xcb_shm_seg_t keptSegment = 0;

  /// Makes it as large as the picture; false when the server won't have it.
  bool keep(std::size_t size, double timeoutSec, const std::stop_token& stop) {
    if (kept && kept->bytes().size() == size) return true;
    auto* const x = connection.raw();
    if (kept) xcb_shm_detach(x, keptSegment);
    kept = std::make_unique<SharedMemory>(size);
    bool isAttached = false;
    if (*kept) {
      keptSegment = xcb_generate_id(x);
      const auto attached = xcb_shm_attach_fd_checked(x, keptSegment, kept->handOver(), 0);
      connection.settle(timeoutSec, stop);
      isAttached = !XReply<xcb_generic_error_t>{xcb_request_check(x, attached)};
    }
    if (!isAttached) kept.reset(), canShare = false;
    return isAttached;
  }

  /// Whether it came: not when the server shares nothing or refuses the picture.
  bool keptPixels(const PixelRect& rect, std::span<std::uint8_t> pixels, double timeoutSec, const std::stop_token& stop) {
    const auto form = layout(rect);
    if (!canShare || !keep(XPixels::rowBytes(form) * form.height, timeoutSec, stop)) return false;
    auto* const x = connection.raw();
    const auto asked = xcb_shm_get_image(x, connection.screen().root, static_cast<std::int16_t>(rect.x), static_cast<std::int16_t>(rect.y),
                                         static_cast<std::uint16_t>(rect.width), static_cast<std::uint16_t>(rect.height), ~0u,
                                         XCB_IMAGE_FORMAT_Z_PIXMAP, keptSegment, 0);
    connection.settle(timeoutSec, stop);
    const XReply<xcb_shm_get_image_reply_t> reply{xcb_shm_get_image_reply(x, asked, nullptr)};
    if (reply) XPixels::toBGR0(form, kept->bytes(), pixels);
    return reply != nullptr;
  }

  /// The pixels by shared memory; absent when the server wouldn't take ours.
  std::optional<PNGWriter::RGBImage> shared(const PixelRect& rect, double timeoutSec, const std::stop_token& stop) {
    const auto form = layout(rect);
    SharedMemory memory(XPixels::rowBytes(form) * form.height);
    if (!memory) return std::nullopt;
    auto* const x = connection.raw();
    const auto segment = xcb_generate_id(x);
    const auto attached = xcb_shm_attach_fd_checked(x, segment, memory.handOver(), 0);
    const auto asked = xcb_shm_get_image(x, connection.screen().root, static_cast<std::int16_t>(rect.x), static_cast<std::int16_t>(rect.y),
                                         static_cast<std::uint16_t>(rect.width), static_cast<std::uint16_t>(rect.height), ~0u,
                                         XCB_IMAGE_FORMAT_Z_PIXMAP, segment, 0);
    const auto detached = xcb_shm_detach_checked(x, segment);
    connection.settle(timeoutSec, stop);
    const XReply<xcb_generic_error_t> attachError{xcb_request_check(x, attached)}, detachError{xcb_request_check(x, detached)};
    const XReply<xcb_shm_get_image_reply_t> reply{xcb_shm_get_image_reply(x, asked, nullptr)};
    if (!reply) return std::nullopt;
    return XPixels::toRGB(form, memory.bytes());
  }

  /// A picture over the connection itself, as the server lays it out.
  XReply<xcb_get_image_reply_t> overTheSocket(const PixelRect& rect, double timeoutSec, const std::stop_token& stop) {
    auto* const x = connection.raw();
    const auto asked = xcb_get_image(x, XCB_IMAGE_FORMAT_Z_PIXMAP, connection.screen().root, static_cast<std::int16_t>(rect.x),
                                     static_cast<std::int16_t>(rect.y), static_cast<std::uint16_t>(rect.width),
                                     static_cast<std::uint16_t>(rect.height), ~0u);
    connection.settle(timeoutSec, stop);
    xcb_generic_error_t* failure = nullptr;
    XReply<xcb_get_image_reply_t> reply{xcb_get_image_reply(x, asked, &failure)};
    const XReply<xcb_generic_error_t> error{failure};
    if (!reply)
      throw ScreenCaptureError(Kind::refused,
                               fmt::format("the display won't show its picture (X error {})", error ? error->error_code : 0));
    return reply;
  }
  static std::span<const std::uint8_t> bytesOf(const xcb_get_image_reply_t& reply) {
    return {xcb_get_image_data(&reply), static_cast<std::size_t>(xcb_get_image_data_length(&reply))};
  }

  std::vector<ScreenDisplay> monitors() {
    auto* const x = connection.raw();
    std::vector<ScreenDisplay> found;
    if (hasMonitors) {
      const auto asked = xcb_randr_get_monitors(x, connection.screen().root, 1);
      connection.settle(setupTimeoutSec, {});
      const XReply<xcb_randr_get_monitors_reply_t> reply{xcb_randr_get_monitors_reply(x, asked, nullptr)};
      std::vector<xcb_get_atom_name_cookie_t> names;
      if (reply)
        for (auto monitor = xcb_randr_get_monitors_monitors_iterator(reply.get()); monitor.rem != 0;
             xcb_randr_monitor_info_next(&monitor)) {
          const auto& info = *monitor.data;
          found.push_back({.bounds = {.x = static_cast<double>(info.x),
                                      .y = static_cast<double>(info.y),
                                      .width = static_cast<double>(info.width),
                                      .height = static_cast<double>(info.height)},
                           .isPrimary = info.primary != 0});
          names.push_back(xcb_get_atom_name(x, info.name));
        }
      connection.settle(setupTimeoutSec, {});
      for (std::size_t i = 0; i < names.size(); ++i) {
        const XReply<xcb_get_atom_name_reply_t> name{xcb_get_atom_name_reply(x, names[i], nullptr)};
        if (name)
          found[i].name.assign(xcb_get_atom_name_name(name.get()), static_cast<std::size_t>(xcb_get_atom_name_name_length(name.get())));
      }
    }
    if (found.empty()) {  // a server without monitors is one picture all over
      const auto [width, height] = desktopSize(setupTimeoutSec, {});
      found.push_back(
          {.name = "screen", .bounds = {.width = static_cast<double>(width), .height = static_cast<double>(height)}, .isPrimary = true});
    }
    std::stable_partition(found.begin(), found.end(), [](const ScreenDisplay& display) { return display.isPrimary; });
    for (std::size_t i = 0; i < found.size(); ++i) found[i].number = static_cast<int>(i);
    return found;
  }
};

XScreenCapture::XScreenCapture(std::optional<std::string> display) : display_(std::move(display)) {}
XScreenCapture::~XScreenCapture() = default;

template <class F>
auto XScreenCapture::withDisplay(F&& body) -> decltype(body(std::declval<Live&>())) {
  try {
    if (!live_) live_ = std::make_unique<Live>(display_);
    return body(*live_);
  } catch (const XUnavailable& error) {
    live_.reset();
    throw asCaptureError(error);
  } catch (const Cancelled&) {
    live_.reset();  // an answer that nobody waits for any more would be taken for the next one's
    throw;
  }
}

std::vector<ScreenDisplay> XScreenCapture::displays() {
  return withDisplay([](Live& live) { return live.monitors(); });
}

template <class F>
auto XScreenCapture::picture(F&& body, const std::stop_token& stop) -> decltype(body(std::declval<Live&>())) {
  throwIfStopped(stop);
  // A display that went away since the last picture may be back already; the first failure of an old connection is not the answer.
  const bool wasConnected = live_ != nullptr;
  try {
    try {
      return withDisplay(body);
    } catch (const ScreenCaptureError& error) {
      if (error.kind() != Kind::noDisplay || !wasConnected) throw;
      return withDisplay(body);
    }
  } catch (const ScreenCaptureError&) {
    throw;
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    throw ScreenCaptureError(Kind::failed, error.what());
  }
}

std::string XScreenCapture::capturePNG(const Rect& bounds, double timeoutSec, const std::stop_token& stop) {
  return picture(
      [&](Live& live) {
        const auto [width, height] = live.desktopSize(timeoutSec, stop);
        const auto rect = clipped(bounds, width, height);
        if (rect.width <= 0 || rect.height <= 0) throw ScreenCaptureError(Kind::outsideDesktop, "the rectangle lies outside the desktop");
        std::optional<PNGWriter::RGBImage> image;
        if (live.canShare) image = live.shared(rect, timeoutSec, stop);
        if (!image) image = XPixels::toRGB(live.layout(rect), Live::bytesOf(*live.overTheSocket(rect, timeoutSec, stop)));
        return PNGWriter::encode(*image);
      },
      stop);
}

void XScreenCapture::capturePixels(const Rect& bounds, std::span<std::uint8_t> pixels, double timeoutSec, const std::stop_token& stop) {
  picture(
      [&](Live& live) {
        const auto [width, height] = live.desktopSize(timeoutSec, stop);
        const auto rect = clipped(bounds, width, height);
        if (rect.width != bounds.width || rect.height != bounds.height || rect.width <= 0 || rect.height <= 0)
          throw ScreenCaptureError(Kind::outsideDesktop, "the rectangle isn't wholly on the desktop");
        if (!live.keptPixels(rect, pixels, timeoutSec, stop))
          XPixels::toBGR0(live.layout(rect), Live::bytesOf(*live.overTheSocket(rect, timeoutSec, stop)), pixels);
      },
      stop);
}

}  // namespace halvo
