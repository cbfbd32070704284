#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include <QObject>
#include <QTimer>

#include "AmbitudeAppKit/Live/LiveReply.h"
#include "AmbitudeAppKit/Present/Conversation.h"
#include "AmbitudeAppKit/Present/NowPage.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Stores/DayStore.h"
#include "AmbitudeAppKit/Stores/PersonActions.h"

namespace halvo {

/// Follows the data root off the main thread and says what the pages show when that changes.
class DayFeed : public QObject {
  Q_OBJECT

 public:
  struct Config {
    std::filesystem::path root = {};
    Calendar calendar = Calendar::local();
    std::function<std::int64_t()> nowMs = {};
    int pollMs = 500;        ///< between two looks at the logs
    int replyPollMs = 200;   ///< between two looks at the reply that is being written
  };
  explicit DayFeed(Config config, QObject* parent = nullptr);
  ~DayFeed() override;

  const NowPage& now() const { return now_; }
  const Conversation& conversation() const { return conversation_; }
  const Config& config() const { return config_; }

  using Deed = std::function<PersonActions::Failure()>;
  using Told = std::function<void(const PersonActions::Failure&)>;
  /// Does what the person asked for, off the main thread and in the order asked, and looks at what it changed. `told` hears why it could
  /// not be done, while `owner` lives. What was asked for is done also when the window ends meanwhile.
  void act(QObject* owner, Deed deed, Told told = {});
  /// Shows three more days of the conversation.
  void showEarlier();

 signals:
  void nowChanged();
  void conversationChanged();
  /// Somebody said something since the last look, and this came last. Follows what it changed in the conversation.
  void saidAnew(bool isByLark, const QString& words);
  void replyChanged(const std::optional<LiveReply::Shown>& reply);
  /// What keeps the logs from being read; empty when nothing does.
  void troubleChanged(const QString& words);

 private:
  void look();
  struct Said {
    bool isByLark = false;
    std::string words = {};
  };
  struct Look {
    NowPage now = {};
    Conversation conversation = {};
    std::optional<Said> said = {};
    std::string trouble = {};
    bool isNews = false;
  };
  /// What came since the last look, whatever times the rows have: a turn's have the time at which it began.
  std::optional<Said> takeArrived();
  struct State;  ///< what the queue's thread owns

  Look lookAtFiles();
  void take(Look look);
  void followReply();

  Config config_;
  NowPage now_;
  Conversation conversation_;
  std::optional<LiveReply::Shown> reply_;
  QString trouble_;
  bool isLooking_ = false, isReading_ = false;
  QTimer poll_, replyPoll_;
  std::unique_ptr<State> state_;
  BackgroundQueue deeds_{BackgroundQueue::AtEnd::finish};
  BackgroundQueue queue_;  // last: its jobs use the state
};

}  // namespace halvo
