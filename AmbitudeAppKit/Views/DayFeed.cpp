#include "AmbitudeAppKit/Views/DayFeed.h"

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeCore/Coach/CoachStream.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Intention/CurrentTask.h"

namespace halvo {

namespace {

constexpr std::int64_t dayMs = 86'400'000;
constexpr std::int64_t reachMs = 2 * dayMs, furtherMs = 3 * dayMs;
constexpr std::int64_t presentEveryMs = 15'000;  ///< clocks move on without a new row

}  // namespace

struct DayFeed::State {
  State(const std::filesystem::path& root, std::int64_t nowMs)
      : store(root, nowMs - reachMs), reply(CoachStream::url(root), true), startedMs(nowMs) {}
  DayStore store;
  LiveReply reply;
  std::int64_t startedMs, presentedMs = 0;
  bool hasFoundQuiet = false;
};

DayFeed::DayFeed(Config config, QObject* parent)
    : QObject(parent), config_(std::move(config)), state_(std::make_unique<State>(config_.root, config_.nowMs())) {
  connect(&poll_, &QTimer::timeout, this, &DayFeed::look);
  connect(&replyPoll_, &QTimer::timeout, this, &DayFeed::followReply);
  poll_.start(config_.pollMs);
  replyPoll_.start(config_.replyPollMs);
  look();
}

DayFeed::~DayFeed() = default;

void DayFeed::look() {
  if (isLooking_) return;
  isLooking_ = true;
  inBackground(
      queue_, this, [this](const std::stop_token&) { return lookAtFiles(); }, [this](Look look) { take(std::move(look)); });
}

void DayFeed::act(QObject* owner, Deed deed, Told told) {
  inBackground(
      deeds_, owner, [deed = std::move(deed)](const std::stop_token&) { return deed(); },
      [this, told = std::move(told)](const PersonActions::Failure& failure) {
        if (told) told(failure);
        look();
      });
}

DayFeed::Look DayFeed::lookAtFiles() {
  auto& state = *state_;
  Look look;
  const auto nowMs = config_.nowMs();
  bool isNews = state.store.refresh(nowMs);
  look.trouble = state.store.trouble().value_or("");
  look.said = takeArrived();
  // The first look shows what is near; what takes a walk through years comes with the second.
  if (state.presentedMs != 0 && !state.hasFoundQuiet) {
    state.store.findOldQuiet();
    state.hasFoundQuiet = isNews = true;
  }
  if (!isNews && nowMs - state.presentedMs < presentEveryMs) return look;
  state.presentedMs = nowMs;
  look.isNews = true;
  const auto rows = state.store.rows();
  look.now = NowPage::of({.rows = rows, .taskBody = CurrentTask::read(), .nowMs = nowMs, .calendar = config_.calendar});
  look.conversation = Conversation::of({.events = rows.events,
                                        .fromMs = state.store.fromMs(),
                                        .corrections = rows.corrections,
                                        .nowMs = nowMs,
                                        .calendar = config_.calendar});
  return look;
}

std::optional<DayFeed::Said> DayFeed::takeArrived() {
  auto& state = *state_;
  std::optional<Said> said;
  const auto [events, isAnew] = state.store.arrived();
  for (const auto& event : events) {
    state.reply.settle(event.tsMs);
    const auto *role = event.text("role"), *text = event.text("text");
    const bool isSpeech = event.type == EventType::chatMessage && role && (*role == "user" || *role == "coach");
    // Of a file that was read anew most is old.
    if (isSpeech && (!isAnew || event.tsMs > state.startedMs)) said = {*role == "coach", text ? *text : ""};
  }
  return said;
}

void DayFeed::take(Look look) {
  isLooking_ = false;
  if (const auto words = QString::fromStdString(look.trouble); words != trouble_) emit troubleChanged(trouble_ = words);
  if (!look.isNews) return;
  if (look.now != now_) {
    now_ = std::move(look.now);
    emit nowChanged();
  }
  if (look.conversation != conversation_) {
    conversation_ = std::move(look.conversation);
    emit conversationChanged();
  }
  if (look.said) emit saidAnew(look.said->isByLark, QString::fromStdString(look.said->words));
}

void DayFeed::followReply() {
  if (isReading_) return;
  isReading_ = true;
  inBackground(
      queue_, this, [this](const std::stop_token&) { return state_->reply.current(config_.nowMs()); },
      [this](std::optional<LiveReply::Shown> reply) {
        isReading_ = false;
        if (reply == reply_) return;
        reply_ = std::move(reply);
        emit replyChanged(reply_);
      });
}

void DayFeed::showEarlier() {
  inBackground(
      queue_, this,
      [this](const std::stop_token&) {
        state_->store.reachBack(state_->store.fromMs() - furtherMs);
        state_->presentedMs = 0;
        state_->hasFoundQuiet = false;
        return 0;
      },
      [this](int) { look(); });
}

}  // namespace halvo
