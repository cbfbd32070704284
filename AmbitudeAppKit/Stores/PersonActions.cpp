#include "AmbitudeAppKit/Stores/PersonActions.h"

#include <exception>

#include "AmbitudeAppKit/Live/TerminalChat.h"
#include "AmbitudeAppKit/Stores/Corrections.h"
#include "AmbitudeAppKit/Stores/EventSearch.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Folds/Declaration.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Intention/CurrentIntention.h"
#include "CaptureShared/Intention/EventLog.h"
#include "CaptureShared/Intention/IntentionWriter.h"

namespace halvo::PersonActions {

namespace {

constexpr const char* program = "AmbitudeApp";

template <class F>
Failure attempt(F&& change, const char* ifItFails = trMark("not recorded: ")) {
  if (!DataPaths::isDataRootAvailable()) return DataPaths::dataRootUnavailableReason();
  try {
    DataPaths::ensureSubdirsExist();
    std::forward<F>(change)();
    return std::nullopt;
  } catch (const std::exception& error) {
    return tr(ifItFails) + error.what();
  }
}

Failure append(const EventLogEvent& event) {
  return attempt([&] { EventLogWriter::append(event, DataPaths::events(), program); });
}

Failure record(const IntentionWriter::Record& record) {
  return attempt([&] { IntentionWriter::perform(record, IntentionWriter::standardSinks(program)); });
}

template <class F>
Failure control(F&& change) {
  return attempt([&] { std::forward<F>(change)(RecordingControls::read(DataPaths::dataRoot())).write(DataPaths::dataRoot()); },
                 trMark("not changed: "));
}

/// What a line says of its end: the words before that, and a clock time.
struct Ending {
  std::string words;
  std::optional<std::string> until;
};

Ending endingOf(std::string_view line, std::int64_t nowMs, const Calendar& calendar) {
  static const Regex clock(R"(^(.*?)\s*\b(?:until|till|til)\s+(\d{1,2}(?::\d{2})?\s*(?:am|pm)?|noon|midnight)\s*$)", Regex::Flag::caseless);
  static const Regex length(R"(^(.*?)\s*\bfor\s+(\d{1,3})\s*(min|mins|minutes?|m|h|hours?)\s*$)", Regex::Flag::caseless);
  if (const auto found = clock.find(line))
    return {std::string(*found->text(line, 1)), Text::replaceAll(Text::lower(*found->text(line, 2)), " ", "")};
  if (const auto found = length.find(line)) {
    const auto count = Text::parseInteger(*found->text(line, 2)).value_or(0);
    const bool isHours = Text::lower(*found->text(line, 3)).starts_with("h");
    if (count > 0) return {std::string(*found->text(line, 1)), calendar.clock12(nowMs + count * (isHours ? 3'600'000 : 60'000))};
  }
  return {std::string(line), std::nullopt};
}

/// The end that a declaration gave, as it was given; absent when it is over.
std::optional<std::string> standingEnd(const EventLogEvent& declared, std::int64_t nowMs, const Calendar& calendar) {
  const auto* detail = declared.detail.objectValue();
  const auto body = EventLog::taskFileBody(declared.type, detail ? std::optional(*detail) : std::nullopt, declared.tsMs, calendar);
  const auto details = DeclaredIntentionDetails::parse(body.value_or(""), calendar);
  const auto words = [](const std::string& estimate) { return std::optional(estimate.substr(std::string_view("until ").size())); };
  using End = std::optional<std::string>;
  return match(
      details ? EstimateReading::read(*details, calendar) : EstimateReading::None{}, [](const EstimateReading::None&) { return End(); },
      [](const EstimateReading::Rejected&) { return End(); }, [&](const EstimateReading::Unreadable& said) { return words(said.text); },
      [&](const EstimateReading::At& end) { return end.ms > nowMs ? words(end.text) : End(); });
}

/// The record that puts a former row in force again; of a clear or nothing it is a clear.
IntentionWriter::Record anew(const EventLogEvent* former, std::int64_t nowMs, const Calendar& calendar) {
  const auto declared = former ? Declaration::decode(*former) : std::nullopt;
  if (!declared) return IntentionWriter::clear(nowMs);
  const auto* why = former->text("why");
  return IntentionWriter::declare({.task = declared->notes,
                                   .until = standingEnd(*former, nowMs, calendar),
                                   .why = why ? std::optional(*why) : std::nullopt,
                                   .asOfMs = nowMs});
}

}  // namespace

Typed readTyped(const std::string& line, std::int64_t nowMs, const Calendar& calendar) {
  const auto whole = std::string(Text::trim(Text::newlinesToBlanks(line)));
  if (whole.empty()) return {};
  if (Text::equalsIgnoringCase(whole, "clear")) return {.kind = Typed::Kind::clear};
  auto ending = endingOf(whole, nowMs, calendar);
  const auto words = std::string(Text::trim(ending.words));
  if (Text::equalsIgnoringCase(words, "break")) return {.kind = Typed::Kind::rest, .until = ending.until};
  // "until 5pm" alone is no end of anything.
  if (words.empty()) return {.kind = Typed::Kind::declare, .task = whole};
  return {.kind = Typed::Kind::declare, .task = words, .until = ending.until};
}

Failure apply(const Typed& typed, std::int64_t nowMs) {
  switch (typed.kind) {
    case Typed::Kind::nothing: return std::nullopt;
    case Typed::Kind::declare: return record(IntentionWriter::declare({.task = typed.task, .until = typed.until, .asOfMs = nowMs}));
    case Typed::Kind::rest: return record(IntentionWriter::declareBreak(typed.until, nowMs));
    case Typed::Kind::clear: return record(IntentionWriter::clear(nowMs));
  }
  return std::nullopt;
}

Failure takeBackDeclaration(std::int64_t declaredMs, std::int64_t nowMs, const Calendar& calendar) {
  std::string refusal;
  auto failure = attempt([&] {
    const auto rows = EventSearch::eventsThat(
        [](EventLogEvent& event) { return event.type == EventType::taskDeclared || event.type == EventType::taskCleared; },
        DataPaths::events());
    const auto* newest = LatestDeclaration::event(rows, nowMs);
    if (!newest || newest->tsMs != declaredMs)
      refusal = tr("another declaration came since");
    else
      IntentionWriter::perform(anew(LatestDeclaration::event(rows, declaredMs - 1), nowMs, calendar),
                               IntentionWriter::standardSinks(program));
  });
  return failure || refusal.empty() ? failure : Failure(refusal);
}

Failure quiet(UserQuietDuration duration, std::int64_t nowMs, const Calendar& calendar) {
  return append(UserQuietRequestedEvent::make({.untilMs = endMs(duration, nowMs, calendar), .asOfMs = nowMs}));
}

Failure endQuiet(std::int64_t requestedMs, std::int64_t nowMs) { return append(UserQuietCancelledEvent::make(requestedMs, nowMs)); }

Failure say(const std::string& text) {
  return Text::isBlank(text) ? std::nullopt : attempt([&] { sendUserMessage(text, DataPaths::dataRoot(), program); });
}

Failure dismissConversation(std::int64_t nowMs, Dismissal how) {
  return append(how == Dismissal::closed ? CoachTurnEffects::userDismissedUIEvent(nowMs)
                                         : CoachTurnEffects::event("ui_closed", {}, nowMs));
}

Failure pauseRecording(std::optional<std::int64_t> untilMs, std::int64_t nowMs) {
  return control([&](const RecordingControls& present) { return present.paused(nowMs, untilMs); });
}

Failure resumeRecording() {
  return control([](const RecordingControls& present) { return present.resumed(); });
}

Failure recordIn(RecordingControls::Quality quality, std::int64_t nowMs) {
  return control([&](const RecordingControls& present) { return present.with(quality, nowMs); });
}

Failure forgetCorrection(std::int64_t atMs) {
  bool isThere = false;
  if (auto failure = attempt([&] { isThere = Corrections::erase(atMs, DataPaths::dataRoot()); })) return failure;
  return isThere ? std::nullopt : Failure(tr("it was deleted already"));
}

}  // namespace halvo::PersonActions
