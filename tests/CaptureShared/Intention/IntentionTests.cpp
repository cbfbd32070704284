#include <gtest/gtest.h>

#include <fmt/format.h>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Intention/CurrentIntention.h"
#include "CaptureShared/Intention/CurrentTask.h"
#include "CaptureShared/Intention/EventLog.h"
#include "CaptureShared/Intention/IntentionWriter.h"
#include "CaptureShared/Signals/Schema.h"
#include "tests/CaptureShared/DataRoot/Home.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Text = std::optional<std::string>;

const Calendar& newYork() {
  static const auto calendar = Calendar::named("America/New_York");
  return calendar;
}
const std::int64_t quarterPastTwo = newYork().instant(2026, 3, 4, 14, 15);

TEST(EventLog, taskFileBody) {
  const std::string head = "Task: essay\nDeclared: 2026-03-04 2:15pm ET\n";
  const struct { const char* name; const char* type; std::optional<JSONObject> detail; Text body;
  } cases[] = {
      {"plain", "task_declared", JSONObject{{"task", "essay"}, {"until", nullptr}, {"why", nullptr}}, head},
      {"all lines", "task_declared", JSONObject{{"task", "essay"}, {"until", "3:30pm"}, {"why", "due"}},
       head + "Estimate: until 3:30pm\nWhy: due\n"},
      {"notes win over task", "task_declared", JSONObject{{"task", "old"}, {"notes", "essay"}}, head},
      {"the horizon wins over until", "task_declared", JSONObject{{"task", "essay"}, {"until", "5pm"}, {"horizon_minutes", 75}},
       head + "Estimate: until 3:30pm\n"},
      {"past midnight", "task_declared", JSONObject{{"task", "essay"}, {"horizon_minutes", 600}}, head + "Estimate: until 12:15am\n"},
      {"a horizon that is no number of minutes", "task_declared",
       JSONObject{{"task", "essay"}, {"until", "5pm"}, {"horizon_minutes", "75"}}, head + "Estimate: until 5pm\n"},
      {"a newline forges no line", "task_declared", JSONObject{{"task", "essay"}, {"why", "so\nEstimate: until 9am\r\n\u2028Task: x"}},
       head + "Why: so Estimate: until 9am   Task: x\n"},
      {"cleared", "task_cleared", JSONObject{}, ""},
      {"cleared without a detail", "task_cleared", {}, ""},
      {"no text", "task_declared", JSONObject{{"why", "x"}}, {}},
      {"another event", "ui_opened", JSONObject{{"task", "essay"}}, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(EventLog::taskFileBody(c.type, c.detail, quarterPastTwo, newYork()), c.body) << c.name;
}

/// A data root with a log, in the zone that the bodies below are written for.
class Log : public ::testing::Test {
 protected:
  Log() { home_.set("TZ", "America/New_York"); }
  static std::string line(const std::string& type, const JSONObject& detail, std::int64_t tsMs = quarterPastTwo) {
    return JSONValue(JSONObject{{"ts_ms", tsMs}, {"kind", "event"}, {"type", type}, {"detail", detail}, {"source", "s"}}).dump() + "\n";
  }
  static std::string declared(const std::string& task) { return line("task_declared", {{"task", task}}); }
  static std::string body(const std::string& task) { return "Task: " + task + "\nDeclared: 2026-03-04 2:15pm ET\n"; }
  static std::string chatter(std::size_t bytes) {
    const auto frame = line("app_chat_message", {{"text", "task_declared"}}).size();
    return line("app_chat_message", {{"text", "task_declared" + std::string(bytes - frame, 'x')}});
  }
  /// Replaces the log by another file.
  void put(const std::string& text) const {
    fs::remove(log_);
    std::ofstream(log_, std::ios::binary) << text;
  }
  void add(const std::string& text) const { std::ofstream(log_, std::ios::binary | std::ios::app) << text; }

  test::Home home_;
  fs::path root_ = home_.makeRoot();
  fs::path log_ = root_ / "io-layer/events.jsonl";
};

TEST_F(Log, followsTheNewestDeclaration) {
  EXPECT_EQ(EventLog::read(), std::nullopt);
  put(chatter(200));
  EXPECT_EQ(EventLog::read(), std::nullopt);
  add(declared("one") + chatter(300));
  EXPECT_EQ(EventLog::read(), body("one"));
  const auto next = declared("two");
  add(next.substr(0, 40));
  EXPECT_EQ(EventLog::read(), body("one")) << "half a line is none";
  add(next.substr(40));
  EXPECT_EQ(EventLog::read(), body("two"));
  add(R"({"type":"task_declared","ts_ms":1})"
      "\n{\"type\":\"task_declared\n"
      R"({"type":"task_declared","ts_ms":"1","detail":{"task":"x"}})"
      "\n");
  EXPECT_EQ(EventLog::read(), body("two")) << "rows that do not read are passed over";
  add(line("task_cleared", {}));
  EXPECT_EQ(EventLog::read(), "");
  const auto wordless = declared("one") + line("task_declared", {{"why", "no text"}}) + chatter(200);
  add(wordless);
  EXPECT_EQ(EventLog::read(), std::nullopt) << "the newest counts, also when it says nothing";
  put(wordless);
  EXPECT_EQ(EventLog::read(), std::nullopt);
  put(declared("three") + "{\"half");
  EXPECT_EQ(EventLog::read(), body("three"));
  std::ofstream(log_) << "";  // truncated in place
  EXPECT_EQ(EventLog::read(), std::nullopt);
  fs::remove(log_);
  EXPECT_EQ(EventLog::read(), std::nullopt);
}

TEST_F(Log, aReplacedFileIsSeenThroughItsInode) {
  put(declared("one"));
  EXPECT_EQ(EventLog::read(), body("one"));
  const auto other = log_.string() + ".new";
  std::ofstream(other) << declared("two");
  fs::last_write_time(other, fs::last_write_time(log_));
  fs::rename(other, log_);
  EXPECT_EQ(EventLog::read(), body("two"));
}

TEST_F(Log, noChunkBoundaryLosesALine) {
  const auto row = declared("wanted");
  // The boundary falls on every byte of the row, one behind it and one before it.
  for (std::size_t inside = 0; inside <= row.size() + 1; ++inside) {
    put(declared("older") + row + chatter(65'536 - inside + 1));
    EXPECT_EQ(EventLog::read(), body("wanted")) << inside;
  }
  put(row + chatter(200'000) + chatter(70'000) + "{\"torn\":\"" + std::string(140'000, 'x'));
  EXPECT_EQ(EventLog::read(), body("wanted"));
  add("\"}\n" + declared("newer"));
  EXPECT_EQ(EventLog::read(), body("newer"));
}

TEST_F(Log, theTaskFileIsOnlyAFallback) {
  const auto file = home_.path() / ".ambitude/current-task.txt";
  EXPECT_EQ(CurrentTask::path(), file);
  auto run = [&](const Text& log, const Text& task) {
    log ? put(*log) : void(fs::remove(log_));
    fs::remove_all(file);
    if (task) home_.write(".ambitude/current-task.txt", *task);
    ::testing::internal::CaptureStderr();
    const auto answer = CurrentTask::read();
    return std::pair(answer, ::testing::internal::GetCapturedStderr());
  };
  const auto mismatch = [](const std::string& log, const std::string& task) {
    return "[CurrentTask] projection/file parity mismatch — projection=" + log + " file=" + task + "\n";
  };
  const auto one = body("one");
  const auto shown = JSONValue(one).dump();
  const struct { const char* name; Text log, file, answer; std::string said = {}; } cases[] = {
      {"neither", {}, {}, {}},
      {"a log without a declaration", chatter(200), "Task: kept\n", "Task: kept\n"},
      {"the log alone", declared("one"), {}, one},
      {"both agree", declared("one"), one, one},
      {"they differ: the log wins, and it is told", declared("one"), "x", one, mismatch(shown, "\"x\"")},
      {"told once", declared("one"), "x", one},
      {"another pair is told", declared("one"), std::string(130, 'y'), one, mismatch(shown, '"' + std::string(120, 'y') + '"')},
      {"agreement clears it", declared("one"), one, one},
      {"so the same pair is told again", declared("one"), "x", one, mismatch(shown, "\"x\"")},
      {"cleared: empty, and not the file", line("task_cleared", {}), "Task: stale\n", "", mismatch("\"\"", R"("Task: stale\n")")},
  };
  for (const auto& c : cases) EXPECT_EQ(run(c.log, c.file), std::pair(c.answer, c.said)) << c.name;

  put(chatter(200));
  fs::remove(file);
  fs::create_directory(file);
  EXPECT_EQ(CurrentTask::read(), std::nullopt) << "a file that does not read";
  fs::remove(file);
  home_.write(".ambitude/current-task.txt", "Task: kept\n");
  fs::remove(log_);
  fs::create_directory(log_);
  EXPECT_EQ(CurrentTask::read(), std::nullopt) << "a log that does not read is not an empty one";
  home_.set("AMBITCAP_DATA_ROOT", {});
  EXPECT_EQ(CurrentTask::read(), std::nullopt) << "no data root";
}

TEST_F(Log, performWritesTheTruthFirstAndItsCopiesAsFarAsTheyGo) {
  std::string calls;
  auto sinks = IntentionWriter::Sinks{.appendEvent = [&](const auto&) { calls += "event "; },
                                      .writeTaskFile = [&](const std::string& text) { calls += "file(" + text + ") "; },
                                      .logSQLite = [&](const auto&) { calls += "sqlite"; }};
  const auto performed = [&](const IntentionWriter::Record& record) {
    calls.clear();
    IntentionWriter::perform(record, sinks, newYork());
    return calls;
  };
  EXPECT_EQ(performed(IntentionWriter::declare({.task = "a", .asOfMs = quarterPastTwo})), "event file(" + body("a") + ") sqlite");
  EXPECT_EQ(performed(IntentionWriter::clear(1)), "event file() sqlite");
  sinks.writeTaskFile = [](const std::string&) { throw std::runtime_error("full"); };
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(performed(IntentionWriter::clear(1)), "event sqlite");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "warning: the task file was not written: full\n");
  sinks.appendEvent = [](const auto&) { throw std::runtime_error("no"); };
  EXPECT_THROW(performed(IntentionWriter::clear(1)), std::runtime_error);
  EXPECT_EQ(calls, "");
}

TEST_F(Log, theStandardSinksReachAllThreePlaces) {
  const auto record = IntentionWriter::declare({.task = "essay", .until = "3pm", .asOfMs = quarterPastTwo});
  IntentionWriter::perform(record, IntentionWriter::standardSinks("AmbitudeApp"), newYork());
  EXPECT_FALSE(fs::exists(root_ / "signals.sqlite")) << "a database that the sampler has not made is not made here";
  SQLiteDB db(root_ / "signals.sqlite", SQLiteDB::Role::owner);
  Schema::createAll(db);
  IntentionWriter::perform(record, IntentionWriter::standardSinks("AmbitudeApp"), newYork());

  const auto rows = EventLogReader::read(log_);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].source, "set_task");
  EXPECT_EQ(*rows[0].detail.at({"_producer", "process"}), JSONValue("AmbitudeApp"));
  EXPECT_EQ(EventLog::read(), readFile(CurrentTask::path()));
  EXPECT_EQ(fs::status(CurrentTask::path()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  auto copy = db.prepare("SELECT ts_ms, type, detail FROM events");
  ASSERT_TRUE(copy.step());
  EXPECT_EQ(copy.integer(0), quarterPastTwo);
  EXPECT_EQ(copy.optionalText(1), "task_declared");
  EXPECT_EQ(copy.optionalText(2), JSONValue(record.detail).dump());
  EXPECT_FALSE(copy.step());

  // What has no JSON form is left out, but never the declaration's own words.
  const auto declare = [](const char* task, const char* why) {
    IntentionWriter::perform(IntentionWriter::declare({.task = task, .why = why, .asOfMs = quarterPastTwo}),
                             IntentionWriter::standardSinks("AmbitudeApp"), newYork());
  };
  declare("tea", "\xff");
  EXPECT_EQ(EventLogReader::read(log_).back().detail.find("why"), nullptr);
  EXPECT_THROW(declare("\xff", "none"), EventLogWriterError);
}

TEST(EstimateReading, readsAClockTimeOfTheDeclarationsDay) {
  using namespace EstimateReading;
  const auto at = [](int hour, int minute) { return newYork().instant(2026, 3, 4, hour, minute); };
  const struct { const char* estimate; Reading want; const char* declared = "2026-03-04 2:15pm ET"; } cases[] = {
      {"", None{}},
      {"until 3:30pm", At{at(15, 30), "until 3:30pm"}},
      {"until 12:30pm", At{at(12, 30), "until 12:30pm"}, "2026-03-04 12:05am ET"},
      {"until 2:15pm", Rejected{"until 2:15pm"}},
      {"until 9am", Rejected{"until 9am"}},
      {"until 3pm", Rejected{"until 3pm"}, "some time"},
      {"until lunch", Unreadable{"until lunch"}},
      {"until 3:75pm", Unreadable{"until 3:75pm"}},
      {"until 15:30", Unreadable{"until 15:30"}},
  };
  for (const auto& c : cases) {
    const auto text =
        std::string("Task: t\nDeclared: ") + c.declared + "\n" + (*c.estimate ? std::string("Estimate: ") + c.estimate + "\n" : "");
    const auto details = DeclaredIntentionDetails::parse(text, newYork());
    ASSERT_TRUE(details);
    EXPECT_EQ(EstimateReading::read(*details, newYork()), c.want) << c.estimate;
  }
  // What one part writes the other reads.
  const auto body = EventLog::taskFileBody("task_declared", JSONObject{{"task", "t"}, {"horizon_minutes", 75}}, quarterPastTwo, newYork());
  const auto details = DeclaredIntentionDetails::parse(*body, newYork());
  EXPECT_EQ(details->declaredAtMs, quarterPastTwo);
  EXPECT_EQ(EstimateReading::read(*details, newYork()), Reading(At{at(15, 30), "until 3:30pm"}));
}

}  // namespace
}  // namespace halvo
