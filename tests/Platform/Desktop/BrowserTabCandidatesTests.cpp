#include "Platform/Desktop/BrowserTabCandidates.h"

#include <gtest/gtest.h>

namespace halvo {
namespace {

TEST(BrowserTabCandidates, ordered) {
  using Names = std::vector<std::string>;
  const Names readable{"Firefox", "Chromium", "Brave"};
  const struct { const char* name; Names running; std::optional<std::string> frontmost; Names want; } cases[] = {
      {"in the list's order, not in the running one's", {"Brave", "Editor", "Firefox"}, std::nullopt, {"Firefox", "Brave"}},
      {"the frontmost one first, the others as they were", {"Firefox", "Chromium", "Brave"}, "Brave", {"Brave", "Firefox", "Chromium"}},
      {"a frontmost editor changes nothing", {"Editor", "Chromium", "Firefox"}, "Editor", {"Firefox", "Chromium"}},
      {"frontmost yet not running is not tried", {"Firefox"}, "Brave", {"Firefox"}},
      {"none runs", {"Editor"}, "Firefox", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(BrowserTabCandidates::ordered(readable, c.running, c.frontmost), c.want);
  }
}

}  // namespace
}  // namespace halvo
