#include <gtest/gtest.h>

#include <random>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "CaptureShared/EventLog/EventLogCursor.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/EventLog/LogTail.h"
#include "CaptureShared/Foundation/Match.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Numbers = std::vector<std::int64_t>;

std::optional<std::int64_t> decodeNumber(std::string_view line) {
  const auto value = JSONValue::parse(line);
  return value && value->objectValue() ? value->objectValue()->integer("n") : std::nullopt;
}

/// A followed file and what its reads answered: "reset 1 2" or "appended 3".
class FollowedFile {
 public:
  std::string read() { return shown(reader_.read()); }
  std::string readFull() { return shown(reader_.readFull()); }
  void put(const std::string& text) const { std::ofstream(file(), std::ios::binary) << text; }
  void add(const std::string& text) const { std::ofstream(file(), std::ios::binary | std::ios::app) << text; }
  fs::path file() const { return folder_.path() / "log"; }
  auto& reader() { return reader_; }
  std::function<void(std::string_view)> onLine = [](std::string_view) {};

 private:
  static std::string shown(const IncrementalReadResult<std::int64_t>& result) {
    const auto line = [](std::string text, const Numbers& rows) {
      for (const auto number : rows) text += fmt::format(" {}", number);
      return text;
    };
    return match(
        result, [&](const Reset<std::int64_t>& all) { return line("reset", all.rows); },
        [&](const Appended<std::int64_t>& more) { return line("appended", more.rows); });
  }
  test::TemporaryFolder folder_;
  IncrementalJSONLReader<std::int64_t> reader_{file(),
                                               [this](std::string_view line) { return onLine(line), decodeNumber(line); }, 200};
};

TEST(LogTail, beginsBeforeTheFirstRowThatCounts) {
  FollowedFile log;
  EXPECT_THROW(LogTail::offsetOf(0, log.file(), decodeNumber), std::system_error);
  std::string text;
  for (int n = 0; n < 100'000; ++n) text += n % 7 == 3 ? "broken\n" : fmt::format("{{\"n\":{},\"words\":\"and so on\"}}\n", n);
  log.put(text);
  for (const std::int64_t from : {-5, 0, 60'000, 99'000, 99'998, 200'000}) {
    SCOPED_TRACE(from);
    const auto offset = LogTail::offsetOf(from, log.file(), decodeNumber, 100);
    ASSERT_TRUE(offset == 0 || text[static_cast<std::size_t>(offset) - 1] == '\n');
    const auto rest = std::string_view(text).substr(static_cast<std::size_t>(offset));
    const auto first = decodeNumber(rest.substr(0, rest.find('\n')));
    const auto behind = 100'000 - std::min<std::int64_t>(from, 100'000);
    EXPECT_LE(first.value(), std::max<std::int64_t>(0, from - 100)) << "nothing that counts is missed";
    EXPECT_GE(first.value(), 100'000 - 2 * behind - 4'000) << "and not much more is read";
  }
  log.reader().startAt(static_cast<std::int64_t>(text.size()));
  EXPECT_EQ(log.read(), "appended");
  log.add("{\"n\":7}\n");
  EXPECT_EQ(log.read(), "appended 7");
}

TEST(IncrementalJSONLReader, followsGrowthAndReadsEachByteOnce) {
  FollowedFile log;
  EXPECT_THROW(log.read(), std::system_error);
  log.put("{\"n\":1}\n\n\nbroken\n{\"n\":2}\n{\"n\":");
  EXPECT_EQ(log.read(), "reset 1 2");
  EXPECT_EQ(log.reader().decodeCallCount(), 3);
  EXPECT_EQ(log.read(), "appended");
  EXPECT_EQ(log.reader().appendedRangeReadCount(), 0);
  log.add("3");
  EXPECT_EQ(log.read(), "appended");
  log.add("}\n{\"n\":4}\n");
  EXPECT_EQ(log.read(), "appended 3 4");
  EXPECT_EQ(log.reader().decodeCallCount(), 5);
  EXPECT_EQ(log.reader().appendedRangeReadCount(), 2);
  EXPECT_EQ(log.reader().watermark()->completeUpTo, log.reader().watermark()->size);

  // Only the time moved: nothing new, and the next poll is quiet again.
  const timespec times[2] = {{1000, 0}, {1000, 0}};
  ::utimensat(AT_FDCWD, log.file().c_str(), times, 0);
  EXPECT_EQ(log.read(), "appended");
  EXPECT_EQ(log.reader().watermark()->mtimeNs, 1'000'000'000'000);
  EXPECT_EQ(log.reader().decodeCallCount(), 5);
}

TEST(IncrementalJSONLReader, startsOverWhenTheFileIsAnother) {
  FollowedFile log;
  log.put("{\"n\":1}\n{\"n\":2}\n");
  EXPECT_EQ(log.read(), "reset 1 2");
  log.put("{\"n\":9}\n");  // the same inode, shorter
  EXPECT_EQ(log.read(), "reset 9");
  // Another file of the same size and time under the same name.
  const auto before = FileIdentity::of(log.file());
  std::ofstream(log.file().string() + ".new") << "{\"n\":8}\n";
  fs::last_write_time(log.file().string() + ".new", fs::last_write_time(log.file()));
  fs::rename(log.file().string() + ".new", log.file());
  const auto after = FileIdentity::of(log.file());
  ASSERT_EQ(std::pair(before.size, before.mtimeNs), std::pair(after.size, after.mtimeNs));
  EXPECT_EQ(log.read(), "reset 8");
  EXPECT_EQ(log.readFull(), "reset 8");
  // Rewritten in place and longer at once: only what stands in front of the new bytes tells it.
  log.put("{\"n\":70}\n{\"n\":71}\n");
  EXPECT_EQ(log.read(), "reset 70 71");
  fs::remove(log.file());
  EXPECT_THROW(log.read(), std::system_error);
  log.put("");
  EXPECT_EQ(log.read(), "reset");
  log.add("{\"n\":5}\n");
  EXPECT_EQ(log.read(), "appended 5");
}

TEST(IncrementalJSONLReader, whatArrivesWhileItReadsComesWithTheNextRead) {
  FollowedFile log;
  log.put("{\"n\":1}\n{\"n\":2}\n");
  log.onLine = [&](std::string_view line) {
    if (line.find('1') != std::string_view::npos) log.add("{\"n\":3}\n");
  };
  EXPECT_EQ(log.read(), "reset 1 2");
  EXPECT_EQ(log.read(), "appended 3");
  EXPECT_EQ(log.read(), "appended");
}

TEST(IncrementalJSONLReader, anyCutOfTheBytesIntoAppendsGivesTheSameRows) {
  std::mt19937 random(5);
  for (int round = 0; round < 60; ++round) {
    std::string text;
    Numbers whole;
    for (int n = 0; n < 40; ++n) {
      const auto kind = random() % 8;
      const auto line = kind == 0   ? ""
                        : kind == 1 ? "{\"stump"
                                    : fmt::format(R"({{"n":{},"text":"é{}"}})", n, std::string(random() % 60, 'x'));
      text += line + "\n";
      if (kind > 1) whole.push_back(n);
    }
    FollowedFile log;
    log.put("");
    Numbers followed;
    for (std::size_t at = 0; at < text.size();) {
      const auto size = std::min<std::size_t>(1 + random() % 97, text.size() - at);
      log.add(text.substr(at, size));
      at += size;
      match(
          log.reader().read(), [&](const Reset<std::int64_t>& all) { followed = all.rows; },
          [&](const Appended<std::int64_t>& more) { followed.insert(followed.end(), more.rows.begin(), more.rows.end()); });
    }
    EXPECT_EQ(followed, whole);
  }
}

TEST(IncrementalJSONLReader, readsAcrossItsOwnPieces) {
  FollowedFile log;
  std::string text;
  for (int n = 0; n < 30; ++n)
    text += fmt::format("{{\"n\":{},\"pad\":\"{}\"}}\n", n, std::string(100'000 + static_cast<std::size_t>(n), 'p'));
  log.put(text);
  std::string all = "reset";
  for (int n = 0; n < 30; ++n) all += fmt::format(" {}", n);
  EXPECT_EQ(log.read(), all);
}

TEST(EventLogReader, takesOnlyRowsWithAllFiveKeys) {
  const std::string good = R"({"ts_ms":5,"kind":"event","type":"t","detail":{"a":1},"source":"s","more":[1]})";
  EXPECT_EQ(EventLogReader::decode(good),
            (EventLogEvent{.tsMs = 5, .kind = "event", .type = "t", .detail = JSONObject{{"a", 1}}, .source = "s"}));
  for (const char* bad :
       {R"({"kind":"event","type":"t","detail":{},"source":"s"})", R"({"ts_ms":"5","kind":"event","type":"t","detail":{},"source":"s"})",
        R"({"ts_ms":5,"kind":"event","type":"t","source":"s"})", R"({"ts_ms":5,"kind":"event","type":null,"detail":{},"source":"s"})",
        R"({"ts_ms":true,"kind":"event","type":"t","detail":{},"source":"s"})", "[]", "{"})
    EXPECT_FALSE(EventLogReader::decode(bad)) << bad;
  // A last line without its newline is read as well, when it is whole.
  EXPECT_EQ(EventLogReader::parse(good + "\n\nbroken\n" + good + "\r\n" + good).size(), 3u);
  EXPECT_EQ(EventLogReader::parse(good + "\n" + good.substr(0, 30)).size(), 1u);
}

TEST(EventLogCursor, neverPassesThePresentLessTheMargin) {
  const Numbers none{}, late{9000}, two{4000, 7000, 6000};
  EXPECT_EQ(EventLogCursor::advance({.from = 5000, .newEventTimestamps = late, .now = 8000}), 6000);
  EXPECT_EQ(EventLogCursor::advance({.from = 5000, .newEventTimestamps = late, .now = 4000}), 5000);
  EXPECT_EQ(EventLogCursor::advance({.from = 5000, .newEventTimestamps = none, .now = 99'000}), 5000);
  EXPECT_EQ(EventLogCursor::advance({.from = 5000, .newEventTimestamps = two, .now = 99'000, .safetyMarginMs = 0}), 7000);
}

}  // namespace
}  // namespace halvo
