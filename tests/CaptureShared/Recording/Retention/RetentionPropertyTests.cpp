// Random disks, clocks, zones, labels and faults: what may go goes, and never anything else. Half of them were recorded in another zone.

#include <gtest/gtest.h>

#include <random>

#include "tests/CaptureShared/Recording/Retention/FakeDisk.h"

namespace halvo {
namespace {

using test::FakeDisk;
constexpr std::int64_t hourMs = 3'600'000, dayMs = 24 * hourMs;

struct World {
  explicit World(unsigned seed) : random(seed) {
    disk.settings.policy = chance(3) ? VideoRetention::RetentionPolicy() : VideoRetention::DeleteOlderThanDays{below(3)};
    disk.settings.deleteOnRestart = chance(2);
    if (chance(2)) disk.settings.lastRestartSweepBootMs = nowMs - below(2 * dayMs);
    if (!chance(4)) disk.bootMs = nowMs - below(2 * dayMs);
    if (chance(8)) disk.labelled.reset();
    disk.fence.machineIsProtected = chance(12);
    disk.isMounted = !chance(12);
    if (chance(10)) disk.unlistable.insert(std::array{"video", "display-0", "display-1"}[static_cast<std::size_t>(below(3))]);
    for (const auto* display : {"display-0", "display-1"})
      for (const auto& [name, file] : disk.folders[display] = files())
        if (disk.labelled && chance(5)) label(display, name, file);
  }
  /// By name, or by a moment that was recorded.
  void label(const std::string& display, const std::string& name, const FakeDisk::File& file) {
    if (!file.writtenMs || chance(2)) return void(disk.labelled->prefixes.insert(name.substr(0, 13)));
    const auto at = *file.writtenMs - below(hourMs);
    disk.labelled->spans.push_back({at, at});
    mustStay.insert(display + name);
  }
  std::int64_t below(std::int64_t limit) { return std::uniform_int_distribution<std::int64_t>(0, limit - 1)(random); }
  bool chance(int oneIn) { return below(oneIn) == 0; }
  FakeDisk::Folder files() {
    const char* endings[] = {".mkv", ".mkv", ".mkv", ".part2.mkv", ".part2.mkv", ".part.mkv", ".mp4"};
    FakeDisk::Folder made;
    for (int i = 0; i < 40; ++i) {
      const auto at = nowMs - below(4 * dayMs) + hourMs;
      auto name = VideoRetention::hourPrefix(at, recordedIn) + endings[below(7)];
      if (chance(10)) name.replace(5, 5, "02-31");
      const auto written = at + below(chance(5) ? 4 * dayMs : hourMs);
      made[name] = {below(1'000), chance(6) ? std::nullopt : std::optional(written), chance(10), chance(10) ? 2 : 99};
    }
    return made;
  }
  std::optional<std::int64_t> cutoffByAgeMs() const {
    const auto days = VideoRetention::days(disk.settings.policy);
    return days ? std::optional(nowMs - *days * dayMs) : std::nullopt;
  }
  std::optional<std::int64_t> newStartMs() const {
    const bool isNew = disk.settings.deleteOnRestart && disk.bootMs && disk.settings.lastRestartSweepBootMs.value_or(0) < *disk.bootMs;
    return isNew ? disk.bootMs : std::nullopt;
  }

  std::mt19937_64 random;
  static constexpr const char* zones[] = {"America/New_York", "Australia/Lord_Howe", "Etc/UTC", "Europe/Berlin"};
  const Calendar calendar = Calendar::named(zones[below(4)]), recordedIn = chance(2) ? calendar : Calendar::named(zones[below(4)]);
  /// In the months in which the clocks change.
  const std::int64_t nowMs = calendar.instant(2026, std::array{3, 4, 10, 11}[static_cast<std::size_t>(below(4))], 1, 0) + below(32 * dayMs);
  FakeDisk disk;
  std::set<std::string> mustStay;
};

/// Told in another way than the plan tells it: by what a clock shows at every tenth minute from the cutoff on.
bool mayGo(const World& world, const std::string& name, const FakeDisk::File& file) {
  const auto byAge = world.cutoffByAgeMs(), start = world.newStartMs(), cutoff = std::max(byAge, start);
  const auto prefix = name.substr(0, 13), ending = name.substr(13);
  if (!cutoff || (ending != ".mkv" && ending != ".part2.mkv") || name.substr(5, 5) == "02-31") return false;
  if (world.disk.labelled->prefixes.contains(prefix) || prefix == VideoRetention::hourPrefix(world.nowMs, world.calendar)) return false;
  for (auto at = *cutoff; at < world.nowMs + 20 * hourMs; at += hourMs / 6)
    if (VideoRetention::hourPrefix(at, world.calendar) == prefix) return false;
  const auto written = file.writtenMs;
  for (const auto& span : world.disk.labelled->spans)
    if (written && *written >= span.fromMs && *written <= span.toMs + hourMs) return false;
  return written && (written < start || (written < byAge && *written < world.nowMs - hourMs));
}

TEST(RetentionProperty, removesExactlyWhatMayGo) {
  int refused = 0, removed = 0, kept = 0, changed = 0, failed = 0;
  for (unsigned seed = 0; seed < 600 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    World before(seed), shown(seed), done(seed);
    const auto preview = shown.disk.run(false, shown.nowMs, shown.calendar), result = done.disk.run(true, done.nowMs, done.calendar);
    EXPECT_EQ(preview.refusal, result.refusal);
    EXPECT_EQ(shown.disk.files(), before.disk.files());
    EXPECT_EQ(shown.disk.settings, before.disk.settings);
    refused += !result.didSweep();
    if (result.refusal) {
      EXPECT_EQ(done.disk.files(), before.disk.files());
      continue;
    }
    EXPECT_EQ(done.disk.settings != before.disk.settings, result.includedRestartSweep && result.failures().empty());
    auto outcomes = result.outcomes;
    for (auto& outcome : outcomes) {
      outcome.wasPreview = true;
      for (auto& removal : outcome.removals) removal.failure.reset();
    }
    EXPECT_EQ(preview.outcomes, outcomes);
    for (const auto& [display, files] : before.disk.folders)
      for (const auto& [name, file] : files) {
        const bool may = mayGo(before, name, file), changes = file.steadyLooks == 2, isGone = !done.disk.folders[display].contains(name);
        EXPECT_EQ(isGone, may && !changes && !file.cantBeRemoved) << name;
        EXPECT_FALSE(isGone && before.mustStay.contains(display + name)) << name;
        removed += isGone, kept += !may, changed += may && changes, failed += may && file.cantBeRemoved;
      }
  }
  for (const auto count : {refused, removed, kept, changed, failed}) EXPECT_GT(count, 40);
}

}  // namespace
}  // namespace halvo
