#pragma once

#include <functional>

#include <QWidget>

#include "AmbitudeAppKit/Present/Conversation.h"

namespace halvo {

/// One entry of the conversation. Thinking is folded away until it is asked for; an effect that still holds can be undone, and a question that
/// waits is answered by a press.
class ChatEntryView : public QWidget {
  Q_OBJECT

 public:
  struct Acts {
    std::function<void(const Conversation::Undo&)> undo;
    std::function<void(const QString&)> say;
  };
  ChatEntryView(const Conversation::Entry& entry, const Calendar& calendar, const Acts& acts, QWidget* parent = nullptr);

 private:
  QWidget* bubble(const Conversation::Entry& entry, const Calendar& calendar);
  QWidget* line(const Conversation::Entry& entry, const Acts& acts);
};

}  // namespace halvo
