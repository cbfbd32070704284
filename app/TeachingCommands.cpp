#include "app/TeachingCommands.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <system_error>
#include <vector>

#include "AmbitudeAppKit/Live/LiveLog.h"
#include "AmbitudeAppKit/Present/MemoryPage.h"
#include "AmbitudeAppKit/Stores/Corrections.h"
#include "AmbitudeAppKit/Stores/EventSearch.h"
#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/CoachPreferences.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "app/CommandOutput.h"

namespace halvo::TeachingCommands {

namespace {

using TerminalText::oneLine;
using CommandOutput::fail;
using CommandOutput::print;
using EventSearch::eventsThat;

/// Runs a command with the data root, if there is one.
template <class F>
int withRoot(F&& command) {
  return CommandOutput::withDataRoot([&] { return std::forward<F>(command)(DataPaths::dataRoot()); });
}

bool isReply(const EventLogEvent& event) {
  const auto* role = event.type == EventType::chatMessage ? event.text("role") : nullptr;
  return role && *role == "coach";
}

std::optional<EventLogEvent> lastReply() {
  auto replies = eventsThat([](EventLogEvent& event) { return isReply(event); }, DataPaths::events());
  const auto newest = std::ranges::max_element(replies, {}, &EventLogEvent::tsMs);
  return newest == replies.end() ? std::nullopt : std::optional(std::move(*newest));
}

std::string described(const CoachFeedbackWriter::StoredFeedback& row) {
  auto text = row.id() + "  " + std::string(rawValue(row.kind));
  if (row.mode) text += " " + std::string(rawValue(*row.mode));
  if (row.text) text += " \"" + oneLine(*row.text) + "\"";
  return row.note ? text + ": " + oneLine(*row.note) : text;
}

std::vector<ClassifierTick> ticks(const std::filesystem::path& root) {
  try {
    return ClassifierLogReader::read(DataPaths::checkerLog(root));
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    throw;
  }
}

}  // namespace

int corrections() {
  return withRoot([](const std::filesystem::path& root) {
    const auto list = MemoryPage::read(root, Clock::system().nowMs(), Calendar::local()).corrections;
    if (list.empty()) print("no corrections: tell Lark how it should behave, and they stand here");
    for (const auto& correction : list) print(fmt::format("{}  {}  ({})", correction.atMs, oneLine(correction.text), correction.how));
    return 0;
  });
}

int deleteCorrection(std::int64_t atMs) {
  return withRoot([&](const std::filesystem::path& root) {
    if (!Corrections::erase(atMs, root)) return fail("there is no correction of that number; see: halvo corrections");
    print("deleted");
    return 0;
  });
}

int notes() {
  return withRoot([](const std::filesystem::path& root) {
    const auto preferences = CoachPreferencesStore::read(root);
    for (const auto& [whom, text] : standingNotes) {
      const auto& note = preferences.*text;
      print(fmt::format("{:<11} {}", std::string(whom) + ":", Text::isBlank(note) ? "(none)" : oneLine(note)));
    }
    return 0;
  });
}

int setNote(const std::string& whom, const std::optional<std::string>& text) {
  const auto kind = std::ranges::find_if(standingNotes, [&](const StandingNote& note) { return note.whom == whom; });
  if (kind == standingNotes.end()) return fail("a note is for one of: gate, coach, classifier");
  return withRoot([&](const std::filesystem::path& root) {
    const auto given = text ? *text : std::string(std::istreambuf_iterator<char>(std::cin), {});
    auto preferences = CoachPreferencesStore::read(root);
    preferences.*(kind->text) = Text::scrubbed(Text::trim(given));
    CoachPreferencesStore::write(root, preferences);
    print((preferences.*(kind->text)).empty() ? "taken back" : "noted");
    return 0;
  });
}

int feedback() {
  return withRoot([](const std::filesystem::path& root) {
    const auto reply = lastReply();
    if (!reply) return fail("Lark has not said anything yet");
    print(LiveLog::render({reply->tsMs, LiveLog::Kind::coach, oneLine(*reply->text("text"))}, Calendar::local()));
    for (const auto& row : CoachFeedbackWriter::readAll(CoachFeedbackWriter::defaultURL(root)))
      if (row.atMs == reply->tsMs) print("  " + described(row));
    return 0;
  });
}

int grade(const CoachFeedbackWriter::Feedback& given) {
  return withRoot([&](const std::filesystem::path& root) {
    const auto reply = lastReply();
    if (!reply) return fail("Lark has not said anything yet");
    const auto now = Clock::system().nowMs();
    const auto trouble = CoachFeedbackWriter::writeReportingFailure({.feedback = given, .atMs = reply->tsMs, .asOfMs = now},
                                                                    CoachFeedbackWriter::defaultURL(root));
    if (trouble) return fail(*trouble);
    if (std::holds_alternative<CoachFeedbackWriter::Criterion>(given)) {
      const auto fromMs = reply->tsMs - CoachFeedbackWriter::fixtureReachMs;
      const auto events = eventsThat([&](EventLogEvent& event) { return event.tsMs >= fromMs && event.tsMs <= reply->tsMs; },
                                     DataPaths::events());
      CoachFeedbackWriter::captureFixture({.atMs = reply->tsMs, .events = events, .ticks = ticks(root), .asOfMs = now},
                                          CoachFeedbackWriter::fixturesDirectory(root));
    }
    print("kept");
    return 0;
  });
}

int deleteFeedback(const std::string& id) {
  return withRoot([&](const std::filesystem::path& root) {
    CoachFeedbackWriter::erase(id, CoachFeedbackWriter::defaultURL(root));
    print("deleted");
    return 0;
  });
}

}  // namespace halvo::TeachingCommands
