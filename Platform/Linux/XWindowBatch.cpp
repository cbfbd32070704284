#include "Platform/Linux/XWindowBatch.h"

#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "Platform/Linux/XText.h"

namespace halvo {
namespace {

/// Longest text read of a window, in 32-bit words: 4 KiB. A title is a line; a program that sets a megabyte gets its start recorded.
constexpr std::uint32_t textWords = 1024;

std::string classOf(XConnection& connection, xcb_get_property_cookie_t cookie) {
  const XReply<xcb_get_property_reply_t> reply{xcb_get_property_reply(connection.raw(), cookie, nullptr)};
  if (!reply || reply->format != 8) return {};
  return XText::className({static_cast<const char*>(xcb_get_property_value(reply.get())),
                           static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))});
}

/// The program's name from the kernel, for a window without a class: an unnamed window of a password manager is still its window.
std::string processName(int pid) {
  try {
    return Text::scrubbed(Text::trim(readFile(fmt::format("/proc/{}/comm", pid))));
  } catch (const std::exception&) {
    return {};
  }
}

bool contains(const std::vector<std::uint32_t>& words, xcb_atom_t atom) {
  return atom != XCB_ATOM_NONE && std::find(words.begin(), words.end(), atom) != words.end();
}

}  // namespace

XAtoms XAtoms::of(XConnection& connection, double timeoutSec) {
  XAtoms atoms;
  const std::array<std::pair<const char*, xcb_atom_t*>, 14> table{{
      {"_NET_ACTIVE_WINDOW", &atoms.netActiveWindow},
      {"_NET_CLIENT_LIST_STACKING", &atoms.netClientListStacking},
      {"_NET_CURRENT_DESKTOP", &atoms.netCurrentDesktop},
      {"_NET_WM_NAME", &atoms.netWMName},
      {"_NET_WM_PID", &atoms.netWMPid},
      {"_NET_WM_STATE", &atoms.netWMState},
      {"_NET_WM_STATE_FULLSCREEN", &atoms.netWMStateFullscreen},
      {"_NET_WM_STATE_HIDDEN", &atoms.netWMStateHidden},
      {"_NET_WM_WINDOW_TYPE", &atoms.netWMWindowType},
      {"_NET_WM_WINDOW_TYPE_DOCK", &atoms.netWMWindowTypeDock},
      {"_NET_WM_DESKTOP", &atoms.netWMDesktop},
      {"_GTK_APPLICATION_ID", &atoms.gtkApplicationID},
      {"_KDE_NET_WM_DESKTOP_FILE", &atoms.kdeDesktopFile},
      {"UTF8_STRING", &atoms.utf8String},
  }};
  std::array<const char*, table.size()> names = {};
  std::array<xcb_atom_t, table.size()> values = {};
  for (std::size_t i = 0; i < table.size(); ++i) names[i] = table[i].first;
  connection.intern(names.data(), values.data(), table.size(), timeoutSec);
  for (std::size_t i = 0; i < table.size(); ++i) *table[i].second = values[i];
  return atoms;
}

std::string textOf(XConnection& connection, xcb_get_property_cookie_t cookie, xcb_atom_t utf8String) {
  const XReply<xcb_get_property_reply_t> reply{xcb_get_property_reply(connection.raw(), cookie, nullptr)};
  if (!reply || reply->format != 8) return {};
  const std::string_view bytes(static_cast<const char*>(xcb_get_property_value(reply.get())),
                               static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
  return XText::decoded(bytes, reply->type == utf8String);
}

std::optional<std::vector<std::uint32_t>> wordsOrNone(XConnection& connection, xcb_get_property_cookie_t cookie) {
  const XReply<xcb_get_property_reply_t> reply{xcb_get_property_reply(connection.raw(), cookie, nullptr)};
  if (!reply || reply->format != 32) return std::nullopt;
  const auto* words = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
  return std::vector(words, words + xcb_get_property_value_length(reply.get()) / 4);
}

std::vector<std::uint32_t> wordsOf(XConnection& connection, xcb_get_property_cookie_t cookie) {
  return wordsOrNone(connection, cookie).value_or(std::vector<std::uint32_t>());
}

void XWindowBatch::add(xcb_window_t window) {
  auto* const x = connection_.raw();
  const auto property = [&](xcb_atom_t name, std::uint32_t words) {
    return xcb_get_property(x, 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0, words);
  };
  asked_.push_back({.window = window,
                    .attributes = xcb_get_window_attributes(x, window),
                    .geometry = xcb_get_geometry(x, window),
                    .origin = xcb_translate_coordinates(x, window, connection_.screen().root, 0, 0),
                    .tree = xcb_query_tree(x, window),
                    .wmClass = property(XCB_ATOM_WM_CLASS, textWords),
                    .netName = property(atoms_.netWMName, textWords),
                    .name = property(XCB_ATOM_WM_NAME, textWords),
                    .pid = property(atoms_.netWMPid, 1),
                    .state = property(atoms_.netWMState, 64),
                    .type = property(atoms_.netWMWindowType, 16),
                    .desktop = property(atoms_.netWMDesktop, 1),
                    .gtkID = property(atoms_.gtkApplicationID, 64),
                    .desktopFile = property(atoms_.kdeDesktopFile, 64)});
}

std::vector<XWindow> XWindowBatch::collect() {
  std::vector<XWindow> windows;
  for (const auto& asked : asked_)
    if (auto window = collect(asked)) windows.push_back(std::move(*window));
  asked_.clear();
  return windows;
}

std::optional<XWindow> XWindowBatch::collect(const Requests& asked) {
  auto* const x = connection_.raw();
  // Every reply is fetched before anything is decided: libxcb keeps one that nobody asks for.
  const XReply<xcb_get_window_attributes_reply_t> attributes{xcb_get_window_attributes_reply(x, asked.attributes, nullptr)};
  const XReply<xcb_get_geometry_reply_t> geometry{xcb_get_geometry_reply(x, asked.geometry, nullptr)};
  const XReply<xcb_translate_coordinates_reply_t> origin{xcb_translate_coordinates_reply(x, asked.origin, nullptr)};
  const XReply<xcb_query_tree_reply_t> tree{xcb_query_tree_reply(x, asked.tree, nullptr)};
  auto ownerName = classOf(connection_, asked.wmClass);
  auto title = textOf(connection_, asked.netName, atoms_.utf8String);
  const auto oldTitle = textOf(connection_, asked.name, atoms_.utf8String);
  const auto pid = wordsOf(connection_, asked.pid), state = wordsOf(connection_, asked.state), type = wordsOf(connection_, asked.type),
             desktop = wordsOf(connection_, asked.desktop);
  auto bundleID = textOf(connection_, asked.gtkID, atoms_.utf8String);
  const auto desktopFile = textOf(connection_, asked.desktopFile, atoms_.utf8String);

  if (!attributes || !geometry || !origin || !tree) return std::nullopt;
  if (attributes->map_state != XCB_MAP_STATE_VIEWABLE || attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT) return std::nullopt;

  XWindow window{.id = asked.window, .parent = tree->parent, .overrideRedirect = attributes->override_redirect != 0};
  constexpr std::uint32_t onAllDesktops = 0xFFFFFFFF;
  if (!desktop.empty() && desktop[0] != onAllDesktops) window.desktop = desktop[0];
  window.isHidden = contains(state, atoms_.netWMStateHidden);
  window.hasChildren = tree->children_len > 0;

  auto& info = window.info;
  constexpr std::uint32_t largestPid = 1u << 22;  // the kernel's own limit
  if (!pid.empty() && pid[0] > 0 && pid[0] <= largestPid) info.ownerPID = static_cast<int>(pid[0]);
  info.ownerName = ownerName.empty() && info.ownerPID ? processName(*info.ownerPID) : std::move(ownerName);
  info.title = title.empty() ? oldTitle : std::move(title);
  if (bundleID.empty()) bundleID = desktopFile;
  if (!bundleID.empty()) info.bundleID = std::move(bundleID);
  info.layer = contains(type, atoms_.netWMWindowTypeDock) ? WindowInfo::layerDock
               : window.overrideRedirect                  ? WindowInfo::layerPopUp
                                                          : WindowInfo::layerNormal;
  info.bounds = {.x = static_cast<double>(origin->dst_x),
                 .y = static_cast<double>(origin->dst_y),
                 .width = static_cast<double>(geometry->width),
                 .height = static_cast<double>(geometry->height)};
  info.isFullscreen = contains(state, atoms_.netWMStateFullscreen);
  return window;
}

}  // namespace halvo
