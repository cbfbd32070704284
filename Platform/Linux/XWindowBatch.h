#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Desktop/DesktopFacts.h"
#include "Platform/Linux/XConnection.h"

namespace halvo {

/// The names that window managers and programs agreed on, as this server's numbers.
struct XAtoms {
  xcb_atom_t netActiveWindow = 0, netClientListStacking = 0, netCurrentDesktop = 0, netWMName = 0, netWMPid = 0, netWMState = 0,
             netWMStateFullscreen = 0, netWMStateHidden = 0, netWMWindowType = 0, netWMWindowTypeDock = 0, netWMDesktop = 0,
             gtkApplicationID = 0, kdeDesktopFile = 0, utf8String = 0;
  /// Throws like `XConnection::settle`.
  static XAtoms of(XConnection& connection, double timeoutSec);
};

/// One window as the server described it.
struct XWindow {
  xcb_window_t id = 0, parent = 0;
  bool overrideRedirect = false;
  std::optional<std::uint32_t> desktop = {};  ///< the workspace; absent: not said, or on all
  bool isHidden = false;                      ///< minimised
  bool hasChildren = false;
  WindowInfo info = {};
};

/// Describes many windows in one pipelined batch: add them, settle the connection, collect.
class XWindowBatch {
 public:
  XWindowBatch(XConnection& connection, const XAtoms& atoms) : connection_(connection), atoms_(atoms) {}

  /// Queues the requests for one window.
  void add(xcb_window_t window);
  /// How many windows were added since the last `collect`.
  std::size_t size() const { return asked_.size(); }
  /// The windows that can be seen, in the order added; one that is unmapped, takes input only or vanished is left out.
  std::vector<XWindow> collect();

 private:
  struct Requests {
    xcb_window_t window = 0;
    xcb_get_window_attributes_cookie_t attributes = {};
    xcb_get_geometry_cookie_t geometry = {};
    xcb_translate_coordinates_cookie_t origin = {};
    xcb_query_tree_cookie_t tree = {};
    xcb_get_property_cookie_t wmClass = {}, netName = {}, name = {}, pid = {}, state = {}, type = {}, desktop = {}, gtkID = {},
                              desktopFile = {};
  };
  std::optional<XWindow> collect(const Requests& asked);

  XConnection& connection_;
  const XAtoms& atoms_;
  std::vector<Requests> asked_;
};

/// The text of a property; empty when the window has none.
std::string textOf(XConnection& connection, xcb_get_property_cookie_t cookie, xcb_atom_t utf8String);
/// The words of a 32-bit property; absent when the window has none.
std::optional<std::vector<std::uint32_t>> wordsOrNone(XConnection& connection, xcb_get_property_cookie_t cookie);
/// The same; empty when the window has none.
std::vector<std::uint32_t> wordsOf(XConnection& connection, xcb_get_property_cookie_t cookie);

}  // namespace halvo
