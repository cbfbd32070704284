#include "tests/support/TestWindow.h"

#include <cstring>
#include <stdexcept>
#include <vector>

#include "tests/support/Eventually.h"

namespace halvo::test {
namespace {

template <class T>
std::unique_ptr<T, decltype(&std::free)> owned(T* reply) {
  return {reply, std::free};
}

}  // namespace

TestWindow::TestWindow(const std::string& display, const Options& options) : connection_(xcb_connect(display.c_str(), nullptr)) {
  auto* const x = connection_.get();
  if (xcb_connection_has_error(x) != 0) throw std::runtime_error("no display " + display);
  screen_ = xcb_setup_roots_iterator(xcb_get_setup(x)).data;
  window_ = xcb_generate_id(x);
  const std::uint32_t values[] = {options.color, options.isOverrideRedirect ? 1u : 0u};
  xcb_create_window(x, XCB_COPY_FROM_PARENT, window_, options.parent ? options.parent : screen_->root, static_cast<std::int16_t>(options.x),
                    static_cast<std::int16_t>(options.y), static_cast<std::uint16_t>(options.width),
                    static_cast<std::uint16_t>(options.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen_->root_visual,
                    XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
  if (!options.title.empty()) setTitle(options.title);
  if (options.oldTitle) setText("WM_NAME", "STRING", *options.oldTitle);
  if (!options.className.empty()) setText("WM_CLASS", "STRING", options.className + '\0' + options.className + '\0');
  if (!options.gtkApplicationID.empty()) setText("_GTK_APPLICATION_ID", "UTF8_STRING", options.gtkApplicationID);
  if (options.pid) xcb_change_property(x, XCB_PROP_MODE_REPLACE, window_, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 32, 1, &*options.pid);
  const auto setAtom = [&](const char* property, const char* value) {
    const auto number = atom(value);
    xcb_change_property(x, XCB_PROP_MODE_REPLACE, window_, atom(property), XCB_ATOM_ATOM, 32, 1, &number);
  };
  if (options.isFullscreen) setAtom("_NET_WM_STATE", "_NET_WM_STATE_FULLSCREEN");
  if (options.isDock) setAtom("_NET_WM_WINDOW_TYPE", "_NET_WM_WINDOW_TYPE_DOCK");
  // Size hints with a position of the user's own: the window manager then leaves it where it is.
  const std::int32_t hints[18] = {1 | 2, options.x, options.y, options.width, options.height};
  xcb_change_property(x, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
  if (!options.text.empty()) paint(options);
  xcb_map_window(x, window_);
  xcb_flush(x);
  if (!eventually([&] { return isViewable(); })) throw std::runtime_error("the window didn't come up");
}

TestWindow::~TestWindow() = default;

xcb_atom_t TestWindow::atom(const std::string& name) {
  auto* const x = connection_.get();
  const auto reply = owned(xcb_intern_atom_reply(x, xcb_intern_atom(x, 0, static_cast<std::uint16_t>(name.size()), name.c_str()), nullptr));
  return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

void TestWindow::setText(const std::string& property, const std::string& type, const std::string& value) {
  xcb_change_property(connection_.get(), XCB_PROP_MODE_REPLACE, window_, atom(property), atom(type), 8,
                      static_cast<std::uint32_t>(value.size()), value.data());
  xcb_flush(connection_.get());
}

void TestWindow::setTitle(const std::string& title) { setText("_NET_WM_NAME", "UTF8_STRING", title); }

void TestWindow::setWorkspace(std::uint32_t number) {
  auto* const x = connection_.get();
  xcb_change_property(x, XCB_PROP_MODE_REPLACE, window_, atom("_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL, 32, 1, &number);
  xcb_flush(x);
}

bool TestWindow::isViewable() {
  auto* const x = connection_.get();
  // openbox sleeps on a window that came while it was starting, until something else happens: so something does.
  xcb_change_property(x, XCB_PROP_MODE_APPEND, screen_->root, atom("HALVO_TEST_NUDGE"), XCB_ATOM_STRING, 8, 0, nullptr);
  const auto reply = owned(xcb_get_window_attributes_reply(x, xcb_get_window_attributes(x, window_), nullptr));
  return reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
}

/// The text becomes the window's background, which the server repaints by itself whenever the window is uncovered.
void TestWindow::paint(const Options& options) {
  auto* const x = connection_.get();
  const int scale = options.textScale, width = options.width / scale, height = options.height / scale;
  const auto small = xcb_generate_id(x), large = xcb_generate_id(x), font = xcb_generate_id(x), pen = xcb_generate_id(x);
  const std::string fontName = "12x24";
  xcb_open_font(x, font, static_cast<std::uint16_t>(fontName.size()), fontName.c_str());
  xcb_create_pixmap(x, screen_->root_depth, small, window_, static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height));
  xcb_create_pixmap(x, screen_->root_depth, large, window_, static_cast<std::uint16_t>(options.width),
                    static_cast<std::uint16_t>(options.height));
  const std::uint32_t clear[] = {options.color, options.color, font};
  xcb_create_gc(x, pen, small, XCB_GC_FOREGROUND | XCB_GC_BACKGROUND | XCB_GC_FONT, clear);
  const xcb_rectangle_t all = {0, 0, static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)};
  xcb_poly_fill_rectangle(x, small, pen, 1, &all);
  const std::uint32_t black = 0;
  xcb_change_gc(x, pen, XCB_GC_FOREGROUND, &black);
  xcb_image_text_8(x, static_cast<std::uint8_t>(options.text.size()), small, pen, 10, 40, options.text.c_str());
  // Column by column, then row by row: the server has no stretching copy of its own.
  const auto stretched = xcb_generate_id(x);
  xcb_create_pixmap(x, screen_->root_depth, stretched, window_, static_cast<std::uint16_t>(options.width),
                    static_cast<std::uint16_t>(height));
  const auto copy = [&](xcb_pixmap_t from, xcb_pixmap_t to, int fromX, int fromY, int toX, int toY, int w, int h) {
    xcb_copy_area(x, from, to, pen, static_cast<std::int16_t>(fromX), static_cast<std::int16_t>(fromY), static_cast<std::int16_t>(toX),
                  static_cast<std::int16_t>(toY), static_cast<std::uint16_t>(w), static_cast<std::uint16_t>(h));
  };
  for (int column = 0; column < options.width; ++column) copy(small, stretched, column / scale, 0, column, 0, 1, height);
  for (int row = 0; row < options.height; ++row) copy(stretched, large, 0, row / scale, 0, row, options.width, 1);
  const std::uint32_t background = large;
  xcb_change_window_attributes(x, window_, XCB_CW_BACK_PIXMAP, &background);
  for (const auto pixmap : {small, stretched, large}) xcb_free_pixmap(x, pixmap);
  xcb_free_gc(x, pen);
  xcb_close_font(x, font);
}

void TestWindow::activate() {
  auto* const x = connection_.get();
  xcb_client_message_event_t message = {};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = window_;
  message.type = atom("_NET_ACTIVE_WINDOW");
  message.data.data32[0] = 2;  // as a pager asks, which no focus stealing rule refuses
  xcb_send_event(x, 0, screen_->root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                 reinterpret_cast<const char*>(&message));
  xcb_flush(x);
  const auto isActive = [&] {
    const auto reply =
        owned(xcb_get_property_reply(x, xcb_get_property(x, 0, screen_->root, atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW, 0, 1), nullptr));
    return reply && reply->length == 1 && *static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get())) == window_;
  };
  if (!eventually(isActive)) throw std::runtime_error("the window didn't get the focus");
}

void TestWindow::minimize() {
  auto* const x = connection_.get();
  xcb_client_message_event_t message = {};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = window_;
  message.type = atom("WM_CHANGE_STATE");
  message.data.data32[0] = 3;  // iconic
  xcb_send_event(x, 0, screen_->root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                 reinterpret_cast<const char*>(&message));
  xcb_flush(x);
  if (!eventually([&] { return !isViewable(); })) throw std::runtime_error("the window didn't go away");
}

}  // namespace halvo::test
