#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Stores/PersonActions.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/Eventually.h"

namespace halvo {
namespace {

using GateScene::at, GateScene::calendar;

TEST(PersonActions, readsWhatWasTyped) {
  using PersonActions::readTyped, PersonActions::Typed;
  using enum Typed::Kind;
  const struct {
    const char* line;
    Typed want;
  } table[] = {
      {"  ", {}},
      {"Clear", {.kind = clear}},
      {"clear the table", {.kind = declare, .task = "clear the table"}},
      {"write the essay", {.kind = declare, .task = "write the essay"}},
      {" write\nthe essay until 5 PM ", {.kind = declare, .task = "write the essay", .until = "5pm"}},
      {"wait until the rain stops", {.kind = declare, .task = "wait until the rain stops"}},
      {"read till 17:30", {.kind = declare, .task = "read", .until = "17:30"}},
      {"read for 40 min", {.kind = declare, .task = "read", .until = "3:40pm"}},
      {"read for 2 hours", {.kind = declare, .task = "read", .until = "5:00pm"}},
      {"look for 3 papers", {.kind = declare, .task = "look for 3 papers"}},
      {"break", {.kind = rest}},
      {"Break until 3:15pm", {.kind = rest, .until = "3:15pm"}},
      {"until 5pm", {.kind = declare, .task = "until 5pm"}},
  };
  for (const auto& c : table) EXPECT_EQ(readTyped(c.line, at(15, 0), calendar), c.want) << c.line;
}

TEST(BackgroundQueue, goesOnBehindAFailureAndStopsWhatRuns) {
  std::atomic<int> done = 0;
  bool wasStopped = false;
  {
    BackgroundQueue queue;
    queue.post([](const std::stop_token&) { throw std::runtime_error("once"); });
    queue.post([&](const std::stop_token&) { ++done; });
    ASSERT_TRUE(test::eventually([&] { return done == 1; }));
    queue.post([&](const std::stop_token& stop) {
      ++done;
      wasStopped = test::eventually([&] { return stop.stop_requested(); });
    });
    queue.post([&](const std::stop_token&) { done = 100; });
    ASSERT_TRUE(test::eventually([&] { return done == 2; }));
  }
  EXPECT_TRUE(wasStopped);
  EXPECT_EQ(done, 2) << "what had not begun is dropped";
}

}  // namespace
}  // namespace halvo
