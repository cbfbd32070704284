#include "AmbitudeCore/Gate/Layer3Trigger.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Folds/CoachUIState.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "AmbitudeCore/Folds/OwnApplications.h"
#include "AmbitudeCore/Folds/TimedTicks.h"
#include "AmbitudeCore/Folds/UserQuietWindow.h"
#include "AmbitudeCore/Gate/Situations.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::Layer3Trigger {
namespace {
constexpr std::int64_t developerRequestMaxAgeMs = 300'000;
constexpr std::int64_t openPopupHoldMs = 600'000;
constexpr std::int64_t postCallHoldMs = 600'000;
/// How long before its row a frame was taken, when the row does not say.
constexpr std::int64_t usualFrameAgeMs = 15'000;
constexpr std::int64_t unansweredCloseHoldMs = 480'000;
constexpr std::int64_t answeredCloseHoldMs = 180'000;
constexpr std::int64_t situationLookbackMs = 3'600'000;
constexpr std::int64_t presenceMaxAgeMs = 600'000;
constexpr std::int64_t defaultUnansweredCheckinExpiryMs = 900'000;

bool isUserMessage(const EventLogEvent& event) {
  if (event.type != EventType::chatMessage) return false;
  const auto* role = event.text("role");
  return role && *role == "user";
}

/// One wake's evaluation. The events that matter are picked out once; there are few of them even in a long log.
class Evaluation {
 public:
  explicit Evaluation(const Wake& wake) : wake_(wake), now_(wake.asOfMs) {
    for (const auto& event : wake.events)
      if (event.tsMs <= now_ && matters(event.type)) events_.push_back(&event);
    if (!std::ranges::is_sorted(events_, {}, &EventLogEvent::tsMs)) std::ranges::stable_sort(events_, {}, &EventLogEvent::tsMs);
  }

  Outcome outcome() const {
    if (awaitsReply()) return OpenAwaitingReply{};
    if (awaitsSetupFinishedReply()) return OpenAwaitingSetupFinishedReply{};
    if (const auto found = developerRequest()) return *found;
    if (popupInUse()) return HoldForOpenPopup{};
    if (const auto found = userQuiet()) return *found;
    if (const auto found = call()) return *found;
    if (const auto found = recentClose()) return *found;
    if (const auto found = unansweredCheckin()) return *found;
    return ConsultGate{};
  }

 private:
  using Event = EventLogEvent;

  static bool matters(std::string_view type) {
    return type == EventType::chatMessage || type == EventType::coachCheckin || type == EventType::coachTurnFailed ||
           type == EventType::uiOpened || type == EventType::uiClosed || type == EventType::inCallBegan || type == EventType::inCallEnded ||
           type == EventType::developerCheckinRequested || type == EventType::onboardingSetupFinished;
  }

  /// The newest event of `[fromMs, now]` that meets a condition.
  template <class Condition>
  const Event* newest(std::int64_t fromMs, Condition&& meets) const {
    for (auto at = events_.rbegin(); at != events_.rend() && (*at)->tsMs >= fromMs; ++at)
      if (meets(**at)) return *at;
    return nullptr;
  }
  template <class Condition>
  const Event* newestInWindow(Condition&& meets) const {
    return newest(wake_.floorMs, std::forward<Condition>(meets));
  }
  /// Is there an event behind `afterMs`, up to and with `toMs`?
  template <class Condition>
  bool any(std::int64_t afterMs, std::int64_t toMs, Condition&& meets) const {
    return std::ranges::any_of(events_, [&](const Event* event) { return event->tsMs > afterMs && event->tsMs <= toMs && meets(*event); });
  }
  static bool isChat(const Event& event) { return event.type == EventType::chatMessage; }

  bool awaitsReply() const {
    const auto* last = newestInWindow(isChat);
    return last && isUserMessage(*last);
  }

  bool awaitsSetupFinishedReply() const {
    const auto* close = newestInWindow(CoachUIState::isUserClose);
    const auto* last = newest(close ? close->tsMs : wake_.floorMs,
                              [](const Event& event) { return isChat(event) || event.type == EventType::onboardingSetupFinished; });
    return last && last->type == EventType::onboardingSetupFinished;
  }

  std::optional<Outcome> developerRequest() const {
    const auto* last = newestInWindow([](const Event& event) {
      return isChat(event) || event.type == EventType::coachCheckin || event.type == EventType::coachTurnFailed ||
             event.type == EventType::developerCheckinRequested;
    });
    if (!last || last->type != EventType::developerCheckinRequested || now_ - last->tsMs > developerRequestMaxAgeMs) return std::nullopt;
    return OpenDeveloperCheckinRequested{.requestedAtMs = last->tsMs};
  }

  /// A popup left open without a word or an opening for ten minutes holds nothing back.
  bool popupInUse() const {
    const auto* edge =
        newestInWindow([](const Event& event) { return event.type == EventType::uiOpened || event.type == EventType::uiClosed; });
    if (!edge || edge->type != EventType::uiOpened) return false;
    const auto* use = newest(edge->tsMs, [](const Event& event) {
      return isChat(event) || event.type == EventType::coachCheckin || event.type == EventType::uiOpened;
    });
    return use && now_ - use->tsMs < openPopupHoldMs;
  }

  /// Read from the whole log: an order given before the floor was pinned is still an order.
  std::optional<Outcome> userQuiet() const {
    const auto window = UserQuietWindow::latest(wake_.events, now_);
    if (!window || !window->isInForce(now_)) return std::nullopt;
    return HoldForUserQuiet{.untilMs = window->effectiveEndMs(), .reason = window->reason};
  }

  std::optional<Outcome> call() const {
    if (!wake_.callHold.enabled) return std::nullopt;
    const auto* edge = newest(std::numeric_limits<std::int64_t>::min(), [](const Event& event) {
      return event.type == EventType::inCallBegan || event.type == EventType::inCallEnded;
    });
    if (!edge) return std::nullopt;
    if (edge->type == EventType::inCallBegan) {
      const auto& overridden = wake_.callHold.override_;
      if (!overridden || overridden->episodeStartMs != edge->tsMs) return HoldForCall{.sinceMs = edge->tsMs};
      return afterCall(overridden->overriddenAtMs);
    }
    // The person ended that hold themselves; making them wait again would undo it.
    const auto* reason = edge->text("reason");
    if (reason && *reason == "overridden") return std::nullopt;
    return afterCall(edge->tsMs);
  }

  std::optional<Outcome> afterCall(std::int64_t endedMs) const {
    if (now_ - endedMs >= postCallHoldMs) return std::nullopt;
    int fresh = 0;
    for (const auto& timed : TimedTicks::within(wake_.ticks, endedMs + 1, now_))
      if (timed.tick->screenshotAtMs.value_or(timed.tsMs - usualFrameAgeMs) > endedMs) ++fresh;
    if (fresh >= postCallFreshTicks) return std::nullopt;
    return HoldAfterCall{.endedMs = endedMs, .freshTicks = fresh};
  }

  std::optional<Outcome> recentClose() const {
    const auto* close = newestInWindow(CoachUIState::isUserClose);
    if (!close || any(close->tsMs, now_, isChat)) return std::nullopt;
    const bool unanswered = closedUnanswered(close->tsMs);
    const auto untilMs = close->tsMs + (unanswered ? unansweredCloseHoldMs : answeredCloseHoldMs);
    if (now_ >= untilMs) return std::nullopt;
    return HoldForRecentClose{.sinceMs = close->tsMs, .untilMs = untilMs, .wasUnansweredCheckin = unanswered};
  }

  /// Did they close what nobody had answered? Closes in a row without a message between them are one gesture.
  bool closedUnanswered(std::int64_t closeMs) const {
    std::vector<std::int64_t> closes;
    for (const auto* event : events_)
      if (event->tsMs >= wake_.floorMs && event->tsMs <= closeMs && CoachUIState::isUserClose(*event)) closes.push_back(event->tsMs);
    auto segmentStartMs = wake_.floorMs;
    for (auto later = closes.size(); later-- > 1;)
      if (any(closes[later - 1], closes[later], isChat)) {
        segmentStartMs = closes[later - 1];
        break;
      }
    return std::ranges::none_of(events_, [&](const Event* event) {
      return event->tsMs >= segmentStartMs && event->tsMs <= closeMs && isUserMessage(*event);
    });
  }

  std::optional<Outcome> unansweredCheckin() const {
    const auto* checkin = newestInWindow([](const Event& event) { return event.type == EventType::coachCheckin; });
    if (!checkin) return std::nullopt;
    const auto since = checkin->tsMs;
    if (any(since, now_, [](const Event& event) { return isUserMessage(event) || CoachUIState::isUserClose(event); })) return std::nullopt;

    auto runs = situationRuns(TimedTicks::within(wake_.ticks, std::max(since - situationLookbackMs, wake_.floorMs), now_));
    // One sample may be an odd frame.
    std::erase_if(runs, [](const SituationRun& run) { return run.samples < 2; });
    const auto behind = std::ranges::upper_bound(runs, since, {}, &SituationRun::startMs);
    const auto* anchorRun = behind == runs.begin() ? nullptr : &*std::prev(behind);
    if (anchorRun && std::any_of(behind, runs.end(), [&](const SituationRun& run) { return run.situation != anchorRun->situation; }))
      return std::nullopt;
    const auto anchor = anchorRun ? std::optional(anchorRun->situation.described()) : std::nullopt;

    const auto expiryMs = unansweredCheckinExpiryMs(wake_.environment);
    if (now_ - since < expiryMs || !isPresent()) return HoldForUnansweredCheckin{.sinceMs = since, .anchor = anchor};
    return CheckinHoldExpired{.sinceMs = since, .anchor = anchor, .expiryMs = expiryMs};
  }

  /// Nothing is sent into an empty room: the newest judgment must be recent and of someone at work with something of theirs.
  bool isPresent() const {
    const auto newest = TimedTicks::newest(wake_.ticks, now_);
    if (!newest || now_ - newest->tsMs > presenceMaxAgeMs) return false;
    const auto& tick = *newest->tick;
    if (!tick.state || newest->isAbstained() || Text::equalsIgnoringCase(*tick.state, "IDLE")) return false;
    return tick.frontmostApp && !OwnApplications::contains(tick.frontmostApp);
  }

  const Wake& wake_;
  const std::int64_t now_;
  std::vector<const Event*> events_;
};
}  // namespace

ChatTurn turn(const Outcome& outcome) {
  return match(
      outcome, [](const OpenAwaitingReply&) { return ChatTurn::reply; },
      [](const OpenAwaitingSetupFinishedReply&) { return ChatTurn::reply; },
      [](const OpenDeveloperCheckinRequested&) { return ChatTurn::background; },
      [](const HoldForRecentClose&) { return ChatTurn::background; }, [](const HoldForUnansweredCheckin&) { return ChatTurn::background; },
      [](const CheckinHoldExpired&) { return ChatTurn::background; }, [](const HoldForUserQuiet&) { return ChatTurn::background; },
      [](const HoldForCall&) { return ChatTurn::background; }, [](const HoldAfterCall&) { return ChatTurn::background; },
      [](const ConsultGate&) { return ChatTurn::background; }, [](const HoldForOpenPopup&) { return ChatTurn::background; });
}

std::int64_t unansweredCheckinExpiryMs(const Environment& environment) {
  const auto text = value(environment, "AMBITCAP_UNANSWERED_CHECKIN_HOLD_MAX_SEC");
  const auto seconds = text ? Text::parseInteger(*text) : std::nullopt;
  // A number too large for milliseconds is as good as malformed.
  if (!seconds || *seconds <= 0 || *seconds > std::numeric_limits<std::int64_t>::max() / 1000) return defaultUnansweredCheckinExpiryMs;
  return *seconds * 1000;
}

Outcome evaluate(const Wake& wake) { return Evaluation(wake).outcome(); }

}  // namespace halvo::Layer3Trigger
