#include <gtest/gtest.h>

#include "AmbitudeCore/Coach/CoachStreamReader.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

class CoachStreamTest : public testing::Test {
 protected:
  void put(const std::string& bytes) const { folder.write("s.jsonl", bytes); }
  static std::string line(const std::string& turn, const std::string& text) { return CoachStreamDelta{.turnID = turn, .text = text}.encode() + "\n"; }
  test::TemporaryFolder folder;
  std::filesystem::path file = folder.path() / "s.jsonl";
};

TEST_F(CoachStreamTest, whatEachLookShows) {
  const auto a = line("a", "one "), more = line("a", "two"), b = line("b", "other");
  const struct {
    const char* name;
    std::vector<std::string> contents;  // of the file, one a look
    std::string turn, text;
  } cases[] = {
      {"no turn yet", {""}, "", ""},
      {"a half line waits", {a + more.substr(0, 20)}, "a", "one "},
      {"and completes", {a + more.substr(0, 20), a + more}, "a", "one two"},
      {"a half first line waits", {a.substr(0, 9), a}, "a", "one "},
      {"lines that do not decode are skipped", {a + "nonsense\n{\"text\":\"x\"}\n\n" + more}, "a", "one two"},
      {"absent fields are as if empty", {"{\"turn_id\":\"a\",\"text\":\"x\"}\n{\"turn_id\":\"a\"}\n"}, "a", "x"},
      {"a reset replaces", {a + "{\"turn_id\":\"a\",\"reset\":true,\"text\":\"new\"}\n"}, "a", "new"},
      {"a new turn's truncation", {a + more, b}, "b", "other"},
      {"a rewrite of the same length", {a, line("c", "uno ")}, "c", "uno "},
      {"a rewrite that grew past", {a + more, b + b + b + b}, "b", "otherotherotherother"},
      {"a rewrite under a half first line", {a.substr(0, 9), b + b}, "b", "otherother"},
      {"truncated to nothing", {a, ""}, "", ""},
      {"two turns in one file", {a + b}, "b", "other"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove(file);
    CoachStreamReader reader;
    EXPECT_EQ(reader.consume(file), CoachStreamState{}) << "no file";
    for (const auto& content : c.contents) put(content), reader.consume(file);
    EXPECT_EQ(reader.state().turnID, c.turn);
    EXPECT_EQ(reader.state().text, c.text);
    EXPECT_EQ(CoachStream::read(file), reader.state());
  }
}

TEST_F(CoachStreamTest, writerAndReaderMeetAndAPollCostsWhatIsNew) {
  constexpr int deltas = 10'000;
  CoachStreamWriter writer(file, "t");
  CoachStreamReader reader;
  std::uint64_t most = 0;
  for (int i = 0; i < deltas; ++i) {
    writer.append({.turnID = "not its own", .text = i % 2 ? "\xff" : "word ", .thinking = "h"});
    const auto before = reader.bytesRead();
    reader.consume(file);
    most = std::max(most, reader.bytesRead() - before);
  }
  EXPECT_LE(most, 1024u) << "the new line and the first";
  writer.append({.thinking = "anew", .resetThinking = true});
  writer.finish();
  const auto last = reader.consume(file);
  EXPECT_EQ(last.turnID, "t");
  EXPECT_EQ(last.thinking, "anew");
  EXPECT_EQ(last.text.size(), std::size_t(deltas / 2) * 8) << "what is not UTF-8 becomes U+FFFD";
  EXPECT_TRUE(last.done);
  const auto before = reader.bytesRead();
  reader.consume(file);
  EXPECT_EQ(reader.bytesRead(), before) << "nothing new costs nothing";
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
  CoachStreamWriter next(file, "u");
  EXPECT_EQ(reader.consume(file), CoachStreamState{});
}

}  // namespace
}  // namespace halvo
