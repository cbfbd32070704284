#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <thread>

#include "AmbitudeAppKit/Live/LiveLog.h"
#include "AmbitudeAppKit/Live/LiveReply.h"
#include "AmbitudeAppKit/Live/TerminalChat.h"
#include "AmbitudeAppKit/Live/TerminalRegion.h"
#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using GateScene::at, GateScene::calendar, GateScene::event, GateScene::said, GateScene::tick;

class LiveTest : public testing::Test {
 protected:
  LiveTest() { std::filesystem::create_directories(root / "io-layer"); }
  void add(const EventLogEvent& row) const { EventLogWriter::append(row, DataPaths::events(root), "test", "1"); }
  void add(const ClassifierTick& row) const { JSONLAppend::append(std::string_view(row.encode()), root / "checker-log.jsonl"); }
  static std::vector<std::string> rendered(const std::vector<LiveLog::Line>& lines) {
    std::vector<std::string> out;
    for (const auto& line : lines) out.push_back(LiveLog::render(line, calendar));
    return out;
  }

  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
};

TEST_F(LiveTest, logTellsWhatHappenedInOrder) {
  LiveLog log(root);
  EXPECT_TRUE(log.poll().empty()) << "no file yet";
  add(said(at(9, 3), "user", "on it \x1b]0;owned\x07\n\x1b[2J\u202e\u009b1m"));
  add(said(at(9, 4), "coach", "Good."));
  add(said(at(9, 5), "", "from nobody"));
  add(event(at(9, 0), "task_declared", {{"task", "essay"}, {"until", "5:00pm"}}));
  add(event(at(9, 1), "task_declared", {{"task", "tea"}, {"notes", "green tea"}, {"horizon_minutes", 20}}));
  add(event(at(9, 2), "task_cleared"));
  add(event(at(9, 6), "coach_turn_failed", {{"reason", "r"}, {"user_reason", "It will try again."}}));
  add(event(at(9, 7), "coach_turn_failed", {{"reason", "r"}}));
  add(event(at(9, 8), "ui_opened"));
  add(tick(at(9, 2, 30), "ON_TASK", "Gedit", "you write"));
  JSONLAppend::append(
      std::string_view(GateDecisionRecord{.atMs = at(9, 2, 40), .decision = "failed", .failureReason = "empty response"}.encode()),
      root / "gate-decisions.jsonl");
  EXPECT_EQ(rendered(log.poll()),
            (std::vector<std::string>{
                "09:00:00  declared  essay (until 5:00pm)", "09:01:00  declared  green tea (20 min)", "09:02:00  declared  (cleared)",
                "09:02:30  verdict   ON_TASK [Gedit] you write", "09:02:40  gate      failed: empty response",
                "09:03:00  you       on it  ]0;owned   [2J  1m", "09:04:00  Lark      Good.", "09:05:00  event     app_chat_message",
                "09:06:00  notice    It will try again.", "09:07:00  event     coach_turn_failed: r", "09:08:00  event     ui_opened"}));
  EXPECT_TRUE(log.poll().empty());
  add(AppChatEvents::coachMessage({.text = "more",
                                   .asOfMs = at(9, 9),
                                   .servedBy = "the local model",
                                   .servedByFallback = true,
                                   .fallbackCause = FallbackCause::unreachable}));
  EXPECT_EQ(rendered(log.poll()),
            std::vector<std::string>{"09:09:00  Lark      more [answered by the local model — the usual model was unreachable]"});

  // Replaced (a restored copy, say): what was shown is not shown again.
  const auto events = DataPaths::events(root);
  std::filesystem::copy_file(events, root / "copy");
  std::filesystem::rename(root / "copy", events);
  add(said(at(9, 10), "user", "newer"));
  EXPECT_EQ(rendered(log.poll()), std::vector<std::string>{"09:10:00  you       newer"});
  EXPECT_EQ(TerminalText::oneLine("a\xff\xc3(z\u2028\té"), "a\uFFFD\uFFFD(z  é");
}

/// A chat that runs until its end of the test.
class RunningChat {
 public:
  RunningChat(const std::filesystem::path& root, int inputFd, std::FILE* output)
      : thread_([=, this](const std::stop_token& stop) {
          TerminalChat({.dataRoot = root, .processName = "test", .inputFd = inputFd, .output = output, .pollSec = 0.02}, calendar)
              .run(stop);
          isDone = true;
        }) {}
  std::atomic<bool> isDone = false;

 private:
  std::jthread thread_;
};

TEST_F(LiveTest, aTypedLineBecomesARowAndAnswersAreShown) {
  for (const bool isTerminal : {true, false}) {
    SCOPED_TRACE(isTerminal ? "terminal" : "pipe");
    const auto place = root / (isTerminal ? "a" : "b");
    std::filesystem::create_directories(place / "io-layer");
    const auto events = DataPaths::events(place);
    EventLogWriter::append(said(Clock::system().nowMs(), "coach", "Still \x1b[31mthe essay?"), events, "test", "1");
    EventLogWriter::append(said(at(9, 0), "coach", "long ago"), events, "test", "1");
    int input = -1, typing = -1;
    if (isTerminal) {
      typing = ::posix_openpt(O_RDWR | O_NOCTTY);
      ASSERT_TRUE(typing >= 0 && ::grantpt(typing) == 0 && ::unlockpt(typing) == 0);
      input = ::open(::ptsname(typing), O_RDWR | O_NOCTTY);
    } else {
      int ends[2];
      ASSERT_EQ(::pipe(ends), 0);
      input = ends[0], typing = ends[1];
    }
    const auto shown = folder.path() / "shown";
    std::FILE* output = std::fopen(shown.c_str(), "w");
    const auto type = [&](std::string_view words) {
      ASSERT_EQ(::write(typing, words.data(), words.size()), static_cast<ssize_t>(words.size()));
    };
    const auto texts = [&] {
      std::vector<std::string> said;
      for (const auto& row : EventLogReader::read(events))
        if (*row.text("role") == "user") said.push_back(*row.text("text"));
      return said;
    };
    {
      RunningChat chat(place, input, output);
      type("back to");
      type(" it\n\n  \n");
      EXPECT_TRUE(test::eventually([&] { return texts() == std::vector<std::string>{"back to it"}; }));
      EventLogWriter::append(said(Clock::system().nowMs(), "coach", "Good."), events, "test", "1");
      EXPECT_TRUE(test::eventually([&] { return readFile(shown).find("Lark      Good.\n") != std::string::npos; }));
      type("the last line");
      if (isTerminal)
        type("\x04\x04");
      else
        ::close(typing);
      EXPECT_TRUE(test::eventually([&] { return texts().size() == 2 && texts()[1] == "the last line"; })) << "without a newline";
      EXPECT_TRUE(test::eventually([&] { return chat.isDone.load() || !isTerminal; }));
    }
    const auto all = readFile(shown);
    EXPECT_NE(all.find("Lark      Still  [31mthe essay?\n"), std::string::npos);
    EXPECT_EQ(all.find("long ago"), std::string::npos);
    EXPECT_EQ(all.find('\x1b'), std::string::npos);
    std::fclose(output);
    ::close(input);
    if (isTerminal) ::close(typing);
  }
}

TEST_F(LiveTest, wordsThatCanNotBeKeptAreHandedBackAndAClosedOutputEndsIt) {
  std::filesystem::create_directory(DataPaths::events(root));  // a folder where the log should be
  int input[2], screen[2];
  ASSERT_TRUE(::pipe(input) == 0 && ::pipe(screen) == 0);
  std::signal(SIGPIPE, SIG_IGN);
  std::FILE* output = ::fdopen(screen[1], "w");
  RunningChat chat(root, input[0], output);
  ASSERT_EQ(::write(input[1], "keep this\n", 10), 10);
  std::string shown(4096, '\0');
  shown.resize(static_cast<std::size_t>(::read(screen[0], shown.data(), shown.size())));
  EXPECT_TRUE(shown.starts_with("not sent (") && shown.ends_with("): keep this\n")) << shown;
  ::close(screen[0]);
  ASSERT_EQ(::write(input[1], "and this\n", 9), 9);
  EXPECT_TRUE(test::eventually([&] { return chat.isDone.load(); }));
  std::fclose(output);
  ::close(input[0]), ::close(input[1]);
}

TEST_F(LiveTest, aReplyIsShownAsItIsWrittenUntilItsRowHasCome) {
  const auto stream = CoachStream::url(root);
  const auto first = CoachStream::turnID(at(9, 0)), second = CoachStream::turnID(at(9, 1));
  { CoachStreamWriter(stream, first).finish(); }
  LiveReply plain(stream, false), open(stream, true);
  const auto look = [&](LiveReply& reply, std::int64_t later = 0) { return reply.look(Clock::system().nowMs() + later, calendar); };
  EXPECT_EQ(look(plain) + look(open), "") << "ended before anybody looked";
  CoachStreamWriter writer(stream, second);
  writer.append({.text = "Still \x1b", .thinking = "hm"});
  EXPECT_EQ(look(plain), "09:01:00  Lark      Still  ");
  EXPECT_EQ(look(open), "09:01:00  thinking  hm\n09:01:00  Lark      Still  ");
  writer.append({.text = "Done?", .reset = true});
  EXPECT_EQ(look(plain), "09:01:00  Lark      Done?") << "a reset replaces";
  EXPECT_EQ(look(plain, LiveReply::staleMs + 1000), "") << "left behind by a driver that was killed";
  plain.settle({.tsMs = at(9, 1), .kind = LiveLog::Kind::gate});
  EXPECT_NE(look(plain), "") << "the gate's yes has the time of its turn";
  plain.settle({.tsMs = at(9, 1), .kind = LiveLog::Kind::coach});
  EXPECT_EQ(look(plain), "");
  CoachStreamWriter restarted(stream, CoachStream::turnID(at(9, 2)));
  restarted.append({.text = "Again."});
  EXPECT_EQ(look(plain), "09:02:00  Lark      Again.");
}

TEST_F(LiveTest, aTerminalShowsTheReplyAsItComesAndThenItsRow) {
  const int person = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
  ASSERT_TRUE(person >= 0 && ::grantpt(person) == 0 && ::unlockpt(person) == 0);
  const int terminal = ::open(::ptsname(person), O_RDWR | O_NOCTTY);
  std::FILE* output = ::fdopen(terminal, "w");
  std::string seen;
  const auto shows = [&](std::string_view words) {
    return test::eventually([&] {
      char buffer[4096];
      while (const auto got = ::read(person, buffer, sizeof buffer)) {
        if (got < 0) break;
        seen.append(buffer, static_cast<std::size_t>(got));
      }
      return seen.find(words) != std::string::npos;
    });
  };
  {
    RunningChat chat(root, terminal, output);
    const auto now = Clock::system().nowMs();
    CoachStreamWriter writer(CoachStream::url(root), CoachStream::turnID(now));
    writer.append({.text = "Still at"});
    EXPECT_TRUE(shows("Still at")) << "before the reply is complete";
    writer.append({.text = "How is the essay", .reset = true});
    EXPECT_TRUE(shows("\x1b[J" + LiveLog::render({.tsMs = now, .kind = LiveLog::Kind::coach, .text = "How is the essay"}, calendar)));
    seen.clear();
    writer.finish();
    add(said(now, "coach", "How is the essay going?"));
    EXPECT_TRUE(shows("How is the essay going?\r\n")) << seen;
    EXPECT_TRUE(seen.starts_with("\r\x1b[J")) << "the row takes the place of what was streamed";
  }
  std::fclose(output);
  ::close(person);
}

TEST(TerminalRegion, isDrawnOverItself) {
  TerminalRegion foot;
  EXPECT_EQ(foot.erase(), "");
  EXPECT_EQ(foot.draw("abcd", {4, 5}), "abcd");
  EXPECT_EQ(foot.draw("abcd", {4, 5}), "") << "no change";
  EXPECT_EQ(foot.draw("abcde", {4, 5}), "\r\x1b[Jabcde");
  EXPECT_EQ(foot.draw("x\ny", {4, 5}), "\r\x1b[1A\x1b[Jx\ny");
  EXPECT_EQ(foot.draw("", {4, 5}), "\r\x1b[1A\x1b[J");
  EXPECT_EQ(foot.draw("0123456789", {4, 3}), "…456789") << "what would scroll off loses its beginning";
  EXPECT_EQ(TerminalRegion::rowsOf("\u6f22\u5b57\u6f22", 5), 2) << "wide characters";
}

}  // namespace
}  // namespace halvo
