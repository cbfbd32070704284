#include "Platform/Linux/XDesktopReader.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <set>

#include <fmt/format.h>
#include <xcb/screensaver.h>
#include <xcb/xinput.h>

#include "Platform/Linux/InputClock.h"
#include "Platform/Linux/XConnection.h"
#include "Platform/Linux/XWindowBatch.h"

namespace halvo {
namespace {

/// More windows than this are not described, and then none is: a program that opens thousands must not slow the desktop's other programs
/// through us, nor hide a window from us.
constexpr std::size_t mostWindows = 500;

std::int64_t steadyMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Parked beside the screen, as window managers do with windows of their own and some with what they hide.
bool isOutside(const Rect& at, const Rect& screen) {
  return at.x >= screen.x + screen.width || at.y >= screen.y + screen.height || at.x + at.width <= screen.x || at.y + at.height <= screen.y;
}

bool covers(const Rect& at, const Rect& screen) {
  return at.x <= screen.x && at.y <= screen.y && at.x + at.width >= screen.x + screen.width && at.y + at.height >= screen.y + screen.height;
}

bool isBelow(const std::map<xcb_window_t, std::size_t>& heightOf, xcb_window_t window, std::size_t height) {
  const auto found = heightOf.find(window);
  return found != heightOf.end() && found->second < height;
}

}  // namespace

/// A connection with what was prepared on it once.
struct XDesktopReader::Live {
  XConnection connection;
  double timeoutSec;
  XAtoms atoms;
  bool hasScreenSaver = false;
  std::uint8_t inputOpcode = 0;  ///< the input extension's; 0 without it
  xcb_window_t clockWindow = 0;  ///< a write to its property comes back with the server's time
  std::optional<InputClock> input;
  std::optional<std::uint32_t> serverMs;

  Live(const std::optional<std::string>& display, double timeout)
      : connection(display, timeout), timeoutSec(timeout), atoms(XAtoms::of(connection, timeout)) {
    hasScreenSaver = connection.hasExtension("MIT-SCREEN-SAVER", timeoutSec);
    if (connection.hasExtension("XInputExtension", timeoutSec)) listenToInput();
  }

  /// Raw events reach us wherever the focus is. From version 2.1 on they do so even while another program grabs the input.
  void listenToInput() {
    auto* const x = connection.raw();
    const auto version = xcb_input_xi_query_version(x, 2, 2);
    connection.settle(timeoutSec, {});
    const XReply<xcb_input_xi_query_version_reply_t> reply{xcb_input_xi_query_version_reply(x, version, nullptr)};
    if (!reply || reply->major_version < 2 || (reply->major_version == 2 && reply->minor_version < 2)) return;
    const auto* extension = xcb_get_extension_data(x, &xcb_input_id);
    if (!extension || !extension->present) return;
    const struct {
      xcb_input_event_mask_t head;
      std::uint32_t mask;
    } selection = {{.deviceid = XCB_INPUT_DEVICE_ALL_MASTER, .mask_len = 1},
                   XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE |
                       XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_RELEASE |
                       XCB_INPUT_XI_EVENT_MASK_RAW_MOTION | XCB_INPUT_XI_EVENT_MASK_RAW_TOUCH_BEGIN |
                       XCB_INPUT_XI_EVENT_MASK_RAW_TOUCH_UPDATE | XCB_INPUT_XI_EVENT_MASK_RAW_TOUCH_END};
    xcb_input_xi_select_events(x, connection.screen().root, 1, &selection.head);
    clockWindow = xcb_generate_id(x);
    const std::uint32_t values[] = {1, XCB_EVENT_MASK_PROPERTY_CHANGE};
    xcb_create_window(x, 0, clockWindow, connection.screen().root, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
                      XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    inputOpcode = extension->major_opcode;
  }

  void onEvent(const xcb_generic_event_t& event) {
    const auto kind = event.response_type & 0x7F;
    if (kind == XCB_PROPERTY_NOTIFY) {
      const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(event);
      if (notify.window == clockWindow) serverMs = notify.time;
    } else if (kind == XCB_GE_GENERIC && input) {
      const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(event);
      if (inputOpcode == 0 || generic.extension != inputOpcode) return;
      // All raw events begin alike.
      const auto& raw = reinterpret_cast<const xcb_input_raw_key_press_event_t&>(event);
      if (raw.event_type == XCB_INPUT_RAW_KEY_PRESS || raw.event_type == XCB_INPUT_RAW_KEY_RELEASE)
        input->key(raw.time);
      else
        input->mouse(raw.time);
    }
  }

  void settle() {
    connection.settle(timeoutSec, {}, [this](const xcb_generic_event_t& event) { onEvent(event); });
  }

  XFacts read() {
    auto* const x = connection.raw();
    const auto root = connection.screen().root;
    const auto rootProperty = [&](xcb_atom_t name, std::uint32_t words) {
      return xcb_get_property(x, 0, root, name, XCB_GET_PROPERTY_TYPE_ANY, 0, words);
    };
    serverMs.reset();
    const auto activeAsked = rootProperty(atoms.netActiveWindow, 1);
    const auto stackingAsked = rootProperty(atoms.netClientListStacking, 4096);
    const auto desktopAsked = rootProperty(atoms.netCurrentDesktop, 1);
    const auto treeAsked = xcb_query_tree(x, root);
    const auto pointerAsked = xcb_query_pointer(x, root);
    std::optional<xcb_screensaver_query_info_cookie_t> saverAsked;
    if (hasScreenSaver) saverAsked = xcb_screensaver_query_info(x, root);
    if (clockWindow != 0) xcb_change_property(x, XCB_PROP_MODE_APPEND, clockWindow, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, 0, nullptr);
    settle();

    XFacts facts;
    const auto active = wordsOf(connection, activeAsked), desktop = wordsOf(connection, desktopAsked);
    const auto stacking = wordsOrNone(connection, stackingAsked);
    const XReply<xcb_query_tree_reply_t> tree{xcb_query_tree_reply(x, treeAsked, nullptr)};
    const XReply<xcb_query_pointer_reply_t> pointer{xcb_query_pointer_reply(x, pointerAsked, nullptr)};
    XReply<xcb_screensaver_query_info_reply_t> saver;
    if (saverAsked) saver.reset(xcb_screensaver_query_info_reply(x, *saverAsked, nullptr));
    if (pointer && pointer->same_screen)
      facts.pointer = Point{.x = static_cast<double>(pointer->root_x), .y = static_cast<double>(pointer->root_y)};
    facts.idle = idle(saver.get());
    readWindows(facts, {.active = active.empty() ? xcb_window_t{XCB_WINDOW_NONE} : active[0],
                        .clients = stacking.value_or(std::vector<std::uint32_t>()),
                        .hasClientList = stacking.has_value(),
                        .desktop = desktop.empty() ? std::nullopt : std::optional(desktop[0]),
                        .rootChildren = tree ? std::vector(xcb_query_tree_children(tree.get()),
                                                           xcb_query_tree_children(tree.get()) + tree->children_len)
                                             : std::vector<xcb_window_t>()});
    return facts;
  }

  IdleSeconds idle(const xcb_screensaver_query_info_reply_t* saver) {
    if (clockWindow != 0 && serverMs) {
      // Without the screen saver's word the time before we came counts as idle from our start on.
      if (!input) input.emplace(*serverMs, saver ? saver->ms_since_user_input : 0);
      return input->at(*serverMs);
    }
    if (!saver) return {};
    const double any = saver->ms_since_user_input / 1000.0;
    return {.key = any, .mouse = any, .any = any};
  }

  struct Desktop {
    xcb_window_t active = 0;
    std::vector<xcb_window_t> clients = {};       ///< back to front
    bool hasClientList = false;                   ///< even an empty one
    std::optional<std::uint32_t> desktop = {};    ///< the workspace shown
    std::vector<xcb_window_t> rootChildren = {};  ///< back to front
  };

  struct ChildAsked {
    xcb_get_window_attributes_cookie_t attributes;
    xcb_get_geometry_cookie_t geometry;
  };
  /// The root's children.
  struct TopLevels {
    std::map<xcb_window_t, std::size_t> heightOf = {};                           ///< counted from the back
    std::vector<xcb_window_t> unmanaged = {};                                    ///< on the screen, and none of the known; front to back
    std::vector<std::pair<std::size_t, xcb_get_property_cookie_t>> covers = {};  ///< height and name of what is over the whole screen
  };

  TopLevels topLevels(const std::vector<xcb_window_t>& children, const std::vector<ChildAsked>& asked, const std::set<xcb_window_t>& known,
                      const Rect& screen) {
    auto* const x = connection.raw();
    TopLevels tops;
    for (std::size_t height = children.size(); height-- > 0;) {
      const auto child = children[height];
      tops.heightOf[child] = height;
      const XReply<xcb_get_window_attributes_reply_t> attributes{xcb_get_window_attributes_reply(x, asked[height].attributes, nullptr)};
      const auto at = rectOf(asked[height].geometry);
      if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE || !at) continue;
      if (attributes->override_redirect && covers(*at, screen))
        tops.covers.emplace_back(height, xcb_get_property(x, 0, child, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY, 0, 16));
      if (attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT && known.count(child) == 0 && !isOutside(*at, screen))
        tops.unmanaged.push_back(child);
    }
    return tops;
  }

  std::optional<Rect> rectOf(xcb_get_geometry_cookie_t asked) {
    const XReply<xcb_get_geometry_reply_t> reply{xcb_get_geometry_reply(connection.raw(), asked, nullptr)};
    if (!reply) return std::nullopt;
    return Rect{.x = reply->x * 1.0, .y = reply->y * 1.0, .width = reply->width * 1.0, .height = reply->height * 1.0};
  }

  void readWindows(XFacts& facts, const Desktop& now) {
    auto* const x = connection.raw();
    const auto sizeAsked = xcb_get_geometry(x, connection.screen().root);
    XWindowBatch batch(connection, atoms);
    std::set<xcb_window_t> clientIDs;
    for (auto client = now.clients.rbegin(); client != now.clients.rend() && clientIDs.size() < mostWindows; ++client)
      if (clientIDs.insert(*client).second) batch.add(*client);
    if (now.active != XCB_WINDOW_NONE && clientIDs.count(now.active) == 0) batch.add(now.active);
    std::vector<ChildAsked> asked;
    for (const auto child : now.rootChildren)
      asked.push_back({.attributes = xcb_get_window_attributes(x, child), .geometry = xcb_get_geometry(x, child)});
    settle();

    constexpr double anySize = 1e9;
    const auto screen = rectOf(sizeAsked).value_or(Rect{.x = -anySize, .y = -anySize, .width = 2 * anySize, .height = 2 * anySize});
    auto managed = batch.collect();
    auto known = clientIDs;
    known.insert(now.active);
    for (const auto& window : managed) known.insert(window.parent);
    auto tops = topLevels(now.rootChildren, asked, known, screen);
    const bool areTooMany = now.clients.size() > mostWindows || tops.unmanaged.size() > mostWindows;
    if (areTooMany) tops.unmanaged.clear();
    for (const auto child : tops.unmanaged) batch.add(child);
    settle();
    auto unmanaged = batch.collect();
    const auto curtain = curtainOf(tops);

    for (const auto& window : managed)
      if (window.id == now.active)
        facts.frontmostApp = FrontmostApp{.name = window.info.ownerName, .bundleID = window.info.bundleID, .pid = window.info.ownerPID};
    std::erase_if(managed, [&](const XWindow& window) {
      return clientIDs.count(window.id) == 0 || window.isHidden || isOutside(window.info.bounds, screen) ||
             isBehind(curtain, window, now, tops);
    });
    // A window that says neither whose it is nor what it shows is a part of the window manager's own workings, not a thing to look at. Where no
    // list says which windows are managed, it may as well be the frame around one, and what that is can't be told.
    const auto isNameless = [](const XWindow& window) { return window.info.ownerName.empty() && window.info.title.empty(); };
    const bool areFramesUntold =
        !now.hasClientList && std::ranges::any_of(unmanaged, [&](const XWindow& window) { return isNameless(window) && window.hasChildren; });
    std::erase_if(unmanaged, isNameless);
    if (!areTooMany && !areFramesUntold) facts.windows = merged(managed, unmanaged, tops.heightOf);
  }

  /// How high a window stands that some window managers put in front of everything that is mapped and not to be seen; absent without one.
  std::optional<std::size_t> curtainOf(const TopLevels& tops) {
    std::optional<std::size_t> curtain;
    for (const auto& [height, nameAsked] : tops.covers)
      if (textOf(connection, nameAsked, atoms.utf8String).ends_with(" guard window") && !curtain) curtain = height;
    return curtain;
  }

  /// Whether a window of another workspace is kept behind the curtain. Without one it is on the screen: of another monitor, say, that shows
  /// a workspace of its own.
  static bool isBehind(const std::optional<std::size_t>& curtain, const XWindow& window, const Desktop& now, const TopLevels& tops) {
    if (!curtain || !window.desktop || !now.desktop || *window.desktop == *now.desktop) return false;
    const auto isTop = tops.heightOf.count(window.id) != 0;
    return isBelow(tops.heightOf, isTop ? window.id : window.parent, *curtain);
  }

  /// Front to back. The window manager's order holds among its windows; each other window goes in front of the first of them that stands
  /// below it.
  static std::vector<WindowInfo> merged(const std::vector<XWindow>& managed, std::vector<XWindow>& unmanaged,
                                        const std::map<xcb_window_t, std::size_t>& heightOf) {
    const auto height = [&](const XWindow& window) { return heightOf.at(window.id); };
    std::stable_sort(unmanaged.begin(), unmanaged.end(), [&](const XWindow& a, const XWindow& b) { return height(a) > height(b); });
    std::vector<WindowInfo> windows;
    auto next = unmanaged.begin();
    for (const auto& window : managed) {
      const auto topLevel = heightOf.count(window.id) != 0 ? window.id : window.parent;
      // A frame within a frame can't be placed; what is in doubt counts as in front of it, where it can't be overlooked.
      const bool placed = heightOf.count(topLevel) != 0;
      while (next != unmanaged.end() && (!placed || isBelow(heightOf, topLevel, height(*next)))) windows.push_back((next++)->info);
      windows.push_back(window.info);
    }
    for (; next != unmanaged.end(); ++next) windows.push_back(next->info);
    return windows;
  }
};

XDesktopReader::XDesktopReader(Options options) : options_(std::move(options)) {}
XDesktopReader::~XDesktopReader() = default;

void XDesktopReader::connect() {
  live_ = std::make_unique<Live>(options_.display, options_.timeoutSec);
  if (trouble_ && options_.log) options_.log(fmt::format("display {} is there again", *options_.display));
  trouble_.reset();
}

XFacts XDesktopReader::read() {
  try {
    if (!live_) {
      if (steadyMs() < retryAtMs_) return {};
      connect();
    }
    return live_->read();
  } catch (const XUnavailable& error) {
    live_.reset();
    // Each refusal is also printed by libxcb itself, so it isn't provoked every second.
    if (error.kind() == XUnavailable::Kind::refused) retryAtMs_ = steadyMs() + static_cast<std::int64_t>(options_.refusedRetrySec * 1000);
    if (trouble_ != error.kind() && options_.log)
      options_.log(fmt::format("{} — windows, input and pointer stay unknown until it answers", error.what()));
    trouble_ = error.kind();
    return {};
  }
}

}  // namespace halvo
