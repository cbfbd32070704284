#include "tests/support/InventedDay.h"

#include <fstream>
#include <string>
#include <vector>

#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Gate/GateDecisionLog.h"
#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Review/ReviewDraw.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Signals/Schema.h"

namespace halvo::test::InventedDay {

namespace {

struct Stretch {
  int fromMinute, toMinute;  ///< of the day
  const char* app;
  const char* state;
  const char* reason;
};
constexpr Stretch stretches[]{
    {9 * 60 + 2, 9 * 60 + 31, "Thunderbird", "ON_TASK", "You are answering letters, as you said you would."},
    {9 * 60 + 31, 10 * 60 + 44, "LibreOffice Writer", "ON_TASK", "You write the introduction of the essay."},
    {10 * 60 + 44, 10 * 60 + 58, "firefox", "NOT_ALIGNED", "A video about sailing is playing while the essay is declared."},
    {10 * 60 + 58, 12 * 60 + 5, "LibreOffice Writer", "ON_TASK", "You are back in the essay and the text grows."},
    {12 * 60 + 5, 12 * 60 + 52, "loginwindow", "IDLE", "The screen is locked."},
    {12 * 60 + 52, 13 * 60 + 20, "firefox", "ON_TASK", "You look up sources for the second chapter."},
    {13 * 60 + 20, 14 * 60 + 12, "LibreOffice Writer", "ON_TASK", "You write the second chapter."},
    {14 * 60 + 12, 14 * 60 + 20, "Signal", "NOT_ALIGNED", "A chat about the weekend is in front."},
    {14 * 60 + 20, 15 * 60 + 41, "LibreOffice Writer", "ON_TASK", "You write the second chapter."},
};

class Writer {
 public:
  Writer(const std::filesystem::path& root, const Calendar& calendar) : root_(root), calendar_(calendar) {}

  std::int64_t at(int hour, int minute, int second = 0) const { return calendar_.instant(2026, 3, 4, hour, minute) + second * 1000; }

  void event(std::int64_t ms, const char* type, JSONObject detail) {
    EventLogWriter::append(CoachTurnEffects::event(type, std::move(detail), ms), DataPaths::events(root_), "CoachDriver", "1");
  }
  void said(std::int64_t ms, const char* role, const char* text, const char* thinking = nullptr) {
    JSONObject detail{{"role", role}, {"text", text}};
    if (thinking) detail.set("thinking", thinking);
    event(ms, "app_chat_message", std::move(detail));
  }
  void gate(std::int64_t ms, const char* decision, const char* summary) {
    GateDecisionLog::append({.atMs = ms, .decision = decision, .summaryForCoach = summary, .declaredTask = "write the essay"},
                            GateDecisionLog::defaultURL(root_));
  }
  void desktop();
  void conversation();
  void memory();

 private:
  const std::filesystem::path& root_;
  const Calendar& calendar_;
};

void Writer::desktop() {
  SQLiteDB db(DataPaths::signalsDB(root_), SQLiteDB::Role::owner);
  Schema::createAll(db);
  for (const auto& stretch : stretches) {
    for (auto ms = at(0, stretch.fromMinute); ms < at(0, stretch.toMinute); ms += 3'000) {
      const bool isStill = (ms / 60'000) % 17 == 0;
      db.insert("INSERT INTO ticks (ts_ms, frontmost_app, idle_any_sec) VALUES (?, ?, ?)",
                {ms, std::string(stretch.app), isStill ? 80.0 : 2.0});
    }
    for (auto ms = at(0, stretch.fromMinute, 40); ms < at(0, stretch.toMinute); ms += 240'000) {
      const ClassifierTick tick{.at = calendar_.isoMillis(ms),
                                .state = stretch.state,
                                .frontmostApp = stretch.app,
                                .reason = stretch.reason,
                                .confidence = 0.86,
                                .declaredTask = "write the essay",
                                .model = "practice-model",
                                .screenshotAtMs = ms - 9'000};
      JSONLAppend::append(std::string_view(tick.encode()), DataPaths::checkerLog(root_));
    }
  }
}

void Writer::conversation() {
  event(at(9, 2), "task_declared", {{"task", "answer letters"}, {"until", "9:30am"}, {"why", nullptr}});
  event(at(9, 30), "task_declared", {{"task", "write the essay"}, {"until", "4:30pm"}, {"why", "it is due on Friday"}});
  gate(at(10, 44, 50), "no_check_in", "Two minutes of a video; too short to speak of.");
  gate(at(10, 55), "check_in", "The video has gone on for ten minutes.");
  event(at(10, 55), "coach_checkin", {{"summary_for_coach", "The video has gone on for ten minutes."}});
  event(at(10, 55), "ui_opened", {});
  said(at(10, 55), "coach",
       "You wanted to write the essay, and the sailing video has been on for ten minutes. Is that a break, or did it just happen?",
       "They said the essay is due on Friday. The video is not research. Ask, don't scold.");
  said(at(10, 57), "user", "it just happened. back to it");
  said(at(10, 57, 8), "coach", "Good. The introduction stood at two pages when you left it.");
  event(at(10, 57, 30), "ui_closed", {{"dismissed_by", "answer"}});
  said(at(14, 14), "user", "lunch plans for the weekend, give me ten minutes. and don't ask what my first step is");
  event(at(14, 14, 6), "task_declared",
        {{"task", "settle the weekend"}, {"notes", "settle the weekend"}, {"until", nullptr}, {"why", nullptr}, {"horizon_minutes", 10}});
  EventLogWriter::append(CoachCorrectionRecordedEvent::make({.text = "don't ask what my first step is",
                                                             .scope = CoachCorrection::Scope::whatToSay,
                                                             .asOfMs = at(14, 14, 6)},
                                                            calendar_),
                         DataPaths::events(root_), "CoachDriver", "1");
  said(at(14, 14, 6), "coach", "Ten minutes for the weekend, then the second chapter.");
  event(at(14, 21), "task_declared", {{"task", "write the essay"}, {"until", "4:30pm"}, {"why", "it is due on Friday"}});
  event(at(15, 2), "coach_service_problem", {{"reason", "unreachable"}});
  event(at(15, 9), "coach_service_restored", {});
}

void Writer::memory() {
  const MemoryFact due{"The essay is due on Friday", MemoryFactProvenance::asserted, {at(9, 30) - 86'400'000}};
  const MemoryFact letters{"Letters are answered before ten", MemoryFactProvenance::inferred, {at(9, 2) - 86'400'000}};
  MemoryStore::writeDigest({.periodStartTsMs = at(9, 0) - 86'400'000,
                            .periodEndTsMs = at(13, 0) - 86'400'000,
                            .generatedAtTsMs = at(3, 10),
                            .summary = "Letters, then the essay until one.",
                            .facts = {due, letters},
                            .lessons = {"Mornings are for writing."}},
                           root_);
  MemoryStore::writeStanding({.regeneratedAtTsMs = at(3, 12),
                              .digestCount = 21,
                              .threads = {{"The essay on tides", MemoryThreadStatus::active, "Due on Friday; the introduction stands."},
                                          {"Learning to sail", MemoryThreadStatus::dormant, "Comes back in videos when writing is hard."},
                                          {"Tax papers", MemoryThreadStatus::done, "Sent in February."}},
                              .lessons = {"A question helps more than a reminder.", "Mornings are for writing."},
                              .facts = {due, letters}},
                             root_);
}

}  // namespace

std::int64_t nowMs(const Calendar& calendar) { return calendar.instant(2026, 3, 4, 15, 40); }

void write(const std::filesystem::path& root, const Calendar& calendar) {
  Writer writer(root, calendar);
  writer.desktop();
  writer.conversation();
  writer.memory();
  // Each program has just been at work.
  for (const auto& sign : {DataPaths::frameTimestampsPath(0, root), DataPaths::classifierCadence(root), root / "io-layer/coach-driver.pid"}) {
    std::filesystem::create_directories(sign.parent_path());
    std::ofstream(sign) << "";
  }
}

void leaveReview(const std::filesystem::path& root, const Calendar& calendar) {
  std::vector<RampSampleSelector::Sample> samples;
  for (auto& tick : ClassifierLogReader::read(DataPaths::checkerLog(root)))
    if (tick.state == "NOT_ALIGNED" && samples.size() < 3) samples.push_back({.atMs = *tick.atMs(), .tick = std::move(tick)});
  const GateDecisionRecord decision{.atMs = nowMs(calendar), .decision = "check_in", .summaryForCoach = "The video has gone on for ten minutes."};
  for (auto& sample : samples) sample.decision = decision, sample.decision->atMs = sample.atMs;
  ReviewDraw::makeLabels(root);
  const auto batch = ReviewBatch::make(std::move(samples), RampSampleSelector::SamplingMode::verdictBlind, 7, nowMs(calendar));
  ReviewSession(batch, ReviewSession::Places::under(root), calendar).answer(ReviewSession::Layer1Answer::rabbitHole, {}, nowMs(calendar));
}

}  // namespace halvo::test::InventedDay
