#pragma once

#include <functional>
#include <optional>

#include "AmbitudeAppKit/Views/DayFeed.h"
#include "AmbitudeAppKit/Views/Page.h"

class QLabel;
class QLineEdit;
class QScrollArea;
class QVBoxLayout;

namespace halvo {

/// The conversation: what was said, what Lark's tools changed, the reply as it is written, and a line to answer with.
class ConversationView : public Page {
  Q_OBJECT

 public:
  /// `atMost` entries are shown, the newest; the popup shows few.
  ConversationView(DayFeed& feed, std::size_t atMost, QWidget* parent = nullptr);

  /// Where the person types.
  QLineEdit* input() const { return input_; }

 signals:
  /// Something was said, and is kept.
  void said();

 private:
  void refresh();
  void addEntry(const Conversation::Entry& entry);
  void showReply(const std::optional<LiveReply::Shown>& reply);
  void send();
  /// `ifItFails` takes the words back.
  void say(const QString& words, std::function<void()> ifItFails = {});
  void undo(const Conversation::Undo& what);
  void tell(const std::optional<std::string>& failure);
  void keepAtEnd();

  DayFeed& feed_;
  std::size_t atMost_;
  std::vector<Conversation::Entry> shownEntries_;
  QScrollArea* area_ = nullptr;
  QVBoxLayout* list_ = nullptr;
  QLabel *reply_ = nullptr, *failure_ = nullptr;
  QLineEdit* input_ = nullptr;
  bool isAtEnd_ = true;
};

}  // namespace halvo
