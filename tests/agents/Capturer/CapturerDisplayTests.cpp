// The loop on a real X server with real windows, turn by turn on a clock of its own.

#include <gtest/gtest.h>
#include <xcb/randr.h>
#include <xcb/xcbext.h>

#include "CaptureShared/Foundation/WallHour.h"
#include "Platform/Linux/LinuxDesktop.h"
#include "Platform/Linux/XConnection.h"
#include "Platform/Linux/XScreenCapture.h"
#include "tests/agents/Capturer/CapturerScene.h"
#include "tests/support/TestWindow.h"
#include "tests/support/XServer.h"

namespace halvo {
namespace {

using test::Footage;

class CapturerDisplayTest : public testing::Test, protected test::CapturerScene {
 protected:
  /// Paints a part of the desktop, from `x` on, in one shade of grey.
  void paint(std::uint32_t shade, std::int16_t x = 0) const {
    XConnection connection(server.display());
    const auto root = connection.screen().root;
    const std::uint32_t color = shade * 0x10101;
    xcb_change_window_attributes(connection.raw(), root, XCB_CW_BACK_PIXEL, &color);
    xcb_clear_area(connection.raw(), 0, root, x, 0, 0, 0);
    connection.settle(2, {});
  }

  test::XServer server{{.width = 640, .height = 240}};
  LinuxDesktop desktop{{.display = server.display(),
                        .sessionBusAddress = "unix:path=/nonexistent",
                        .systemBusAddress = "unix:path=/nonexistent",
                        .nowMs = [this] { return nowMs; }}};
  XScreenCapture screen{server.display()};
};

TEST_F(CapturerDisplayTest, theHourChangesBetweenTwoFramesAndNoneIsLost) {
  const auto realMs = nowMs;
  nowMs = nowMs / 3'600'000 * 3'600'000 + 3'600'000 - 2'000;
  const Footage footage(folder.path(), Footage::key(), {.birthsLaterMs = nowMs - realMs});
  const auto firstHour = WallHour::prefix(nowMs, Calendar::utc()), secondHour = WallHour::prefix(nowMs + 2'000, Calendar::utc());
  const auto startMs = nowMs;
  CapturerLoop loop(ports(desktop, screen, folder.path()));
  for (std::uint32_t i = 0; i < 8; ++i) {
    paint(40 + i * 25);
    turns(loop, 1);
  }
  loop.endSessions();
  const FrameLocator::SegmentList want{.segments = {{firstHour + ".mkv", 0, 4}, {secondHour + ".mkv", 4, 8}}};
  EXPECT_EQ(FrameLocator::SegmentList::read(FrameLocator::segmentsPath(folder.path() / "video/display-0", startMs)), want);
  EXPECT_EQ(footage.files().size(), 2u);
  EXPECT_EQ(footage.frames(), 8);
  ASSERT_EQ(footage.rows().size(), 8u);
  for (const std::size_t i : {0, 3, 4, 7}) {
    EXPECT_EQ(footage.rows()[i], (FrameLocator::SidecarRow{startMs + static_cast<std::int64_t>(i) * 500, static_cast<std::int64_t>(i), startMs}));
    EXPECT_NEAR(footage.picture(i).at(320, 120), 40 + static_cast<int>(i) * 25, 8) << i;
  }
}

/// Sets a monitor of half the desktop, or takes it away.
void setMonitor(const std::string& display, const std::string& name, std::optional<std::int16_t> x) {
  const XConnection connection(display);
  auto* const raw = connection.raw();
  const auto root = connection.screen().root;
  const XReply<xcb_intern_atom_reply_t> atom{
      xcb_intern_atom_reply(raw, xcb_intern_atom(raw, 0, static_cast<std::uint16_t>(name.size()), name.c_str()), nullptr)};
  if (!x) return void(XReply<xcb_generic_error_t>{xcb_request_check(raw, xcb_randr_delete_monitor_checked(raw, root, atom->atom))});
  const XReply<xcb_randr_get_screen_resources_reply_t> resources{
      xcb_randr_get_screen_resources_reply(raw, xcb_randr_get_screen_resources(raw, root), nullptr)};
  struct {
    xcb_randr_monitor_info_t info = {};
    xcb_randr_output_t output = 0;
  } monitor;
  // The server's one output belongs to the left one; a monitor may be without any.
  monitor.info = {.name = atom->atom, .primary = *x == 0, .nOutput = *x == 0, .x = *x, .width = 320, .height = 240};
  monitor.output = *xcb_randr_get_screen_resources_outputs(resources.get());
  // libxcb's own function counts the outputs wrong.
  xcb_randr_set_monitor_request_t head = {.window = root};
  iovec parts[] = {{}, {}, {&head, sizeof head}, {&monitor, sizeof monitor.info + monitor.info.nOutput * sizeof monitor.output}};
  const xcb_protocol_request_t request = {.count = 2, .ext = &xcb_randr_id, .opcode = XCB_RANDR_SET_MONITOR, .isvoid = 1};
  const xcb_void_cookie_t sent{xcb_send_request(raw, XCB_REQUEST_CHECKED, parts + 2, &request)};
  const XReply<xcb_generic_error_t> error{xcb_request_check(raw, sent)};
  ASSERT_FALSE(error) << "X error " << static_cast<int>(error->error_code);
}

TEST_F(CapturerDisplayTest, eachDisplayHasItsOwnRecordingAndOneGoesOnWithoutTheOther) {
  paint(60), paint(200, 320);
  setMonitor(server.display(), "left", 0), setMonitor(server.display(), "right", 320);
  CapturerLoop loop(ports(desktop, screen, folder.path()));
  turns(loop, 3);
  setMonitor(server.display(), "right", std::nullopt);
  turns(loop, 3);
  setMonitor(server.display(), "right", 320);
  turns(loop, 3);
  loop.endSessions();
  const Footage one(folder.path()), other(folder.path(), Footage::key(), {.display = 1});
  EXPECT_EQ(one.sessions(), 1u);
  EXPECT_EQ(one.rows().size(), 9u);
  EXPECT_EQ(other.sessions(), 2u);
  ASSERT_EQ(other.rows().size(), 6u);
  EXPECT_EQ(other.frames(), 6);
  EXPECT_EQ(other.rows()[3].realTsMs - other.rows()[2].realTsMs, 2'000) << "while it was away";
  EXPECT_NEAR(one.picture(8).at(160, 120), 60, 8);
  EXPECT_NEAR(other.picture(5).at(160, 120), 200, 8);
}

TEST_F(CapturerDisplayTest, aDeniedWindowIsNeverSeenWhereverItIsAndWhateverCoversIt) {
  paint(110);
  const test::TestWindow denied(server.display(), {.className = "KeePassXC", .x = 60, .y = 90, .width = 120, .height = 80, .color = 0x00FF00});
  CapturerLoop loop(ports(desktop, screen, folder.path()));
  turns(loop, 1);
  const test::TestWindow cover(server.display(), {.className = "gedit", .x = 120, .y = 110, .width = 120, .height = 80, .color = 0x404040});
  turns(loop, 1);
  const XConnection connection(server.display());
  for (std::uint32_t step = 1; step <= 6; ++step) {
    const std::uint32_t x = 60 + step * 60;
    xcb_configure_window(connection.raw(), denied.id(), XCB_CONFIG_WINDOW_X, &x);
    xcb_flush(connection.raw());
    turns(loop, 1);
  }
  turns(loop, 1);
  loop.endSessions();
  const Footage footage(folder.path());
  ASSERT_EQ(footage.rows().size(), 9u);
  for (std::size_t i = 0; i < 9; ++i) {
    const auto picture = footage.picture(i);
    int green = 0;  // as nothing else is
    for (std::size_t at = 0; at < picture.pixels.size(); at += 3) green += picture.pixels[at + 1] > picture.pixels[at] + 60;
    EXPECT_EQ(green, 0) << "row " << i << " shows something of it";
  }
  EXPECT_LT(footage.picture(1).at(80, 130), 24);
  EXPECT_NEAR(footage.picture(1).at(220, 150), 0x40, 12) << "what covers it is seen beside it";
  EXPECT_GT(footage.picture(8).at(80, 130), 90) << "where it was before, the rest is seen again";
  EXPECT_LT(footage.picture(8).at(480, 130), 24);
}

}  // namespace
}  // namespace halvo
