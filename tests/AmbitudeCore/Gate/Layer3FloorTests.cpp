#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "AmbitudeCore/Gate/CallHoldControl.h"
#include "AmbitudeCore/Gate/Layer3Floor.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {
using GateScene::event;

class Layer3FloorTest : public testing::Test {
 protected:
  const test::TemporaryFolder folder;
  std::filesystem::path root = folder.path();
  const std::filesystem::path file = Layer3Floor::path(root);
  std::vector<std::string> lines;

  void put(std::string_view text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }
  std::optional<std::int64_t> resolve(std::int64_t asOfMs, std::vector<EventLogEvent> events = {}) {
    return Layer3Floor::resolve(root, asOfMs, events, [this](const std::string& line) { lines.push_back(line); });
  }
};

TEST_F(Layer3FloorTest, pinnedOnce) {
  EXPECT_EQ(resolve(1'700'000'000'123), 1'700'000'000'123);
  EXPECT_EQ(resolve(1'800'000'000'000, {event(5, "onboarding_started")}), 1'700'000'000'123);
  EXPECT_EQ(readFile(file), R"({"floorTsMs":1700000000123})");
  EXPECT_TRUE(lines.empty());
}

TEST_F(Layer3FloorTest, startsWithTheSetupThatNothingUndid) {
  const auto pinnedAt = [&](std::vector<EventLogEvent> events) {
    std::filesystem::remove(file);
    return resolve(100, std::move(events));
  };
  EXPECT_EQ(pinnedAt({event(10, "onboarding_started"), event(20, "onboarding_started")}), 20);
  EXPECT_EQ(pinnedAt({event(10, "onboarding_started"), event(20, "onboarding_reset")}), 100);
  EXPECT_EQ(pinnedAt({event(30, "onboarding_started"), event(20, "onboarding_reset")}), 30);
}

TEST_F(Layer3FloorTest, whatDoesNotDecodeIsLeftAlone) {
  for (const std::string damaged : {"{}", "", "[1]", R"({"floorTsMs":"1"})", R"({"floorTsMs":17)", R"({"floorTsMs":true})"}) {
    SCOPED_TRACE(damaged);
    lines.clear();
    put(damaged);
    EXPECT_EQ(resolve(100), std::nullopt);
    EXPECT_EQ(lines, std::vector{"layer3: floor at " + file.string() + " did not decode (" + std::to_string(damaged.size()) +
                                 " bytes); refusing to re-pin over it"});
    EXPECT_EQ(readFile(file), damaged);
  }
}

TEST_F(Layer3FloorTest, whatCannotBeReadIsNotPinnedOver) {
  std::filesystem::create_directories(file);  // a folder in the file's place can't be read by anyone
  EXPECT_EQ(resolve(100), std::nullopt);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].starts_with("layer3: could not read floor at " + file.string() + ": ")) << lines[0];
}

TEST_F(Layer3FloorTest, aFloorThatCannotBeKeptStillServesThisRun) {
  root /= "absent";
  EXPECT_EQ(resolve(100), 100);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].starts_with("layer3: could not persist floor at " + Layer3Floor::path(root).string() + ": ")) << lines[0];
  EXPECT_FALSE(std::filesystem::exists(root)) << "a root that is missing may be a volume that is not mounted";
}

TEST_F(Layer3FloorTest, foldersWithoutPermission) {
  put(R"({"floorTsMs":7})");
  chmod(file.parent_path().c_str(), 0);
  const bool isRoot = geteuid() == 0;
  if (isRoot) {
    ASSERT_EQ(seteuid(65534), 0) << "nothing is forbidden to root, so another account looks";
  }
  const auto seen = resolve(100);
  if (isRoot) {
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_EQ(seen, std::nullopt) << "unreadable is not absent";
  EXPECT_EQ(lines.size(), 1u);
  chmod(file.parent_path().c_str(), 0700);
  EXPECT_EQ(resolve(100), 7);
}

TEST_F(Layer3FloorTest, callHoldOverrideFile) {
  const auto overrideFile = root / "call-hold-override.json";
  const auto read = [&](Environment environment = {}) { return CallHoldControl::read(environment, overrideFile); };
  EXPECT_EQ(read(), CallHoldControl{});
  for (const auto& [text, want] : {std::pair{"0", false}, {" OFF ", false}, {"no", false}, {"False", false}, {"1", true}, {"", true}})
    EXPECT_EQ(read({{"AMBITCAP_CALL_PAUSE", text}}).enabled, want) << text;
  std::ofstream(overrideFile) << R"({"episode_start_ms":5,"overridden_at_ms":9})";
  EXPECT_EQ(read().override_, (CallHoldControl::Override{5, 9}));
  std::ofstream(overrideFile) << R"({"episode_start_ms":5})";
  EXPECT_EQ(read().override_, std::nullopt) << "damaged: the hold stands";
}

}  // namespace
}  // namespace halvo
