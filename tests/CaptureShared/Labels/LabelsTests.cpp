// The table of labels, and the hours that it protects.

#include <gtest/gtest.h>

#include <limits>

#include "CaptureShared/Labels/LabelledHours.h"
#include "CaptureShared/Labels/LabelsSchema.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using Hours = std::optional<std::set<std::string>>;
constexpr std::int64_t hourMs = 3'600'000, minMs = std::numeric_limits<std::int64_t>::min(), maxMs = std::numeric_limits<std::int64_t>::max();

struct LabelsTest : testing::Test {
  void label(const SQLiteValue& t0, const SQLiteValue& t1, const std::string& label = "on_task") {
    db.run("DELETE FROM labels");
    db.insert("INSERT INTO labels (t0_ms, t1_ms, label, source_hour, created_at) VALUES (?, ?, ?, 'inapp:x', 'now')", {t0, t1, label});
  }
  Hours hours(const std::string& name = "labels.sqlite", std::int64_t lookbackMs = 0, std::int64_t lookaheadMs = 0) {
    const auto found = LabelledHours::sourceHours({folder.path() / name, lookbackMs, lookaheadMs, newYork});
    return found ? Hours(found->prefixes) : Hours();
  }
  test::TemporaryFolder folder;
  SQLiteDB db{folder.path() / "labels.sqlite"};
  Calendar newYork = Calendar::named("America/New_York");
};

TEST_F(LabelsTest, anOldTableGainsItsColumns) {
  db.run("CREATE TABLE labels (t0_ms, t1_ms, label, source_hour, created_at, source)");
  LabelsSchema::create(db);
  LabelsSchema::create(db);
  EXPECT_EQ(db.columnNames("labels"), (std::vector<std::string>{"t0_ms", "t1_ms", "label", "source_hour", "created_at", "source", "answered_blind", "user_note"}));
}

TEST_F(LabelsTest, protectsTheHoursAroundEachMoment) {
  LabelsSchema::create(db);
  EXPECT_EQ(hours(), Hours(std::set<std::string>()));
  EXPECT_THROW(label(1, 1, "nap"), SQLiteError);
  const auto quarterPastTen = newYork.instant(2026, 11, 16, 10, 15), autumn = newYork.instant(2026, 11, 1, 0, 30);
  label(quarterPastTen, quarterPastTen);
  const auto widest = hours("labels.sqlite", maxMs, maxMs), around = hours("labels.sqlite", 6 * hourMs, hourMs);
  ASSERT_TRUE(widest && around);
  EXPECT_TRUE(widest->contains("2026-11-16T10"));
  EXPECT_EQ(*around->begin() + " " + *around->rbegin() + " " + std::to_string(around->size()), "2026-11-16T04 2026-11-16T11 8");
  label(quarterPastTen, quarterPastTen - hourMs);
  EXPECT_EQ(hours("labels.sqlite", -hourMs, -hourMs), Hours({"2026-11-16T09", "2026-11-16T10"}));
  label(quarterPastTen + hourMs / 2, quarterPastTen + 2 * hourMs);
  EXPECT_EQ(hours(), Hours({"2026-11-16T10", "2026-11-16T11", "2026-11-16T12"})) << "the last one, which no step of an hour meets";
  label(autumn, autumn + 3 * hourMs);
  EXPECT_EQ(hours(), Hours({"2026-11-01T00", "2026-11-01T01", "2026-11-01T02"}));
  label(minMs, maxMs);
  EXPECT_TRUE(hours());
}

TEST_F(LabelsTest, whatCantBeToldIsAbsent) {
  EXPECT_EQ(hours("none.sqlite"), Hours(std::set<std::string>())) << "nothing was ever labelled";
  folder.write("text.sqlite", "this is no database, and long enough to be seen as none");
  std::filesystem::create_symlink(folder.path() / "unmounted", folder.path() / "link.sqlite");
  for (const auto* name : {"gone/labels.sqlite", "text.sqlite", "text.sqlite/labels.sqlite", "link.sqlite", "labels.sqlite"})
    EXPECT_FALSE(hours(name)) << name;
  LabelsSchema::create(db);
  label(std::string("soon"), std::int64_t{1});
  EXPECT_FALSE(hours()) << "a time that is none";
}

}  // namespace
}  // namespace halvo
