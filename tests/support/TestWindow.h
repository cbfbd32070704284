#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <xcb/xcb.h>

namespace halvo::test {

/// A real window on a display: it is up and painted when built and gone when this is.
class TestWindow {
 public:
  struct Options {
    std::string title = {};
    std::string className = {};
    std::optional<std::string> oldTitle = {};  ///< WM_NAME as raw Latin-1 bytes; absent: none
    std::optional<std::uint32_t> pid = {};
    std::string gtkApplicationID = {};
    int x = 100, y = 100, width = 400, height = 300;
    bool isFullscreen = false, isOverrideRedirect = false, isDock = false;
    std::uint32_t color = 0xFFFFFF;  ///< red, green and blue
    std::string text = {};           ///< written in black in the X server's own letters, doubled in size by `textScale`
    int textScale = 1;
    xcb_window_t parent = 0;  ///< 0: the root
  };
  /// Throws `std::runtime_error` when the window doesn't come up.
  TestWindow(const std::string& display, const Options& options);
  ~TestWindow();

  xcb_window_t id() const { return window_; }
  void setTitle(const std::string& title);
  /// Says that it belongs to that workspace, and stays where it is.
  void setWorkspace(std::uint32_t number);
  /// Asks the window manager to bring it to the front, and waits until it has the focus.
  void activate();
  void minimize();

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };
  xcb_atom_t atom(const std::string& name);
  void setText(const std::string& property, const std::string& type, const std::string& value);
  void paint(const Options& options);
  bool isViewable();

  std::unique_ptr<xcb_connection_t, Disconnect> connection_;
  const xcb_screen_t* screen_ = nullptr;
  xcb_window_t window_ = 0;
};

}  // namespace halvo::test
