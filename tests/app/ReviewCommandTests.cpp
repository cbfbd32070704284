// A review on the terminal: blind first, left, resumed, scored.

#include <fcntl.h>
#include <gtest/gtest.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

TEST(ReviewCommand, asksBlindGoesOnWhereItWasLeftAndScores) {
  const test::TemporaryFolder folder;
  std::string said;
  const auto run = [&](std::vector<std::string> words, const std::string& input) {
    folder.write("in", input);
    folder.write("out", "");
    const FileHandle in = FileHandle::openForRead(folder.path() / "in"), out(::open((folder.path() / "out").c_str(), O_RDWR | O_CLOEXEC));
    words.insert(words.begin(), "review");
    const Environment environment{{"HOME", folder.path()}, {"TZ", "Etc/UTC"}, {"AMBITCAP_DATA_ROOT", folder.path() / "data"}};
    test::ChildProcess command(std::string(HALVO_BIN) + "/halvo", words, environment, {{in.fd(), 0}, {out.fd(), 1}, {out.fd(), 2}});
    const auto status = command.wait(20).value_or(-1);
    said = readFile(folder.path() / "out");
    return status;
  };
  const auto has = [&](std::string_view words) { return said.find(words) != std::string::npos; };
  folder.write("data/io-layer/events.jsonl", "");
  const auto nowMs = Clock::system().nowMs();
  for (int hoursAgo = 1; hoursAgo <= 3; ++hoursAgo)
    JSONLAppend::append(std::string_view(ClassifierTick{.at = ISO8601::utcMillis(nowMs - hoursAgo * 3'600'000),
                                                        .state = "NOT_ALIGNED",
                                                        .frontmostApp = "firefox",
                                                        .reason = "A video \x1b[31mis playing.",
                                                        .confidence = 0.8,
                                                        .declaredTask = "write the essay"}
                                             .encode()),
                        DataPaths::checkerLog(folder.path() / "data"));

  EXPECT_EQ(run({}, ""), 0);
  EXPECT_TRUE(has("footage can be shown of; --from-logs asks without it")) << said;
  EXPECT_EQ(run({"--from-logs", "--limit", "2", "--seed", "7"}, "8\nq\n"), 0);
  EXPECT_TRUE(has("moment 1 of 2: ") && has("write the essay") && has("firefox")) << said;
  EXPECT_EQ(Text::split(said, '?').size(), 3u) << "what is no answer is asked again: " << said;
  EXPECT_FALSE(has("A video")) << "the verdict shows before the answer";
  EXPECT_TRUE(has("left; \"halvo review\" goes on from here")) << said;

  EXPECT_EQ(run({"--from-logs"}, "5 it was\n2\nr\n4\nq\n"), 0);
  EXPECT_TRUE(has("going on with the review that you left (seed 7)")) << said;
  EXPECT_TRUE(has("(80 % sure): A video  [31mis playing.")) << said;
  EXPECT_TRUE(has("which won't count as a blind one: ")) << said;
  EXPECT_EQ(run({"--from-logs"}, "s\ns\n5\n1\n\n"), 0);
  EXPECT_TRUE(has("done: 2 answered, 0 passed over")) << said;
  EXPECT_EQ(run({"--from-logs"}, ""), 0);
  EXPECT_TRUE(has("moment 1 of 1: ")) << "an answered moment is not drawn again: " << said;
  EXPECT_EQ(run({"score"}, ""), 0);
  EXPECT_TRUE(has("agreed: 2 of 2") && has("1 revision(s)")) << said;
}

}  // namespace
}  // namespace halvo
