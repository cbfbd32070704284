#include "agents/CoachDriver/CoachTurns.h"

#include <algorithm>
#include <memory>
#include <system_error>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterSessionID.h"
#include "AmbitudeCore/Backends/Remote/OutboundRedaction.h"
#include "AmbitudeCore/Backends/TurnUsageLog.h"
#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachStream.h"
#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Coach/Layer3CoachLoop.h"
#include "AmbitudeCore/Coach/Layer3Conversation.h"
#include "AmbitudeCore/Coach/Layer3SystemPrompt.h"
#include "AmbitudeCore/Coach/Layer3TurnEffects.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/UserStandingInstructionsRendering.h"
#include "AmbitudeCore/Gate/GateStandingNotes.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"

namespace halvo {

namespace {

constexpr int maxTokens = 4096;

/// The reply as it is written, for whoever watches. What can't be streamed is told once; the words still come as an event.
class Stream {
 public:
  Stream(const CoachSurroundings& surroundings, std::int64_t asOfMs) : log_(surroundings.log) {
    guarded(
        [&] { writer_ = std::make_unique<CoachStreamWriter>(CoachStream::url(surroundings.dataRoot), CoachStream::turnID(asOfMs)); });
  }
  ~Stream() {
    guarded([&] { writer_->finish(); });
  }
  void add(const ModelStreamDelta& delta) {
    guarded([&] {
      writer_->append(
          {.text = delta.text, .thinking = delta.thinking, .reset = delta.resetsPrevious, .resetThinking = delta.resetsThinking});
    });
  }

 private:
  template <class F>
  void guarded(F&& body) {
    if (broken_) return;
    try {
      body();
    } catch (const std::system_error& error) {
      broken_ = true;
      log_(std::string("layer3 stream not written: ") + error.what());
    }
  }
  const LogSink& log_;
  std::unique_ptr<CoachStreamWriter> writer_;
  bool broken_ = false;
};

/// The identity of the conversation as a remote service knows it: the same from turn to turn while it begins the same.
std::string sessionID(const CoachTurns::Turn& turn, const std::optional<std::string>& instructions, std::vector<std::string> notes) {
  const auto first = std::find_if(turn.events.begin(), turn.events.end(), [&](const auto& event) { return event.tsMs >= turn.floorMs; });
  if (instructions) notes.insert(notes.begin(), *instructions);
  const auto beginning = first == turn.events.end() ? std::vector<EventLogEvent>{} : std::vector{*first};
  return OpenRouterSessionID::derive(beginning, notes, {}, turn.asOfMs);
}

Layer3TurnRequest requestOf(const CoachTurns::Turn& turn, const CoachSurroundings& surroundings,
                            const std::vector<ChatMessage>& conversation) {
  const auto variant = surroundings.coachPrimaryIsLocal ? Layer3Prompt::Variant::local : Layer3Prompt::Variant::online;
  std::vector<std::string> notes;
  if (auto taught = GateStandingNotes::render(turn.memory, turn.corrections, CoachCorrection::Scope::whatToSay))
    notes.push_back(std::move(*taught));
  auto instructions = UserStandingInstructionsRendering::forCoach(turn.preferences.coachInstructions);
  if (!surroundings.coachPrimaryIsLocal) {
    // A system message is sent as it is, and these are the person's words in it.
    for (auto& note : notes) note = OutboundRedaction::redactedText(note);
    if (instructions) instructions = OutboundRedaction::redactedText(*instructions);
  }
  std::vector<ChatMessage> messages{ChatMessage::system(Layer3SystemPrompt::build(Layer3Prompt::text(variant), instructions, notes))};
  messages.insert(messages.end(), conversation.begin(), conversation.end());
  Layer3PromptVariant::Request fitted{std::move(messages), Layer3Tools::all()};
  if (surroundings.coachPrimaryIsLocal) fitted = Layer3PromptVariant::forLocalModel(std::move(fitted.messages), std::move(fitted.tools));
  return {.messages = std::move(fitted.messages),
          .tools = std::move(fitted.tools),
          .options = {.maxTokens = maxTokens,
                      .think = true,
                      .sessionID = surroundings.coachPrimaryIsLocal ? std::nullopt : std::optional(sessionID(turn, instructions, notes)),
                      .turn = turn.checkinSummary ? ChatTurn::background : ChatTurn::reply},
          .asOfMs = turn.asOfMs,
          .correctJudgment = CorrectJudgmentGuard::verdict(conversation)};
}

}  // namespace

void CoachTurns::recordUsage(const ChatResponse& response, const char* layer, std::int64_t asOfMs) const {
  surroundings_.log(fmt::format("layer3 {} {}", layer, TurnUsageLog::line(response)));
  const auto record =
      TurnUsageRecord::from(response, {.layer = layer, .asOfMs = asOfMs, .buildVersion = EventLogWriter::defaultBuildVersion()});
  if (!record) return;
  try {
    TurnUsageRecordLog::append(*record, TurnUsageRecordLog::defaultURL(surroundings_.dataRoot));
  } catch (const std::exception& error) {
    surroundings_.log(std::string("could not record turn usage: ") + error.what());
  }
}

bool CoachTurns::append(const std::vector<EventLogEvent>& events) const {
  try {
    EventLogWriter::append(events, DataPaths::events(surroundings_.dataRoot));
    return true;
  } catch (const EventLogWriterError& error) {
    surroundings_.log(std::string("could not append to the event log: ") + error.what());
    return false;
  }
}

void CoachTurns::putOff(const Turn& turn, const std::string& reason) {
  const auto failure = backoff_.recordFailure(turn.identity, turn.asOfMs);
  surroundings_.log(fmt::format("layer3 turn failed: {} (failure {} in a row, next try in {:g} s)", reason, failure.consecutiveFailures,
                                failure.interval));
}

void CoachTurns::fail(const Turn& turn, const std::string& reason, const std::optional<std::string>& userReason,
                      const std::optional<EventLogEvent>& marker) {
  putOff(turn, reason);
  std::vector<EventLogEvent> events;
  if (marker) events.push_back(*marker);
  // Whoever waits is told once for each message, not at every try.
  const bool tells = userReason && toldIdentity_ != turn.identity;
  if (tells) toldIdentity_ = turn.identity;
  events.push_back(AppChatEvents::turnFailed(reason, tells ? userReason : std::nullopt, turn.asOfMs));
  append(events);
}

std::vector<std::int64_t> CoachTurns::keepCorrections(const Turn& turn, std::vector<EventLogEvent>& events) const {
  const auto recorded = CoachCorrectionsLog::fromEvents(events);
  if (recorded.empty()) return {};
  const auto url = CoachCorrectionsLog::defaultURL(surroundings_.dataRoot);
  std::vector<std::int64_t> kept;
  try {
    // A file that was lost, or never was, begins with what the log holds.
    CoachCorrectionsLog::restore(CoachCorrectionsLog::fromEvents(turn.events), url);
    for (const auto& correction : recorded) kept.push_back(CoachCorrectionsLog::write(correction, url));
    return kept;
  } catch (const std::exception& error) {
    surroundings_.log(std::string("layer3: a correction was not kept: ") + error.what());
    forgetCorrections(kept);
    events = CoachTurnEffects::withoutCorrections(std::move(events));
    return {};
  }
}

void CoachTurns::forgetCorrections(const std::vector<std::int64_t>& atMsValues) const {
  for (const auto atMs : atMsValues) try {
      CoachCorrectionsLog::erase(atMs, CoachCorrectionsLog::defaultURL(surroundings_.dataRoot));
    } catch (const std::exception& error) {
      surroundings_.log(std::string("layer3: a correction of a turn that failed stays in its file: ") + error.what());
    }
}

bool CoachTurns::run(const Turn& turn, const std::stop_token& stop) {
  const Layer3Request::Turn view{.events = turn.events, .floorMs = turn.floorMs, .asOfMs = turn.asOfMs};
  const auto conversation = turn.checkinSummary ? Layer3Request::forCheckin(view, *turn.checkinSummary, surroundings_.calendar)
                                                : Layer3Request::forReply(view, surroundings_.calendar);
  const auto request = requestOf(turn, surroundings_, conversation);
  ChatResponse response;
  try {
    Stream stream(surroundings_, turn.asOfMs);
    response = Layer3TurnRunner::run(request, *surroundings_.backend, surroundings_.calendar,
                                     [&](const ModelStreamDelta& delta) { stream.add(delta); }, stop);
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    fail(turn, describeError(error), CoachTurnFailureCopy::userReason(error, request.options.turn));
    return false;
  }
  throwIfStopped(stop);
  recordUsage(response, "coach", turn.asOfMs);

  if (const auto rejected = CoachTurnEffects::rejection(response, turn.asOfMs)) {
    if (response.truncated) append({TurnTruncatedEvent::make(rejected->reason, turn.asOfMs)});
    const bool isWaitedFor = request.options.turn == ChatTurn::reply;
    const auto told = isWaitedFor && rejected->userReason ? rejected->userReason : CoachTurnFailureCopy::noReply(request.options.turn);
    // The failure's own row says the same as an empty completion's marker.
    const bool hasMarker = rejected->event.type != "coach_turn_failed";
    fail(turn, rejected->reason, told, hasMarker ? std::optional(rejected->event) : std::nullopt);
    return false;
  }
  auto events = Layer3TurnEffects::events({.checkinSummary = turn.checkinSummary,
                                           .response = response,
                                           .messages = request.messages,
                                           .asOfMs = turn.asOfMs,
                                           .correctJudgment = request.correctJudgment},
                                          surroundings_.calendar);
  if (!Layer3TurnEffects::deliveredAReply(events)) {
    const auto* reason = events.front().text("reason");
    fail(turn, reason ? *reason : "no reply", CoachTurnFailureCopy::noReply(request.options.turn));
    return false;
  }
  const auto kept = keepCorrections(turn, events);
  events.insert(events.begin(), turn.before.begin(), turn.before.end());
  if (!append(events)) {
    forgetCorrections(kept);  // the next try records them anew
    // A full disk: without a pause the model would be asked again at every wake.
    putOff(turn, "its rows could not be written");
    return false;
  }
  backoff_.recordSuccess();
  for (const auto& event : events) {
    if (event.type == "correct_judgment_refused") {
      const auto* reason = event.text("reason");
      surroundings_.log("layer3 refused correct_judgment: " + (reason ? *reason : std::string()));
    }
    if (event.type != IntentionWriter::declaredType || !event.detail.objectValue()) continue;
    // The event is the truth and stands; the task file and the SQLite copy follow it.
    auto sinks = surroundings_.intentionSinks;
    sinks.appendEvent = [](const IntentionWriter::Record&) {};
    IntentionWriter::perform({event.type, *event.detail.objectValue(), event.tsMs}, sinks, surroundings_.calendar);
  }
  return true;
}

}  // namespace halvo
