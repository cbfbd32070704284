#include "agents/CoachDriver/CoachDriverLoop.h"

#include <algorithm>
#include <system_error>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/UserStandingInstructionsRendering.h"
#include "AmbitudeCore/Gate/CheckinEvents.h"
#include "AmbitudeCore/Gate/CoachGate.h"
#include "AmbitudeCore/Gate/CoachGateMessage.h"
#include "AmbitudeCore/Gate/CoachGateSessionID.h"
#include "AmbitudeCore/Gate/CoachGateTimeline.h"
#include "AmbitudeCore/Gate/GateDecisionLog.h"
#include "AmbitudeCore/Gate/GateDecisionLogFlag.h"
#include "AmbitudeCore/Gate/GateStandingNotes.h"
#include "AmbitudeCore/Gate/GateUnconstrainedFlag.h"
#include "AmbitudeCore/Gate/Layer3Flag.h"
#include "AmbitudeCore/Gate/Layer3Floor.h"
#include "AmbitudeCore/Memory/MemoryWipeFilter.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Intention/EventLog.h"
#include "CaptureShared/Signals/CaptureWindowReader.h"
#include "CaptureShared/Signals/SignalsReader.h"
#include "agents/CoachDriver/DriverRetention.h"
#include "agents/CoachDriver/UserMessageWatch.h"

namespace halvo {

namespace {

/// A writer reads its clock and then appends: a row stamped before our own look may arrive just behind it.
constexpr double settleSec = 0.02;
/// A row read with this look but stamped up to this much behind it is the next look's; a later one comes from a clock that was set back.
constexpr std::int64_t nextLookMs = 1000;
/// How old the observation that a forced check-in is told of may be.
constexpr std::int64_t forcedLookbackMs = 3'600'000;

std::string holdLine(const Layer3Trigger::Outcome& outcome, const Calendar& calendar) {
  using namespace Layer3Trigger;
  return match(
      outcome, [](const OpenDeveloperCheckinRequested&) { return std::string("a check-in was asked for by a developer"); },
      [&](const HoldForRecentClose& hold) {
        return "holding until " + calendar.hourMinute(hold.untilMs) + ": the conversation was closed a moment ago";
      },
      [](const HoldForUnansweredCheckin& hold) {
        return "holding: a check-in is unanswered and nothing changed (" + hold.anchor.value_or("no situation known") + ")";
      },
      [](const CheckinHoldExpired&) { return std::string("an unanswered check-in has outlived its hold"); },
      [&](const HoldForUserQuiet& hold) { return "holding until " + calendar.hourMinute(hold.untilMs) + ": they asked for quiet"; },
      [](const HoldForCall&) { return std::string("holding: a call is in progress"); },
      [](const HoldAfterCall& hold) { return fmt::format("holding: a call ended, {} fresh frame(s) since", hold.freshTicks); },
      [](const ConsultGate&) { return std::string("nothing holds"); },
      [](const OpenAwaitingReply&) { return std::string("they are waiting for a reply"); },
      [](const OpenAwaitingSetupFinishedReply&) { return std::string("setup is finished"); },
      [](const HoldForOpenPopup&) { return std::string("holding: the conversation is open and in use"); });
}

/// The row that a reply answers: the newest user message, or the end of setup.
std::optional<std::int64_t> replyIdentity(std::span<const EventLogEvent> events) {
  for (auto event = events.rbegin(); event != events.rend(); ++event) {
    const auto* role = event->type == "app_chat_message" ? event->text("role") : nullptr;
    if ((role && *role == "user") || event->type == "onboarding_v3_setup_finished") return event->tsMs;
  }
  return std::nullopt;
}

std::optional<FileIdentity> identityOf(const std::filesystem::path& file) {
  try {
    return FileIdentity::of(file);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

}  // namespace

CoachDriverLoop::CoachDriverLoop(CoachSurroundings surroundings)
    : surroundings_(std::move(surroundings)),
      service_(*surroundings_.backend, {.countsTransportFailures = !surroundings_.coachPrimaryIsLocal}, surroundings_.clock,
               [this](const EventLogEvent& event) { turns_.append({event}); }),
      turns_(surroundings_),
      logs_(DataPaths::events(surroundings_.dataRoot), DataPaths::checkerLog(surroundings_.dataRoot), surroundings_.log,
            DriverRetention::keep(surroundings_.clock.nowMs())),
      memory_(surroundings_.dataRoot, surroundings_.log),
      corrections_(CoachCorrectionsLog::defaultURL(surroundings_.dataRoot), surroundings_.log),
      doNotDisturb_({.localModel = surroundings_.coachPrimaryIsLocal ? surroundings_.backend : nullptr,
                     .calendar = surroundings_.calendar,
                     .append = [this](const EventLogEvent& event) { turns_.append({event}); },
                     .log = surroundings_.log}),
      cadence_(GatePollingCadence::Config::fromEnvironment(surroundings_.environment)) {
  surroundings_.backend = &service_;
}

void CoachDriverLoop::logChange(std::string& last, const std::string& line) {
  if (line == last) return;
  last = line;
  if (!line.empty()) surroundings_.log(line);
}

void CoachDriverLoop::run(const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    surroundings_.signOfLife();
    try {
      wake(stop);
      lastFailure_.clear();
    } catch (const Cancelled&) {
      // The person spoke during a call that nobody asked for, or the program ends: either way the next look decides.
      if (stop.stop_requested()) return;
      surroundings_.log("layer3: a call was given up because they said something");
      continue;
    } catch (const std::exception& error) {
      logChange(lastFailure_, std::string("layer3: this wake failed: ") + error.what());
    }
    waitForNews(stop);
  }
}

void CoachDriverLoop::waitForNews(const std::stop_token& stop) {
  if (looksAgain_) return;
  if (!Layer3Flag::isArmed(surroundings_.environment)) return surroundings_.clock.wait(wakeSec, stop);
  const auto events = DataPaths::events(surroundings_.dataRoot), ticks = DataPaths::checkerLog(surroundings_.dataRoot);
  const auto eventsSeen = logs_.events().reader.watermark();
  const auto eventsBefore = identityOf(events), before = identityOf(ticks);
  for (double waited = 0; waited < wakeSec && !stop.stop_requested(); waited += newsPollSec) {
    surroundings_.clock.wait(newsPollSec, stop);
    const auto now = identityOf(events);
    if (eventsSeen ? now && (now->size != eventsSeen->size || now->inode != eventsSeen->inode) : now != eventsBefore) return;
    if (identityOf(ticks) != before) return;
  }
}

void CoachDriverLoop::wake(const std::stop_token& stop) {
  if (!Layer3Flag::isArmed(surroundings_.environment)) {
    logChange(lastState_, "layer3: AMBITCAP_LAYER3 is not \"1\", so the coach is off");
    return;
  }
  looksAgain_ = false;
  if (!surroundings_.isDataRootThere())
    return logChange(lastTrouble_, "layer3: the data root is not there; nothing is read or recorded until it is");
  Moment moment{.asOfMs = surroundings_.clock.nowMs()};
  surroundings_.clock.wait(settleSec, stop);
  const auto refreshed = logs_.refresh();
  const auto trouble = match(
      refreshed, [](const RetainedDriverLog::Ready&) { return std::string(); },
      [](const RetainedDriverLog::EventsUnreadable& failed) { return "layer3: the event log can't be read: " + failed.error; },
      [](const RetainedDriverLog::TicksUnreadable& failed) { return "layer3: the judgment log can't be read: " + failed.error; });
  logChange(lastTrouble_, trouble);
  const auto* ready = std::get_if<RetainedDriverLog::Ready>(&refreshed);
  if (!ready) return;
  // The gate saw all there is, and nothing but a new row can change that: no hold ends into anything else.
  const Seen seen{logs_.events().reader.watermark(), logs_.ticks().reader.watermark()};
  if (restsUntilNews_ && seen == seen_) return;
  restsUntilNews_ = false;
  seen_ = seen;
  moment.events = ready->events;
  moment.ticks = ready->ticks;
  if (!moment.events.empty()) {
    // Passed over now, it would be no news later either, and whoever wrote it would wait.
    const auto newestMs = moment.events.back().tsMs;
    looksAgain_ = newestMs > moment.asOfMs && newestMs <= moment.asOfMs + nextLookMs;
    if (looksAgain_) return;
  }
  moment.eventsSize = logs_.events().reader.watermark() ? logs_.events().reader.watermark()->completeUpTo : 0;

  const auto floor = Layer3Floor::resolve(surroundings_.dataRoot, moment.asOfMs, moment.events,
                                          [&](const std::string& line) { logChange(lastTrouble_, line); });
  if (!floor) return;
  moment.floorMs = *floor;
  moment.preferences = readPreferences();
  recall(moment);
  service_.resume(moment.events);
  act(moment,
      Layer3Trigger::evaluate({.events = moment.events,
                               .ticks = moment.ticks,
                               .floorMs = moment.floorMs,
                               .asOfMs = moment.asOfMs,
                               .environment = surroundings_.environment,
                               .callHold = CallHoldControl::read(surroundings_.environment, surroundings_.callHoldOverride)}),
      stop);
  doNotDisturb_.look({.events = moment.events, .ticks = moment.ticks, .asOfMs = moment.asOfMs}, stop);
}

void CoachDriverLoop::act(const Moment& moment, const Layer3Trigger::Outcome& outcome, const std::stop_token& stop) {
  using namespace Layer3Trigger;
  logChange(lastState_, "layer3: " + holdLine(outcome, surroundings_.calendar));
  match(
      outcome, [&](const OpenAwaitingReply&) { reply(moment, stop); }, [&](const OpenAwaitingSetupFinishedReply&) { reply(moment, stop); },
      [&](const ConsultGate&) { consult(moment, stop); }, [&](const CheckinHoldExpired&) { consult(moment, stop); },
      [&](const OpenDeveloperCheckinRequested& asked) {
        const auto summary =
            CoachGateTimeline::currentObservationSummary(moment.ticks, moment.asOfMs, forcedLookbackMs, surroundings_.calendar);
        checkIn(moment, summary.value_or("nothing has been observed recently"),
                {DeveloperCheckinForcedEvent::make(asked.requestedAtMs, moment.asOfMs)}, stop);
      },
      [](const HoldForRecentClose&) {}, [](const HoldForUnansweredCheckin&) {}, [](const HoldForUserQuiet&) {}, [](const HoldForCall&) {},
      [](const HoldAfterCall&) {}, [](const HoldForOpenPopup&) {});
}

void CoachDriverLoop::reply(const Moment& moment, const std::stop_token& stop) {
  const auto identity = replyIdentity(moment.events);
  if (!turns_.mayRun(identity, moment.asOfMs)) return;
  turns_.run({.events = moment.events,
              .floorMs = moment.floorMs,
              .asOfMs = moment.asOfMs,
              .identity = identity,
              .preferences = moment.preferences,
              .corrections = moment.corrections,
              .memory = moment.memory},
             stop);
}

GatePollingCadence::Moment CoachDriverLoop::cadenceMoment(const Moment& moment) const {
  std::optional<double> idleSec;
  try {
    if (const auto newest = SignalsReader(DataPaths::signalsDB(surroundings_.dataRoot)).latestTick(moment.asOfMs))
      idleSec = newest->idleAnySec;
  } catch (const SignalsReaderError&) {
    // Without samples the classifier's own word on being away has to do.
  }
  auto task = EventLog::read(DataPaths::events(surroundings_.dataRoot));
  if (task && task->empty()) task.reset();
  return {
      .nowMs = moment.asOfMs,
      .regime = GatePollingCadence::classify(moment.ticks.empty() ? std::nullopt : moment.ticks.back().state, idleSec, cadence_.awaySec),
      .declaredTask = std::move(task),
      .boundaryWindowActive = GateDecisionLog::isNearOrPastCommitmentBoundary(moment.events, moment.asOfMs, cadence_.boundaryLeadSec)};
}

void CoachDriverLoop::consult(const Moment& moment, const std::stop_token& stop) {
  if (!turns_.mayRun(std::nullopt, moment.asOfMs)) return;
  const auto outcome = guard_.evaluate(GatePollingCadence::latestInputTsMs(moment.events, moment.ticks), cadenceMoment(moment), cadence_);
  const bool consults = std::holds_alternative<GatePollingCadence::Consult>(outcome);
  if (consults || !waitIsLogged_) surroundings_.log(GatePollingCadence::logLine(outcome));
  waitIsLogged_ = !consults;
  restsUntilNews_ = std::holds_alternative<GatePollingCadence::WakeGuard::NoNewInput>(outcome);
  if (!consults) return;
  const auto answer = askGate(moment, stop);
  if (!answer) return;
  recordDecision(moment, *answer);
  match(
      *answer,
      [&](const GateDecided& decided) {
        if (decided.decision.shouldCheckIn) checkIn(moment, decided.decision.summaryForCoach, {}, stop);
      },
      [&](const GateFailed& failed) { surroundings_.log("layer3 gate failed: " + failed.reason); });
}

std::optional<GateOutcome> CoachDriverLoop::askGate(const Moment& moment, const std::stop_token& stop) {
  const bool lowEffort = surroundings_.coachPrimaryIsLocal;
  CoachGate::Question question{
      .message = CoachGateMessage::build(
          {.scene = {.events = moment.events,
                     .ticks = moment.ticks,
                     .floorMs = moment.floorMs,
                     .nowMs = moment.asOfMs,
                     .capture =
                         CaptureWindowReader::read({.signalsPath = DataPaths::signalsDB(surroundings_.dataRoot), .asOfMs = moment.asOfMs}),
                     .calendar = surroundings_.calendar},
           .lowEffort = lowEffort,
           .standingNotes = GateStandingNotes::render(moment.memory, moment.corrections, CoachCorrection::Scope::whetherToSpeak),
           .userInstructions = UserStandingInstructionsRendering::forGate(moment.preferences.gateInstructions)}),
      .maxTokens = gateMaxTokens,
      .sessionID = CoachGateSessionID::value(lowEffort),
      .unconstrained = GateUnconstrainedFlag::isArmed(surroundings_.environment),
      .breaker = &breaker_};
  question.onUsage = [&](const ChatResponse& response) { turns_.recordUsage(response, "gate", moment.asOfMs); };
  question.onUnconstrainedRetry = [&](const std::string& why) { surroundings_.log("layer3 gate unconstrained: " + why); };
  const UserMessageWatch watch(DataPaths::events(surroundings_.dataRoot), moment.eventsSize, stop);
  return CoachGate::decide(*surroundings_.backend, question, watch.token());
}

bool CoachDriverLoop::checkIn(const Moment& moment, const std::string& summary, std::vector<EventLogEvent> before,
                              const std::stop_token& stop) {
  if (!turns_.mayRun(std::nullopt, moment.asOfMs)) return false;
  const UserMessageWatch watch(DataPaths::events(surroundings_.dataRoot), moment.eventsSize, stop);
  return turns_.run({.events = moment.events,
                     .floorMs = moment.floorMs,
                     .asOfMs = moment.asOfMs,
                     .checkinSummary = summary,
                     .preferences = moment.preferences,
                     .corrections = moment.corrections,
                     .memory = moment.memory,
                     .before = std::move(before)},
                    watch.token());
}

void CoachDriverLoop::recordDecision(const Moment& moment, const GateOutcome& outcome) {
  if (!GateDecisionLogFlag::isArmed(surroundings_.environment)) return;
  try {
    GateDecisionLog::append(GateDecisionLog::record(outcome, moment.events, moment.ticks, moment.asOfMs),
                            GateDecisionLog::defaultURL(surroundings_.dataRoot));
  } catch (const std::exception& error) {
    surroundings_.log(std::string("could not record gate decision: ") + error.what());
  }
}

void CoachDriverLoop::recall(Moment& moment) {
  const auto& remembered = memory_.read();
  if (moment.preferences.standingMemoryEnabled) moment.memory = remembered.memory;
  moment.corrections = MemoryWipeFilter::corrections(
      CoachCorrectionsLog::inForce(corrections_.read(moment.events), moment.asOfMs), remembered.wipeAtMs);
}

CoachPreferences CoachDriverLoop::readPreferences() {
  try {
    auto preferences = CoachPreferencesStore::read(surroundings_.dataRoot);
    lastPreferencesTrouble_.clear();
    return preferences;
  } catch (const std::runtime_error& error) {
    logChange(lastPreferencesTrouble_,
              std::string("layer3: their standing notes can't be read, so this turn goes without them: ") + error.what());
    return {};
  }
}

}  // namespace halvo
