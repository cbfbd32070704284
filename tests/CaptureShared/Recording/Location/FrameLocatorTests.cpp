#include <gtest/gtest.h>

#include <map>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Recording/Location/BatchLocator.h"
#include "CaptureShared/Recording/Location/FrameSidecar.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo::FrameLocator {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t session = 1'790'000'000'000;

/// A display's folder of real files, whose births a test sets.
struct Archive {
  test::TemporaryFolder folder;
  std::map<std::string, std::int64_t> births = {};
  std::int64_t nowMs = 0;
  DirectoryListingCache cache{bentOps()};

  DirectoryListingCache::Ops bentOps() {
    auto ops = DirectoryListingCache::Ops::real();
    ops.nowMs = [this] { return nowMs; };
    ops.list = [this, real = ops.list](const fs::path& at) {
      auto entries = real(at);
      for (auto& entry : entries) entry.birthMs = births.at(entry.url.filename());
      return entries;
    };
    return ops;
  }
  void write(const std::string& name, const std::string& text) const { folder.write("video/display-1/" + name, text); }
  void record(const std::string& name, std::int64_t birthMs, std::size_t size = 4096) {
    births[name] = birthMs;
    write(name, std::string(size, 'x'));
  }
  /// Both ways of looking, which must agree: "<file>#<frame>-<start>@<ms after the session's start>", "none" or "era".
  std::string find(std::int64_t atMs, std::int64_t toleranceMs = judgedToleranceMs) {
    const Moment moment{.atMs = atMs, .display = 1, .toleranceMs = toleranceMs, .root = folder.path(), .cache = cache};
    const auto one = locateDetailed(moment);
    EXPECT_EQ(BatchLocator({.display = 1, .root = folder.path(), .cache = cache}).locateDetailed(atMs, toleranceMs), one);
    const auto* found = std::get_if<Located>(&one);
    EXPECT_EQ(locate(moment).has_value(), found != nullptr);
    if (!found) return std::holds_alternative<UnsupportedEra>(one) ? "era" : "none";
    const auto& [file, frame, start, realMs] = std::tie(found->file, found->frameIndex, found->segmentStartFrame, found->frameRealMs);
    return fmt::format("{}#{}-{}@{}", file.filename().string(), frame, start, realMs - session);
  }
};

std::string row(std::int64_t sinceStartMs, const std::string& rest) { return fmt::format("{},,,{}\n", session + sinceStartMs, rest); }
std::string row(std::int64_t sinceStartMs, int frame) { return row(sinceStartMs, fmt::format("{},{}", frame, session)); }
const std::string segmentsName = fmt::format("segments-{}.csv", session);

TEST(FrameLocator, nearestRow) {
  const auto two = row(0, 1) + row(1000, 3);
  const struct { const char* name; std::string sidecar; std::int64_t at; const char* want; } cases[] = {
      {"empty sidecar", "", 0, "none"},
      {"at the tolerance", two, 91'000, "a.mkv#3-0@1000"},
      {"past it", two, 91'001, "none"},
      {"before the first, at the tolerance", two, -90'000, "a.mkv#1-0@0"},
      {"between two: the earlier", two, 500, "a.mkv#1-0@0"},
      {"nearer the later", two, 501, "a.mkv#3-0@1000"},
      {"of equal rows the first", row(0, 1) + row(0, 2), 10, "a.mkv#1-0@0"},
      {"four columns, whatever is nearby", fmt::format("{},,,7\n", session) + row(1, 8), 0, "era"},
      {"no session", row(0, "7,"), 0, "era"},
      {"a frame that is no integer", row(0, fmt::format("7.5,{}", session)), 0, "era"},
      {"more columns and a carriage return", row(0, fmt::format("7,{},more\r", session)), 0, "a.mkv#7-0@0"},
      {"header, scraps and zeros are passed over", "realTsMs,a,b,c,d\n\n,,,,\n" + std::string(9000, '\0') + "\n" + two, 0, "a.mkv#1-0@0"},
      {"a row that is still being written", row(0, 1) + fmt::format("{},,,3,17", session + 1000), 1000, "a.mkv#1-0@0"},
      {"figures past 64 bits", "99999999999999999999,,,1,1\n", 0, "none"},
      {"the farthest moments", fmt::format("{},,,1,1\n", INT64_MIN), INT64_MAX - session, "none"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Archive archive;
    archive.record("a.mkv", session);
    archive.write(segmentsName, "a.mkv,0,100\n");
    archive.write("frame_timestamps.csv", c.sidecar);
    EXPECT_EQ(archive.find(session + c.at), c.want);
  }
  Archive nothing;
  EXPECT_EQ(nothing.find(session), "none");
  fs::create_directories(nothing.folder.path() / "video/display-1/frame_timestamps.csv");
  EXPECT_EQ(nothing.find(session), "none");
}

TEST(FrameLocator, bisectionAgreesWithASearchOfAllRows) {
  Archive archive;
  archive.record("a.mkv", session);
  archive.write(segmentsName, "a.mkv,0,100000\n");
  std::string sidecar;
  for (int frame = 0; frame < 20'000; ++frame) {
    sidecar += row(frame * 500 + (frame >= 12'000 ? 3'600'000 : 0), frame);
    if (frame == 9'000) sidecar += std::string(20'000, '\0') + "\n";
  }
  archive.write("frame_timestamps.csv", sidecar);
  BatchLocator all({.display = 1, .root = archive.folder.path(), .cache = archive.cache});
  ASSERT_EQ(all.rows().size(), 20'000U);
  const auto file = FrameSidecar::open(archive.folder.path() / "video/display-1/frame_timestamps.csv");
  for (std::int64_t at = -1000; at < 14'000'000; at += 9'777) {
    ASSERT_EQ(file->nearest(session + at), nearestRow(all.rows(), session + at)) << at;
    const auto range = file->rangeAround(session + at);
    ASSERT_LE(range.to - range.from, 24'576U);
  }
  EXPECT_EQ(file->rows(session + 1000, session + 2000).size(), 3U);
  // The range begins within a row, whose rest would look like the nearest one.
  const auto target = session + 3'000'100;
  const auto range = file->rangeAround(target);
  EXPECT_GT(range.to - range.from, 20'480U) << "wider than the bisection's end on both sides";
  ASSERT_NE(sidecar[range.from - 1], '\n');
  const auto scrap = row(3'000'100, 7);
  sidecar.replace(range.from, sidecar.find('\n', range.from + scrap.size()) - range.from, scrap.substr(0, scrap.size() - 1));
  archive.write("frame_timestamps.csv", sidecar);
  const auto cut = FrameSidecar::open(archive.folder.path() / "video/display-1/frame_timestamps.csv");
  EXPECT_EQ(cut->nearest(target)->realTsMs, session + 3'000'000);
}

TEST(FrameLocator, segmentAndFile) {
  using Files = std::vector<std::tuple<const char*, std::int64_t, std::size_t>>;
  const auto two = "h.mkv,10,20\ni.part2.mkv,20,30\n";
  const Files hours = {{"h.mkv", 5'000, 4096}, {"i.mkv", 10'000, 4096}};
  const struct { const char* name; const char* segments; Files files; int frame; const char* want; } cases[] = {
      {"before the first row's start", two, hours, 9, "none"},
      {"at a start", two, hours, 10, "h.mkv#10-10@0"},
      {"last frame of a row", two, hours, 19, "h.mkv#19-10@0"},
      {"the next row, its part not in the stem", two, hours, 20, "i.mkv#20-20@0"},
      {"the last row's end: still written", two, hours, 30, "i.mkv#30-20@0"},
      {"between rows", "h.mkv,0,5\ni.mkv,9,12\n", hours, 7, "none"},
      {"the newest row is a scrap", "h.mkv,0,5\ni.mk", hours, 7, "none"},
      {"a cut end of the newest row", "h.mkv,0,5\ni.mkv,9,1", {{"i.mkv", 4'500, 4096}}, 12, "i.mkv#12-9@0"},
      {"no rows", "filename,start,end\n", hours, 7, "none"},
      {"no filename", ",0,9\n", hours, 7, "none"},
      {"another kind of file", "h.mp4,0,9\n", {{"h.mp4", 0, 4096}}, 7, "none"},
      {"figures without sense", "h.mkv,-9223372036854775808,9\n", hours, 7, "none"},
      {"the nearer of two parts", "h.mkv,0,9\n", {{"h.part1.mkv", -900, 4096}, {"h.part2.mkv", 800, 4096}}, 7, "h.part2.mkv#7-0@0"},
      {"a nearer one without frames", "h.mkv,0,9\n", {{"h.part1.mkv", -900, 4096}, {"h.part2.mkv", 800, 4095}}, 7, "h.part1.mkv#7-0@0"},
      {"equally near: the first by name", "h.mkv,0,9\n", {{"h.part2.mkv", 7, 4096}, {"h.part1.mkv", -7, 4096}}, 7, "h.part1.mkv#7-0@0"},
      {"five minutes off, an hour into the segment", "h.mkv,0,7200\n", {{"h.mkv", 300'000, 4096}}, 7'199, "h.mkv#7199-0@0"},
      {"a moment more", "h.mkv,0,9\n", {{"h.mkv", 300'001, 4096}}, 7, "none"},
      {"another hour's file", "h.mkv,0,9\n", {{"hh.mkv", 0, 4096}}, 7, "none"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Archive archive;
    for (const auto& [name, birth, size] : c.files) archive.record(name, session + birth, size);
    archive.write(segmentsName, c.segments);
    archive.write("frame_timestamps.csv", row(0, c.frame));
    EXPECT_EQ(archive.find(session), c.want);
  }
  EXPECT_DOUBLE_EQ((Located{.file = {}, .frameIndex = 29, .segmentStartFrame = 20}.seekSec()), 4.5);
}

TEST(DirectoryListingCache, isRebuiltWhenTheFolderChangesOrTheListingIsOld) {
  test::TemporaryFolder folder;
  std::optional<std::int64_t> modified = 1;
  std::int64_t now = 0;
  auto ops = DirectoryListingCache::Ops::real();
  ops.modifiedAtNs = [&](const fs::path&) { return modified; };
  ops.nowMs = [&] { return now; };
  DirectoryListingCache cache(ops);
  const struct { const char* name; std::optional<std::int64_t> modified; std::int64_t now; bool isNew; } steps[] = {
      {"the first", 1, 0, true},       {"unchanged, 30 s old", 1, 30'000, false}, {"older", 1, 30'001, true}, {"changed", 2, 30'002, true},
      {"can't be told, 999 ms", {}, 31'001, false}, {"1 s", {}, 31'002, true}, {"the clock was set back", {}, 0, true}};
  DirectoryListingCache::Listing last;
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    modified = step.modified, now = step.now;
    const auto entries = cache.entries(folder.path());
    EXPECT_EQ(entries != last, step.isNew);
    last = entries;
  }
}

TEST(DirectoryListingCache, listsRegularHourFilesWithTheirBirth) {
  test::TemporaryFolder folder;
  const auto before = Clock::system().nowMs() - 1000;
  for (const auto* name : {"b.mkv", "a.part2.mkv", ".mkv", "a.mp4", "segments-1.csv"}) folder.write(name, "12345");
  fs::last_write_time(folder.path() / "b.mkv", fs::file_time_type{});
  fs::create_directory(folder.path() / "folder.mkv");
  fs::create_symlink(folder.path() / "b.mkv", folder.path() / "link.mkv");
  const auto entries = DirectoryListingCache().entries(folder.path());
  ASSERT_EQ(entries->size(), 2U);
  EXPECT_EQ((*entries)[0].hourPrefix + (*entries)[1].hourPrefix, "ab");
  EXPECT_EQ((*entries)[0].size, 5);
  EXPECT_NEAR(static_cast<double>((*entries)[1].birthMs), static_cast<double>(before + 1000), 60'000);
}

}  // namespace
}  // namespace halvo::FrameLocator
